#include "report/page_blocks.h"

#include "report/resources.h"

namespace veltrane {
namespace {

// The brand glyph: a magnifier whose lens holds a signal trace, drawn white on the
// glyph's accent tile (24 x 24 user units).
constexpr std::string_view brand_glyph_svg =
    "<svg viewBox=\"0 0 24 24\" width=\"24\" height=\"24\" fill=\"none\" aria-hidden=\"true\">"
    "<circle cx=\"10\" cy=\"10\" r=\"6.3\" stroke=\"#fff\" stroke-width=\"1.7\"/>"
    "<polyline points=\"4.6,10 6.4,10 7.8,6.5 9.6,13.5 11.2,7 12.6,12 14.4,12\" stroke=\"#fff\" "
    "stroke-width=\"1.8\" stroke-linecap=\"round\" stroke-linejoin=\"round\"/>"
    "<line x1=\"14.46\" y1=\"14.46\" x2=\"19.6\" y2=\"19.6\" stroke=\"#fff\" stroke-width=\"2.2\" "
    "stroke-linecap=\"round\"/>"
    "</svg>";

// Sun (shown while the page is dark: "switch to light") and crescent moon (shown while it
// is light), 24 x 24 stroke icons in the button's text colour.
constexpr std::string_view theme_toggle_html =
    "<button type=\"button\" class=\"theme-toggle\" id=\"themeToggle\" aria-label=\"Switch to dark theme\">"
    "<svg class=\"ti-sun\" viewBox=\"0 0 24 24\" width=\"18\" height=\"18\" fill=\"none\" stroke=\"currentColor\" "
    "stroke-width=\"2\" stroke-linecap=\"round\" aria-hidden=\"true\">"
    "<circle cx=\"12\" cy=\"12\" r=\"4\"/>"
    "<path d=\"M12 2v2M12 20v2M4.93 4.93l1.41 1.41M17.66 17.66l1.41 1.41M2 12h2M20 12h2"
    "M4.93 19.07l1.41-1.41M17.66 6.34l1.41-1.41\"/>"
    "</svg>"
    "<svg class=\"ti-moon\" viewBox=\"0 0 24 24\" width=\"18\" height=\"18\" fill=\"none\" stroke=\"currentColor\" "
    "stroke-width=\"2\" stroke-linecap=\"round\" stroke-linejoin=\"round\" aria-hidden=\"true\">"
    "<path d=\"M21 12.79A9 9 0 1 1 11.21 3 7 7 0 0 0 21 12.79z\"/>"
    "</svg>"
    "</button>\n";

}  // namespace

bool append_style_block(text_buf& buf) {
    return text_buf_append(buf, "<style>\n") && text_buf_append(buf, report_resource("report.css")) &&
           text_buf_append(buf, "</style>\n");
}

bool append_theme_toggle(text_buf& buf) {
    return text_buf_append(buf, theme_toggle_html);
}

bool append_theme_script(text_buf& buf) {
    return text_buf_append(buf, "<script>\n") && text_buf_append(buf, report_resource("theme.js")) &&
           text_buf_append(buf, "</script>\n");
}

bool append_chart_script(text_buf& buf) {
    return text_buf_append(buf, "<script>\n") && text_buf_append(buf, report_resource("chart.js")) &&
           text_buf_append(buf, "</script>\n");
}

bool append_top_bar_open(text_buf& buf, std::string_view product_name) {
    return text_buf_append(buf, "<div class=\"topbar\">\n<div class=\"brand\">\n<span class=\"glyph\">") &&
           text_buf_append(buf, brand_glyph_svg) && text_buf_append(buf, "</span>\n<span class=\"name\">") &&
           text_buf_append(buf, product_name) &&
           text_buf_append(buf, "</span>\n</div>\n<div class=\"right\">\n<div class=\"meta\">");
}

bool append_page_head(text_buf& buf, std::string_view title_html, std::string_view title_suffix,
                      std::string_view product_name, std::string_view version) {
    return text_buf_append(buf,
                           "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<meta "
                           "name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>") &&
           text_buf_append(buf, title_html) && text_buf_append(buf, title_suffix) &&
           text_buf_append(buf, "</title>\n") && append_style_block(buf) &&
           text_buf_append(buf, "</head>\n<body>\n<div class=\"dash\">\n") && append_top_bar_open(buf, product_name) &&
           text_buf_append(buf, "<b>v") && text_buf_append(buf, version) && text_buf_append(buf, "</b></div>\n") &&
           append_theme_toggle(buf) && text_buf_append(buf, "</div>\n</div>\n");
}

bool append_signal_ids(text_buf& buf, const std::string& ref_path, const std::string& dut_path) {
    return text_buf_append(buf,
                           "<div class=\"signal-row\">\n<div class=\"signal-id\">\n<span "
                           "class=\"tag\">Reference</span>\n<span class=\"fname\">") &&
           text_buf_append_html_path(buf, ref_path.c_str()) &&
           text_buf_append(buf,
                           "</span>\n</div>\n<div class=\"signal-id dut\">\n<span class=\"tag\">Device Under "
                           "Test</span>\n<span class=\"fname\">") &&
           text_buf_append_html_path(buf, dut_path.c_str()) && text_buf_append(buf, "</span>\n</div>\n");
}

bool append_footer_top(text_buf& buf, std::string_view version, std::string_view page_word,
                       std::string_view timestamp) {
    return text_buf_append(buf, "<footer>\n<div class=\"footer-row-top\">\n<span><b>Veltrane</b> v") &&
           text_buf_append(buf, version) && text_buf_append(buf, "</span>\n<span>") &&
           text_buf_append(buf, page_word) && text_buf_append(buf, " generated ") &&
           text_buf_append(buf, timestamp) && text_buf_append(buf, "</span>\n</div>\n");
}

}  // namespace veltrane
