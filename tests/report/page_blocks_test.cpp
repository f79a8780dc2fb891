// The static page blocks and the ERROR page built from them.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "report/error_page.h"
#include "report/page_blocks.h"
#include "report/resources.h"
#include "support/allocation.h"
#include "support/golden.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane {
namespace {

std::string built(bool (*append)(text_buf&)) {
    text_buf b;
    EXPECT_TRUE(append(b));
    return std::string(text_buf_view(b));
}

TEST(PageBlocks, ResourcesCannotCloseTheirElementEarly) {
    for (const char* name : {"report.css", "theme.js", "chart.js"}) {
        std::string_view text = report_resource(name);
        ASSERT_FALSE(text.empty()) << name;
        EXPECT_EQ(text.find("</"), std::string_view::npos) << name;
    }
    EXPECT_TRUE(built(append_theme_script).starts_with("<script>\n"));
    EXPECT_NE(built(append_theme_script).find("'veltrane-report-theme'"), std::string::npos);
}

TEST(ErrorPage, EscapesPathsAndErrorText) {
    error_page_info info{"refs/a&b.wav", "C:\\caps\\<dut>.wav", "failed to read --ref 'x' (\"gone\")", "0.7.1-beta"};
    text_buf b;
    ASSERT_TRUE(append_error_page(b, info, "2024-01-02 03:04:05 UTC"));
    test::expect_golden("error_page_escaping.html", text_buf_view(b));
}

TEST(ErrorPage, WritesTheWholePageOrNothing) {
    test::temp_dir dir;
    error_page_info info{"r.wav", "d.wav", "boom", "0.7.1-beta"};
    ASSERT_TRUE(write_error_page(dir.file("err.html"), info));
    test::bytes raw = test::read_bytes(dir.file("err.html"));
    std::string page(raw.begin(), raw.end());
    EXPECT_TRUE(page.starts_with("<!doctype html>\n"));
    EXPECT_TRUE(page.ends_with("</body>\n</html>\n"));
    std::size_t stamp = page.find("<span>report generated ");
    ASSERT_NE(stamp, std::string::npos);
    EXPECT_EQ(page.substr(stamp + 23 + 19, 12), " UTC</span>\n");  // "YYYY-MM-DD HH:MM:SS UTC"

    EXPECT_FALSE(write_error_page(dir.file("missing/err.html"), info));
    {
        test::allocation_limit small(1024);  // the page cannot be built: nothing is written
        EXPECT_FALSE(write_error_page(dir.file("small.html"), info));
    }
    EXPECT_FALSE(std::filesystem::exists(dir.file("small.html")));
}

}  // namespace
}  // namespace veltrane
