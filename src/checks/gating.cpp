#include "checks/gating.h"

namespace veltrane {
namespace {

void append_cut(std::string& text, const char* separator, const char* item, std::size_t buffer_size) {
    if (!text.empty()) text += separator;
    text += item;
    if (text.size() > buffer_size - 1) text.resize(buffer_size - 1);
}

}  // namespace

void add_gating_failure(gating_summary& summary, const char* id, const char* display_name) {
    append_cut(summary.failure_ids, ",", id, gating_ids_buffer_size);
    append_cut(summary.failure_names, ", ", display_name, gating_names_buffer_size);
    ++summary.failure_count;
}

gating_view gating_failures_by_check(const gating_inputs& in) {
    gating_view v{};
    v.length_mismatch = in.length_mismatch_failed;
    v.bitexact = in.bitexact_ran && in.bitexact_gates && !in.bitexact_passed;
    v.level = in.level_gates && !in.level_passed;
    v.artifact = in.artifact_gates && !in.artifact_passed;
    v.spectral = !in.spectral_passed;
    v.distortion = in.distortion_ran && !in.distortion_passed;
    v.loudness = in.loudness_ran && in.loudness_gates && !in.loudness_passed;
    v.time_domain = in.time_domain_ran && !in.time_domain_passed;
    v.impulse_template = in.impulse_template_ran && !in.impulse_template_passed;
    return v;
}

gating_summary collect_gating_failures(const gating_inputs& in) {
    gating_view v = gating_failures_by_check(in);
    gating_summary s;
    if (v.length_mismatch) add_gating_failure(s, "length_mismatch", "Length Mismatch");
    if (v.bitexact) add_gating_failure(s, "bitexact", "Bit-Exactness");
    if (v.level) add_gating_failure(s, "levelfidelity", "Level Fidelity");
    if (v.artifact) add_gating_failure(s, "artifact", "Artifact Detection");
    if (v.spectral) add_gating_failure(s, "spectral", "Spectral Fidelity");
    if (v.distortion) add_gating_failure(s, "distortion", "Distortion");
    if (v.loudness) add_gating_failure(s, "loudness", "Loudness");
    if (v.time_domain) add_gating_failure(s, "time_domain", "Time Domain");
    if (v.impulse_template) add_gating_failure(s, "impulse_template", "Impulse Template");
    s.overall_pass = s.failure_count == 0;
    return s;
}

}  // namespace veltrane
