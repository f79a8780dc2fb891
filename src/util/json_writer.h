#pragma once
// Writer of flat, one-level JSON objects ("{", one "    \"key\": value" line per entry,
// "}") into a fixed buffer owned by the caller. It never allocates and never grows the
// buffer: an entry that does not fit fails and leaves the buffer exactly as it was, so
// the text written so far always stays a valid prefix.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace veltrane {

// Why the last failing operation failed, so that a caller can say which value did not fit.
enum class json_failure : std::uint8_t {
    none,
    value_too_long,  // a string value over 511 bytes after escaping (or a line over its scratch size)
    buffer_full,     // the entry did not fit the caller's buffer
};

struct json_writer {
    char* buf = nullptr;    // the text, NUL-terminated after every successful operation
    std::uint64_t cap = 0;  // size of buf in bytes, including room for the NUL
    std::uint64_t len = 0;  // bytes of text in buf, not counting the NUL
    // Set by a failing operation (json_begin clears them): the reason, the key of the
    // entry, and for value_too_long the value's length after escaping.
    json_failure failure = json_failure::none;
    const char* failed_key = nullptr;
    std::size_t failed_value_bytes = 0;
};

// A writer over a caller-owned buffer of `cap` bytes.
inline json_writer make_json_writer(char* buf, std::uint64_t cap) { return json_writer{buf, cap, 0}; }

// Longest string value after escaping: values are escaped into a 512-byte scratch area.
inline constexpr std::size_t json_max_escaped_string = 511;

// Words for the last failure, for the callers' messages: "the \"dut_file\" value is 600
// bytes long after escaping, over the 511-byte limit", or "the \"key\" entry does not fit
// the 4096-byte document"; empty when nothing failed.
std::string json_failure_text(const json_writer& w);

// Starts an object: len = 0, then "{\n". Fails when cap is 2 or less (buf is left as an
// empty string whenever cap allows).
bool json_begin(json_writer& w);

// Entry appenders. Each appends one line; with comma true the line ends in ",\n".
// String values are cut at their first NUL byte and escaped so that the document is
// always valid JSON: tab, newline, carriage return, double quote and backslash become
// two-character escapes; every other byte below 0x20, and every byte that is not part of
// a well-formed UTF-8 sequence, becomes "\u00xx" (lower-case hex; a stray byte reads as
// its Latin-1 character); everything else, valid UTF-8 included, is copied unchanged.
// Keys are written as given (callers use plain ASCII identifiers).
//
// Doubles are written with "%.6f" in full however large (1e200 has 201 digits); NaN
// and the infinities, which JSON cannot express, are written as null.
bool json_add_string(json_writer& w, const char* key, std::string_view value, bool comma);
bool json_add_int(json_writer& w, const char* key, std::int32_t value, bool comma);
bool json_add_long(json_writer& w, const char* key, std::int64_t value, bool comma);
bool json_add_double(json_writer& w, const char* key, double value, bool comma);

// Drops the comma of the last entry when the text ends in ",\n" (for callers that write
// every entry with a comma).
void json_remove_trailing_comma(json_writer& w);

// Ends the object with "}\n". Fails when len + 2 is not less than cap.
bool json_end(json_writer& w);

}  // namespace veltrane
