#include "report/loudness_card.h"

#include <cmath>
#include <cstdio>

#include "report/check_cards.h"

namespace veltrane {
namespace {

// The integrated row is marked at a fixed 0.5 LU, whatever the check's tolerance.
constexpr double integrated_mark_lu = 0.5;

bool append_row(text_buf& buf, const char* name, const char* value_format, double ref, double dut,
                const char* difference, bool failing, const char* label) {
    char ref_text[64], dut_text[64];
    std::snprintf(ref_text, sizeof ref_text, value_format, ref);
    std::snprintf(dut_text, sizeof dut_text, value_format, dut);
    return text_buf_appendf(buf,
                            "<tr><th scope=\"row\">%s</th><td>%s</td><td>%s</td><td%s>%s<span "
                            "class=\"loudness-delta-label\">%s</span></td></tr>\n",
                            name, ref_text, dut_text, failing ? " class=\"fail\"" : "", difference, label);
}

bool append_signed_row(text_buf& buf, const char* name, const char* value_format, double ref, double dut,
                       const char* difference_format, double difference, bool failing, const char* label) {
    char text[96];
    std::snprintf(text, sizeof text, difference_format, difference);
    return append_row(buf, name, value_format, ref, dut, text, failing, label);
}

}  // namespace

bool append_loudness_card(text_buf& buf, const report_inputs& in) {
    const check_status& status = in.results->of(check_id::loudness);
    if (!text_buf_append(buf,
                         "<section class=\"card\" id=\"loudness\">\n<div class=\"card-head\">\n<div "
                         "class=\"htext\"><h3>Loudness</h3></div>\n"))
        return false;
    if (!status.ran)
        return text_buf_append(buf,
                               "<span class=\"badge info\">Skipped</span>\n</div>\n<div class=\"card-body\">\n<p "
                               "class=\"desc\">Skipped -- run without <code>--no-loudness</code> to include "
                               "it.</p>\n</div>\n</section>\n");
    const loudness_result& r = in.results->loudness;
    const run_config& cfg = *in.run->config;
    const double tp_tolerance_db = cfg.number(param_id::loudness_true_peak_tolerance_db);
    const bool ceiling_set = cfg.present(param_id::loudness_true_peak_ceiling_dbtp);
    const double ceiling_dbtp = cfg.number(param_id::loudness_true_peak_ceiling_dbtp);
    if (!append_badge(buf, status.gates ? badge_for(r.pass) : card_badge::reference_only)) return false;
    if (!status.gates &&
        !text_buf_append(buf,
                         "<p class=\"desc\">Reference only -- run with <code>--loudness</code> to make this part "
                         "of the overall verdict.</p>\n"))
        return false;
    char tp_difference[96];
    if (ceiling_set)
        std::snprintf(tp_difference, sizeof tp_difference, "%+.2f dB (ceiling %.1f dBTP)", r.delta_true_peak_db,
                      ceiling_dbtp);
    else
        std::snprintf(tp_difference, sizeof tp_difference, "%+.2f dB", r.delta_true_peak_db);
    const bool tp_failing =
        r.delta_true_peak_db > tp_tolerance_db || (ceiling_set && r.dut.true_peak_dbtp > ceiling_dbtp);
    return text_buf_append(buf,
                           "<div class=\"compare-table-wrap\">\n<table class=\"compare-table\">\n<thead><tr><th "
                           "scope=\"col\"></th><th scope=\"col\">Ref</th><th scope=\"col\">DUT</th><th "
                           "scope=\"col\"></th></tr></thead>\n<tbody>\n") &&
           append_signed_row(buf, "Integrated Loudness", "%.1f LUFS", r.ref.integrated_lufs, r.dut.integrated_lufs,
                             "%+.2f LU", r.delta_integrated_lu, std::fabs(r.delta_integrated_lu) > integrated_mark_lu,
                             "&Delta; Loudness") &&
           append_signed_row(buf, "Loudness Range (LRA)", "%.1f LU", r.ref.lra_lu, r.dut.lra_lu, "%+.2f LU",
                             r.delta_lra_lu, false, "&Delta; LRA") &&
           append_row(buf, "True Peak", "%.1f dBTP", r.ref.true_peak_dbtp, r.dut.true_peak_dbtp, tp_difference,
                      tp_failing, "&Delta; True Peak") &&
           append_signed_row(buf, "Sample Peak", "%.1f dBFS", r.ref.sample_peak_dbfs, r.dut.sample_peak_dbfs,
                             "%+.2f dB", r.delta_sample_peak_db, false, "&Delta; Peak") &&
           append_signed_row(buf, "Max Momentary", "%.1f LUFS", r.ref.max_momentary_lufs, r.dut.max_momentary_lufs,
                             "%+.2f LU", r.delta_max_momentary_lu, false, "&Delta; Momentary") &&
           append_signed_row(buf, "Max Short-term", "%.1f LUFS", r.ref.max_short_term_lufs,
                             r.dut.max_short_term_lufs, "%+.2f LU", r.delta_max_short_term_lu, false,
                             "&Delta; Short-term") &&
           text_buf_append(buf, "</tbody>\n</table>\n</div>\n</div>\n</section>\n");
}

}  // namespace veltrane
