#include "cli/options.h"

#include <ostream>

#include "cli/usage.h"

namespace veltrane {

const std::string* scanned_options::value(std::string_view name) const {
    auto it = values.find(std::string(name));
    return it == values.end() ? nullptr : &it->second;
}

scanned_options scan_options(int argc, char** argv, std::span<const option_def> defs) {
    scanned_options result;
    for (int i = 2; i < argc; ++i) {
        std::string_view arg = argv[i];
        const option_def* match = nullptr;
        for (const option_def& def : defs) {
            // A value option with nothing after it does not match and falls through.
            if (def.name == arg && (!def.takes_value || i + 1 < argc)) {
                match = &def;
                break;
            }
        }
        if (match) {
            if (match->takes_value) {
                result.values[std::string(arg)] = argv[++i];
            } else {
                result.values[std::string(arg)] = std::string();
            }
            continue;
        }
        if (arg == "--help" || arg == "-h") {
            result.outcome = scan_outcome::help;
            return result;
        }
        result.outcome = scan_outcome::unrecognized;
        result.unrecognized = std::string(arg);
        return result;
    }
    return result;
}

int report_missing_required(std::string_view requires_line, std::ostream& err) {
    err << requires_line;
    print_usage(err);
    return 1;
}

std::optional<int> scan_subcommand(int argc, char** argv, std::span<const option_def> defs,
                                   std::string_view requires_line, scanned_options& scanned,
                                   std::ostream& out, std::ostream& err) {
    if (argc < 3) return report_missing_required(requires_line, err);
    scanned = scan_options(argc, argv, defs);
    switch (scanned.outcome) {
        case scan_outcome::help:
            out << usage_text;
            return 0;
        case scan_outcome::unrecognized:
            err << "error: unrecognized argument '" << scanned.unrecognized << "'\n\n";
            print_usage(err);
            return 1;
        case scan_outcome::ok:
            break;
    }
    return std::nullopt;
}

}  // namespace veltrane
