// Growth rule, formatted appends, HTML escaping and the out-of-memory behaviour of the
// page text buffer.
#include <gtest/gtest.h>

#include <string>

#include "report/text_buf.h"

namespace veltrane {
namespace {

// Lifts the test allocation limit again however the test ends.
struct allocation_limit_guard {
    explicit allocation_limit_guard(std::uint64_t bytes) { text_buf_set_allocation_limit(bytes); }
    ~allocation_limit_guard() { text_buf_set_allocation_limit(0); }
};

std::string html(const char* text) {
    text_buf b;
    EXPECT_TRUE(text_buf_append_html(b, text));
    return std::string(text_buf_view(b));
}

std::string html_path(const char* text) {
    text_buf b;
    EXPECT_TRUE(text_buf_append_html_path(b, text));
    return std::string(text_buf_view(b));
}

TEST(TextBuf, CapacityIsSmallestPowerOfTwoFromTwoHundredFiftySix) {
    struct {
        std::size_t first_append;
        std::uint64_t expected_cap;
    } cases[] = {{1, 256}, {255, 256}, {256, 512}, {511, 512}, {512, 1024}, {1000, 1024}, {5000, 8192}};
    for (const auto& c : cases) {
        text_buf b;
        text_buf_init(b);
        EXPECT_EQ(b.data, nullptr);
        ASSERT_TRUE(text_buf_append(b, std::string(c.first_append, 'x')));
        EXPECT_EQ(b.cap, c.expected_cap) << c.first_append;
        EXPECT_EQ(b.len, c.first_append);
        EXPECT_EQ(b.data[b.len], '\0');
        text_buf_free(b);
        EXPECT_EQ(b.data, nullptr);
        EXPECT_EQ(b.len, 0u);
        EXPECT_EQ(b.cap, 0u);
    }
}

TEST(TextBuf, GrowsByDoublingAndKeepsContents) {
    text_buf b;
    ASSERT_TRUE(text_buf_append(b, std::string(255, 'a')));
    EXPECT_EQ(b.cap, 256u);
    ASSERT_TRUE(text_buf_append_char(b, 'b'));  // need 257
    EXPECT_EQ(b.cap, 512u);
    ASSERT_TRUE(text_buf_append(b, std::string(1500, 'c')));  // need 1757: 512 -> 1024 -> 2048
    EXPECT_EQ(b.cap, 2048u);
    std::string expected = std::string(255, 'a') + "b" + std::string(1500, 'c');
    EXPECT_EQ(text_buf_view(b), expected);
    EXPECT_EQ(b.data[b.len], '\0');
}

TEST(TextBuf, EmbeddedBytesPassThroughUnchanged) {
    text_buf b;
    ASSERT_TRUE(text_buf_append(b, std::string_view("a\0b", 3)));
    ASSERT_TRUE(text_buf_append(b, "\xc3\xa9\xe2\x82\xac"));  // UTF-8 passes as bytes
    ASSERT_TRUE(text_buf_append(b, "c\0ignored"));            // C strings stop at their NUL
    EXPECT_EQ(text_buf_view(b), std::string_view("a\0b\xc3\xa9\xe2\x82\xac" "c", 9));
}

TEST(TextBuf, FormattedAppend) {
    text_buf b;
    ASSERT_TRUE(text_buf_appendf(b, "%zu|%ld|%.2f|%+.2f|%.4g|%%|%s", std::size_t{42}, -7L, 3.14159, 0.5, 1234567.0,
                                 "end"));
    EXPECT_EQ(text_buf_view(b), "42|-7|3.14|+0.50|1.235e+06|%|end");

    // A long formatted text is measured first and lands whole, across a growth step.
    std::string long_arg(700, 'z');
    ASSERT_TRUE(text_buf_appendf(b, "<%s>", long_arg.c_str()));
    EXPECT_EQ(b.cap, 1024u);
    EXPECT_EQ(text_buf_view(b).substr(32), "<" + long_arg + ">");
}

TEST(TextBuf, EmptyFormattedAppendAddsNothing) {
    text_buf b;
    ASSERT_TRUE(text_buf_append(b, "x"));
    ASSERT_TRUE(text_buf_appendf(b, "%s", ""));
    EXPECT_EQ(text_buf_view(b), "x");
    EXPECT_EQ(b.len, 1u);
}

TEST(TextBuf, HtmlEscaping) {
    EXPECT_EQ(html("<a href='x'>&\""), "&lt;a href=&#39;x&#39;&gt;&amp;&quot;");
    EXPECT_EQ(html(""), "");
    // Slashes, control characters and high bytes are copied as they are.
    EXPECT_EQ(html("a/b\\c\t\x01\xff"), "a/b\\c\t\x01\xff");
}

TEST(TextBuf, PathEscapingBreaksAfterEverySeparator) {
    EXPECT_EQ(html_path("/tmp/x"), "/<wbr>tmp/<wbr>x");
    EXPECT_EQ(html_path("C:\\a\\b.wav"), "C:\\<wbr>a\\<wbr>b.wav");
    EXPECT_EQ(html_path("out/"), "out/<wbr>");
    EXPECT_EQ(html_path("a<b>/c&d"), "a&lt;b&gt;/<wbr>c&amp;d");
}

TEST(TextBuf, AllocationFailureKeepsEarlierContents) {
    allocation_limit_guard limit(512);
    text_buf b;
    ASSERT_TRUE(text_buf_append(b, std::string(300, 'a')));
    EXPECT_EQ(b.cap, 512u);
    const char* before = b.data.get();

    EXPECT_FALSE(text_buf_append(b, std::string(300, 'b')));  // would need 1024
    EXPECT_FALSE(text_buf_appendf(b, "%0300d", 1));
    EXPECT_EQ(b.len, 300u);
    EXPECT_EQ(b.cap, 512u);
    EXPECT_EQ(b.data.get(), before);
    EXPECT_EQ(text_buf_view(b), std::string(300, 'a'));

    // An escaper stops at the first append that fails, leaving what it wrote so far.
    ASSERT_TRUE(text_buf_append(b, std::string(200, 'c')));  // len 500
    EXPECT_FALSE(text_buf_append_html(b, "1234567890&"));
    EXPECT_EQ(b.len, 510u);
    EXPECT_TRUE(text_buf_view(b).ends_with("c1234567890"));
    EXPECT_EQ(b.data[b.len], '\0');

    // A fresh buffer that cannot allocate at all stays empty.
    text_buf_set_allocation_limit(128);
    text_buf fresh;
    EXPECT_FALSE(text_buf_append_char(fresh, 'x'));
    EXPECT_EQ(fresh.data, nullptr);
    EXPECT_EQ(fresh.cap, 0u);
}

TEST(TextBuf, FormattingErrorAppendsNothing) {
    text_buf b;
    ASSERT_TRUE(text_buf_append(b, "keep"));
    // A wide-character conversion whose character has no encoding in the "C" locale
    // makes the formatter report an error.
    const wchar_t bad[] = {static_cast<wchar_t>(0xD800), 0};
    EXPECT_FALSE(text_buf_appendf(b, "%ls", bad));
    EXPECT_EQ(text_buf_view(b), "keep");
}

}  // namespace
}  // namespace veltrane
