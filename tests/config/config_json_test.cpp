// The relaxed reader's deliberate quirks: comment stripping, the brace check, first
// textual occurrence, and the exact acceptance rules of every getter.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include "config/config_json.h"

namespace veltrane {
namespace {

std::optional<std::int32_t> get_int(std::string_view text, std::string_view key) {
    std::int32_t v = 777;
    if (!json_get_int(text, key, v)) {
        EXPECT_EQ(v, 777) << "out-parameter changed on failure";
        return std::nullopt;
    }
    return v;
}

std::optional<double> get_number(std::string_view text, std::string_view key) {
    double v = 0.0;
    return json_get_number(text, key, v) ? std::optional<double>(v) : std::nullopt;
}

std::optional<bool> get_bool(std::string_view text, std::string_view key) {
    bool v = false;
    return json_get_bool(text, key, v) ? std::optional<bool>(v) : std::nullopt;
}

std::optional<std::string> get_string(std::string_view text, std::string_view key, std::size_t capacity = 256) {
    std::string v = "unchanged";
    if (!json_get_string(text, key, v, capacity)) {
        EXPECT_EQ(v, "unchanged");
        return std::nullopt;
    }
    return v;
}

std::string strip(std::string_view in) {
    std::string out;
    EXPECT_TRUE(json_strip_comments(in, out));
    return out;
}

TEST(JsonStripComments, CommentsOutsideStringsOnly) {
    EXPECT_EQ(strip("{\"a\": 1} // trailing"), "{\"a\": 1} ");
    EXPECT_EQ(strip("// \"general\": {\n{\"a\": 1}"), "\n{\"a\": 1}");
    EXPECT_EQ(strip("{\"url\": \"http://x//y\"} // c\n"), "{\"url\": \"http://x//y\"} \n");
    // An escaped quote does not end the string, so the slashes after it stay.
    EXPECT_EQ(strip(R"({"a": "q\" // kept"})"), R"({"a": "q\" // kept"})");
    EXPECT_EQ(strip("a / b /"), "a / b /");
    EXPECT_EQ(strip("x//a\n//b\ny"), "x\n\ny");
}

TEST(JsonStripComments, CapacityIsSixteenKibMinusOne) {
    std::string out = "unchanged";
    EXPECT_TRUE(json_strip_comments(std::string(16383, ' '), out));
    EXPECT_EQ(out.size(), 16383u);
    out = "unchanged";
    EXPECT_FALSE(json_strip_comments(std::string(16384, ' '), out));
    EXPECT_EQ(out, "unchanged");
}

TEST(JsonCheckBraces, BracesAndStringsOnly) {
    EXPECT_TRUE(json_check_braces("{\"a\": {\"b\": [1, 2}}"));  // brackets are not examined
    EXPECT_TRUE(json_check_braces("{\"a\": \"}}{\"}"));
    EXPECT_TRUE(json_check_braces(R"({"a": "\"}"})"));
    EXPECT_TRUE(json_check_braces(""));
    EXPECT_FALSE(json_check_braces("{\"a\": {\"b\": 1}"));
    EXPECT_FALSE(json_check_braces("}{"));
    EXPECT_FALSE(json_check_braces("{\"a\": \"open}"));
    EXPECT_FALSE(json_check_braces("{\"a\": \"x\\"));
}

TEST(JsonFindValue, FirstTextualOccurrenceWinsAtAnyDepth) {
    std::string text = R"({"s": {"k": 1}, "k": 2})";
    EXPECT_EQ(get_int(text, "k"), 1);
    // Occurrences not followed by a colon (array elements) are skipped; an earlier nested one wins.
    EXPECT_EQ(get_int(R"({"list": ["k", 3], "k" : 4})", "k"), 4);
    EXPECT_EQ(get_int(R"({"tags": ["k"], "doc": {"k" : 5}, "k": 6})", "k"), 5);
    EXPECT_EQ(get_int("{\"k\"\t\r\n:\n 7}", "k"), 7);
    EXPECT_FALSE(json_find_value(R"({"kk": 1})", "k"));
    std::optional<std::size_t> at_end = json_find_value("{\"k\":   ", "k");
    ASSERT_TRUE(at_end);
    EXPECT_EQ(*at_end, 8u);
    EXPECT_FALSE(get_int("{\"k\":   ", "k"));
}

TEST(JsonGetInt, DigitsUpToTheFirstNonDigitWrappingIn32Bits) {
    EXPECT_EQ(get_int(R"({"n": 64.9})", "n"), 64);
    EXPECT_EQ(get_int(R"({"n": 1e3})", "n"), 1);
    EXPECT_EQ(get_int(R"({"n": -12,})", "n"), -12);
    EXPECT_EQ(get_int(R"({"n": 4294967297})", "n"), 1);
    EXPECT_EQ(get_int(R"({"n": 2147483648})", "n"), INT32_MIN);
    EXPECT_EQ(get_int(R"({"n": -0})", "n"), 0);
    for (const char* bad : {R"({"n": +5})", R"({"n": .5})", R"({"n": "5"})", R"({"n": -})", R"({"n": true})"}) {
        EXPECT_FALSE(get_int(bad, "n")) << bad;
    }
}

TEST(JsonGetNumber, PlatformConversionFromADigitOrMinus) {
    EXPECT_EQ(get_number(R"({"x": -.5})", "x"), -0.5);
    EXPECT_EQ(get_number(R"({"x": 1e3,})", "x"), 1000.0);
    EXPECT_EQ(get_number(R"({"x": 2.5e-1})", "x"), 0.25);
    EXPECT_EQ(get_number(R"({"x": 0x10})", "x"), 16.0);  // what strtod makes of it
    EXPECT_EQ(get_number(R"({"x": 1e300})", "x"), 1e300);  // large but finite: read (ranges come later)
    EXPECT_EQ(get_number(R"({"x": 1e-400})", "x"), 0.0);   // underflows to zero: finite
    // Not numbers, and numbers that are not finite, are not found.
    for (const char* bad : {R"({"x": +1})", R"({"x": .5})", R"({"x": -})", R"({"x": "1"})", R"({"x": inf})",
                            R"({"x": -nan})", R"({"x": nan})", R"({"x": -inf})", R"({"x": -infinity})", R"({"x": 1e999})",
                            R"({"x": -1e400})", R"({"x": 0x1p99999})"}) {
        EXPECT_FALSE(get_number(bad, "x")) << bad;
    }
}

TEST(JsonGetBool, PrefixOnly) {
    EXPECT_EQ(get_bool(R"({"b": true})", "b"), true);
    EXPECT_EQ(get_bool(R"({"b": false})", "b"), false);
    EXPECT_EQ(get_bool(R"({"b": trueish})", "b"), true);
    EXPECT_FALSE(get_bool(R"({"b": "true"})", "b"));
    EXPECT_FALSE(get_bool(R"({"b": 1})", "b"));
    EXPECT_FALSE(get_bool(R"({"b": True})", "b"));
}

TEST(JsonGetString, EscapesAndSevenBitFolding) {
    EXPECT_EQ(get_string(R"({"s": ""})", "s"), "");
    EXPECT_EQ(get_string(R"({"s": "a\"b\\c\/d\ne\rf\tg"})", "s"), "a\"b\\c/d\ne\rf\tg");
    EXPECT_EQ(get_string(R"({"s": "caf\u00E9"})", "s"), "cafi");
    EXPECT_EQ(get_string(R"({"s": "\u0041\u20ac"})", "s"), std::string("A") + static_cast<char>(0x20ac & 0x7f));
    EXPECT_EQ(get_string(R"({"s": "ab\u0000cd"})", "s"), "ab");  // a NUL ends the text
    for (const char* bad : {R"({"s": "a\bc"})", R"({"s": "a\fc"})", R"({"s": "\u12G4"})", R"({"s": "\u12"})",
                            R"({"s": "open)", R"({"s": 5})"}) {
        EXPECT_FALSE(get_string(bad, "s")) << bad;
    }
    // At most capacity - 1 characters.
    EXPECT_EQ(get_string("{\"s\": \"" + std::string(31, 'p') + "\"}", "s", 32), std::string(31, 'p'));
    EXPECT_FALSE(get_string("{\"s\": \"" + std::string(32, 'p') + "\"}", "s", 32));
}

TEST(JsonGetObject, CopiesBalancedTextWithinCapacity) {
    std::string out;
    ASSERT_TRUE(json_get_object(R"({"o": {"a": "}", "b": {"c": 1}}, "z": 0})", "o", out, 4096));
    EXPECT_EQ(out, R"({"a": "}", "b": {"c": 1}})");
    EXPECT_FALSE(json_get_object(R"({"o": [1]})", "o", out, 4096));
    EXPECT_FALSE(json_get_object(R"({"o": {"a": 1)", "o", out, 4096));
}

