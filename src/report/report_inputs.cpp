#include "report/report_inputs.h"

namespace veltrane {

gating_inputs gating_inputs_from(const report_inputs& in) {
    gating_inputs g;
    g.length_mismatch_failed = in.length_mismatch.failed;
    g.bitexact_ran = in.bitexact_ran;
    g.bitexact_gates = in.bitexact_gates;
    g.bitexact_passed = !in.bitexact_ran || in.bitexact.pass;
    g.level_gates = in.level_gates;
    g.artifact_gates = in.artifact_gates;
    g.distortion_ran = in.distortion_ran;
    g.loudness_ran = in.loudness_ran;
    g.loudness_gates = in.loudness_gates;
    g.time_domain_ran = in.time_domain_ran;
    g.impulse_template_ran = in.impulse_ran;
    return g;
}

}  // namespace veltrane
