#pragma once
// Static blocks shared by every page the program writes (report, error report, plot
// page): the style sheet, the theme toggle button, the theme script and the opening of
// the top bar. Each appends to the page's text_buf and returns false when an append
// fails (the buffer then holds what was appended before).
#include <string>
#include <string_view>

#include "report/text_buf.h"
#include "util/files.h"

namespace veltrane {

// "<style>\n", the report style sheet (resources/report.css), "</style>\n".
bool append_style_block(text_buf& buf);

// The light/dark switch of the top bar: a button of class theme-toggle, id themeToggle,
// aria-label "Switch to dark theme", holding a sun (ti-sun) and a moon (ti-moon) icon.
// The theme script keeps its label and icon in step with the theme.
bool append_theme_toggle(text_buf& buf);

// "<script>\n", the theme script (resources/theme.js), "</script>\n". The script stores the
// choice in local storage under "veltrane-report-theme".
bool append_theme_script(text_buf& buf);

// "<script>\n", the chart script (resources/chart.js), "</script>\n": redraws every chart from
// its data island and gives it zoom, pan, box zoom, reset and the trace toggle.
bool append_chart_script(text_buf& buf);

// Opens the top bar, byte for byte the same on every page: the brand block with its
// glyph and `product_name` ("Veltrane Report", "Veltrane Plot"; a program text, written
// unescaped), ending in "<div class=\"right\">\n<div class=\"meta\">". The caller continues
// with the version, the theme toggle and "</div>\n</div>\n".
bool append_top_bar_open(text_buf& buf, std::string_view product_name);

// The start of every page up to its first own block: the document head with the title
// `title_html` (already HTML-safe) followed by `title_suffix`, the style block, the opening
// of the body and the dash, and the whole top bar with `product_name`, the version and the
// theme toggle.
bool append_page_head(text_buf& buf, std::string_view title_html, std::string_view title_suffix,
                      std::string_view product_name, std::string_view version);

// The signal row's two file tags with the paths (HTML-escaped, breakable at separators),
// left open: the caller adds its meta line, if any, and "</div>\n".
bool append_signal_ids(text_buf& buf, const std::string& ref_path, const std::string& dut_path);

// "<footer>" and its top row (version, and "<page_word> generated <timestamp>"), left open
// for the caller's further rows and "</footer>\n".
bool append_footer_top(text_buf& buf, std::string_view version, std::string_view page_word,
                       std::string_view timestamp);

// Builds a page into a fresh buffer with `build` (a callable taking the text_buf& and
// returning false on failure) and writes it to `path` with one write of the whole buffer.
// Nothing is written when the build fails; true only when every byte was written.
template <class Build>
bool write_page(const std::string& path, Build&& build) {
    text_buf buf;
    text_buf_init(buf);
    bool ok = build(buf) && write_binary_file(path, text_buf_view(buf));
    text_buf_free(buf);
    return ok;
}

}  // namespace veltrane
