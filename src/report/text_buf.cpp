#include "report/text_buf.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

namespace veltrane {
namespace {

// Capacity for `need` bytes: the smallest power of two that is at least 256 and at least
// `need`, reached by doubling the current capacity (or starting from 256). 0 when no such
// capacity is representable.
std::uint64_t grown_capacity(std::uint64_t cap, std::uint64_t need) {
    std::uint64_t next = cap == 0 ? text_buf_min_capacity : cap;
    while (next < need) {
        if (next > std::numeric_limits<std::uint64_t>::max() / 2) return 0;
        next *= 2;
    }
    return next;
}

// Makes room for `added` more bytes plus the terminator. On failure nothing changes.
bool reserve(text_buf& buf, std::uint64_t added) {
    if (added > std::numeric_limits<std::uint64_t>::max() - buf.len - 1) return false;
    std::uint64_t need = buf.len + added + 1;
    if (buf.cap >= need) return true;
    std::uint64_t next = grown_capacity(buf.cap, need);
    if (next == 0 || next > std::numeric_limits<std::size_t>::max()) return false;
    std::unique_ptr<char[]> storage;
    try {
        storage.reset(new char[static_cast<std::size_t>(next)]);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (buf.data) std::memcpy(storage.get(), buf.data.get(), static_cast<std::size_t>(buf.len) + 1);
    buf.data = std::move(storage);
    buf.cap = next;
    return true;
}

bool append_bytes(text_buf& buf, const char* bytes, std::uint64_t n) {
    if (!reserve(buf, n)) return false;
    if (n > 0) std::memcpy(buf.data.get() + buf.len, bytes, static_cast<std::size_t>(n));
    buf.len += n;
    buf.data[buf.len] = '\0';
    return true;
}

// The walk shared by both escapers; `break_after_separators` adds "<wbr>" after '/' and '\\'.
bool append_escaped(text_buf& buf, const char* text, bool break_after_separators) {
    if (!text) return true;
    for (const char* p = text; *p != '\0'; ++p) {
        bool ok = true;
        switch (*p) {
            case '"': ok = text_buf_append(buf, "&quot;"); break;
            case '&': ok = text_buf_append(buf, "&amp;"); break;
            case '\'': ok = text_buf_append(buf, "&#39;"); break;
            case '<': ok = text_buf_append(buf, "&lt;"); break;
            case '>': ok = text_buf_append(buf, "&gt;"); break;
            case '/':
            case '\\':
                ok = text_buf_append_char(buf, *p) && (!break_after_separators || text_buf_append(buf, "<wbr>"));
                break;
            default: ok = text_buf_append_char(buf, *p); break;
        }
        if (!ok) return false;
    }
    return true;
}

}  // namespace

void text_buf_init(text_buf& buf) {
    buf.data.reset();
    buf.len = 0;
    buf.cap = 0;
}

void text_buf_free(text_buf& buf) {
    buf.data.reset();
    buf.len = 0;
    buf.cap = 0;
}

bool text_buf_append(text_buf& buf, const char* text) {
    if (!text) return true;
    return append_bytes(buf, text, std::strlen(text));
}

bool text_buf_append(text_buf& buf, std::string_view text) {
    return append_bytes(buf, text.data(), text.size());
}

bool text_buf_append_char(text_buf& buf, char byte) {
    return append_bytes(buf, &byte, 1);
}

bool text_buf_appendf(text_buf& buf, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::va_list measure;
    va_copy(measure, args);
    int n = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    bool ok = n >= 0 && reserve(buf, static_cast<std::uint64_t>(n));
    if (ok) {
        std::vsnprintf(buf.data.get() + buf.len, static_cast<std::size_t>(n) + 1, format, args);
        buf.len += static_cast<std::uint64_t>(n);
    }
    va_end(args);
    return ok;
}

bool text_buf_append_html(text_buf& buf, const char* text) {
    return append_escaped(buf, text, false);
}

bool text_buf_append_html_path(text_buf& buf, const char* text) {
    return append_escaped(buf, text, true);
}

}  // namespace veltrane
