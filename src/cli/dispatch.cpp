#include <ostream>
#include <string_view>

#include "cli/commands.h"
#include "cli/usage.h"

namespace veltrane {

int run_main(int argc, char** argv, std::ostream& out, std::ostream& err) {
    if (argc < 2) {
        print_usage(err);
        return 1;
    }
    std::string_view command = argv[1];
    if (command == "--help" || command == "-h") {
        out << usage_text;
        return 0;
    }
    if (command == "--version") {
        out << "veltrane v" << program_version << "\n";
        return 0;
    }
    if (command == "analyze") return cmd_analyze(argc, argv, out, err);
    if (command == "trim") return cmd_trim(argc, argv, out, err);
    if (command == "plot") return cmd_plot(argc, argv, out, err);
    err << "error: unknown subcommand '" << command << "' (expected 'analyze', 'trim', or 'plot')\n\n";
    print_usage(err);
    return 1;
}

}  // namespace veltrane
