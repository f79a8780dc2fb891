#include "util/json_writer.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace veltrane {
namespace {

// Scratch sizes for one formatted line: a string entry holds a key and up to 511 escaped
// bytes; a number entry holds a key and one number. A line longer than its scratch size
// minus one is cut there (only a double with an integer part of ~80 digits gets there).
constexpr std::size_t string_line_size = 600;
constexpr std::size_t int_line_size = 128;
constexpr std::size_t wide_line_size = 160;  // long and double entries

// Copies a formatted line of `n` bytes (as snprintf reported it, possibly cut to the
// scratch size) to the end of the buffer, or fails without touching it.
bool append_line(json_writer& w, const char* line, int n, std::size_t scratch_size) {
    if (n < 0) return false;
    std::size_t line_len = static_cast<std::size_t>(n);
    if (line_len > scratch_size - 1) line_len = scratch_size - 1;
    if (w.len + line_len >= w.cap) return false;
    std::memcpy(w.buf + w.len, line, line_len);
    w.len += line_len;
    w.buf[w.len] = '\0';
    return true;
}

const char* comma_text(bool comma) { return comma ? "," : ""; }

}  // namespace

bool json_begin(json_writer& w) {
    w.len = 0;
    if (w.buf && w.cap > 0) w.buf[0] = '\0';
    if (!w.buf || w.cap <= 2) return false;
    std::memcpy(w.buf, "{\n", 3);
    w.len = 2;
    return true;
}

bool json_add_string(json_writer& w, const char* key, std::string_view value, bool comma) {
    value = value.substr(0, value.find('\0'));
    char escaped[json_max_escaped_string + 1];
    std::size_t n = 0;
    for (char c : value) {
        char second = 0;
        switch (c) {
            case '\t': second = 't'; break;
            case '\n': second = 'n'; break;
            case '\r': second = 'r'; break;
            case '"': second = '"'; break;
            case '\\': second = '\\'; break;
            default: break;
        }
        std::size_t need = second ? 2 : 1;
        if (n + need > json_max_escaped_string) return false;
        if (second) {
            escaped[n++] = '\\';
            escaped[n++] = second;
        } else {
            escaped[n++] = c;
        }
    }
    escaped[n] = '\0';
    char line[string_line_size];
    int len = std::snprintf(line, sizeof line, "    \"%s\": \"%s\"%s\n", key, escaped, comma_text(comma));
    return append_line(w, line, len, sizeof line);
}

bool json_add_int(json_writer& w, const char* key, std::int32_t value, bool comma) {
    char line[int_line_size];
    int len = std::snprintf(line, sizeof line, "    \"%s\": %d%s\n", key, static_cast<int>(value), comma_text(comma));
    return append_line(w, line, len, sizeof line);
}

bool json_add_long(json_writer& w, const char* key, std::int64_t value, bool comma) {
    char line[wide_line_size];
    int len = std::snprintf(line, sizeof line, "    \"%s\": %" PRId64 "%s\n", key, value, comma_text(comma));
    return append_line(w, line, len, sizeof line);
}

bool json_add_double(json_writer& w, const char* key, double value, bool comma) {
    char line[wide_line_size];
    int len = std::snprintf(line, sizeof line, "    \"%s\": %.6f%s\n", key, value, comma_text(comma));
    return append_line(w, line, len, sizeof line);
}

void json_remove_trailing_comma(json_writer& w) {
    if (w.len >= 2 && w.buf[w.len - 2] == ',') {
        w.buf[w.len - 2] = '\n';
        w.buf[w.len - 1] = '\0';
        w.len -= 1;
    }
}

bool json_end(json_writer& w) {
    if (w.len + 2 >= w.cap) return false;
    std::memcpy(w.buf + w.len, "}\n", 3);
    w.len += 2;
    return true;
}

}  // namespace veltrane
