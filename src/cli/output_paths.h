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
#include <string>
#include <string_view>

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

}  // namespace veltrane
