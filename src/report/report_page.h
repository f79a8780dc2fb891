#pragma once
// The analyze report: one self-contained HTML page (styles, scripts, inline charts and the
// run's results document as a JSON island) built whole in memory and written with one write.
#include <string>
#include <string_view>

#include "report/report_inputs.h"
#include "report/text_buf.h"

namespace veltrane {

// "Bit-Exact + Bit Accuracy", "Bit-Exact", "Bit Accuracy" or the spectral profile's name,
// plus " + Deepscan" / " + Impulse" for the optional checks that ran.
std::string analysis_mode_name(const run_results& res, std::string_view spectral_profile);

// "Frequency Sweep", "Amplitude Sweep" or "Frequency Domain".
const char* spectral_profile_name(std::string_view profile);

// "16-bit", "24-bit", "32-bit", "32-bit float", "64-bit float" or "unknown".
const char* bit_depth_word(std::uint32_t format_code);

// The results document as embedded in the page: every '<', '>' and '&' becomes
// "\u003c", "\u003e" or "\u0026". Those bytes occur only inside string values (file
// names), where the escapes read back as the same characters, so the island still parses
// to exactly the results document; but no file name can close the script element
// ("</SCRIPT" in any letter case), open a comment ("<!--") that swallows the next
// script, or otherwise become markup. Every other byte is unchanged.
std::string escape_script_close(std::string_view document);

// The footer's tester row ("Tested by <b>..</b> &middot; product <b>..</b>"), nothing when
// no identity item is given.
bool append_tester_row(text_buf& buf, const tester_identity& tester);

// The Configuration card: every resolved parameter the report lists, with its source.
bool append_configuration_card(text_buf& buf, const report_inputs& in);

// Appends the whole page; `timestamp` is the footer's generation time.
bool append_report_page(text_buf& buf, const report_inputs& in, std::string_view timestamp);

// Builds the page with the current UTC time and writes it to `html_path` with one write.
// True only when every byte was written; nothing is created when the page cannot be built.
bool write_report_page(const std::string& html_path, const report_inputs& in);

}  // namespace veltrane
