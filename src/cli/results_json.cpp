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

    bool finish(std::string& document) {
        if (!ok_) return false;
        json_remove_trailing_comma(w_);
        if (!json_end(w_)) return false;
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
    static const char* const keys[2][5] = {
        {"impulse_template_channel_0_total_fails", "impulse_template_channel_0_worst_sample",
         "impulse_template_channel_0_worst_diff", "impulse_template_channel_0_worst_ref_amp",
         "impulse_template_channel_0_worst_dut_amp"},
        {"impulse_template_channel_1_total_fails", "impulse_template_channel_1_worst_sample",
         "impulse_template_channel_1_worst_diff", "impulse_template_channel_1_worst_ref_amp",
         "impulse_template_channel_1_worst_dut_amp"},
    };
    const impulse_template_result& r = res.impulse_template;
    doc.verdict("impulse_template_verdict", r.pass);
    for (std::uint64_t c = 0; c < r.channel_count && c < 2; ++c) {
        const impulse_template_channel& ch = r.channels[c];
        doc.u64(keys[c][0], ch.total_fails);
        if (!ch.has_worst) continue;
        doc.i64(keys[c][1], ch.worst_sample);
        doc.f64(keys[c][2], ch.worst_diff);
        doc.f64(keys[c][3], ch.worst_ref_amp);
        doc.f64(keys[c][4], ch.worst_dut_amp);
    }
}

using block_writer = void (*)(results_writer&, const run_results&, const run_config&);

// The block of each check, by check_id; null for checks without a block of their own.
constexpr block_writer check_blocks[check_count] = {
    nullptr,             // length mismatch: written with the header
    write_bitexact,      // bitexact
    write_bit_accuracy,  // bit_accuracy
    nullptr,             // levelfidelity
    nullptr,             // artifact
    nullptr,             // spectral
    nullptr,             // distortion
    write_loudness,      // loudness
    nullptr,             // time_domain
    write_impulse_template,  // impulse_template
};

}  // namespace

bool build_results_json(const run_inputs& run, const run_results& results, const gating_summary& verdict,
                        std::string& document) {
    std::vector<char> storage(results_json_buffer_size);
    results_writer doc(storage);
    write_header(doc, run, verdict);
    write_alignment(doc, results.align);
    write_length_mismatch(doc, results.length_mismatch);
    for (const check_info& row : check_table()) {
        block_writer block = check_blocks[static_cast<std::size_t>(row.id)];
        if (block && results.of(row.id).ran) block(doc, results, *run.config);
    }
    return doc.finish(document);
}

}  // namespace veltrane
