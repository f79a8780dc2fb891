#include "util/json_writer.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace veltrane {
namespace {

// Scratch sizes for one formatted line: a string entry holds a key and up to 511 escaped
// bytes; an int entry a key and at most 11 characters; a long entry a key and at most 20.
// A double entry holds a key and a "%.6f" number of up to 317 characters (309 integer
// digits of the largest double, sign, point and 6 decimals), so no finite value is cut.
constexpr std::size_t string_line_size = 600;
constexpr std::size_t int_line_size = 128;
constexpr std::size_t long_line_size = 160;
constexpr std::size_t double_line_size = 512;

// "\u00xx": six bytes for one escaped byte.
constexpr std::size_t unicode_escape_bytes = 6;

void record_failure(json_writer& w, json_failure failure, const char* key, std::size_t value_bytes = 0) {
    w.failure = failure;
    w.failed_key = key;
    w.failed_value_bytes = value_bytes;
}

// Copies a formatted line of `n` bytes (as snprintf reported it) to the end of the
// buffer, or fails without touching it. A line longer than its scratch area fails rather
// than being cut, so the document never holds a cut value.
bool append_line(json_writer& w, const char* key, const char* line, int n, std::size_t scratch_size) {
    if (n < 0 || static_cast<std::size_t>(n) > scratch_size - 1) {
        record_failure(w, json_failure::value_too_long, key);
        return false;
    }
    std::size_t line_len = static_cast<std::size_t>(n);
    if (w.len + line_len >= w.cap) {
        record_failure(w, json_failure::buffer_full, key);
        return false;
    }
    std::memcpy(w.buf + w.len, line, line_len);
    w.len += line_len;
    w.buf[w.len] = '\0';
    return true;
}

const char* comma_text(bool comma) { return comma ? "," : ""; }

bool continuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Length of the well-formed UTF-8 sequence starting at s[i] (2 to 4 bytes), or 0 when
// the bytes there do not form one (stray continuation byte, overlong form, surrogate,
// code point above U+10FFFF, or a sequence cut short).
std::size_t utf8_sequence_length(std::string_view s, std::size_t i) {
    const auto at = [&](std::size_t k) { return static_cast<unsigned char>(s[i + k]); };
    const unsigned char c = at(0);
    std::size_t n = 0;
    unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        if (c == 0xE0) lo = 0xA0;  // no overlong forms
        if (c == 0xED) hi = 0x9F;  // no UTF-16 surrogates
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        if (c == 0xF0) lo = 0x90;  // no overlong forms
        if (c == 0xF4) hi = 0x8F;  // nothing above U+10FFFF
    } else {
        return 0;
    }
    if (i + n > s.size() || at(1) < lo || at(1) > hi) return 0;
    for (std::size_t k = 2; k < n; ++k) {
        if (!continuation(at(k))) return 0;
    }
    return n;
}

// Escapes `value` into `out` (room for json_max_escaped_string bytes plus a NUL) and
// returns the escaped length, which may exceed the room: the caller then fails the
// entry, naming the full length. Nothing is written past the room.
std::size_t escape_value(std::string_view value, char* out) {
    static const char hex[] = "0123456789abcdef";
    std::size_t n = 0;
    auto put = [&](std::string_view piece) {
        if (n + piece.size() <= json_max_escaped_string) std::memcpy(out + n, piece.data(), piece.size());
        n += piece.size();
    };
    for (std::size_t i = 0; i < value.size();) {
        const unsigned char c = static_cast<unsigned char>(value[i]);
        switch (c) {
            case '\t': put("\\t"); ++i; continue;
            case '\n': put("\\n"); ++i; continue;
            case '\r': put("\\r"); ++i; continue;
            case '"': put("\\\""); ++i; continue;
            case '\\': put("\\\\"); ++i; continue;
            default: break;
        }
        if (c >= 0x20 && c < 0x80) {
            put(value.substr(i, 1));
            ++i;
            continue;
        }
        const std::size_t seq = c < 0x80 ? 0 : utf8_sequence_length(value, i);
        if (seq > 0) {
            put(value.substr(i, seq));
            i += seq;
            continue;
        }
        const char escaped[unicode_escape_bytes] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
        put(std::string_view(escaped, unicode_escape_bytes));
        ++i;
    }
    out[n <= json_max_escaped_string ? n : 0] = '\0';
    return n;
}

}  // namespace

