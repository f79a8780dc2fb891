#include "report/check_cards.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "report/distortion_card.h"
#include "report/impulse_card.h"
#include "report/loudness_card.h"
#include "report/sample_cards.h"
#include "report/spectral_card.h"

namespace veltrane {
namespace {

// Gauge bands: confidence range (upper bound inclusive) and the stretch of the track it
// occupies, in percent. The poor band reaches down to -1.0, the lowest correlation.
struct gauge_band {
    double low, high;
    double track_low, track_high;
    const char* word;
    const char* title;
};
constexpr gauge_band gauge_bands[] = {
    {-1.0, 0.7, 0.0, 20.0, "poor", "Poor"},
    {0.7, 0.9, 20.0, 45.0, "fair", "Fair"},
    {0.9, 0.97, 45.0, 75.0, "good", "Good"},
    {0.97, 1.0, 75.0, 100.0, "excellent", "Excellent"},
};

const gauge_band& band_of(double confidence) {
    if (confidence < -1.0) return gauge_bands[0];
    double c = std::min(confidence, 1.0);
    for (const gauge_band& b : gauge_bands)
        if (b.high >= c) return b;
    return gauge_bands[3];
}

const char* band_title(const char* word) {
    for (const gauge_band& b : gauge_bands)
        if (std::string_view(b.word) == word) return b.title;
    return "Poor";
}

// Silence caption under the gauge for one channel; nothing for a measured channel.
bool append_silence_caption(text_buf& buf, const char* label, const align_channel& ch, const align_channel& other,
                            bool borrowing_allowed) {
    if (ch.state == align_state::measured) return true;
    const char* subject = ch.ref_silent && ch.dut_silent ? "Both reference and DUT are"
                          : ch.ref_silent                ? "Reference is"
                                                         : "DUT is";
    if (ch.state == align_state::silent_borrowed && borrowing_allowed) {
        return text_buf_appendf(buf,
                                "<div class=\"align-gauge-caption\">%s: %s silent on this channel -- offset borrowed "
                                "from the other channel (confidence %.3f), not independently measured.</div>\n",
                                label, subject, other.confidence);
    }
    if (ch.ref_silent && ch.dut_silent) {
        return text_buf_appendf(buf,
                                "<div class=\"align-gauge-caption\">%s: %s silent on this channel -- nothing to "
                                "compare, offset assumed 0.</div>\n",
                                label, subject);
    }
    return text_buf_appendf(buf,
                            "<div class=\"align-gauge-caption\">%s: %s silent on this channel, and no reliable offset "
                            "was available to borrow -- assumed 0.</div>\n",
                            label, subject);
}

// "0%", or the share of differing samples with four decimals below 0.1 % and one above.
std::string difference_rate_text(const bit_compare_result& r) {
    if (r.samples_compared == 0) return "0%";
    double p = 100.0 * static_cast<double>(r.samples_differing) / static_cast<double>(r.samples_compared);
    char text[64];
    std::snprintf(text, sizeof text, p < 0.1 ? "%.4f%%" : "%.1f%%", p);
    return text;
}

double difference_rate_pct(const bit_compare_result& r) {
    if (r.samples_compared == 0) return 0.0;
    return 100.0 * static_cast<double>(r.samples_differing) / static_cast<double>(r.samples_compared);
}

}  // namespace

card_badge badge_for(bool passed) { return passed ? card_badge::pass : card_badge::fail; }

bool append_badge(text_buf& buf, card_badge badge) {
    const char* cls = "info";
    const char* text = "Skipped";
    switch (badge) {
        case card_badge::pass: cls = "pass"; text = "Pass"; break;
        case card_badge::fail: cls = "fail"; text = "Fail"; break;
        case card_badge::reference_only: text = "Reference Only"; break;
        case card_badge::skipped: break;
    }
    return text_buf_appendf(buf, "<span class=\"badge %s\">%s</span>\n</div>\n<div class=\"card-body\">\n", cls, text);
}

gauge_position gauge_position_for(double confidence) {
    if (confidence < -1.0) return {0.0, "poor"};
    const gauge_band& b = band_of(confidence);
    double c = std::min(confidence, 1.0);
    double t = std::clamp((c - b.low) / (b.high - b.low), 0.0, 1.0);
    return {b.track_low + t * (b.track_high - b.track_low), b.word};
}

bool append_alignment_gauge(text_buf& buf, double confidence, const char* caption, const char* extra_line) {
    gauge_position pos = gauge_position_for(confidence);
    return text_buf_appendf(buf,
                            "<div class=\"align-gauge\">\n<div class=\"align-gauge-track\"><div "
                            "class=\"align-gauge-pointer\" style=\"left:%.1f%%\"></div></div>\n<div "
                            "class=\"align-gauge-value\"><span class=\"align-gauge-num\">%.3f</span><span "
                            "class=\"align-gauge-word %s\">%s</span></div>\n",
                            pos.pointer_pct, confidence, pos.word, band_title(pos.word)) &&
           (!extra_line || text_buf_append(buf, extra_line)) &&
           text_buf_appendf(buf, "<div class=\"align-gauge-caption\">%s</div>\n", caption) &&
           text_buf_append(buf, "</div>\n");
}

bool append_worst_point_tile(text_buf& buf, const char* label, std::uint32_t sample_rate_hz, std::uint64_t frame,
                             double ref_value, double dut_value, bool failing) {
    double seconds = sample_rate_hz ? static_cast<double>(frame) / sample_rate_hz : 0.0;
    char when[64];
    if (seconds < 1.0)
        std::snprintf(when, sizeof when, "%.2f ms", seconds * 1000.0);
    else
        std::snprintf(when, sizeof when, "%.3f s", seconds);
    return text_buf_appendf(buf,
                            "<div class=\"tile tile-wide\"><div class=\"k\">%s</div><div class=\"v%s\">frame %zu "
                            "(%s)</div>\n<div class=\"v-sub\">ref %.6f &rarr; dut %.6f &middot; <span "
                            "class=\"delta\">&Delta; %.6f</span></div></div>\n",
                            label, failing ? " fail" : "", static_cast<std::size_t>(frame), when, ref_value,
                            dut_value, std::fabs(ref_value - dut_value));
}

bool append_alignment_card(text_buf& buf, const report_inputs& in) {
    const align_result& a = in.results->align;
    const length_mismatch_result& lm = in.results->length_mismatch;
    const std::uint32_t rate = in.run->ref->sample_rate;
    if (!text_buf_append(buf,
                         "<section class=\"card\" id=\"alignment\">\n<div class=\"card-head\">\n<div "
                         "class=\"htext\"><h3>Signal Alignment</h3></div>\n</div>\n<div class=\"card-body\">\n"))
        return false;
    if (lm.failed &&
        !text_buf_appendf(buf,
                          "<div class=\"align-gauge-caption fail\">Length mismatch: %.1f%% of the reference (%ld "
                          "samples) falls outside the aligned overlap and was not compared by any check below.</div>\n",
                          lm.ref_uncovered_pct, static_cast<long>(lm.ref_uncovered_samples)))
        return false;
    double offset_ms = rate ? static_cast<double>(a.file_offset) / rate * 1000.0 : 0.0;
    char caption[256];
    if (a.channels < 2) {
        const align_channel& ch = a.channel[0];
        std::snprintf(caption, sizeof caption, "%ld smp offset &middot; %.2f ms", static_cast<long>(ch.offset),
                      offset_ms);
        if (!append_alignment_gauge(buf, ch.confidence, caption, nullptr) ||
            !append_silence_caption(buf, "Channel", ch, ch, false))
            return false;
    } else {
        const align_channel& left = a.channel[0];
        const align_channel& right = a.channel[1];
        bool both_ok = left.channel_ok && right.channel_ok;
        char extra[256];
        std::snprintf(extra, sizeof extra,
                      "<div class=\"align-gauge-caption%s\">File Offset %ld smp (%.2f ms) &middot; Disagreement %ld "
                      "smp</div>\n",
                      !a.aligned && both_ok ? " fail" : "", static_cast<long>(a.file_offset), offset_ms,
                      static_cast<long>(a.disagreement_samples));
        bool left_measured = left.state == align_state::measured;
        bool right_measured = right.state == align_state::measured;
        double value = left_measured && right_measured ? std::min(left.confidence, right.confidence)
                       : left_measured                 ? left.confidence
                       : right_measured                ? right.confidence
                                                       : 1.0;
        std::snprintf(caption, sizeof caption, "L %.3f &middot; R %.3f", left.confidence, right.confidence);
        if (!append_alignment_gauge(buf, value, caption, extra) ||
            !append_silence_caption(buf, "L", left, right, true) ||
            !append_silence_caption(buf, "R", right, left, true))
            return false;
    }
    return text_buf_append(buf, "</div>\n</section>\n");
}

bool append_bit_card(text_buf& buf, const report_inputs& in) {
    const run_results& res = *in.results;
    const bit_compare_result& be = res.bitexact;
    const bit_compare_result& ba = res.bit_accuracy;
    const bool bitexact_ran = res.of(check_id::bitexact).ran;
    const bool bitaccuracy_ran = res.of(check_id::bit_accuracy).ran;
    const double tolerance_db = in.run->config->number(param_id::bit_accuracy_tolerance_db);
    const std::uint32_t rate = in.run->ref->sample_rate;
    const check_info& head = check_row(bitexact_ran ? check_id::bitexact : check_id::bit_accuracy);
    if (!text_buf_appendf(buf,
                          "<section class=\"card\" id=\"%s\">\n<div class=\"card-head\">\n<div "
                          "class=\"htext\"><h3>%s</h3></div>\n",
                          head.anchor.data(), head.display_name.data()))
        return false;
    std::string rate_text = difference_rate_text(be);
    if (bitexact_ran) {
        if (!append_badge(buf, badge_for(be.pass)) ||
            !text_buf_appendf(buf,
                              "<div class=\"tile-row\">\n<div class=\"tile\"><div class=\"k\">Samples Differing</div><div "
                              "class=\"v%s\">%zu <span class=\"pct\">of %zu &middot; %s</span></div></div>\n",
                              be.samples_differing > 0 ? " fail" : "", static_cast<std::size_t>(be.samples_differing),
                              static_cast<std::size_t>(be.samples_compared), rate_text.c_str()))
            return false;
        if (!be.pass) {
            if (!append_worst_point_tile(buf, "First Diff", rate, be.first_diff_frame, be.first_diff_ref_value,
                                         be.first_diff_dut_value, false))
                return false;
            bool worst_elsewhere =
                be.worst_diff_frame != be.first_diff_frame || be.worst_diff_channel != be.first_diff_channel;
            if (worst_elsewhere && !append_worst_point_tile(buf, "Worst Diff", rate, be.worst_diff_frame,
                                                            be.worst_diff_ref_value, be.worst_diff_dut_value, true))
                return false;
        }
    } else if (!text_buf_append(buf,
                                "<span class=\"badge info\">Skipped</span>\n</div>\n<div class=\"card-body\">\n<p "
                                "class=\"desc\">Strict comparison skipped -- run without <code>--no-bitexact</code> "
                                "to include it.</p>\n<div class=\"tile-row\">\n")) {
        return false;
    }
    if (bitaccuracy_ran) {
        const char* wide_tile =
            "<div class=\"tile tile-wide\"><div class=\"k\">Bit Accuracy</div><div class=\"v %s\">%s <span "
            "class=\"pct\">%.2f dB tolerance%s</span></div></div>\n";
        bool same_spot = bitexact_ran && !be.pass && ba.worst_diff_frame == be.worst_diff_frame &&
                         ba.worst_diff_channel == be.worst_diff_channel;
        bool ok = true;
        if (ba.pass) {
            ok = text_buf_appendf(buf, wide_tile, "pass", "Pass", tolerance_db, "");
        } else if (same_spot) {
            ok = text_buf_appendf(buf, wide_tile, "fail", "Fail", tolerance_db,
                                  " &middot; same location as above");
        } else {
            ok = text_buf_appendf(buf,
                                  "<div class=\"tile\"><div class=\"k\">Bit Accuracy</div><div class=\"v "
                                  "fail\">Fail</div></div>\n<div class=\"tile\"><div class=\"k\">Tolerance</div><div "
                                  "class=\"v\">%.2f dB</div></div>\n",
                                  tolerance_db) &&
                 append_worst_point_tile(buf, "Bit Accuracy Worst Diff", rate, ba.worst_diff_frame,
                                         ba.worst_diff_ref_value, ba.worst_diff_dut_value, true);
        }
        if (!ok) return false;
    }
    if (!text_buf_append(buf, "</div>\n")) return false;
    if (bitexact_ran && !be.pass) {
        double width = std::sqrt(std::min(difference_rate_pct(be) / 100.0, 1.0)) * 100.0;
        if (!text_buf_appendf(buf,
                              "<div class=\"diffrate-bar\">\n<div class=\"diffrate-bar-track\"><div "
                              "class=\"diffrate-bar-fill\" style=\"width: %.1f%%;\"></div></div>\n<div "
                              "class=\"diffrate-bar-label\">%s of samples differ</div>\n</div>\n",
                              width, rate_text.c_str()))
            return false;
    }
    return text_buf_append(buf, "</div>\n</section>\n");
}

card_writer card_writer_for(check_id id) {
    // The card of each check, by check_id; null where the check has no card of its own.
    static constexpr card_writer cards[check_count] = {
        nullptr,          // length mismatch: reported on the alignment card
        append_bit_card,  // bitexact
        append_bit_card,  // bit_accuracy (shares the bit card)
        append_level_card,     // levelfidelity
        append_artifact_card,  // artifact
        append_spectral_card,    // spectral
        append_distortion_card,  // distortion
        append_loudness_card,  // loudness
        append_time_domain_card,  // time_domain
        append_impulse_card,  // impulse_template
    };
    return cards[static_cast<std::size_t>(id)];
}

}  // namespace veltrane
