#pragma once
// Command entry points. Each receives the full argument vector (its own options start at
// argv[2]) and the two streams it may print to, and returns the process exit status.
#include <iosfwd>

namespace veltrane {

// Program entry: dispatches on argv[1] only.
int run_main(int argc, char** argv, std::ostream& out, std::ostream& err);

int cmd_analyze(int argc, char** argv, std::ostream& out, std::ostream& err);
int cmd_trim(int argc, char** argv, std::ostream& out, std::ostream& err);
int cmd_plot(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace veltrane
