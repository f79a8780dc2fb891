#pragma once
// Small file-system and path helpers shared by every command. Paths are byte strings
// handed to the platform unchanged; wherever a path is cut, both '/' and '\\' count as
// separators. None of these print anything: callers turn a false result into their own
// message.
#include <cstddef>
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

// Reads the whole file byte for byte into `text`. Fails when the file cannot be opened
// or holds more than buffer_size - 1 bytes (the room a NUL-terminated buffer of
// buffer_size bytes leaves). On failure `text` is left empty.
bool read_text_file(const std::string& path, std::string& text, std::size_t buffer_size);

// Writes `text` up to its first NUL byte (if any) with one write, creating or truncating
// the file; true when every byte was written. A failed write may leave a partial file.
bool write_text_file(const std::string& path, std::string_view text);

// Writes every byte of `bytes` (NULs included) with one write; used for whole HTML pages.
bool write_binary_file(const std::string& path, std::string_view bytes);

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
