#pragma once
// The option scanner shared by the three subcommands. Options are scanned left to right
// from argv[2]; a value option consumes the next argument whatever it looks like, and a
// value option standing last is not accepted (it is reported as unrecognised). A repeated
// option overwrites the earlier value; "--help"/"-h" ends the scan at the point where it
// is met.
#include <iosfwd>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace veltrane {

struct option_def {
    std::string_view name;
    bool takes_value;
};

enum class scan_outcome { ok, help, unrecognized };

struct scanned_options {
    scan_outcome outcome = scan_outcome::ok;
    std::string unrecognized;                   // the offending argument
    std::map<std::string, std::string> values;  // option name -> last value ("" for flags)

    bool has(std::string_view name) const { return values.find(std::string(name)) != values.end(); }
    const std::string* value(std::string_view name) const;
};

scanned_options scan_options(int argc, char** argv, std::span<const option_def> defs);

// Applies the shared conventions for a subcommand: with nothing after the subcommand name,
// or when the scan fails, prints the matching message (the "requires" line plus usage, the
// unrecognised-argument error plus usage, or the usage text on standard output for
// --help) and returns the exit status. Returns nullopt when the scan succeeded.
// `requires_line` is the full "error: ... requires ...\n\n" text.
std::optional<int> scan_subcommand(int argc, char** argv, std::span<const option_def> defs,
                                   std::string_view requires_line, scanned_options& scanned,
                                   std::ostream& out, std::ostream& err);

// Prints the "requires" line and the usage text to `err` and returns exit status 1.
int report_missing_required(std::string_view requires_line, std::ostream& err);

}  // namespace veltrane
