#pragma once
// A strict JSON syntax check for the fuzz harnesses: the whole text must be one JSON
// value (RFC 8259: objects, arrays, strings with valid escapes and no raw control bytes,
// numbers in the JSON grammar, true, false, null), all of it well-formed UTF-8, with
// nothing but whitespace around it. No values are kept.
#include <cstddef>
#include <string_view>

namespace veltrane::fuzz {

class json_check {
public:
    explicit json_check(std::string_view text) : t_(text) {}

    bool valid() {
        ws();
        if (!value(0)) return false;
        ws();
        return i_ == t_.size();
    }

private:
    static constexpr int max_depth = 64;

    bool at(char c) const { return i_ < t_.size() && t_[i_] == c; }
    unsigned char cur() const { return static_cast<unsigned char>(t_[i_]); }
    void ws() {
        while (i_ < t_.size() && (t_[i_] == ' ' || t_[i_] == '\t' || t_[i_] == '\n' || t_[i_] == '\r')) ++i_;
    }
    bool lit(std::string_view word) {
        if (t_.substr(i_, word.size()) != word) return false;
        i_ += word.size();
        return true;
    }
    bool digits() {
        std::size_t from = i_;
        while (i_ < t_.size() && cur() >= '0' && cur() <= '9') ++i_;
        return i_ > from;
    }
    bool number() {
        if (at('-')) ++i_;
        if (at('0')) {
            ++i_;
        } else if (!digits()) {
            return false;
        }
        if (at('.')) {
            ++i_;
            if (!digits()) return false;
        }
        if (at('e') || at('E')) {
            ++i_;
            if (at('+') || at('-')) ++i_;
            if (!digits()) return false;
        }
        return true;
    }
    bool hex4() {
        for (int k = 0; k < 4; ++k, ++i_) {
            if (i_ >= t_.size()) return false;
            char c = t_[i_];
            if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))) return false;
        }
        return true;
    }
    // One well-formed UTF-8 sequence of two to four bytes.
    bool utf8() {
        unsigned char c = cur();
        std::size_t n = c >= 0xC2 && c <= 0xDF ? 2 : c >= 0xE0 && c <= 0xEF ? 3 : c >= 0xF0 && c <= 0xF4 ? 4 : 0;
        if (n == 0 || i_ + n > t_.size()) return false;
        unsigned char lo = c == 0xE0 ? 0xA0 : c == 0xF0 ? 0x90 : 0x80;
        unsigned char hi = c == 0xED ? 0x9F : c == 0xF4 ? 0x8F : 0xBF;
        unsigned char second = static_cast<unsigned char>(t_[i_ + 1]);
        if (second < lo || second > hi) return false;
        for (std::size_t k = 2; k < n; ++k) {
            if ((static_cast<unsigned char>(t_[i_ + k]) & 0xC0) != 0x80) return false;
        }
        i_ += n;
        return true;
    }
    bool string() {
        if (!at('"')) return false;
        ++i_;
        while (i_ < t_.size()) {
            unsigned char c = cur();
            if (c == '"') {
                ++i_;
                return true;
            }
            if (c < 0x20) return false;
            if (c == '\\') {
                ++i_;
                if (i_ >= t_.size()) return false;
                char e = t_[i_++];
                if (e == 'u') {
                    if (!hex4()) return false;
                } else if (std::string_view("\"\\/bfnrt").find(e) == std::string_view::npos) {
                    return false;
                }
            } else if (c >= 0x80) {
                if (!utf8()) return false;
            } else {
                ++i_;
            }
        }
        return false;
    }
    bool value(int depth) {
        if (depth > max_depth || i_ >= t_.size()) return false;
        char c = t_[i_];
        if (c == '{' || c == '[') {
            const char close = c == '{' ? '}' : ']';
            ++i_;
            ws();
            if (at(close)) {
                ++i_;
                return true;
            }
            for (;;) {
                if (c == '{') {
                    if (!string()) return false;
                    ws();
                    if (!at(':')) return false;
                    ++i_;
                    ws();
                }
                if (!value(depth + 1)) return false;
                ws();
                if (at(close)) {
                    ++i_;
                    return true;
                }
                if (!at(',')) return false;
                ++i_;
                ws();
            }
        }
        if (c == '"') return string();
        if (c == 't') return lit("true");
        if (c == 'f') return lit("false");
        if (c == 'n') return lit("null");
        return number();
    }

    std::string_view t_;
    std::size_t i_ = 0;
};

inline bool is_valid_json(std::string_view text) { return json_check(text).valid(); }

}  // namespace veltrane::fuzz
