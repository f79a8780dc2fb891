#include <ostream>

#include "cli/analyze_options.h"
#include "cli/commands.h"
#include "cli/settings_files.h"

namespace veltrane {

int cmd_analyze(int argc, char** argv, std::ostream& out, std::ostream& err) {
    analyze_options opts;
    if (auto status = parse_analyze_options(argc, argv, opts, out, err)) return *status;
    analyze_settings_files settings;
    if (!load_analyze_settings_files(opts, settings, err)) return 1;
    err << "error: analyze is not built yet in this version\n";
    return 1;
}

}  // namespace veltrane
