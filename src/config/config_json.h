#pragma once
// Relaxed JSON reader for the two settings files. It never builds a tree: `//` comments
// are stripped, braces are checked for balance, and every value is then found by
// searching the text for the key in double quotes followed by a colon. Sections are
// read by copying an object's text out and searching inside the copy.
//
// Deliberate consequences, which users can notice:
// - the first textual occurrence of a key wins, at whatever depth it stands (inside a
//   nested object, an array element or even a string value);
// - key order, unknown keys, trailing commas and most syntax errors away from the keys
//   that are asked for do not matter;
// - integers stop at the first non-digit ("12.7" reads as 12) and wrap in 32 bits;
// - "\u" escapes keep only the low 7 bits of the code point;
// - arrays are readable only when their elements are objects.
//
// Every getter returns whether it found a usable value and writes the value through its
// out-parameter only on success. Whitespace, wherever the reader skips it, is exactly
// space, tab, line feed and carriage return.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace veltrane {

// A settings text holds at most this many bytes (a 16384-byte buffer with its NUL).
inline constexpr std::size_t json_max_text_bytes = 16383;

// Capacities (in bytes, including the terminating NUL of the original fixed buffers):
// a copied text must be shorter than its capacity, otherwise it counts as not found.
inline constexpr std::size_t json_section_capacity = 4096;
inline constexpr std::size_t json_band_element_capacity = 4096;
inline constexpr std::size_t json_snapshot_element_capacity = 256;

// Copies `in` without its `//` comments (outside strings a comment runs up to, not
// including, the next line feed). False when the copy would exceed 16383 bytes; `out`
// is then left unchanged.
bool json_strip_comments(std::string_view in, std::string& out);

// True when braces outside strings balance (never going below zero) and no string is
// left open. Brackets, commas, colons and values are not examined.
bool json_check_braces(std::string_view text);

// Position in `text` where the value of the first `"key"` followed (after whitespace)
// by a colon begins: the first non-whitespace character after the colon, which may be
// text.size() when only whitespace follows. nullopt when there is no such occurrence.
std::optional<std::size_t> json_find_value(std::string_view text, std::string_view key);

// The object value of `key`, braces included; its length must be below `capacity`.
bool json_get_object(std::string_view text, std::string_view key, std::string& out, std::size_t capacity);

// The decoded string value of `key`; at most capacity - 1 characters.
bool json_get_string(std::string_view text, std::string_view key, std::string& out, std::size_t capacity);

// An optional minus and at least one digit; digits are read up to the first non-digit,
// accumulated modulo 2^32 and negated when the sign was present.
bool json_get_int(std::string_view text, std::string_view key, std::int32_t& out);

// A value starting with a digit or a minus sign, read by strtod from that character.
// A value that reads as NaN or infinite (including one too large for a double) is not
// found.
bool json_get_number(std::string_view text, std::string_view key, double& out);

// true when the value begins with "true", false when it begins with "false".
bool json_get_bool(std::string_view text, std::string_view key, bool& out);

// The index-th object (from 0) of the array value of `key`, braces included; its length
// must be below `capacity`. Not found past the last object element, at the first
// element that is not an object, or when the wanted element is too long.
bool json_get_array_object(std::string_view text, std::string_view key, std::size_t index, std::string& out,
                           std::size_t capacity);

}  // namespace veltrane
