#pragma once
// Small file-system and path helpers shared by every command. Paths are byte strings
// handed to the platform unchanged; wherever a path is cut, both '/' and '\\' count as
// separators. None of these print anything: callers turn a false result into their own
// message.
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace veltrane {

// Largest path the program handles: paths live in 4096-byte buffers (4095 characters
// plus the terminating NUL).
inline constexpr std::size_t path_buffer_size = 4096;
inline constexpr std::size_t max_path_chars = path_buffer_size - 1;

// Settings files are read into a buffer of this size, so a file of 16384 bytes or more
// does not load.
inline constexpr std::size_t settings_file_buffer_size = 16384;

// Opens `path` for reading byte for byte without ever blocking, and only when it is a
// regular file. The open itself is non-blocking (a FIFO without a writer would otherwise
// wait in open forever); a FIFO, device, socket or directory is closed again and refused.
// Returns nullptr on failure; the caller closes the file.
std::FILE* open_regular_file_for_reading(const std::string& path);

// True when `path` names a regular file (after following symbolic links).
bool is_regular_file(const std::string& path);

// Reads the whole file byte for byte into `text`. Fails when the file cannot be opened,
// is not a regular file, or holds more than buffer_size - 1 bytes (the room a
// NUL-terminated buffer of buffer_size bytes leaves). On failure `text` is left empty.
bool read_text_file(const std::string& path, std::string& text, std::size_t buffer_size);

// An output file written under a temporary name and moved into place only when it is
// complete, so that a reader never sees a half-written file and a failed write leaves
// the earlier file at that path untouched.
//
// open() creates "<dir>/.<name>.XXXXXX" next to the destination (same file system, so the
// final rename is atomic) with the mode the destination has, or 0666 minus the umask for
// a new file. commit() flushes, syncs to disk, closes and renames the temporary file over
// the destination; on any failure, and when the object goes away uncommitted, the
// temporary file is removed. A destination that is a symbolic link is resolved first, so
// the file it points to is replaced and the link stays. A destination that exists and is
// not a regular file (/dev/null, a FIFO, a terminal) is written directly instead: it
// cannot be replaced, and a FIFO without a reader fails at once instead of blocking. So
// is an existing file in a directory where no file may be created (permission denied):
// overwriting it in place is then the only way, without the atomic guarantee.
class atomic_output {
public:
    atomic_output() = default;
    ~atomic_output();
    atomic_output(const atomic_output&) = delete;
    atomic_output& operator=(const atomic_output&) = delete;

    bool open(const std::string& path);
    std::FILE* file() const { return file_; }
    // Writes every byte of `bytes`; false on a short write.
    bool write(std::string_view bytes);
    bool commit();
    // Closes and removes the temporary file; the destination is not touched.
    void discard();

private:
    std::FILE* file_ = nullptr;
    std::string temp_path_;    // empty when writing directly
    std::string target_path_;  // where commit() puts the file
    bool failed_ = false;
};

// Writes `text` up to its first NUL byte (if any) atomically (see atomic_output); true
// when every byte was written and the file is in place. On failure the earlier file at
// `path`, if any, is unchanged and no temporary file is left behind.
bool write_text_file(const std::string& path, std::string_view text);

// Writes every byte of `bytes` (NULs included) atomically; used for whole HTML pages.
bool write_binary_file(const std::string& path, std::string_view bytes);

// What remove_stale_output did.
enum class stale_removal {
    nothing_there,  // no regular file at the path: nothing to remove
    removed,
    failed,         // a regular file is there and could not be removed
};

// Removes an output left by an earlier run at `path`, when the new run could not replace
// it, so that an old results document never stands beside a newer page. Only a regular
// file (or a link to one: the link is removed) is removed; anything else is left alone.
stale_removal remove_stale_output(const std::string& path);

// True when both paths exist and name the same file (same device and inode), so that
// writing one would overwrite the other.
bool same_file(const std::string& a, const std::string& b);

bool path_exists(const std::string& path);
bool is_directory(const std::string& path);

// True when `path` already is a directory or one directory could be created there
// (parents are not created).
bool ensure_directory(const std::string& path);

// Index of the last '/' or '\\' in `path`, whichever comes later, or npos.
std::size_t last_separator(std::string_view path);

// The directory part of `exe_path`: everything before its last separator. Fails when
// there is no separator or the directory would not fit a buffer of buffer_size bytes.
bool directory_of(std::string_view exe_path, std::size_t buffer_size, std::string& dir);

// The directory holding the running executable, found through its real path. Fails
// when the platform gives no path, a path of 4096 characters or more, or the directory
// does not fit a buffer of buffer_size bytes.
bool executable_dir(std::string& dir, std::size_t buffer_size = path_buffer_size);

// The file name of `path` without its last extension, cut to buffer_size - 1 characters.
// A leading dot does not start an extension: "a/b/take3.wav" -> "take3",
// "take.b.wav" -> "take.b", ".wav" -> ".wav", "dir.x/report" -> "report".
std::string file_stem(std::string_view path, std::size_t buffer_size);

// The current time in UTC as "YYYY-MM-DD HH:MM:SS UTC", cut to buffer_size - 1 characters.
std::string utc_timestamp(std::size_t buffer_size = 64);

}  // namespace veltrane
