#include "cli/results_json.h"

#include <cstdio>
#include <vector>

#include "util/json_writer.h"

namespace veltrane {
namespace {

// Appends entries, each with a trailing comma, and remembers the first one that did not
// fit: after that nothing more is written and the document is abandoned.
class results_writer {
public:
    explicit results_writer(std::vector<char>& storage)
        : w_(make_json_writer(storage.data(), storage.size())), ok_(json_begin(w_)) {}

    void str(const char* key, std::string_view value) { ok_ = ok_ && json_add_string(w_, key, value, true); }
    void i32(const char* key, std::int32_t value) { ok_ = ok_ && json_add_int(w_, key, value, true); }
    void flag(const char* key, bool value) { i32(key, value ? 1 : 0); }
    void i64(const char* key, std::int64_t value) { ok_ = ok_ && json_add_long(w_, key, value, true); }
    void u64(const char* key, std::uint64_t value) { i64(key, static_cast<std::int64_t>(value)); }
    void f64(const char* key, double value) { ok_ = ok_ && json_add_double(w_, key, value, true); }
    void verdict(const char* key, bool pass) { str(key, pass ? "PASS" : "FAIL"); }

    bool finish(std::string& document, std::string* failure) {
        if (ok_) json_remove_trailing_comma(w_);
        if (!ok_ || !json_end(w_)) {
            if (failure) *failure = json_failure_text(w_);
            return false;
        }
        document.assign(w_.buf, w_.len);
        return true;
    }

private:
    json_writer w_;
    bool ok_;
};

const char* sample_format_word(const wav_audio& a) { return wav_is_float(a) ? "float" : "integer"; }

void write_header(results_writer& doc, const run_inputs& in, const gating_summary& verdict) {
    const wav_audio& ref = *in.ref;
    const wav_audio& dut = *in.dut;
    doc.i32("veltrane_phase", 2);
    doc.str("status", "analyzed");
    doc.str("overall_verdict", verdict.overall_pass ? "PASS" : "FAIL");
    doc.i32("gating_failure_count", static_cast<std::int32_t>(verdict.failure_count));
    doc.str("gating_failures", verdict.failure_ids);
    doc.str("ref_file", in.ref_path);
    doc.str("dut_file", in.dut_path);
    doc.i32("sample_rate", static_cast<std::int32_t>(ref.sample_rate));
    doc.i32("ref_channels", static_cast<std::int32_t>(ref.channels));
    doc.i32("dut_channels", static_cast<std::int32_t>(dut.channels));
    doc.i32("ref_bit_depth", static_cast<std::int32_t>(wav_bit_depth(ref)));
    doc.i32("dut_bit_depth", static_cast<std::int32_t>(wav_bit_depth(dut)));
    doc.str("ref_sample_format", sample_format_word(ref));
    doc.str("dut_sample_format", sample_format_word(dut));
    doc.u64("ref_frame_count", ref.frame_count);
    doc.u64("dut_frame_count", dut.frame_count);
}

void write_alignment(results_writer& doc, const align_result& align) {
    static const char* const keys[2][5] = {
        {"align_channel_0_confidence", "align_channel_0_offset", "align_channel_0_state",
         "align_channel_0_ref_silent", "align_channel_0_dut_silent"},
        {"align_channel_1_confidence", "align_channel_1_offset", "align_channel_1_state",
         "align_channel_1_ref_silent", "align_channel_1_dut_silent"},
    };
    doc.i64("align_file_offset", align.file_offset);
    doc.i64("align_disagreement_samples", align.disagreement_samples);
    for (std::uint64_t c = 0; c < align.channels && c < 2; ++c) {
        const align_channel& ch = align.channel[c];
        doc.f64(keys[c][0], ch.confidence);
        doc.i64(keys[c][1], ch.offset);
        doc.str(keys[c][2], align_state_name(ch.state));
        doc.flag(keys[c][3], ch.ref_silent);
        doc.flag(keys[c][4], ch.dut_silent);
    }
}

void write_length_mismatch(results_writer& doc, const length_mismatch_result& lm) {
    doc.verdict("length_mismatch_verdict", !lm.failed);
    doc.f64("length_mismatch_ref_uncovered_pct", lm.ref_uncovered_pct);
    doc.i64("length_mismatch_ref_uncovered_samples", lm.ref_uncovered_samples);
}

// One block per check, each writing the check's record (the table of checks decides
// whether it ran).
void write_bitexact(results_writer& doc, const run_results& res, const run_config&) {
    const bit_compare_result& r = res.bitexact;
    doc.verdict("bitexact_verdict", r.pass);
    doc.u64("bitexact_samples_compared", r.samples_compared);
    doc.u64("bitexact_samples_differing", r.samples_differing);
    doc.f64("bitexact_max_error_db", r.max_error_db);
    if (r.pass) return;
    doc.u64("bitexact_first_diff_frame", r.first_diff_frame);
    doc.i32("bitexact_first_diff_channel", static_cast<std::int32_t>(r.first_diff_channel));
    doc.f64("bitexact_first_diff_ref_value", r.first_diff_ref_value);
    doc.f64("bitexact_first_diff_dut_value", r.first_diff_dut_value);
    doc.u64("bitexact_worst_diff_frame", r.worst_diff_frame);
    doc.i32("bitexact_worst_diff_channel", static_cast<std::int32_t>(r.worst_diff_channel));
    doc.f64("bitexact_worst_diff_ref_value", r.worst_diff_ref_value);
    doc.f64("bitexact_worst_diff_dut_value", r.worst_diff_dut_value);
}

void write_bit_accuracy(results_writer& doc, const run_results& res, const run_config& cfg) {
    const bit_compare_result& r = res.bit_accuracy;
    doc.verdict("bit_accuracy_verdict", r.pass);
    doc.f64("bit_accuracy_tolerance_db", cfg.number(param_id::bit_accuracy_tolerance_db));
    if (r.pass) return;
    doc.u64("bit_accuracy_worst_diff_frame", r.worst_diff_frame);
    doc.i32("bit_accuracy_worst_diff_channel", static_cast<std::int32_t>(r.worst_diff_channel));
    doc.f64("bit_accuracy_worst_diff_ref_value", r.worst_diff_ref_value);
    doc.f64("bit_accuracy_worst_diff_dut_value", r.worst_diff_dut_value);
}

// "<prefix>channel_<c>_<suffix>" keys of the per-channel blocks.
class channel_keys {
public:
    channel_keys(const char* prefix, unsigned channel) : prefix_(prefix), channel_(channel) {}
    const char* operator()(const char* suffix) {
        std::snprintf(key_, sizeof key_, "%schannel_%u_%s", prefix_, channel_, suffix);
        return key_;
    }

private:
    const char* prefix_;
    unsigned channel_;
    char key_[96];
};

void write_spectral_channel(results_writer& doc, unsigned c, const spectral_channel_result& ch) {
    channel_keys key("spectral_", c);
    doc.flag(key("frame_gated"), ch.frame_gated);
    doc.flag(key("insufficient_samples"), ch.insufficient_samples);
    doc.u64(key("frames_scanned"), ch.frames_scanned);
    doc.u64(key("edge_skipped_samples"), ch.edge_skipped_samples);
    doc.u64(key("frames_gated"), ch.frames_gated);
    doc.u64(key("bins_compared"), ch.bins_compared);
    doc.u64(key("bins_excluded"), ch.bins_excluded);
    doc.u64(key("bins_failed"), ch.bins_failed);
    if (ch.bins_compared == 0) return;
    doc.f64(key("p50_ratio"), ch.p50_ratio);
    doc.f64(key("p95_ratio"), ch.p95_ratio);
    doc.f64(key("p99_ratio"), ch.p99_ratio);
    doc.f64(key("worst_bin_freq_hz"), ch.worst_bin_freq_hz);
    doc.f64(key("worst_bin_ratio"), ch.worst_bin_ratio);
    doc.f64(key("worst_bin_diff_db"), ch.worst_bin_diff_db);
    doc.flag(key("worst_bin_is_peak"), ch.worst_bin_is_peak);
}

void write_spectral_snapshot(results_writer& doc, unsigned c, std::size_t s, const spectral_snapshot_result& snap) {
    char key[96];
    auto k = [&](const char* suffix) {
        std::snprintf(key, sizeof key, "spectral_channel_%u_snapshot_%zu_%s", c, s, suffix);
        return key;
    };
    const spectral_channel_result& ch = snap.frame;
    doc.f64(k("time_sec"), snap.time_sec);
    doc.verdict(k("verdict"), ch.pass);
    doc.flag(k("frame_gated"), ch.frame_gated);
    doc.u64(k("bins_compared"), ch.bins_compared);
    doc.u64(k("bins_excluded"), ch.bins_excluded);
    doc.u64(k("bins_failed"), ch.bins_failed);
    if (ch.bins_compared == 0) return;
    doc.f64(k("p50_ratio"), ch.p50_ratio);
    doc.f64(k("p95_ratio"), ch.p95_ratio);
    doc.f64(k("p99_ratio"), ch.p99_ratio);
    doc.f64(k("worst_bin_freq_hz"), ch.worst_bin_freq_hz);
    doc.f64(k("worst_bin_ratio"), ch.worst_bin_ratio);
    doc.f64(k("worst_bin_diff_db"), ch.worst_bin_diff_db);
    doc.flag(k("worst_bin_is_peak"), ch.worst_bin_is_peak);
}

void write_spectral(results_writer& doc, const run_results& res, const run_config&) {
    const spectral_check_result& r = res.spectral;
    doc.verdict("spectral_verdict", r.pass());
    if (r.snapshot_mode) {
        const spectral_snapshots_result& s = r.snapshots;
        doc.flag("spectral_insufficient_samples", s.insufficient_samples);
        doc.u64("spectral_snapshot_count", s.snapshot_count);
        for (unsigned c = 0; c < s.channel_count && c < 2; ++c)
            for (std::size_t i = 0; i < s.snapshot_count && i < spectral_max_snapshots; ++i)
                write_spectral_snapshot(doc, c, i, s.snapshots[c][i]);
        return;
    }
    for (unsigned c = 0; c < r.scan.channel_count && c < 2; ++c) write_spectral_channel(doc, c, r.scan.channels[c]);
}

void write_distortion(results_writer& doc, const run_results& res, const run_config&) {
    const distortion_result& r = res.distortion;
    doc.verdict("distortion_verdict", r.pass);
    for (unsigned c = 0; c < r.channel_count && c < 2; ++c) {
        const distortion_channel& ch = r.channels[c];
        channel_keys key("distortion_", c);
        doc.flag(key("frame_gated"), ch.frame_gated);
        doc.flag(key("insufficient_samples"), ch.insufficient_samples);
        doc.u64(key("frames_scanned"), ch.frames_scanned);
        doc.u64(key("frames_gated"), ch.frames_gated);
        if (ch.frame_gated || ch.insufficient_samples) continue;
        doc.f64(key("fundamental_freq_hz"), ch.fundamental_freq_hz);
        doc.f64(key("thdn_ratio"), ch.thdn_ratio);
        doc.f64(key("thdn_db"), ch.thdn_db);
        doc.u64(key("worst_frame_start"), ch.worst_frame_start);
        doc.f64(key("p50_thdn_ratio"), ch.p50_thdn_ratio);
        doc.f64(key("p95_thdn_ratio"), ch.p95_thdn_ratio);
    }
}

void write_levelfidelity(results_writer& doc, const run_results& res, const run_config&) {
    const level_fidelity_result& r = res.level;
    doc.verdict("levelfidelity_verdict", r.pass);
    for (unsigned c = 0; c < r.channel_count && c < 2; ++c) {
        const level_fidelity_channel& ch = r.channels[c];
        channel_keys key("levelfidelity_", c);
        doc.u64(key("samples_included"), ch.samples_included);
        doc.u64(key("samples_excluded"), ch.samples_excluded);
        doc.f64(key("median_db"), ch.median_db);
        doc.f64(key("mad_db"), ch.mad_db);
        doc.f64(key("p99_abs_db"), ch.p99_abs_db);
        doc.f64(key("longest_sustained_run_ms"), ch.longest_sustained_run_ms);
        if (!ch.has_samples) continue;
        doc.i64(key("worst_sample"), ch.worst_sample);
        doc.f64(key("worst_diff_db"), ch.worst_diff_db);
        doc.f64(key("worst_ref_amp"), ch.worst_ref_amp);
        doc.f64(key("worst_dut_amp"), ch.worst_dut_amp);
    }
}

void write_artifact(results_writer& doc, const run_results& res, const run_config& cfg) {
    const artifact_result& r = res.artifact;
    doc.verdict("artifact_verdict", r.pass);
    doc.i64("artifact_window_samples", cfg.integer(param_id::artifact_window_samples));
    doc.f64("artifact_min_severity", cfg.number(param_id::artifact_min_severity));
    doc.i64("artifact_min_silence_clip_run", cfg.integer(param_id::artifact_min_silence_clip_run));
    doc.f64("artifact_min_global_severity", cfg.number(param_id::artifact_min_global_severity));
    for (unsigned c = 0; c < r.channel_count && c < 2; ++c) {
        const artifact_channel& ch = r.channels[c];
        channel_keys key("artifact_", c);
        doc.u64(key("samples_checked"), ch.samples_checked);
        doc.u64(key("samples_excluded"), ch.samples_excluded);
        doc.u64(key("samples_flagged"), ch.samples_flagged);
        doc.u64(key("event_count"), ch.event_count);
        doc.u64(key("counted_event_count"), ch.counted_event_count);
        doc.u64(key("minor_event_count"), ch.minor_event_count);
        if (ch.event_count == 0) continue;
        doc.u64(key("worst_event_start_frame"), ch.worst_event_start_frame);
        doc.u64(key("worst_event_length"), ch.worst_event_length);
        doc.f64(key("worst_event_deviation_ratio"), ch.worst_event_deviation_ratio);
        doc.f64(key("worst_event_severity"), ch.worst_event_severity);
        doc.f64(key("worst_event_global_severity"), ch.worst_event_global_severity);
        doc.flag(key("worst_event_counted"), ch.worst_event_counted);
    }
}

void write_time_domain(results_writer& doc, const run_results& res, const run_config&) {
    const time_domain_result& r = res.time_domain;
    doc.verdict("time_domain_verdict", r.pass);
    for (unsigned c = 0; c < r.channel_count && c < 2; ++c) {
        const time_domain_channel& ch = r.channels[c];
        channel_keys key("time_domain_", c);
        doc.u64(key("samples_included"), ch.samples_included);
        doc.u64(key("samples_excluded"), ch.samples_excluded);
        doc.u64(key("total_fails"), ch.total_fails);
        doc.u64(key("fails_low_level_signal_tier"), ch.fails_low_level_signal_tier);
        doc.u64(key("fails_signal_tier"), ch.fails_signal_tier);
        doc.u64(key("fails_peak_tier"), ch.fails_peak_tier);
        if (!ch.has_worst) continue;
        doc.i64(key("worst_sample"), ch.worst_sample);
        doc.f64(key("worst_diff_pct"), ch.worst_diff_pct);
        doc.f64(key("worst_ref_amp"), ch.worst_ref_amp);
        doc.f64(key("worst_dut_amp"), ch.worst_dut_amp);
        doc.f64(key("worst_tolerance_pct"), ch.worst_tolerance_pct);
    }
}

void write_loudness(results_writer& doc, const run_results& res, const run_config&) {
    const loudness_result& r = res.loudness;
    doc.verdict("loudness_verdict", r.pass);
    doc.f64("loudness_ref_integrated_lufs", r.ref.integrated_lufs);
    doc.f64("loudness_dut_integrated_lufs", r.dut.integrated_lufs);
    doc.f64("loudness_delta_integrated_lu", r.delta_integrated_lu);
    doc.f64("loudness_ref_lra_lu", r.ref.lra_lu);
    doc.f64("loudness_dut_lra_lu", r.dut.lra_lu);
    doc.f64("loudness_delta_lra_lu", r.delta_lra_lu);
    doc.f64("loudness_ref_true_peak_dbtp", r.ref.true_peak_dbtp);
    doc.f64("loudness_dut_true_peak_dbtp", r.dut.true_peak_dbtp);
    doc.f64("loudness_delta_true_peak_db", r.delta_true_peak_db);
    doc.f64("loudness_ref_sample_peak_dbfs", r.ref.sample_peak_dbfs);
    doc.f64("loudness_dut_sample_peak_dbfs", r.dut.sample_peak_dbfs);
    doc.f64("loudness_delta_sample_peak_db", r.delta_sample_peak_db);
    doc.f64("loudness_ref_max_momentary_lufs", r.ref.max_momentary_lufs);
    doc.f64("loudness_dut_max_momentary_lufs", r.dut.max_momentary_lufs);
    doc.f64("loudness_delta_max_momentary_lu", r.delta_max_momentary_lu);
    doc.f64("loudness_ref_max_short_term_lufs", r.ref.max_short_term_lufs);
    doc.f64("loudness_dut_max_short_term_lufs", r.dut.max_short_term_lufs);
    doc.f64("loudness_delta_max_short_term_lu", r.delta_max_short_term_lu);
}

void write_impulse_template(results_writer& doc, const run_results& res, const run_config&) {
    const impulse_template_result& r = res.impulse_template;
    doc.verdict("impulse_template_verdict", r.pass);
    for (unsigned c = 0; c < r.channel_count && c < 2; ++c) {
        const impulse_template_channel& ch = r.channels[c];
        channel_keys key("impulse_template_", c);
        doc.u64(key("total_fails"), ch.total_fails);
        if (!ch.has_worst) continue;
        doc.i64(key("worst_sample"), ch.worst_sample);
        doc.f64(key("worst_diff"), ch.worst_diff);
        doc.f64(key("worst_ref_amp"), ch.worst_ref_amp);
        doc.f64(key("worst_dut_amp"), ch.worst_dut_amp);
    }
}

using block_writer = void (*)(results_writer&, const run_results&, const run_config&);

// The block of each check, by check_id; null for checks without a block of their own.
constexpr block_writer check_blocks[check_count] = {
    nullptr,             // length mismatch: written with the header
    write_bitexact,      // bitexact
    write_bit_accuracy,  // bit_accuracy
    write_levelfidelity, // levelfidelity
    write_artifact,      // artifact
    write_spectral,      // spectral
    write_distortion,    // distortion
    write_loudness,      // loudness
    write_time_domain,   // time_domain
    write_impulse_template,  // impulse_template
};

}  // namespace

bool build_results_json(const run_inputs& run, const run_results& results, const gating_summary& verdict,
                        std::string& document, std::string* failure) {
    std::vector<char> storage(results_json_buffer_size);
    results_writer doc(storage);
    write_header(doc, run, verdict);
    write_alignment(doc, results.align);
    write_length_mismatch(doc, results.length_mismatch);
    for (const check_info& row : check_table()) {
        block_writer block = check_blocks[static_cast<std::size_t>(row.id)];
        if (block && results.of(row.id).ran) block(doc, results, *run.config);
    }
    return doc.finish(document, failure);
}

}  // namespace veltrane