std::string json_failure_text(const json_writer& w) {
    const std::string key = w.failed_key ? w.failed_key : "";
    char text[256];
    switch (w.failure) {
        case json_failure::none: return {};
        case json_failure::value_too_long:
            if (w.failed_value_bytes > 0) {
                std::snprintf(text, sizeof text, "the \"%.64s\" value is %zu bytes long after escaping, over the %zu-byte limit",
                              key.c_str(), w.failed_value_bytes, json_max_escaped_string);
            } else {
                std::snprintf(text, sizeof text, "the \"%.64s\" entry is too long", key.c_str());
            }
            return text;
        case json_failure::buffer_full:
            if (!w.failed_key) {
                std::snprintf(text, sizeof text, "the document does not fit its %llu-byte buffer",
                              static_cast<unsigned long long>(w.cap));
                return text;
            }
            std::snprintf(text, sizeof text, "the \"%.64s\" entry does not fit the %llu-byte document", key.c_str(),
                          static_cast<unsigned long long>(w.cap));
            return text;
    }
    return {};
}

bool json_begin(json_writer& w) {
    w.len = 0;
    record_failure(w, json_failure::none, nullptr);
    if (w.buf && w.cap > 0) w.buf[0] = '\0';
    if (!w.buf || w.cap <= 2) {
        record_failure(w, json_failure::buffer_full, nullptr);
        return false;
    }
    std::memcpy(w.buf, "{\n", 3);
    w.len = 2;
    return true;
}

bool json_add_string(json_writer& w, const char* key, std::string_view value, bool comma) {
    value = value.substr(0, value.find('\0'));
    char escaped[json_max_escaped_string + 1];
    const std::size_t n = escape_value(value, escaped);
    if (n > json_max_escaped_string) {
        record_failure(w, json_failure::value_too_long, key, n);
        return false;
    }
    char line[string_line_size];
    int len = std::snprintf(line, sizeof line, "    \"%s\": \"%s\"%s\n", key, escaped, comma_text(comma));
    return append_line(w, key, line, len, sizeof line);
}

bool json_add_int(json_writer& w, const char* key, std::int32_t value, bool comma) {
    char line[int_line_size];
    int len = std::snprintf(line, sizeof line, "    \"%s\": %d%s\n", key, static_cast<int>(value), comma_text(comma));
    return append_line(w, key, line, len, sizeof line);
}

bool json_add_long(json_writer& w, const char* key, std::int64_t value, bool comma) {
    char line[long_line_size];
    int len = std::snprintf(line, sizeof line, "    \"%s\": %" PRId64 "%s\n", key, value, comma_text(comma));
    return append_line(w, key, line, len, sizeof line);
}

bool json_add_double(json_writer& w, const char* key, double value, bool comma) {
    char line[double_line_size];
    int len = std::isfinite(value)
                  ? std::snprintf(line, sizeof line, "    \"%s\": %.6f%s\n", key, value, comma_text(comma))
                  : std::snprintf(line, sizeof line, "    \"%s\": null%s\n", key, comma_text(comma));
    return append_line(w, key, line, len, sizeof line);
}

void json_remove_trailing_comma(json_writer& w) {
    if (w.len >= 2 && w.buf[w.len - 2] == ',') {
        w.buf[w.len - 2] = '\n';
        w.buf[w.len - 1] = '\0';
        w.len -= 1;
    }
}

bool json_end(json_writer& w) {
    if (w.len + 2 >= w.cap) {
        record_failure(w, json_failure::buffer_full, nullptr);
        return false;
    }
    std::memcpy(w.buf + w.len, "}\n", 3);
    w.len += 2;
    return true;
}

}  // namespace veltrane
