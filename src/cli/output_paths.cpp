#include "cli/output_paths.h"

#include <ostream>

#include "util/files.h"

namespace veltrane {
namespace {

bool is_separator(char c) { return c == '/' || c == '\\'; }

// "<dir>/<stem><ext>", or false when it would need more than 4095 characters.
bool join_output_path(const std::string& dir, const std::string& stem, std::string_view ext, std::string& path) {
    if (dir.size() + 1 + stem.size() + ext.size() > max_path_chars) return false;
    path = dir;
    path += '/';
    path += stem;
    path += ext;
    return true;
}

}  // namespace

bool resolve_output_paths(std::string_view out, std::string_view name_source, bool json, output_paths& paths,
                          std::ostream& err) {
    paths = {};
    const std::string out_text(out);
    const bool directory_mode = is_directory(out_text) || (!out.empty() && is_separator(out.back()));
    if (out.size() > max_path_chars) return false;

    if (!directory_mode) {
        paths.html_path = out_text;
        if (!json) return true;
        std::size_t sep = last_separator(out);
        std::string_view prefix = sep == std::string_view::npos ? std::string_view() : out.substr(0, sep + 1);
        std::string stem = file_stem(out, output_stem_buffer_size);
        if (prefix.size() + stem.size() + 5 > max_path_chars) {
            paths = {};
            return false;
        }
        paths.json_path = std::string(prefix) + stem + ".json";
        return true;
    }

    std::string dir = out_text;
    if (!dir.empty() && is_separator(dir.back())) dir.pop_back();
    if (!is_directory(dir) && !ensure_directory(dir)) {
        err << "error: could not create output directory '" << dir << "'\n";
        return false;
    }
    std::string stem = file_stem(name_source, output_stem_buffer_size);
    if (!join_output_path(dir, stem, ".html", paths.html_path) ||
        (json && !join_output_path(dir, stem, ".json", paths.json_path))) {
        paths = {};
        return false;
    }
    return true;
}

}  // namespace veltrane
