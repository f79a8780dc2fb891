#include "checks/check_table.h"

#include "checks/run_results.h"

namespace veltrane {
namespace {

// The run steps. Each gives its check the two inputs, the file offset and its own
// parameters, keeps the record and returns the verdict.
bool run_bitexact(const check_context& ctx, run_results& out) {
    out.bitexact = compare_bits(ctx.ref, ctx.dut, ctx.offset_frames, ctx.cfg.number(param_id::bit_exact_bit_deviation_db));
    return out.bitexact.pass;
}

bool run_bit_accuracy(const check_context& ctx, run_results& out) {
    out.bit_accuracy = compare_bits(ctx.ref, ctx.dut, ctx.offset_frames, ctx.cfg.number(param_id::bit_accuracy_tolerance_db));
    return out.bit_accuracy.pass;
}

bool run_spectral(const check_context& ctx, run_results& out) {
    out.spectral = check_spectral(ctx.ref, ctx.dut, ctx.offset_frames, spectral_settings_from(ctx.cfg));
    return out.spectral.pass();
}

bool run_distortion(const check_context& ctx, run_results& out) {
    out.distortion = check_distortion(ctx.ref, ctx.dut, ctx.offset_frames, distortion_settings_from(ctx.cfg));
    return out.distortion.pass;
}

bool run_level_fidelity(const check_context& ctx, run_results& out) {
    out.level = check_level_fidelity(ctx.ref, ctx.dut, ctx.offset_frames, ctx.cfg.number(param_id::level_fidelity_noise_floor_db),
                                     ctx.cfg.number(param_id::level_fidelity_p99_tolerance_db),
                                     ctx.cfg.number(param_id::level_fidelity_min_sustained_run_ms));
    return out.level.pass;
}

bool run_artifacts(const check_context& ctx, run_results& out) {
    const run_config& c = ctx.cfg;
    out.artifact = check_artifacts(ctx.ref, ctx.dut, ctx.offset_frames,
                                   {c.integer(param_id::artifact_window_samples), c.number(param_id::artifact_k),
                                    c.integer(param_id::artifact_min_run), c.number(param_id::artifact_noise_floor_db),
                                    c.number(param_id::artifact_min_severity),
                                    c.integer(param_id::artifact_min_silence_clip_run),
                                    c.number(param_id::artifact_min_global_severity)});
    return out.artifact.pass;
}

bool run_time_domain(const check_context& ctx, run_results& out) {
    const run_config& c = ctx.cfg;
    out.time_domain = check_time_domain(
        ctx.ref, ctx.dut, ctx.offset_frames, c.number(param_id::time_domain_noise_floor_db),
        c.number(param_id::time_domain_peak_threshold_db), c.number(param_id::time_domain_peak_tolerance_pct),
        c.number(param_id::time_domain_low_level_signal_threshold_db),
        c.number(param_id::time_domain_low_level_signal_tolerance_pct), c.number(param_id::time_domain_signal_tolerance_pct));
    return out.time_domain.pass;
}

bool run_loudness(const check_context& ctx, run_results& out) {
    const run_config& cfg = ctx.cfg;
    out.loudness = check_loudness(ctx.ref, ctx.dut, ctx.offset_frames,
                                  cfg.number(param_id::loudness_integrated_tolerance_lu),
                                  cfg.number(param_id::loudness_true_peak_tolerance_db),
                                  cfg.present(param_id::loudness_true_peak_ceiling_dbtp),
                                  cfg.number(param_id::loudness_true_peak_ceiling_dbtp));
    return out.loudness.pass;
}

bool run_impulse_template(const check_context& ctx, run_results& out) {
    const run_config& cfg = ctx.cfg;
    out.impulse_template = check_impulse_template(
        ctx.ref, ctx.dut, ctx.offset_frames, cfg.number(param_id::impulse_template_peak_threshold_db),
        cfg.number(param_id::impulse_template_ratio), cfg.number(param_id::impulse_template_noise_floor_db),
        cfg.integer(param_id::impulse_template_frame_size));
    return out.impulse_template.pass;
}

// Run order: bit-exactness, bit accuracy, time domain, impulse template, level fidelity,
// artifact detection, spectral fidelity, distortion, loudness. Page order: spectral
// fidelity, the bit card (bit-exactness or, when it did not run, bit accuracy: both share
// one card and one anchor), level fidelity, artifact detection, distortion, loudness, time
// domain, impulse template. Length mismatch has no card of its own (the alignment card
// reports it) and is never run by the table.
constexpr check_info table[] = {
    {check_id::length_mismatch, "length_mismatch", "Length Mismatch", "", "", "length_mismatch_", std::nullopt,
     gate_rule::always, std::nullopt, shown_rule::when_ran, 0, 255, nullptr},
    {check_id::bitexact, "bitexact", "Bit-Exactness", "bitexact", "Bit-Exactness", "bitexact_",
     param_id::bit_exact_enabled, gate_rule::by_switch, param_id::bit_exact_gates_overall, shown_rule::when_ran, 1, 1,
     run_bitexact},
    {check_id::bit_accuracy, "bit_accuracy", "Bit Accuracy", "bitexact", "Bit Accuracy", "bit_accuracy_",
     param_id::bit_accuracy_enabled, gate_rule::never, std::nullopt, shown_rule::when_ran, 2, 1, run_bit_accuracy},
    {check_id::levelfidelity, "levelfidelity", "Level Fidelity", "level", "Level Fidelity", "levelfidelity_",
     std::nullopt, gate_rule::by_switch, param_id::level_fidelity_gates_overall, shown_rule::always, 5, 2, run_level_fidelity},
    {check_id::artifact, "artifact", "Artifact Detection", "artifact", "Artifact Detection", "artifact_", std::nullopt,
     gate_rule::by_switch, param_id::artifact_gates_overall, shown_rule::always, 6, 3, run_artifacts},
    {check_id::spectral, "spectral", "Spectral Fidelity", "spectral", "Spectral Fidelity", "spectral_", std::nullopt,
     gate_rule::always, std::nullopt, shown_rule::always, 7, 0, run_spectral},
    {check_id::distortion, "distortion", "Distortion", "distortion", "Distortion", "distortion_",
     param_id::distortion_enabled, gate_rule::always, std::nullopt, shown_rule::always, 8, 4, run_distortion},
    {check_id::loudness, "loudness", "Loudness", "loudness", "Loudness", "loudness_", param_id::loudness_enabled,
     gate_rule::by_switch, param_id::loudness_gates_overall, shown_rule::always, 9, 5, run_loudness},
    {check_id::time_domain, "time_domain", "Time Domain", "timedomain", "Time Domain", "time_domain_",
     param_id::time_domain_enabled, gate_rule::always, std::nullopt, shown_rule::when_ran, 3, 6, run_time_domain},
    {check_id::impulse_template, "impulse_template", "Impulse Template", "impulsetemplate", "Impulse Template",
     "impulse_template_", param_id::impulse_template_enabled, gate_rule::always, std::nullopt, shown_rule::when_ran, 4,
     7, run_impulse_template},
};
static_assert(std::size(table) == check_count);

constexpr bool rows_in_id_order() {
    for (std::size_t i = 0; i < check_count; ++i)
        if (static_cast<std::size_t>(table[i].id) != i) return false;
    return true;
}
static_assert(rows_in_id_order(), "rows of the table of checks must follow check_id");

}  // namespace

std::span<const check_info> check_table() { return table; }

const check_info& check_row(check_id id) { return table[static_cast<std::size_t>(id)]; }

}  // namespace veltrane
