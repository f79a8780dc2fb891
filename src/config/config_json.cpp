#include "config/config_json.h"

#include <cmath>
#include <cstdlib>

namespace veltrane {
namespace {

bool is_json_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::size_t skip_space(std::string_view text, std::size_t pos) {
    while (pos < text.size() && is_json_space(text[pos])) ++pos;
    return pos;
}

// Walks `text` from `from` with the string rules: a double quote toggles the in-string
// state, and inside a string a backslash takes the next character with it. Every brace
// outside strings is handed to on_brace(index, opening); the walk stops early when that
// returns false. Returns false when the text ends inside a string (an unterminated string,
// or a backslash with nothing after it).
template <class OnBrace>
bool walk_braces(std::string_view text, std::size_t from, OnBrace&& on_brace) {
    bool in_string = false;
    for (std::size_t i = from; i < text.size(); ++i) {
        char c = text[i];
        if (in_string) {
            if (c == '\\') {
                if (i + 1 >= text.size()) return false;
                ++i;  // the escaped character cannot end the string
            } else if (c == '"') {
                in_string = false;
            }
        } else if (c == '"') {
            in_string = true;
        } else if ((c == '{' || c == '}') && !on_brace(i, c == '{')) {
            return true;
        }
    }
    return !in_string;
}

// From an opening brace at `open`, the index just past its matching closing brace, or
// nullopt when the text ends first.
std::optional<std::size_t> object_end(std::string_view text, std::size_t open) {
    int depth = 0;
    std::optional<std::size_t> end;
    walk_braces(text, open, [&](std::size_t i, bool opening) {
        if (opening) {
            ++depth;
            return true;
        }
        if (--depth == 0) end = i + 1;
        return !end;
    });
    return end;
}

int hex_digit_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Characters strtod could consume after a leading digit or minus sign: decimal and hex
// digits, the point, exponent signs, the letters of "inf"/"infinity"/"nan" and the
// parenthesised n-char-sequence of "nan(...)". Copying only these keeps the conversion
// bounded while giving the same result as converting the rest of the text.
bool may_continue_number(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '+' ||
           c == '-' || c == '(' || c == ')' || c == '_';
}

}  // namespace

bool json_strip_comments(std::string_view in, std::string& out) {
    std::string copy;
    copy.reserve(in.size() < json_max_text_bytes ? in.size() : json_max_text_bytes);
    bool in_string = false;
    for (std::size_t i = 0; i < in.size(); ++i) {
        char c = in[i];
        if (in_string) {
            copy.push_back(c);
            if (c == '\\' && i + 1 < in.size()) {
                copy.push_back(in[++i]);
            } else if (c == '"') {
                in_string = false;
            }
        } else if (c == '/' && i + 1 < in.size() && in[i + 1] == '/') {
            std::size_t newline = in.find('\n', i);
            if (newline == std::string_view::npos) break;
            i = newline - 1;  // the line feed itself is kept by the next round
            continue;
        } else {
            if (c == '"') in_string = true;
            copy.push_back(c);
        }
        if (copy.size() > json_max_text_bytes) return false;
    }
    out = std::move(copy);
    return true;
}

bool json_check_braces(std::string_view text) {
    long depth = 0;
    bool underflow = false;
    bool strings_closed = walk_braces(text, 0, [&](std::size_t, bool opening) {
        if (opening) {
            ++depth;
        } else if (depth == 0) {
            underflow = true;
        } else {
            --depth;
        }
        return !underflow;
    });
    return strings_closed && !underflow && depth == 0;
}

std::optional<std::size_t> json_find_value(std::string_view text, std::string_view key) {
    std::string pattern;
    pattern.reserve(key.size() + 2);
    pattern.push_back('"');
    pattern.append(key);
    pattern.push_back('"');
    std::size_t from = 0;
    while (true) {
        std::size_t hit = text.find(pattern, from);
        if (hit == std::string_view::npos) return std::nullopt;
        std::size_t after = hit + pattern.size();
        std::size_t pos = skip_space(text, after);
        if (pos < text.size() && text[pos] == ':') return skip_space(text, pos + 1);
        from = after;
    }
}

bool json_get_object(std::string_view text, std::string_view key, std::string& out, std::size_t capacity) {
    std::optional<std::size_t> pos = json_find_value(text, key);
    if (!pos || *pos >= text.size() || text[*pos] != '{') return false;
    std::optional<std::size_t> end = object_end(text, *pos);
    if (!end) return false;
    std::size_t length = *end - *pos;
    if (length >= capacity) return false;
    out.assign(text.substr(*pos, length));
    return true;
}

bool json_get_string(std::string_view text, std::string_view key, std::string& out, std::size_t capacity) {
    std::optional<std::size_t> pos = json_find_value(text, key);
    if (!pos || *pos >= text.size() || text[*pos] != '"') return false;
    std::string value;
    for (std::size_t i = *pos + 1; i < text.size(); ++i) {
        char c = text[i];
        if (c == '"') {
            // A "\u0000" escape ends the text the way a NUL ends a C string.
            out = value.substr(0, value.find('\0'));
            return true;
        }
        if (c == '\\') {
            if (++i >= text.size()) return false;
            switch (text[i]) {
                case '"': c = '"'; break;
                case '\\': c = '\\'; break;
                case '/': c = '/'; break;
                case 'n': c = '\n'; break;
                case 'r': c = '\r'; break;
                case 't': c = '\t'; break;
                case 'u': {
                    if (text.size() - (i + 1) < 4) return false;
                    int code = 0;
                    for (std::size_t k = 1; k <= 4; ++k) {
                        int digit = hex_digit_value(text[i + k]);
                        if (digit < 0) return false;
                        code = code * 16 + digit;
                    }
                    i += 4;
                    c = static_cast<char>(code & 0x7F);
                    break;
                }
                default: return false;
            }
        }
        if (value.size() + 1 >= capacity) return false;
        value.push_back(c);
    }
    return false;  // no closing quote
}

bool json_get_int(std::string_view text, std::string_view key, std::int32_t& out) {
    std::optional<std::size_t> pos = json_find_value(text, key);
    if (!pos) return false;
    std::size_t i = *pos;
    bool negative = false;
    if (i < text.size() && text[i] == '-') {
        negative = true;
        ++i;
    }
    if (i >= text.size() || text[i] < '0' || text[i] > '9') return false;
    std::uint32_t value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = value * 10u + static_cast<std::uint32_t>(text[i] - '0');
    }
    if (negative) value = 0u - value;
    out = static_cast<std::int32_t>(value);
    return true;
}

