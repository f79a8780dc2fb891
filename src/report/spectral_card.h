#pragma once
// The Spectral Fidelity card, in its two shapes (one frame or a continuous scan with a
// spectrum chart per channel; snapshots with one tab and one chart per snapshot), and the
// Spectral Fidelity tile of the report's KPI grid.
#include <string>

#include "report/report_inputs.h"
#include "report/text_buf.h"

namespace veltrane {

bool append_spectral_card(text_buf& buf, const report_inputs& in);

// The KPI tile: snapshots passed on channel 0 in snapshot mode, else channel 0's p99
// ratio, "n/a" when that channel was gated or short of samples.
bool append_spectral_kpi(text_buf& buf, const report_inputs& in);

// A time in seconds as minutes and seconds with one decimal: 65.3 -> "1:05.3".
std::string spectral_time_text(double seconds);

}  // namespace veltrane
