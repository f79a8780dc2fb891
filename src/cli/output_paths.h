#pragma once
// Where analyze and plot write their page and JSON file, from --out.
//
// Exact mode: --out names the page itself (used unchanged, whatever its extension); the
// JSON file is the same directory and stem with ".json". Directory mode (--out is an
// existing directory, or ends in '/' or '\\'): the page is <dir>/<stem>.html and the JSON
// <dir>/<stem>.json, the stem being the name source's file name without its last
// extension (at most 255 characters); a missing directory is created, one level only.
// Every path has at most 4095 characters (4096-byte path buffers).
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "cli/analyze_options.h"

namespace veltrane {

// Longest stem used in an output name: stems live in 256-byte buffers.
inline constexpr std::size_t output_stem_buffer_size = 256;

struct output_paths {
    std::string html_path;
    std::string json_path;  // empty unless the JSON file was asked for
};

// Resolves the paths from `out` (as typed), `name_source` (the DUT path for analyze, the
// input path for plot) and the JSON flag. False when a path would exceed 4095 characters
// or the output directory cannot be created; the latter prints
// "error: could not create output directory '<dir>'" to `err` (the only message printed
// here: the caller reports the failure in its own words).
bool resolve_output_paths(std::string_view out, std::string_view name_source, bool json, output_paths& paths,
                          std::ostream& err);

// The same paths without creating anything and without printing: what resolve_output_paths
// would give. A directory that does not exist yet is planned as if it did.
bool plan_output_paths(std::string_view out, std::string_view name_source, bool json, output_paths& paths);

// An input file of a command and the option that named it ("--ref", "--dut", ...).
struct named_input {
    std::string_view option;
    std::string path;
};

// When an output path names the same file as an input (same device and inode: the same
// path, another spelling, a hard link or a symbolic link), the complete line
// "error: output '<output>' is the same file as <option> '<input>' -- refusing to
// overwrite an input\n"; nullopt when no output would overwrite an input.
std::optional<std::string> output_overwrites_input(const output_paths& paths, std::span<const named_input> inputs);

// For analyze, before any work: plans the page and JSON paths from --out and refuses,
// printing the line above to `err` and returning false, when either would overwrite
// --ref, --dut, --config or --defaults-cfg. An --out that cannot be resolved passes here
// (the run reports it where it always has).
bool outputs_spare_inputs(const analyze_options& opts, std::ostream& err);

// After a results or error document could not be written to `json_path`: removes the
// document an earlier run left there (remove_stale_output), so that an older verdict
// never stands beside this run's page, and returns the words to add to the failure line:
// "; the older '<path>' was removed so that it is not taken for this run's result",
// "; the older '<path>' could not be removed and does not belong to this run", or empty
// when there was nothing to remove.
std::string stale_output_note(const std::string& json_path);

}  // namespace veltrane
