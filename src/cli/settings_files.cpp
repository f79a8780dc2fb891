#include "cli/settings_files.h"

#include <ostream>

#include "config/settings_ranges.h"

namespace veltrane {

bool load_command_defaults(const std::optional<std::string>& defaults_cfg_path, defaults_record& defaults,
                           std::ostream& err) {
    if (!load_defaults_file(defaults_cfg_path, defaults)) {
        if (defaults_cfg_path) {
            err << "error: --defaults-cfg '" << *defaults_cfg_path << "' does not exist or could not be parsed\n";
        } else {
            err << "error: failed to read or parse " << defaults_file_name << "\n";
        }
        return false;
    }
    // Every number is range-checked before any command uses it.
    std::optional<std::string> range_error = check_setting_ranges(defaults.top_level, defaults_file_name);
    if (!range_error) range_error = check_setting_ranges(defaults.analysis, defaults_file_name);
    if (!range_error) return true;
    err << *range_error;
    return false;
}

bool load_analyze_settings_files(const analyze_options& opts, analyze_settings_files& files, std::ostream& err) {
    files = analyze_settings_files{};
    if (opts.config_path && !load_config_file(*opts.config_path, files.config_file)) {
        err << "error: failed to read or parse --config '" << *opts.config_path << "'\n";
        return false;
    }
    if (std::optional<std::string> range_error = check_setting_ranges(files.config_file, "--config")) {
        err << *range_error;
        return false;
    }
    if (!load_command_defaults(opts.defaults_cfg_path, files.defaults, err)) return false;
    std::string message;
    if (!apply_default_profile(files.config_file, "--config", message) ||
        !apply_default_profile(files.defaults.analysis, defaults_file_name, message)) {
        err << message;
        return false;
    }
    return true;
}

}  // namespace veltrane
