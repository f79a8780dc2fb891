#pragma once
// The Signal Overview card: the whole reference (with the DUT over it) of each channel as
// an envelope chart, and on channel 0 a dashed marker at the worst spot of every check that
// failed and has such a spot (bit differences, time domain, impulse, level, artifacts,
// spectral frame, distortion frame), all in reference frames.
#include <vector>

#include "report/report_inputs.h"
#include "report/text_buf.h"
#include "report/waveform_chart.h"

namespace veltrane {

// The markers of channel 0, in the order of the card's marker list.
std::vector<marker> overview_markers(const run_results& res);

bool append_overview_card(text_buf& buf, const report_inputs& in);

}  // namespace veltrane
