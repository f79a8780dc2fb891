#pragma once
// Cards of the sample-domain checks: Level Fidelity (gain tracking and worst point
// tables), Artifact Detection (per-channel event tiles) and Time Domain (per-channel
// tiles and waveform views). Each appends to the page buffer and returns false on the
// first failed append.
#include "report/report_inputs.h"
#include "report/text_buf.h"

namespace veltrane {

bool append_level_card(text_buf& buf, const report_inputs& in);
bool append_artifact_card(text_buf& buf, const report_inputs& in);
bool append_time_domain_card(text_buf& buf, const report_inputs& in);

// The Worst Event tile's severity text for an event of the given severities against the
// counting thresholds: whole-file form, plain severity, or "silence/full scale".
std::string artifact_severity_text(double severity, double global_severity, double min_severity,
                                   double min_global_severity);

}  // namespace veltrane
