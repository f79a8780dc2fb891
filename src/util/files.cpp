#include "util/files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace veltrane {
namespace {

struct file_closer {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using file_ptr = std::unique_ptr<std::FILE, file_closer>;

// The longest part of the destination's name kept in a temporary file's name; the whole
// name ".<name>.XXXXXX" then stays far below the 255-byte limit of a file name.
constexpr std::size_t temp_name_keep = 100;

// Opens with O_NONBLOCK (so neither a FIFO nor a device can make open() wait), then
// switches the descriptor back to blocking for ordinary reads and writes.
int open_nonblocking(const std::string& path, int flags) {
    int fd = ::open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return -1;
    int fl = ::fcntl(fd, F_GETFL);
    if (fl < 0 || ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK) < 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// The permission bits a newly created file gets: 0666 minus the process's umask.
mode_t new_file_mode() {
    mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

}  // namespace

std::FILE* open_regular_file_for_reading(const std::string& path) {
    int fd = open_nonblocking(path, O_RDONLY);
    if (fd < 0) return nullptr;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return nullptr;
    }
    std::FILE* f = ::fdopen(fd, "rb");
    if (!f) ::close(fd);
    return f;
}

bool is_regular_file(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool read_text_file(const std::string& path, std::string& text, std::size_t buffer_size) {
    text.clear();
    if (buffer_size == 0) return false;
    file_ptr f(open_regular_file_for_reading(path));
    if (!f) return false;
    std::string data(buffer_size - 1, '\0');
    std::size_t got = data.empty() ? 0 : std::fread(data.data(), 1, data.size(), f.get());
    if (std::fgetc(f.get()) != EOF) return false;  // more bytes than the buffer holds
    if (std::ferror(f.get())) return false;
    data.resize(got);
    text = std::move(data);
    return true;
}

atomic_output::~atomic_output() { discard(); }

bool atomic_output::open(const std::string& path) {
    discard();
    failed_ = false;
    if (path.empty()) return false;
    target_path_ = path;
    struct stat link_st {};
    if (::lstat(path.c_str(), &link_st) == 0 && S_ISLNK(link_st.st_mode)) {
        // Replace the file the link points to, not the link itself.
        if (char* real = ::realpath(path.c_str(), nullptr)) {
            target_path_ = real;
            std::free(real);
        }
    }
    struct stat st {};
    const bool exists = ::stat(target_path_.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) return false;
    auto open_directly = [this](int flags) {
        int fd = open_nonblocking(target_path_, flags);
        if (fd < 0) return false;
        file_ = ::fdopen(fd, "wb");
        if (!file_) ::close(fd);
        return file_ != nullptr;
    };
    if (exists && !S_ISREG(st.st_mode)) return open_directly(O_WRONLY);

    // The temporary file sits in the destination's own directory (only '/' separates
    // directories on this platform), named after the destination so that a leftover from
    // a killed run is recognisable.
    const std::size_t slash = target_path_.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string(".") : target_path_.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? target_path_ : target_path_.substr(slash + 1);
    if (name.size() > temp_name_keep) name.resize(temp_name_keep);
    std::string templ = dir;
    if (slash == std::string::npos) templ += '/';
    templ += '.';
    templ += name;
    templ += ".XXXXXX";
    int fd = ::mkstemp(templ.data());
    // A writable file in a directory this process may not add files to can still only be
    // overwritten in place, as before.
    if (fd < 0 && errno == EACCES && exists) return open_directly(O_WRONLY | O_TRUNC);
    if (fd < 0) return false;
    temp_path_ = templ;
    const mode_t mode = exists ? (st.st_mode & 07777) : new_file_mode();
    ::fchmod(fd, mode);  // best effort: a failure leaves the private 0600 mode
    file_ = ::fdopen(fd, "wb");
    if (!file_) {
        ::close(fd);
        ::unlink(temp_path_.c_str());
        temp_path_.clear();
        return false;
    }
    return true;
}

bool atomic_output::write(std::string_view bytes) {
    if (!file_) return false;
    if (bytes.empty()) return true;
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) failed_ = true;
    return !failed_;
}

bool atomic_output::commit() {
    if (!file_) return false;
    bool ok = !failed_ && std::fflush(file_) == 0 && !std::ferror(file_);
    // A full disk can surface only when the data reaches it, so the sync is part of the
    // write. Devices written directly may not support it.
    if (ok && !temp_path_.empty() && ::fsync(::fileno(file_)) != 0 && errno != EINVAL) ok = false;
    ok = std::fclose(file_) == 0 && ok;
    file_ = nullptr;
    if (temp_path_.empty()) return ok;
    if (ok && ::rename(temp_path_.c_str(), target_path_.c_str()) != 0) ok = false;
    if (!ok) ::unlink(temp_path_.c_str());
    temp_path_.clear();
    return ok;
}

void atomic_output::discard() {
    if (file_) std::fclose(file_);
    file_ = nullptr;
    if (!temp_path_.empty()) ::unlink(temp_path_.c_str());
    temp_path_.clear();
}

bool write_text_file(const std::string& path, std::string_view text) {
    return write_binary_file(path, text.substr(0, text.find('\0')));
}

bool write_binary_file(const std::string& path, std::string_view bytes) {
    atomic_output out;
    return out.open(path) && out.write(bytes) && out.commit();
}

stale_removal remove_stale_output(const std::string& path) {
    if (!is_regular_file(path)) return stale_removal::nothing_there;
    return ::unlink(path.c_str()) == 0 ? stale_removal::removed : stale_removal::failed;
}

bool same_file(const std::string& a, const std::string& b) {
    struct stat sa {};
    struct stat sb {};
    return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
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
