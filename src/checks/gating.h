#pragma once
// The overall verdict: which checks failed while gating it. A check that did not run
// counts as passed; bit accuracy never gates. Failures are listed in a fixed order
// (length mismatch, bit-exactness, level fidelity, artifact detection, spectral
// fidelity, distortion, loudness, time domain, impulse template).
#include <cstdint>
#include <string>

namespace veltrane {

struct gating_inputs {
    bool length_mismatch_failed = false;
    bool bitexact_ran = false;
    bool bitexact_gates = false;
    bool bitexact_passed = true;
    bool level_gates = true;
    bool level_passed = true;
    bool artifact_gates = true;
    bool artifact_passed = true;
    bool spectral_passed = true;
    bool distortion_ran = false;
    bool distortion_passed = true;
    bool loudness_ran = false;
    bool loudness_gates = false;
    bool loudness_passed = true;
    bool time_domain_ran = false;
    bool time_domain_passed = true;
    bool impulse_template_ran = false;
    bool impulse_template_passed = true;
};

// Texts are kept within their fixed buffers: ids in 192 bytes, names in 320 bytes
// (at most 191 and 319 characters; what does not fit is cut).
inline constexpr std::size_t gating_ids_buffer_size = 192;
inline constexpr std::size_t gating_names_buffer_size = 320;

struct gating_summary {
    bool overall_pass = true;
    std::uint32_t failure_count = 0;
    std::string failure_ids;    // e.g. "length_mismatch,spectral"
    std::string failure_names;  // e.g. "Length Mismatch, Spectral Fidelity"
};

void add_gating_failure(gating_summary& summary, const char* id, const char* display_name);

gating_summary collect_gating_failures(const gating_inputs& in);

// Whether a failed check counts against the overall verdict, one predicate per check, so
// the verdict and the report's navigation marks agree.
struct gating_view {
    bool length_mismatch, bitexact, level, artifact, spectral, distortion, loudness, time_domain, impulse_template;
};
gating_view gating_failures_by_check(const gating_inputs& in);

}  // namespace veltrane
