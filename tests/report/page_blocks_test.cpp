// The static page blocks (style sheet tokens, theme toggle, top bar) and the ERROR page
// built from them.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "report/error_page.h"
#include "report/page_blocks.h"
#include "report/resources.h"
#include "support/allocation.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane {
namespace {

std::string built(bool (*append)(text_buf&)) {
    text_buf b;
    EXPECT_TRUE(append(b));
    return std::string(text_buf_view(b));
}

// The declarations of the first rule whose selector is `selector`.
std::string css_block(const std::string& css, const std::string& selector) {
    std::size_t open = css.find(selector + " {");
    if (open == std::string::npos) return {};
    open = css.find('{', open);
    return css.substr(open + 1, css.find('}', open) - open - 1);
}

bool declares(const std::string& block, const std::string& token, const std::string& value) {
    return block.find(token + ": " + value + ";") != std::string::npos;
}

TEST(PageBlocks, DesignTokensForBothThemes) {
    struct token {
        const char* name;
        const char* light;
        const char* dark;  // nullptr: the dark theme keeps the light value
    };
    const token tokens[] = {
        {"--bg", "#eef1f4", "#0e1318"}, {"--surface", "#ffffff", "#161d24"}, {"--surface-sunken", "#f4f6f8", "#10151a"},
        {"--ink", "#131a22", "#e7edf2"}, {"--ink-soft", "#55636f", "#9aa8b3"}, {"--muted", "#8b96a1", "#5c6b78"},
        {"--line", "#e1e6eb", "#232c35"}, {"--line-strong", "#cbd3da", "#303b45"}, {"--accent", "#0b7285", "#35b6c4"},
        {"--accent-ink", "#ffffff", "#051417"}, {"--accent-soft", "#e1f3f4", "#12292c"},
        {"--logo-accent", "#2952cc", "#6f92f2"}, {"--ref", "#FF7F0E", nullptr}, {"--dut", "#1F77B4", nullptr},
        {"--ref-trace", "var(--ref)", nullptr}, {"--dut-trace", "var(--dut)", nullptr},
        {"--pass", "#2E7D32", "#6fbf73"}, {"--pass-soft", "#e6f2e6", "#142a17"}, {"--pass-line", "#b9d8b8", "#2b4a2e"},
        {"--fail", "#C62828", "#e2857b"}, {"--fail-soft", "#fbe8e6", "#2c1815"}, {"--fail-line", "#edb6ae", "#55302a"},
        {"--gate", "#a5610f", "#e3a25c"}, {"--gate-bg", "#f6e9d7", "#2a2114"}, {"--gauge-mid", "#e8c93a", "#e8c93a"},
        {"--gauge-good", "#b08a10", "#d9b23c"}, {"--gauge-poor-soft", "#e8a29c", "#7a453f"},
        {"--gauge-fair-soft", "#e8c896", "#7a5f3a"}, {"--gauge-mid-soft", "#e8dc96", "#7a7040"},
        {"--gauge-good-soft", "#a8cfa0", "#4a6b4a"},
    };
    const std::string css(report_resource("report.css"));
    const std::string light = css_block(css, ":root");
    const std::string dark = css_block(css, ":root[data-theme=\"dark\"]");
    const std::string system_dark = css_block(css, "@media (prefers-color-scheme: dark) {\n  :root:not([data-theme=\"light\"])");
    ASSERT_FALSE(light.empty());
    ASSERT_FALSE(dark.empty());
    ASSERT_FALSE(system_dark.empty());
    for (const token& t : tokens) {
        EXPECT_TRUE(declares(light, t.name, t.light)) << t.name;
        const char* d = t.dark ? t.dark : t.light;
        EXPECT_EQ(declares(dark, t.name, d) && declares(system_dark, t.name, d), t.dark != nullptr) << t.name;
    }
    for (const char* name : {"--shadow", "--font-display", "--font-body", "--font-data"})
        EXPECT_NE(light.find(std::string(name) + ": "), std::string::npos) << name;
}

TEST(PageBlocks, ResourcesCannotCloseTheirElementEarly) {
    for (const char* name : {"report.css", "theme.js"}) {
        std::string_view text = report_resource(name);
        ASSERT_FALSE(text.empty()) << name;
        EXPECT_EQ(text.find("</"), std::string_view::npos) << name;
    }
    EXPECT_TRUE(built(append_theme_script).starts_with("<script>\n"));
    EXPECT_NE(built(append_theme_script).find("'veltrane-report-theme'"), std::string::npos);
}

TEST(PageBlocks, TopBarAndToggle) {
    text_buf b;
    ASSERT_TRUE(append_top_bar_open(b, "Veltrane Plot"));
    std::string bar(text_buf_view(b));
    EXPECT_TRUE(bar.starts_with("<div class=\"topbar\">\n<div class=\"brand\">\n<span class=\"glyph\"><svg "));
    EXPECT_TRUE(bar.ends_with("</svg></span>\n<span class=\"name\">Veltrane Plot</span>\n</div>\n"
                              "<div class=\"right\">\n<div class=\"meta\">"));
    for (const char* part : {"cx=\"10\" cy=\"10\" r=\"6.3\" stroke=\"#fff\" stroke-width=\"1.7\"",
                             "points=\"4.6,10 6.4,10 7.8,6.5 9.6,13.5 11.2,7 12.6,12 14.4,12\"",
                             "x1=\"14.46\" y1=\"14.46\" x2=\"19.6\" y2=\"19.6\" stroke=\"#fff\" stroke-width=\"2.2\""})
        EXPECT_NE(bar.find(part), std::string::npos) << part;

    std::string toggle = built(append_theme_toggle);
    EXPECT_TRUE(toggle.starts_with("<button type=\"button\" class=\"theme-toggle\" id=\"themeToggle\" "
                                   "aria-label=\"Switch to dark theme\">"));
    EXPECT_NE(toggle.find("class=\"ti-sun\""), std::string::npos);
    EXPECT_NE(toggle.find("class=\"ti-moon\""), std::string::npos);
}

TEST(ErrorPage, ExactDocument) {
    error_page_info info{"refs/a&b.wav", "C:\\caps\\<dut>.wav", "failed to read --ref 'x' (\"gone\")", "0.7.1-beta"};
    text_buf b;
    ASSERT_TRUE(append_error_page(b, info, "2024-01-02 03:04:05 UTC"));
    text_buf bar;
    ASSERT_TRUE(append_top_bar_open(bar, "Veltrane Report"));
    std::string expected =
        "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<title>Run Error -- Veltrane Report</title>\n<style>\n" +
        std::string(report_resource("report.css")) + "</style>\n</head>\n<body>\n<div class=\"dash\">\n" +
        std::string(text_buf_view(bar)) + "<b>v0.7.1-beta</b></div>\n" + built(append_theme_toggle) +
        "</div>\n</div>\n"
        "<div class=\"signal-row\">\n<div class=\"signal-id\">\n<span class=\"tag\">Reference</span>\n"
        "<span class=\"fname\">refs/<wbr>a&amp;b.wav</span>\n</div>\n<div class=\"signal-id dut\">\n"
        "<span class=\"tag\">Device Under Test</span>\n<span class=\"fname\">C:\\<wbr>caps\\<wbr>&lt;dut&gt;.wav"
        "</span>\n</div>\n</div>\n"
        "<div class=\"kpi-grid\">\n<div class=\"kpi verdict\">\n<div class=\"k\">Overall Verdict</div>\n"
        "<div class=\"v\">ERROR</div>\n</div>\n</div>\n"
        "<section class=\"card\" id=\"run-error\">\n<div class=\"card-head\">\n"
        "<div class=\"htext\"><h3>Run Error</h3><span class=\"sub\">no checks were run</span></div>\n</div>\n"
        "<div class=\"card-body\">\n<p class=\"run-error\">failed to read --ref &#39;x&#39; (&quot;gone&quot;)</p>\n"
        "<p>Veltrane could not complete this comparison, so this report has no PASS or FAIL result for these "
        "files. Fix the cause named above and run the comparison again.</p>\n</div>\n</section>\n"
        "<footer>\n<div class=\"footer-row-top\">\n<span><b>Veltrane</b> v0.7.1-beta</span>\n"
        "<span>report generated 2024-01-02 03:04:05 UTC</span>\n</div>\n</footer>\n"
        "</div>\n<script>\n" +
        std::string(report_resource("theme.js")) + "</script>\n</body>\n</html>\n";
    EXPECT_EQ(text_buf_view(b), expected);
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
