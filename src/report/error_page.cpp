#include "report/error_page.h"

#include "report/page_blocks.h"
#include "util/files.h"

namespace veltrane {

bool append_error_page(text_buf& buf, const error_page_info& info, std::string_view timestamp) {
    return append_page_head(buf, "Run Error", " -- Veltrane Report", "Veltrane Report", info.version) &&
           append_signal_ids(buf, info.ref_path, info.dut_path) && text_buf_append(buf, "</div>\n") &&
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
           append_footer_top(buf, info.version, "report", timestamp) && text_buf_append(buf, "</footer>\n") &&
           text_buf_append(buf, "</div>\n") && append_theme_script(buf) && text_buf_append(buf, "</body>\n</html>\n");
}

bool write_error_page(const std::string& html_path, const error_page_info& info) {
    return write_page(html_path, [&](text_buf& buf) { return append_error_page(buf, info, utc_timestamp()); });
}

}  // namespace veltrane
