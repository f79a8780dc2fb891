#include "report/sample_cards.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "report/check_cards.h"
#include "report/waveform_views.h"

namespace veltrane {
namespace {

const char* channel_word(std::uint64_t channel_count, std::uint32_t c) {
    if (channel_count == 1) return "Mono";
    return c == 0 ? "L" : "R";
}

const char* row_gap(std::uint32_t c) { return c == 1 ? " card-row-gap" : ""; }

card_badge gated_badge(const check_status& s) {
    return s.gates ? badge_for(s.passed) : card_badge::reference_only;
}

bool append_card_head(text_buf& buf, const char* id, const char* title) {
    return text_buf_appendf(buf,
                            "<section class=\"card\" id=\"%s\">\n<div class=\"card-head\">\n<div "
                            "class=\"htext\"><h3>%s</h3></div>\n",
                            id, title);
}

bool append_reference_only_note(text_buf& buf, const char* flag) {
    return text_buf_appendf(buf,
                            "<p class=\"desc\">Reference only -- this run used <code>%s</code>, so a failure here "
                            "doesn't affect the overall verdict. Omit the flag to restore strict gating (the built-in "
                            "default).</p>\n",
                            flag);
}

// Compare table of `channels` value columns ("L" and "R" for two, else "Value").
bool append_compare_table_open(text_buf& buf, const char* title, std::uint64_t channels) {
    if (!text_buf_appendf(buf,
                          "<div class=\"compare-table-wrap\">\n<p class=\"compare-table-title\">%s</p>\n<table "
                          "class=\"compare-table\">\n<thead><tr><th scope=\"col\"></th>",
                          title))
        return false;
    bool ok = channels == 2 ? text_buf_append(buf, "<th scope=\"col\">L</th><th scope=\"col\">R</th>")
                            : text_buf_append(buf, "<th scope=\"col\">Value</th>");
    return ok && text_buf_append(buf, "</tr></thead>\n<tbody>\n");
}

bool append_row_head(text_buf& buf, bool first, const char* name) {
    return text_buf_appendf(buf, "%s<tr><th scope=\"row\">%s</th>", first ? "" : "</tr>\n", name);
}

bool append_compare_table_close(text_buf& buf) {
    return text_buf_append(buf, "</tr>\n</tbody>\n</table>\n</div>\n");
}

}  // namespace

bool append_level_card(text_buf& buf, const report_inputs& in) {
    const level_fidelity_result& r = in.results->level;
    const check_status& s = in.results->of(check_id::levelfidelity);
    const double tolerance_db = in.run->config->number(param_id::level_fidelity_p99_tolerance_db);
    const std::uint64_t channels = std::min<std::uint64_t>(r.channel_count, 2);
    if (!append_card_head(buf, "level", "Level Fidelity") || !append_badge(buf, gated_badge(s)) ||
        (!s.gates && !append_reference_only_note(buf, "--levelfidelity-ref-only")) ||
        !append_compare_table_open(buf, "Gain Tracking", channels))
        return false;
    bool ok = append_row_head(buf, true, "Median");
    for (std::uint64_t c = 0; ok && c < channels; ++c)
        ok = text_buf_appendf(buf, "<td>%.3f dB</td>", r.channels[c].median_db);
    ok = ok && append_row_head(buf, false, "MAD");
    for (std::uint64_t c = 0; ok && c < channels; ++c)
        ok = text_buf_appendf(buf, "<td>%.3f dB</td>", r.channels[c].mad_db);
    ok = ok && append_row_head(buf, false, "P99 |Error|");
    for (std::uint64_t c = 0; ok && c < channels; ++c)
        ok = text_buf_appendf(buf, "<td%s>%.3f dB</td>",
                              r.channels[c].p99_abs_db > tolerance_db ? " class=\"fail\"" : "",
                              r.channels[c].p99_abs_db);
    ok = ok && append_row_head(buf, false, "Sustained Run");
    for (std::uint64_t c = 0; ok && c < channels; ++c)
        ok = text_buf_appendf(buf, "<td%s>%.1f ms</td>", r.channels[c].sustained_run_failed ? " class=\"fail\"" : "",
                              r.channels[c].longest_sustained_run_ms);
    if (!ok || !append_compare_table_close(buf)) return false;

    const bool any_samples = (channels >= 1 && r.channels[0].has_samples) || (channels == 2 && r.channels[1].has_samples);
    if (any_samples) {
        if (!append_compare_table_open(buf, "Worst Point", channels)) return false;
        const char* names[] = {"Worst Sample", "Worst Diff", "Ref Amplitude", "DUT Amplitude"};
        for (int row = 0; ok && row < 4; ++row) {
            ok = append_row_head(buf, row == 0, names[row]);
            for (std::uint64_t c = 0; ok && c < channels; ++c) {
                const level_fidelity_channel& ch = r.channels[c];
                if (!ch.has_samples) {
                    ok = text_buf_append(buf, "<td>&mdash;</td>");
                    continue;
                }
                switch (row) {
                    case 0: ok = text_buf_appendf(buf, "<td>%ld</td>", static_cast<long>(ch.worst_sample)); break;
                    case 1: ok = text_buf_appendf(buf, "<td>%+.3f dB</td>", ch.worst_diff_db); break;
                    case 2: ok = text_buf_appendf(buf, "<td>%.6f</td>", ch.worst_ref_amp); break;
                    default: ok = text_buf_appendf(buf, "<td>%.6f</td>", ch.worst_dut_amp); break;
                }
            }
        }
        if (!ok || !append_compare_table_close(buf)) return false;
    }
    return text_buf_append(buf, "</div>\n</section>\n");
}

std::string artifact_severity_text(double severity, double global_severity, double min_severity,
                                   double min_global_severity) {
    char text[128];
    if (global_severity > min_global_severity && !(severity > min_severity)) {
        if (global_severity >= 100000.0) {
            const int e = static_cast<int>(std::floor(std::log10(global_severity)));
            std::snprintf(text, sizeof text, " &middot; %.1f&times;10<sup>%d</sup>&times; file-wide",
                          global_severity / std::pow(10.0, e), e);
        } else {
            std::snprintf(text, sizeof text, " &middot; %.0f&times; file-wide", global_severity);
        }
    } else if (severity > 1.0) {
        std::snprintf(text, sizeof text, severity >= 100.0 ? " &middot; %.0f&times;" : " &middot; %.1f&times;",
                      severity);
    } else {
        std::snprintf(text, sizeof text, " &middot; silence/full scale");
    }
    return text;
}

bool append_artifact_card(text_buf& buf, const report_inputs& in) {
    const artifact_result& r = in.results->artifact;
    const check_status& s = in.results->of(check_id::artifact);
    const run_config& cfg = *in.run->config;
    const double min_severity = cfg.number(param_id::artifact_min_severity);
    const double min_global_severity = cfg.number(param_id::artifact_min_global_severity);
    if (!append_card_head(buf, "artifact", "Artifact Detection") || !append_badge(buf, gated_badge(s)) ||
        (!s.gates && !append_reference_only_note(buf, "--artifact-ref-only")))
        return false;
    bool any_minor = false;
    for (std::uint32_t c = 0; c < std::min<std::uint64_t>(r.channel_count, 2); ++c) {
        const artifact_channel& ch = r.channels[c];
        any_minor = any_minor || ch.minor_event_count > 0;
        if (!text_buf_appendf(buf,
                              "<div class=\"tile-row%s\">\n<div class=\"tile\"><div class=\"k\">Channel</div><div "
                              "class=\"v\">%s</div></div>\n<div class=\"tile\"><div class=\"k\">Events "
                              "Counted</div><div class=\"v%s\">%zu</div></div>\n<div class=\"tile\"><div "
                              "class=\"k\">Minor Events</div><div class=\"v\">%zu</div></div>\n<div "
                              "class=\"tile\"><div class=\"k\">Samples Flagged</div><div class=\"v\">%zu / "
                              "%zu</div></div>\n<div class=\"tile\"><div class=\"k\">Samples Excluded</div><div "
                              "class=\"v\">%zu</div></div>\n",
                              row_gap(c), channel_word(r.channel_count, c), ch.counted_event_count > 0 ? " fail" : "",
                              static_cast<std::size_t>(ch.counted_event_count),
                              static_cast<std::size_t>(ch.minor_event_count),
                              static_cast<std::size_t>(ch.samples_flagged), static_cast<std::size_t>(ch.samples_checked),
                              static_cast<std::size_t>(ch.samples_excluded)))
            return false;
        if (ch.event_count > 0) {
            std::string severity = artifact_severity_text(ch.worst_event_severity, ch.worst_event_global_severity,
                                                          min_severity, min_global_severity);
            if (!text_buf_appendf(buf,
                                  "<div class=\"tile\"><div class=\"k\">Worst Event</div><div class=\"v\">frame %zu, "
                                  "%zu smp%s</div></div>\n",
                                  static_cast<std::size_t>(ch.worst_event_start_frame),
                                  static_cast<std::size_t>(ch.worst_event_length), severity.c_str()))
                return false;
        }
        if (!text_buf_append(buf, "</div>\n")) return false;
    }
    if (any_minor &&
        !text_buf_appendf(buf,
                          "<p class=\"desc\">Minor events are outlier samples no more than %.4g&times; over the "
                          "detection threshold (and no more than %.4g&times; over it measured against the whole file), "
                          "or runs of exact silence or full scale shorter than %zu samples. They are listed, but only "
                          "counted events fail the check.</p>\n",
                          min_severity, min_global_severity,
                          static_cast<std::size_t>(cfg.integer(param_id::artifact_min_silence_clip_run))))
        return false;
    return text_buf_append(buf, "</div>\n</section>\n");
}

bool append_time_domain_card(text_buf& buf, const report_inputs& in) {
    const time_domain_result& r = in.results->time_domain;
    const std::uint32_t rate = in.run->ref->sample_rate;
    if (!append_card_head(buf, "timedomain", "Time Domain") || !append_badge(buf, badge_for(r.pass))) return false;
    const std::uint32_t channels = static_cast<std::uint32_t>(std::min<std::uint64_t>(r.channel_count, 2));
    channel_worst worst[2];
    for (std::uint32_t c = 0; c < channels; ++c) {
        const time_domain_channel& ch = r.channels[c];
        worst[c] = {ch.has_worst, ch.worst_sample};
        if (!text_buf_appendf(buf,
                              "<div class=\"tile-row%s\">\n<div class=\"tile\"><div class=\"k\">Channel</div><div "
                              "class=\"v\">%s</div></div>\n<div class=\"tile\"><div class=\"k\">Samples "
                              "Included</div><div class=\"v\">%zu</div></div>\n<div class=\"tile\"><div "
                              "class=\"k\">Samples Excluded</div><div class=\"v\">%zu</div></div>\n<div "
                              "class=\"tile\"><div class=\"k\">Total Fails</div><div class=\"v%s\">%zu</div></div>\n"
                              "</div>\n",
                              row_gap(c), channel_word(r.channel_count, c),
                              static_cast<std::size_t>(ch.samples_included),
                              static_cast<std::size_t>(ch.samples_excluded), ch.total_fails > 0 ? " fail" : "",
                              static_cast<std::size_t>(ch.total_fails)))
            return false;
        if (ch.total_fails > 0 &&
            !text_buf_appendf(buf,
                              "<div class=\"tile-row\">\n<div class=\"tile\"><div class=\"k\">Fails: Low-Level Signal "
                              "Tier</div><div class=\"v\">%zu</div></div>\n<div class=\"tile\"><div class=\"k\">Fails: "
                              "Signal Tier</div><div class=\"v\">%zu</div></div>\n<div class=\"tile\"><div "
                              "class=\"k\">Fails: Peak Tier</div><div class=\"v\">%zu</div></div>\n</div>\n",
                              static_cast<std::size_t>(ch.fails_low_level_signal_tier),
                              static_cast<std::size_t>(ch.fails_signal_tier),
                              static_cast<std::size_t>(ch.fails_peak_tier)))
            return false;
        if (ch.has_worst &&
            !text_buf_appendf(buf,
                              "<div class=\"tile-row\">\n<div class=\"tile\"><div class=\"k\">Worst Sample</div><div "
                              "class=\"v\">%ld (%.3f s)</div></div>\n<div class=\"tile\"><div class=\"k\">Diff / "
                              "Tolerance</div><div class=\"v fail\">%.2f%% / %.2f%%</div></div>\n<div "
                              "class=\"tile\"><div class=\"k\">Ref / DUT Amplitude</div><div class=\"v\">%.6f / "
                              "%.6f</div></div>\n</div>\n",
                              static_cast<long>(ch.worst_sample),
                              rate ? static_cast<double>(ch.worst_sample) / rate : 0.0, ch.worst_diff_pct,
                              ch.worst_tolerance_pct, ch.worst_ref_amp, ch.worst_dut_amp))
            return false;
    }
    return append_check_waveform_gallery(buf, *in.run->ref, *in.run->dut, in.results->align.file_offset, channels,
                                         worst, "timedomain") &&
           text_buf_append(buf, "</div>\n</section>\n");
}

}  // namespace veltrane
