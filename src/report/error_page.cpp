#include "report/error_page.h"

#include "report/page_blocks.h"
#include "util/files.h"

namespace veltrane {

bool append_error_page(text_buf& buf, const error_page_info& info, std::string_view timestamp) {
    const std::string stamp(timestamp);
    return text_buf_append(buf,
                           "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                           "<title>Run Error -- Veltrane Report</title>\n") &&
           append_style_block(buf) && text_buf_append(buf, "</head>\n<body>\n<div class=\"dash\">\n") &&
           append_top_bar_open(buf, "Veltrane Report") &&
           text_buf_appendf(buf, "<b>v%s</b></div>\n", info.version.c_str()) && append_theme_toggle(buf) &&
           text_buf_append(buf, "</div>\n</div>\n") &&
           text_buf_append(buf,
                           "<div class=\"signal-row\">\n<div class=\"signal-id\">\n<span class=\"tag\">Reference</span>\n"
                           "<span class=\"fname\">") &&
           text_buf_append_html_path(buf, info.ref_path.c_str()) &&
           text_buf_append(buf,
                           "</span>\n</div>\n<div class=\"signal-id dut\">\n<span class=\"tag\">Device Under Test</span>\n"
                           "<span class=\"fname\">") &&
           text_buf_append_html_path(buf, info.dut_path.c_str()) &&
           text_buf_append(buf, "</span>\n</div>\n</div>\n") &&
           text_buf_append(buf,
                           "<div class=\"kpi-grid\">\n<div class=\"kpi verdict\">\n<div class=\"k\">Overall Verdict</div>\n"
                           "<div class=\"v\">ERROR</div>\n</div>\n</div>\n") &&
           text_buf_append(buf,
                           "<section class=\"card\" id=\"run-error\">\n<div class=\"card-head\">\n"
                           "<div class=\"htext\"><h3>Run Error</h3><span class=\"sub\">no checks were run</span></div>\n"
                           "</div>\n<div class=\"card-body\">\n<p class=\"run-error\">") &&
           text_buf_append_html(buf, info.error_text.c_str()) &&
           text_buf_append(buf,
                           "</p>\n<p>Veltrane could not complete this comparison, so this report has no PASS or FAIL "
                           "result for these files. Fix the cause named above and run the comparison again.</p>\n"
                           "</div>\n</section>\n") &&
           text_buf_append(buf, "<footer>\n<div class=\"footer-row-top\">\n") &&
           text_buf_appendf(buf, "<span><b>Veltrane</b> v%s</span>\n", info.version.c_str()) &&
           text_buf_appendf(buf, "<span>report generated %s</span>\n</div>\n</footer>\n", stamp.c_str()) &&
           text_buf_append(buf, "</div>\n") && append_theme_script(buf) && text_buf_append(buf, "</body>\n</html>\n");
}

bool write_error_page(const std::string& html_path, const error_page_info& info) {
    return write_page(html_path, [&](text_buf& buf) { return append_error_page(buf, info, utc_timestamp()); });
}

}  // namespace veltrane
