#include <array>
#include <ostream>

#include "cli/commands.h"
#include "cli/options.h"

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
    err << "error: plot is not built yet in this version\n";
    return 1;
}

}  // namespace veltrane
