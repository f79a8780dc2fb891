// Growth rule, formatted appends, HTML escaping and the out-of-memory behaviour of the
// page text buffer.
#include <gtest/gtest.h>

#include <string>

#include "report/text_buf.h"
#include "support/allocation.h"

namespace veltrane {
namespace {

std::string escaped(bool (*escape)(text_buf&, const char*), const char* text) {
    text_buf b;
    EXPECT_TRUE(escape(b, text));
    return std::string(text_buf_view(b));
}

using test::allocation_limit;

TEST(TextBuf, CapacityIsSmallestPowerOfTwoFromTwoHundredFiftySix) {
    for (auto [first, cap] : {std::pair<std::size_t, std::uint64_t>{1, 256}, {255, 256}, {256, 512}, {511, 512},
                              {512, 1024}, {1000, 1024}}) {
        text_buf b;
        text_buf_init(b);
        EXPECT_EQ(b.data, nullptr);
        ASSERT_TRUE(text_buf_append(b, std::string(first, 'x')));
        EXPECT_EQ(b.cap, cap) << first;
        EXPECT_EQ(b.data[b.len], '\0');
        text_buf_free(b);
        EXPECT_TRUE(b.data == nullptr && b.len == 0 && b.cap == 0);
    }
    // Growing doubles the capacity and keeps the contents.
    text_buf b;
    ASSERT_TRUE(text_buf_append(b, std::string(255, 'a')));
    ASSERT_TRUE(text_buf_append_char(b, 'b'));  // need 257
    EXPECT_EQ(b.cap, 512u);
    ASSERT_TRUE(text_buf_append(b, std::string(1500, 'c')));  // need 1757
    EXPECT_EQ(b.cap, 2048u);
    EXPECT_EQ(text_buf_view(b), std::string(255, 'a') + "b" + std::string(1500, 'c'));
}

TEST(TextBuf, FormattedAppend) {
    text_buf b;
    ASSERT_TRUE(text_buf_appendf(b, "%zu|%ld|%.2f|%+.2f|%.4g|%%", std::size_t{42}, -7L, 3.14159, 0.5, 1234567.0));
    EXPECT_EQ(text_buf_view(b), "42|-7|3.14|+0.50|1.235e+06|%");
    ASSERT_TRUE(text_buf_appendf(b, "%s", ""));  // an empty result adds nothing
    EXPECT_EQ(b.len, 28u);
    // A long text is measured first and lands whole across a growth step.
    std::string long_arg(700, 'z');
    ASSERT_TRUE(text_buf_appendf(b, "<%s>", long_arg.c_str()));
    EXPECT_EQ(b.cap, 1024u);
    EXPECT_EQ(text_buf_view(b).substr(28), "<" + long_arg + ">");
    // A formatting error (a wide character the "C" locale cannot encode) adds nothing.
    const wchar_t bad[] = {static_cast<wchar_t>(0xD800), 0};
    EXPECT_FALSE(text_buf_appendf(b, "%ls", bad));
    EXPECT_EQ(b.len, 730u);
}

TEST(TextBuf, HtmlAndPathEscaping) {
    EXPECT_EQ(escaped(text_buf_append_html, "<a href='x'>&\""), "&lt;a href=&#39;x&#39;&gt;&amp;&quot;");
    EXPECT_EQ(escaped(text_buf_append_html, "a/b\\c\t\x01\xc3\xa9"), "a/b\\c\t\x01\xc3\xa9");  // bytes pass
    EXPECT_EQ(escaped(text_buf_append_html, ""), "");
    EXPECT_EQ(escaped(text_buf_append_html_path, "/tmp/x"), "/<wbr>tmp/<wbr>x");
    EXPECT_EQ(escaped(text_buf_append_html_path, "C:\\a\\b.wav"), "C:\\<wbr>a\\<wbr>b.wav");
    EXPECT_EQ(escaped(text_buf_append_html_path, "o<u>t/"), "o&lt;u&gt;t/<wbr>");
}

TEST(TextBuf, AllocationFailureKeepsEarlierContents) {
    allocation_limit limit(512);
    text_buf b;
    ASSERT_TRUE(text_buf_append(b, std::string(300, 'a')));
    const char* before = b.data.get();
    EXPECT_FALSE(text_buf_append(b, std::string(300, 'b')));  // would need 1024
    EXPECT_FALSE(text_buf_appendf(b, "%0300d", 1));
    EXPECT_TRUE(b.len == 300 && b.cap == 512 && b.data.get() == before);
    EXPECT_EQ(text_buf_view(b), std::string(300, 'a'));

    // An escaper stops at the first append that fails, keeping what it wrote so far.
    ASSERT_TRUE(text_buf_append(b, std::string(200, 'c')));  // len 500
    EXPECT_FALSE(text_buf_append_html(b, "1234567890&"));
    EXPECT_EQ(b.len, 510u);
    EXPECT_TRUE(text_buf_view(b).ends_with("c1234567890"));
    EXPECT_EQ(b.data[b.len], '\0');

    allocation_limit none(128);  // a fresh buffer that cannot allocate stays empty
    text_buf fresh;
    EXPECT_FALSE(text_buf_append_char(fresh, 'x'));
    EXPECT_TRUE(fresh.data == nullptr && fresh.cap == 0);
}

}  // namespace
}  // namespace veltrane
