#pragma once
// Runs the real veltrane binary (or any program) and captures what it printed.
#include <string>
#include <vector>

namespace veltrane::test {

struct run_result {
    int status = -1;  // exit status, or -1 when the process did not exit normally
    std::string out;
    std::string err;
    bool timed_out = false;  // killed after its time limit
    double seconds = 0.0;    // wall-clock time until it ended
};

// Runs `program` with `args` (argv[1..]) in `cwd` (empty: the current directory). With a
// time limit above 0 the process is killed when it has not ended by then.
run_result run_program(const std::string& program, const std::vector<std::string>& args,
                       const std::string& cwd = {}, double time_limit_seconds = 0.0);

// Runs the veltrane binary built next to the tests.
run_result run_veltrane(const std::vector<std::string>& args, const std::string& cwd = {});
// The same, killed when it runs longer than `time_limit_seconds`.
run_result run_veltrane_within(double time_limit_seconds, const std::vector<std::string>& args);

// The whole contents of a file the binary wrote ("" when it cannot be read).
std::string file_text(const std::string& path);
// The value text of `key` in a results document (without a trailing comma), or "<missing>".
std::string json_value(const std::string& doc, const std::string& key);

// The usage text as the binary prints it, read from `veltrane --help`.
const std::string& usage_text_from_binary();

}  // namespace veltrane::test
