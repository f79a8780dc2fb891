#include "support/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/temp_dir.h"

extern char** environ;

namespace veltrane::test {

std::string file_text(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string json_value(const std::string& doc, const std::string& key) {
    const std::string prefix = "\n    \"" + key + "\": ";
    std::size_t at = doc.find(prefix);
    if (at == std::string::npos) return "<missing>";
    std::size_t from = at + prefix.size();
    std::string value = doc.substr(from, doc.find('\n', from) - from);
    if (!value.empty() && value.back() == ',') value.pop_back();
    return value;
}

run_result run_program(const std::string& program, const std::vector<std::string>& args, const std::string& cwd,
                       double time_limit_seconds) {
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

    const auto start = std::chrono::steady_clock::now();
    auto elapsed = [&start] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    run_result result;
    int wstatus = 0;
    if (time_limit_seconds > 0.0) {
        while (waitpid(pid, &wstatus, WNOHANG) == 0) {
            if (elapsed() > time_limit_seconds) {
                kill(pid, SIGKILL);
                result.timed_out = true;
                while (waitpid(pid, &wstatus, 0) < 0) {
                }
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    } else {
        while (waitpid(pid, &wstatus, 0) < 0) {
        }
    }
    result.seconds = elapsed();
    result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    result.out = file_text(out_path);
    result.err = file_text(err_path);
    return result;
}

run_result run_veltrane(const std::vector<std::string>& args, const std::string& cwd) {
    return run_program(VELTRANE_BIN, args, cwd);
}

run_result run_veltrane_within(double time_limit_seconds, const std::vector<std::string>& args) {
    return run_program(VELTRANE_BIN, args, {}, time_limit_seconds);
}

const std::string& usage_text_from_binary() {
    static const std::string text = run_veltrane({"--help"}).out;
    return text;
}

}  // namespace veltrane::test
