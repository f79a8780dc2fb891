#include "util/json_writer.h"

#include <gtest/gtest.h>

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

TEST(JsonWriter, EscapesOnlyTheFiveCharacters) {
    doc d(4096);
    json_begin(d.w);
    ASSERT_TRUE(json_add_string(d.w, "k", "a\tb\"c\\d\ne\rf\x0cg\xc3\xa9/", false));
    EXPECT_EQ(d.text(), "{\n    \"k\": \"a\\tb\\\"c\\\\d\\ne\\rf\x0cg\xc3\xa9/\"\n");
}

TEST(JsonWriter, StringLimitIs511EscapedBytes) {
    doc d(4096);
    json_begin(d.w);
    EXPECT_TRUE(json_add_string(d.w, "k", std::string(511, 'a'), true));
    std::size_t len = d.w.len;
    EXPECT_FALSE(json_add_string(d.w, "k", std::string(512, 'a'), true));
    EXPECT_FALSE(json_add_string(d.w, "k", std::string(510, 'a') + "\"", true));
    EXPECT_EQ(d.w.len, len);
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
}

TEST(JsonWriter, BeginNeedsMoreThanTwoBytes) {
    doc tiny(2);
    EXPECT_FALSE(json_begin(tiny.w));
    EXPECT_EQ(tiny.w.buf[0], '\0');
    doc three(3);
    EXPECT_TRUE(json_begin(three.w));
    EXPECT_EQ(three.text(), "{\n");
}

TEST(JsonWriter, HugeDoubleIsCutToItsScratchLine) {
    doc d(4096);
    json_begin(d.w);
    ASSERT_TRUE(json_add_double(d.w, "k", 1e200, true));
    EXPECT_EQ(d.w.len, 2u + 159u);  // the 160-byte scratch line keeps 159 characters
}

TEST(JsonWriter, RemovesTrailingComma) {
    doc d(4096);
    json_begin(d.w);
    json_add_int(d.w, "a", 1, true);
    json_remove_trailing_comma(d.w);
    ASSERT_TRUE(json_end(d.w));
    EXPECT_EQ(d.text(), "{\n    \"a\": 1\n}\n");
    // Nothing to remove: unchanged.
    doc e(4096);
    json_begin(e.w);
    json_remove_trailing_comma(e.w);
    EXPECT_EQ(e.text(), "{\n");
}

}  // namespace
}  // namespace veltrane
