#pragma once
// Loading of the settings files by the commands, with the messages they print: the
// defaults file (all three commands, after their options parse and before any audio is
// read) and, for analyze, the --config file and the profiles named in either file.
#include <iosfwd>
#include <optional>
#include <string>

#include "cli/analyze_options.h"
#include "config/config_layer.h"
#include "config/defaults_file.h"
#include "config/run_config.h"

namespace veltrane {

// Loads the defaults file named by --defaults-cfg, or the one next to the executable,
// and range-checks its numbers (check_setting_ranges, labelled "veltrane-defaults.cfg").
// On failure prints the matching "error: ..." line to `err` and returns false.
bool load_command_defaults(const std::optional<std::string>& defaults_cfg_path, defaults_record& defaults,
                           std::ostream& err);

// The two settings layers of an analyze run.
struct analyze_settings_files {
    config_layer config_file;  // the --config layer (empty without --config)
    defaults_record defaults;  // the defaults file (empty when there is none)
};

// In order: the --config file (then its ranges), the defaults file (then its ranges), the
// --config layer's profile, then the defaults layer's profile. Prints the first
// failure's message to `err` and returns false; nothing has been read from the audio
// files at that point.
bool load_analyze_settings_files(const analyze_options& opts, analyze_settings_files& files, std::ostream& err);

}  // namespace veltrane
