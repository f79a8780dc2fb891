#include "util/json_writer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace veltrane {
namespace {

struct doc {
    explicit doc(std::size_t cap) : storage(cap, 'x'), w(make_json_writer(storage.data(), cap)) {}
    std::string text() const { return std::string(w.buf, w.len); }
    std::vector<char> storage;
    json_writer w;
};

TEST(JsonWriter, WritesOneEntryPerLineWithExactFormats) {
    doc d(4096);
    ASSERT_TRUE(json_begin(d.w));
    ASSERT_TRUE(json_add_string(d.w, "s", "", true));
    ASSERT_TRUE(json_add_int(d.w, "i", -7, true));
    ASSERT_TRUE(json_add_long(d.w, "l", -9000000000LL, true));
    ASSERT_TRUE(json_add_double(d.w, "d", 1.5, true));
    ASSERT_TRUE(json_add_double(d.w, "z", -0.0000004, false));
    ASSERT_TRUE(json_end(d.w));
    EXPECT_EQ(d.text(),
              "{\n    \"s\": \"\",\n    \"i\": -7,\n    \"l\": -9000000000,\n    \"d\": 1.500000,\n"
              "    \"z\": -0.000000\n}\n");
    EXPECT_EQ(d.w.buf[d.w.len], '\0');
}

// The value line of a one-entry document.
std::string entry(std::string_view value) {
    doc d(4096);
    json_begin(d.w);
    if (!json_add_string(d.w, "k", value, false)) return "<failed>";
    return d.text().substr(2);
}

TEST(JsonWriter, StringEscapesKeepTheDocumentValid) {
    struct row {
        std::string value, line;
    };
    const row rows[] = {
        // The five two-character escapes; printable ASCII, '/' and DEL unchanged.
        {"a\tb\"c\\d\ne\rf/\x7f", "    \"k\": \"a\\tb\\\"c\\\\d\\ne\\rf/\x7f\"\n"},
        // Every other control byte as \u00xx.
        {"x\x01\x1b[31m\x08\x0c\x1f", "    \"k\": \"x\\u0001\\u001b[31m\\u0008\\u000c\\u001f\"\n"},
        // Well-formed UTF-8 (2, 3 and 4 bytes) is copied unchanged.
        {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xb5", "    \"k\": \"\xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xb5\"\n"},
        // Stray bytes: Latin-1 byte, lone continuation, cut sequence, overlong, surrogate.
        {"\xe9t\xe9", "    \"k\": \"\\u00e9t\\u00e9\"\n"},
        {"\x80", "    \"k\": \"\\u0080\"\n"},
        {"\xe2\x82", "    \"k\": \"\\u00e2\\u0082\"\n"},
        {"\xc0\xaf", "    \"k\": \"\\u00c0\\u00af\"\n"},
        {"\xed\xa0\x80", "    \"k\": \"\\u00ed\\u00a0\\u0080\"\n"},
        {"\xf4\x90\x80\x80", "    \"k\": \"\\u00f4\\u0090\\u0080\\u0080\"\n"},
    };
    for (const row& r : rows) EXPECT_EQ(entry(r.value), r.line) << r.value;
}

TEST(JsonWriter, TooLongValueNamesItsKeyAndLength) {
    doc d(4096);
    json_begin(d.w);
    EXPECT_EQ(json_failure_text(d.w), "");
    // 100 control bytes escape to 600 bytes.
    EXPECT_FALSE(json_add_string(d.w, "dut_file", std::string(100, '\x01'), true));
    EXPECT_EQ(d.w.failure, json_failure::value_too_long);
    EXPECT_EQ(json_failure_text(d.w), "the \"dut_file\" value is 600 bytes long after escaping, over the 511-byte limit");
    EXPECT_EQ(d.text(), "{\n");
    EXPECT_TRUE(json_add_string(d.w, "k", std::string(85, '\x01'), true));  // 510 bytes fit
    // The limit is 511 escaped bytes, and a refused value appends nothing.
    EXPECT_TRUE(json_add_string(d.w, "k", std::string(511, 'a'), true));
    const std::size_t len = d.w.len;
    EXPECT_FALSE(json_add_string(d.w, "k", std::string(512, 'a'), true));
    EXPECT_FALSE(json_add_string(d.w, "k", std::string(510, 'a') + "\"", true));
    EXPECT_EQ(d.w.len, len);
    doc small(16);
    json_begin(small.w);
    EXPECT_FALSE(json_add_int(small.w, "error", 123456, false));
    EXPECT_EQ(json_failure_text(small.w), "the \"error\" entry does not fit the 16-byte document");
    json_begin(small.w);  // starting again clears the failure
    EXPECT_EQ(small.w.failure, json_failure::none);
}

TEST(JsonWriter, FullBufferFailsWithoutPartialAppend) {
    doc d(16);
    ASSERT_TRUE(json_begin(d.w));
    // "    \"k\": 12345\n" is 15 characters: 2 + 15 is not below 16.
    EXPECT_FALSE(json_add_int(d.w, "k", 12345, false));
    EXPECT_EQ(d.text(), "{\n");
    EXPECT_EQ(d.w.buf[2], '\0');
    // "    \"k\": 123\n" is 13 characters: 2 + 13 < 16 fits.
    EXPECT_TRUE(json_add_int(d.w, "k", 123, false));
    EXPECT_EQ(d.w.len, 15u);
    EXPECT_FALSE(json_end(d.w));  // 15 + 2 is not below 16
    EXPECT_EQ(d.w.len, 15u);
    // The opening needs more than two bytes.
    doc tiny(2);
    EXPECT_FALSE(json_begin(tiny.w));
    EXPECT_EQ(tiny.w.buf[0], '\0');
    doc three(3);
    EXPECT_TRUE(json_begin(three.w));
    EXPECT_EQ(three.text(), "{\n");
}

TEST(JsonWriter, DoublesAreNeverCutAndNonFiniteIsNull) {
    char expected[400];
    for (double v : {1.5e124, 1e200, -1.7976931348623157e308}) {
        doc d(4096);
        json_begin(d.w);
        ASSERT_TRUE(json_add_double(d.w, "k", v, true)) << v;
        std::snprintf(expected, sizeof expected, "{\n    \"k\": %.6f,\n", v);
        EXPECT_EQ(d.text(), expected);
    }
    for (double v : {std::nan(""), -std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        doc d(4096);
        json_begin(d.w);
        ASSERT_TRUE(json_add_double(d.w, "k", v, false));
        EXPECT_EQ(d.text(), "{\n    \"k\": null\n");
    }
}

}  // namespace
}  // namespace veltrane
