#pragma once
// Runs the real veltrane binary (or any program) and captures what it printed.
#include <string>
#include <vector>

namespace veltrane::test {

struct run_result {
    int status = -1;  // exit status, or -1 when the process did not exit normally
    std::string out;
    std::string err;
};

// Runs `program` with `args` (argv[1..]) in `cwd` (empty: the current directory).
run_result run_program(const std::string& program, const std::vector<std::string>& args,
                       const std::string& cwd = {});

// Runs the veltrane binary built next to the tests.
run_result run_veltrane(const std::vector<std::string>& args, const std::string& cwd = {});

// The usage text as the binary prints it, read from `veltrane --help`.
const std::string& usage_text_from_binary();

}  // namespace veltrane::test
