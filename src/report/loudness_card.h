#pragma once
// The Loudness card: the reference's and the DUT's loudness figures side by side with
// their differences, or the Skipped card when the check did not run.
#include "report/report_inputs.h"
#include "report/text_buf.h"

namespace veltrane {

bool append_loudness_card(text_buf& buf, const report_inputs& in);

}  // namespace veltrane
