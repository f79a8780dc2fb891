#pragma once
// Growable, always NUL-terminated byte string in which every HTML page is built whole
// before it is written with one write. Text is treated as bytes: UTF-8 passes through
// unchanged.
//
// Capacity rule: `cap` is 0 (nothing allocated yet) or a power of two of at least 256
// bytes; an append that needs `need` = len + added + 1 bytes grows the storage to the
// smallest such power of two that holds `need`. Doubling keeps appends amortised
// constant time.
//
// Every append returns false when it cannot complete (memory exhausted, a formatting
// error); the buffer then still holds exactly what was appended before the failing step.
#include <cstdint>
#include <memory>
#include <string_view>

namespace veltrane {

struct text_buf {
    std::unique_ptr<char[]> data;  // null until the first append that grows the buffer
    std::uint64_t len = 0;         // bytes in use, not counting the terminating NUL
    std::uint64_t cap = 0;         // bytes allocated at data
};

// Smallest capacity an empty buffer is given.
inline constexpr std::uint64_t text_buf_min_capacity = 256;

// The text appended so far (empty when nothing was).
inline std::string_view text_buf_view(const text_buf& buf) {
    return buf.data ? std::string_view(buf.data.get(), static_cast<std::size_t>(buf.len)) : std::string_view();
}

// Empties the buffer without allocating (data null, len and cap 0).
void text_buf_init(text_buf& buf);
// Releases the storage and empties the buffer; safe on a buffer that never grew.
void text_buf_free(text_buf& buf);

// Appends `text` up to its first NUL byte.
bool text_buf_append(text_buf& buf, const char* text);
// Appends every byte of `text` (used for the embedded style and script resources).
bool text_buf_append(text_buf& buf, std::string_view text);
bool text_buf_append_char(text_buf& buf, char byte);

// Appends the printf-style formatting of the arguments. The length is measured first
// with a zero-size pass, then the text is formatted in place; a negative measured length
// is a formatting error (false, nothing appended).
bool text_buf_appendf(text_buf& buf, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Appends `text` (up to its NUL) with " & ' < > written as &quot; &amp; &#39; &lt; &gt;;
// every other byte is copied as it is.
bool text_buf_append_html(text_buf& buf, const char* text);
// As text_buf_append_html, plus "<wbr>" after every '/' and '\\' so that long paths
// wrap at their separators: C:\a\b.wav -> C:\<wbr>a\<wbr>b.wav.
bool text_buf_append_html_path(text_buf& buf, const char* text);

}  // namespace veltrane
