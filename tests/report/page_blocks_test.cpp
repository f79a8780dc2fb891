// The static page blocks (style sheet, theme toggle and script, top bar) and the ERROR
// page built from them.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "report/error_page.h"
#include "report/page_blocks.h"
#include "report/resources.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane {
namespace {

std::string built(bool (*append)(text_buf&)) {
    text_buf b;
    EXPECT_TRUE(append(b));
    return std::string(text_buf_view(b));
}

// The declarations inside the first block that starts with `selector` and "{".
std::string css_block(const std::string& css, const std::string& selector) {
    std::size_t at = css.find(selector + " {");
    if (at == std::string::npos) return {};
    std::size_t open = css.find('{', at);
    std::size_t close = css.find('}', open);
    return css.substr(open + 1, close - open - 1);
}

bool declares(const std::string& block, const std::string& token, const std::string& value) {
    return block.find(token + ": " + value + ";") != std::string::npos;
}

TEST(PageBlocks, StyleAndScriptsWrapTheirResources) {
    std::string_view css = report_resource("report.css");
    std::string_view js = report_resource("theme.js");
    ASSERT_FALSE(css.empty());
    ASSERT_FALSE(js.empty());
    EXPECT_EQ(built(append_style_block), "<style>\n" + std::string(css) + "</style>\n");
    EXPECT_EQ(built(append_theme_script), "<script>\n" + std::string(js) + "</script>\n");
    // Neither resource may close its own element early.
    EXPECT_EQ(css.find("</"), std::string_view::npos);
    EXPECT_EQ(js.find("</"), std::string_view::npos);
    EXPECT_NE(js.find("'veltrane-report-theme'"), std::string_view::npos);
}

TEST(PageBlocks, DesignTokensForBothThemes) {
    struct token {
        const char* name;
        const char* light;
        const char* dark;  // nullptr: the dark theme keeps the light value
    };
    const token tokens[] = {
        {"--bg", "#eef1f4", "#0e1318"},           {"--surface", "#ffffff", "#161d24"},
        {"--surface-sunken", "#f4f6f8", "#10151a"}, {"--ink", "#131a22", "#e7edf2"},
        {"--ink-soft", "#55636f", "#9aa8b3"},     {"--muted", "#8b96a1", "#5c6b78"},
        {"--line", "#e1e6eb", "#232c35"},         {"--line-strong", "#cbd3da", "#303b45"},
        {"--accent", "#0b7285", "#35b6c4"},       {"--accent-ink", "#ffffff", "#051417"},
        {"--accent-soft", "#e1f3f4", "#12292c"},  {"--logo-accent", "#2952cc", "#6f92f2"},
        {"--ref", "#FF7F0E", nullptr},            {"--dut", "#1F77B4", nullptr},
        {"--ref-trace", "var(--ref)", nullptr},   {"--dut-trace", "var(--dut)", nullptr},
        {"--pass", "#2E7D32", "#6fbf73"},         {"--pass-soft", "#e6f2e6", "#142a17"},
        {"--pass-line", "#b9d8b8", "#2b4a2e"},    {"--fail", "#C62828", "#e2857b"},
        {"--fail-soft", "#fbe8e6", "#2c1815"},    {"--fail-line", "#edb6ae", "#55302a"},
        {"--gate", "#a5610f", "#e3a25c"},         {"--gate-bg", "#f6e9d7", "#2a2114"},
        {"--gauge-mid", "#e8c93a", "#e8c93a"},    {"--gauge-good", "#b08a10", "#d9b23c"},
        {"--gauge-poor-soft", "#e8a29c", "#7a453f"}, {"--gauge-fair-soft", "#e8c896", "#7a5f3a"},
        {"--gauge-mid-soft", "#e8dc96", "#7a7040"}, {"--gauge-good-soft", "#a8cfa0", "#4a6b4a"},
    };
    const std::string css(report_resource("report.css"));
    const std::string light = css_block(css, ":root");
    const std::string dark = css_block(css, ":root[data-theme=\"dark\"]");
    const std::string system_dark = css_block(css, ":root:not([data-theme=\"light\"])");
    ASSERT_FALSE(light.empty());
    ASSERT_FALSE(dark.empty());
    ASSERT_FALSE(system_dark.empty());
    EXPECT_NE(css.find("@media (prefers-color-scheme: dark) {\n  :root:not([data-theme=\"light\"])"),
              std::string::npos);
    for (const token& t : tokens) {
        EXPECT_TRUE(declares(light, t.name, t.light)) << t.name;
        if (t.dark) {
            EXPECT_TRUE(declares(dark, t.name, t.dark)) << t.name;
            EXPECT_TRUE(declares(system_dark, t.name, t.dark)) << t.name;
        }
    }
    for (const char* name : {"--shadow", "--font-display", "--font-body", "--font-data"})
        EXPECT_NE(light.find(std::string(name) + ": "), std::string::npos) << name;
    // Both dark blocks are the same set of declarations.
    EXPECT_EQ(std::regex_replace(dark, std::regex("\\s+"), " "), std::regex_replace(system_dark, std::regex("\\s+"), " "));
}

TEST(PageBlocks, TopBarAndToggle) {
    text_buf b;
    ASSERT_TRUE(append_top_bar_open(b, "Veltrane Plot"));
    std::string bar(text_buf_view(b));
    EXPECT_TRUE(bar.starts_with("<div class=\"topbar\">\n<div class=\"brand\">\n<span class=\"glyph\"><svg "));
    EXPECT_TRUE(bar.ends_with("</svg></span>\n<span class=\"name\">Veltrane Plot</span>\n</div>\n"
                              "<div class=\"right\">\n<div class=\"meta\">"));
    for (const char* part : {"r=\"6.3\"", "cx=\"10\" cy=\"10\"", "stroke-width=\"1.7\"",
                             "points=\"4.6,10 6.4,10 7.8,6.5 9.6,13.5 11.2,7 12.6,12 14.4,12\"", "stroke-width=\"1.8\"",
                             "x1=\"14.46\" y1=\"14.46\" x2=\"19.6\" y2=\"19.6\"", "stroke-width=\"2.2\""})
        EXPECT_NE(bar.find(part), std::string::npos) << part;

    std::string toggle = built(append_theme_toggle);
    EXPECT_TRUE(toggle.starts_with("<button type=\"button\" class=\"theme-toggle\" id=\"themeToggle\" "
                                   "aria-label=\"Switch to dark theme\">"));
    EXPECT_TRUE(toggle.ends_with("</button>\n"));
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
        "<title>Run Error -- Veltrane Report</title>\n" +
        built(append_style_block) + "</head>\n<body>\n<div class=\"dash\">\n" + std::string(text_buf_view(bar)) +
        "<b>v0.7.1-beta</b></div>\n" + built(append_theme_toggle) + "</div>\n</div>\n" +
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
        "</div>\n" +
        built(append_theme_script) + "</body>\n</html>\n";
    EXPECT_EQ(text_buf_view(b), expected);
}

TEST(ErrorPage, WritesTheWholePageOrReportsFailure) {
    test::temp_dir dir;
    error_page_info info{"r.wav", "d.wav", "boom", "0.7.1-beta"};
    std::string path = dir.file("err.html");
    ASSERT_TRUE(write_error_page(path, info));
    std::string page = [&] {
        test::bytes raw = test::read_bytes(path);
        return std::string(raw.begin(), raw.end());
    }();
    EXPECT_TRUE(page.starts_with("<!doctype html>\n"));
    EXPECT_TRUE(page.ends_with("</body>\n</html>\n"));
    EXPECT_TRUE(std::regex_search(page, std::regex("<span>report generated \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d "
                                                   "UTC</span>\n")));

    EXPECT_FALSE(write_error_page(dir.file("missing/err.html"), info));

    // A page that cannot be built writes nothing.
    text_buf_set_allocation_limit(1024);
    EXPECT_FALSE(write_error_page(dir.file("small.html"), info));
    text_buf_set_allocation_limit(0);
    EXPECT_FALSE(std::filesystem::exists(dir.file("small.html")));
}

}  // namespace
}  // namespace veltrane