bool json_get_number(std::string_view text, std::string_view key, double& out) {
    std::optional<std::size_t> pos = json_find_value(text, key);
    if (!pos || *pos >= text.size()) return false;
    char first = text[*pos];
    if (first != '-' && (first < '0' || first > '9')) return false;
    std::size_t end = *pos + 1;
    while (end < text.size() && may_continue_number(text[end])) ++end;
    std::string number(text.substr(*pos, end - *pos));
    char* stop = nullptr;
    double value = std::strtod(number.c_str(), &stop);
    if (stop == number.c_str()) return false;
    // NaN and the infinities ("-nan", "-inf", or a number too large for a double such as
    // 1e999) are no usable setting: such a value counts as not found, like any other
    // value that does not read as a number.
    if (!std::isfinite(value)) return false;
    out = value;
    return true;
}

bool json_get_bool(std::string_view text, std::string_view key, bool& out) {
    std::optional<std::size_t> pos = json_find_value(text, key);
    if (!pos) return false;
    std::string_view rest = text.substr(*pos);
    if (rest.starts_with("true")) {
        out = true;
        return true;
    }
    if (rest.starts_with("false")) {
        out = false;
        return true;
    }
    return false;
}

bool json_get_array_object(std::string_view text, std::string_view key, std::size_t index, std::string& out,
                           std::size_t capacity) {
    std::optional<std::size_t> pos = json_find_value(text, key);
    if (!pos || *pos >= text.size() || text[*pos] != '[') return false;
    std::size_t i = *pos + 1;
    if (i >= text.size()) return false;
    for (std::size_t element = 0;; ++element) {
        while (i < text.size() && (is_json_space(text[i]) || text[i] == ',')) ++i;
        if (i >= text.size() || text[i] != '{') return false;
        std::optional<std::size_t> end = object_end(text, i);
        if (!end) return false;
        if (element == index) {
            std::size_t length = *end - i;
            if (length >= capacity) return false;
            out.assign(text.substr(i, length));
            return true;
        }
        i = *end;
    }
}

}  // namespace veltrane