TEST(JsonGetArrayObject, OnlyLeadingObjectElements) {
    std::string text = "{\"a\": [ {\"t\": 1},\n\t{\"t\": {\"u\": 2}} ,, {\"t\": 3}, 7, {\"t\": 4}]}";
    std::string out;
    ASSERT_TRUE(json_get_array_object(text, "a", 0, out, 256));
    EXPECT_EQ(out, "{\"t\": 1}");
    ASSERT_TRUE(json_get_array_object(text, "a", 1, out, 256));
    EXPECT_EQ(out, "{\"t\": {\"u\": 2}}");
    ASSERT_TRUE(json_get_array_object(text, "a", 2, out, 256));
    EXPECT_EQ(out, "{\"t\": 3}");
    EXPECT_FALSE(json_get_array_object(text, "a", 3, out, 256));  // the bare number ends the list
    EXPECT_FALSE(json_get_array_object(R"({"a": [1, 2]})", "a", 0, out, 256));
    EXPECT_FALSE(json_get_array_object(R"({"a": []})", "a", 0, out, 256));
    EXPECT_FALSE(json_get_array_object(R"({"a": {"t": 1}})", "a", 0, out, 256));
    EXPECT_FALSE(json_get_array_object("{\"a\": [", "a", 0, out, 256));
    // The wanted element must fit; a shorter later element is still reachable past it.
    std::string big = "{\"a\": [{\"t\": \"" + std::string(300, 'x') + "\"}, {\"t\": 2}]}";
    EXPECT_FALSE(json_get_array_object(big, "a", 0, out, 256));
    EXPECT_TRUE(json_get_array_object(big, "a", 1, out, 256));
}

}  // namespace
}  // namespace veltrane
