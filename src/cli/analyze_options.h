#pragma once
// The analyze command line: option values as typed, before any settings file is read.
#include <iosfwd>
#include <optional>
#include <string>

#include "config/run_config.h"

namespace veltrane {

struct analyze_options {
    std::string ref_path;
    std::string dut_path;
    std::string out_path;
    std::optional<std::string> config_path;        // --config
    std::optional<std::string> defaults_cfg_path;  // --defaults-cfg
    command_line_overrides overrides;  // --snapshots and the check switches
    bool json = false;
    bool quiet = false;
    bool exit_code = false;
};

// Parses argv[2..] of analyze and checks the required options and the three flag
// conflicts, printing any error. Returns the exit status when the run must end here
// (0 for --help, 1 for errors), nullopt when `opts` is ready.
std::optional<int> parse_analyze_options(int argc, char** argv, analyze_options& opts,
                                         std::ostream& out, std::ostream& err);

// Reads the --snapshots value: a base-10 integer prefix, 0 when the text holds no number,
// negative values counted as 0.
long parse_snapshot_count(const std::string& text);

}  // namespace veltrane
