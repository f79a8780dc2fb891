#pragma once
// The ERROR page: written in place of the report when the two files of an analyze run
// cannot be compared. It carries the same style, top bar and theme script as the report,
// the two input paths, an ERROR verdict tile and the error text.
#include <string>
#include <string_view>

#include "report/text_buf.h"

namespace veltrane {

struct error_page_info {
    std::string ref_path;    // --ref as typed
    std::string dut_path;    // --dut as typed
    std::string error_text;  // the run's error summary
    std::string version;     // program version, e.g. "0.7.1-beta"
};

// Appends the whole page to `buf`; `timestamp` is the footer's generation time
// ("YYYY-MM-DD HH:MM:SS UTC"). False on the first failed append.
bool append_error_page(text_buf& buf, const error_page_info& info, std::string_view timestamp);

// Builds the page with the current UTC time and writes it to `html_path` with one write
// (created or truncated). True only when every byte was written; a failed build writes
// nothing.
bool write_error_page(const std::string& html_path, const error_page_info& info);

}  // namespace veltrane
