#pragma once
// The Distortion (THD+N) card and the THD+N tile of the report's KPI grid.
#include "report/report_inputs.h"
#include "report/text_buf.h"

namespace veltrane {

// The card (id "distortion"): fundamental, worst THD+N and tolerance of channel 0, the
// frame statistics of a scan; a Skipped card when the check did not run.
bool append_distortion_card(text_buf& buf, const report_inputs& in);

// The KPI tile: channel 0's worst THD+N in percent, "n/a" when gated or short of
// samples, "skipped" when the check did not run.
bool append_thdn_kpi(text_buf& buf, const report_inputs& in);

}  // namespace veltrane
