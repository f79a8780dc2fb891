#include <array>
#include <optional>
#include <ostream>
#include <string>

#include "cli/commands.h"
#include "cli/options.h"
#include "cli/settings_files.h"

namespace veltrane {
namespace {

constexpr std::array<option_def, 4> plot_option_defs{{
    {"--input", true},
    {"--out", true},
    {"--json", false},
    {"--defaults-cfg", true},
}};

constexpr std::string_view plot_requires = "error: plot requires --input and --out\n\n";

}  // namespace

int cmd_plot(int argc, char** argv, std::ostream& out, std::ostream& err) {
    scanned_options scanned;
    if (auto status = scan_subcommand(argc, argv, plot_option_defs, plot_requires, scanned, out, err)) return *status;
    if (!scanned.has("--input") || !scanned.has("--out")) return report_missing_required(plot_requires, err);
    std::optional<std::string> defaults_cfg;
    if (const std::string* v = scanned.value("--defaults-cfg")) defaults_cfg = *v;
    defaults_record defaults;
    if (!load_command_defaults(defaults_cfg, defaults, err)) return 1;
    err << "error: plot is not built yet in this version\n";
    return 1;
}

}  // namespace veltrane
