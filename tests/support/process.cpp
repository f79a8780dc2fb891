#include "support/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/temp_dir.h"

extern char** environ;

namespace veltrane::test {
namespace {

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

}  // namespace

run_result run_program(const std::string& program, const std::vector<std::string>& args, const std::string& cwd) {
    temp_dir capture;
    std::string out_path = capture.file("stdout");
    std::string err_path = capture.file("stderr");

    std::vector<std::string> storage;
    storage.push_back(program);
    storage.insert(storage.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& s : storage) argv.push_back(s.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());

    pid_t pid = 0;
    int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) throw std::runtime_error("could not start " + program);

    int wstatus = 0;
    while (waitpid(pid, &wstatus, 0) < 0) {
    }
    run_result result;
    result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    result.out = slurp(out_path);
    result.err = slurp(err_path);
    return result;
}

run_result run_veltrane(const std::vector<std::string>& args, const std::string& cwd) {
    return run_program(VELTRANE_BIN, args, cwd);
}

const std::string& usage_text_from_binary() {
    static const std::string text = run_veltrane({"--help"}).out;
    return text;
}

}  // namespace veltrane::test
