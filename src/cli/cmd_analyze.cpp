#include <ostream>

#include "cli/analyze_options.h"
#include "cli/commands.h"

namespace veltrane {

int cmd_analyze(int argc, char** argv, std::ostream& out, std::ostream& err) {
    analyze_options opts;
    if (auto status = parse_analyze_options(argc, argv, opts, out, err)) return *status;
    err << "error: analyze is not built yet in this version\n";
    return 1;
}

}  // namespace veltrane
