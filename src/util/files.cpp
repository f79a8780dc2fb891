#include "util/files.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

namespace veltrane {
namespace {

struct file_closer {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using file_ptr = std::unique_ptr<std::FILE, file_closer>;

bool write_bytes(const std::string& path, std::string_view bytes) {
    std::FILE* raw = std::fopen(path.c_str(), "wb");
    if (!raw) return false;
    std::size_t written = bytes.empty() ? 0 : std::fwrite(bytes.data(), 1, bytes.size(), raw);
    bool closed = std::fclose(raw) == 0;
    return written == bytes.size() && closed;
}

}  // namespace

bool read_text_file(const std::string& path, std::string& text, std::size_t buffer_size) {
    text.clear();
    if (buffer_size == 0) return false;
    file_ptr f(std::fopen(path.c_str(), "rb"));
    if (!f) return false;
    std::string data(buffer_size - 1, '\0');
    std::size_t got = data.empty() ? 0 : std::fread(data.data(), 1, data.size(), f.get());
    if (std::fgetc(f.get()) != EOF) return false;  // more bytes than the buffer holds
    if (std::ferror(f.get())) return false;        // e.g. a directory: opens, but cannot be read
    data.resize(got);
    text = std::move(data);
    return true;
}

bool write_text_file(const std::string& path, std::string_view text) {
    return write_bytes(path, text.substr(0, text.find('\0')));
}

bool write_binary_file(const std::string& path, std::string_view bytes) {
    return write_bytes(path, bytes);
}

bool path_exists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

bool is_directory(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool ensure_directory(const std::string& path) {
    if (is_directory(path)) return true;
    return ::mkdir(path.c_str(), 0777) == 0;
}

std::size_t last_separator(std::string_view path) {
    return path.find_last_of("/\\");
}

bool directory_of(std::string_view exe_path, std::size_t buffer_size, std::string& dir) {
    std::size_t sep = last_separator(exe_path);
    if (sep == std::string_view::npos || sep >= buffer_size) return false;
    dir.assign(exe_path.substr(0, sep));
    return true;
}

bool executable_dir(std::string& dir, std::size_t buffer_size) {
    char buf[path_buffer_size];
    ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf);
    if (n <= 0 || static_cast<std::size_t>(n) >= sizeof buf) return false;
    return directory_of(std::string_view(buf, static_cast<std::size_t>(n)), buffer_size, dir);
}

std::string file_stem(std::string_view path, std::size_t buffer_size) {
    std::size_t sep = last_separator(path);
    std::string_view rest = sep == std::string_view::npos ? path : path.substr(sep + 1);
    std::size_t dot = rest.rfind('.');
    if (dot != std::string_view::npos && dot != 0) rest = rest.substr(0, dot);
    if (buffer_size == 0) return {};
    return std::string(rest.substr(0, buffer_size - 1));
}

std::string utc_timestamp(std::size_t buffer_size) {
    std::time_t now = std::time(nullptr);
    std::tm utc {};
    char buf[64];
    std::size_t n = 0;
    if (gmtime_r(&now, &utc)) n = std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S UTC", &utc);
    std::string text(buf, n);
    if (buffer_size == 0) return {};
    if (text.size() > buffer_size - 1) text.resize(buffer_size - 1);
    return text;
}

}  // namespace veltrane
