#include "cli/output_paths.h"

#include <ostream>
#include <vector>

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

namespace {

// The shared rule; with `create` false a missing output directory is not created (and
// cannot hold an input, so the paths are still planned).
bool resolve_paths(std::string_view out, std::string_view name_source, bool json, output_paths& paths,
                   std::ostream* err) {
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
    if (err && !is_directory(dir) && !ensure_directory(dir)) {
        *err << "error: could not create output directory '" << dir << "'\n";
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

}  // namespace

bool resolve_output_paths(std::string_view out, std::string_view name_source, bool json, output_paths& paths,
                          std::ostream& err) {
    return resolve_paths(out, name_source, json, paths, &err);
}

bool plan_output_paths(std::string_view out, std::string_view name_source, bool json, output_paths& paths) {
    return resolve_paths(out, name_source, json, paths, nullptr);
}

std::optional<std::string> output_overwrites_input(const output_paths& paths, std::span<const named_input> inputs) {
    for (const std::string* output : {&paths.html_path, &paths.json_path}) {
        if (output->empty()) continue;
        for (const named_input& input : inputs) {
            if (!same_file(*output, input.path)) continue;
            return "error: output '" + *output + "' is the same file as " + std::string(input.option) + " '" +
                   input.path + "' -- refusing to overwrite an input\n";
        }
    }
    return std::nullopt;
}

bool outputs_spare_inputs(const analyze_options& opts, std::ostream& err) {
    output_paths paths;
    if (!plan_output_paths(opts.out_path, opts.dut_path, opts.json, paths)) return true;  // reported later
    std::vector<named_input> inputs{{"--ref", opts.ref_path}, {"--dut", opts.dut_path}};
    if (opts.config_path) inputs.push_back({"--config", *opts.config_path});
    if (opts.defaults_cfg_path) inputs.push_back({"--defaults-cfg", *opts.defaults_cfg_path});
    std::optional<std::string> refusal = output_overwrites_input(paths, inputs);
    if (!refusal) return true;
    err << *refusal;
    return false;
}

std::string stale_output_note(const std::string& json_path) {
    switch (remove_stale_output(json_path)) {
        case stale_removal::nothing_there: return {};
        case stale_removal::removed:
            return "; the older '" + json_path + "' was removed so that it is not taken for this run's result";
        case stale_removal::failed:
            return "; the older '" + json_path + "' could not be removed and does not belong to this run";
    }
    return {};
}

}  // namespace veltrane
