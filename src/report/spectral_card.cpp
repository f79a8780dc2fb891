#include "report/spectral_card.h"

#include <cmath>
#include <cstdio>

#include "report/chart_frame.h"
#include "report/check_cards.h"
#include "report/spectral_chart.h"

namespace veltrane {
namespace {

// The chart request shared by every spectral chart of the card.
spectral_chart_request chart_request(const report_inputs& in, std::uint32_t channel, std::string_view suffix) {
    const run_config& cfg = *in.run->config;
    spectral_chart_request req;
    req.ref = in.run->ref;
    req.dut = in.run->dut;
    req.offset = in.results->align.file_offset;
    req.n = static_cast<std::uint64_t>(cfg.integer(param_id::spectral_fft_size));
    req.channel = channel;
    req.noise_floor_db = cfg.number(param_id::spectral_noise_floor_db);
    req.low_level_threshold_db = cfg.number(param_id::spectral_low_level_signal_threshold_db);
    req.peak_threshold_db = cfg.number(param_id::spectral_peak_threshold_db);
    req.id_suffix = suffix;
    return req;
}

const char* gallery_heading(std::uint32_t channel) {
    return channel == 0 ? "<h4 class=\"channel-gallery-heading\">Left Channel</h4>\n"
                        : "<h4 class=\"channel-gallery-heading\">Right Channel</h4>\n";
}

// One channel's body of the single-frame or continuous shape.
bool append_frame_body(text_buf& buf, const report_inputs& in, std::uint32_t c, const std::string& suffix) {
    const spectral_channel_result& ch = in.results->spectral.scan.channels[c];
    if (ch.frame_gated)
        return text_buf_append(buf,
                               "<p class=\"chart-note\">Frame gated -- reference level did not clear the noise floor "
                               "in this snapshot.</p>\n");
    if (ch.insufficient_samples)
        return text_buf_append(buf, "<p class=\"chart-note\">Not enough aligned samples for a snapshot frame.</p>\n");
    const run_config& cfg = *in.run->config;
    const double rate = static_cast<double>(in.run->ref->sample_rate);
    const std::uint64_t n = static_cast<std::uint64_t>(cfg.integer(param_id::spectral_fft_size));

    // The chart comes after the tiles but reports the peak levels they show: build it first.
    text_buf chart;
    text_buf_init(chart);
    const std::string frame_id = "vt-spectral-frame" + suffix;
    spectral_chart_request req = chart_request(in, c, suffix);
    if (!ch.pass) {
        req.frame_start = ch.worst_frame_start;
        req.fail_freq_hz = ch.worst_bin_freq_hz;
        req.fail_db = ch.worst_bin_diff_db;
    }
    spectral_chart_peaks peaks;
    bool ok = append_chart_frame_open(chart, "scope", "Ref vs. DUT magnitude spectrum", frame_id.c_str(),
                                      chart_kind::spectral, true) &&
              spectral_chart(chart, req, &peaks) && append_chart_frame_close(chart, chart_legend::reference_and_dut);

    char notes[160] = "";
    int used = 0;
    if (ch.worst_bin_is_peak)
        used = std::snprintf(notes, sizeof notes, "<div class=\"v-sub\">tolerance %.6f dB</div>",
                             cfg.number(param_id::spectral_peak_tolerance_db));
    if (ch.frames_scanned >= 2 && ch.bins_compared != 0 && used >= 0 && static_cast<std::size_t>(used) < sizeof notes)
        std::snprintf(notes + used, sizeof notes - static_cast<std::size_t>(used), "<div class=\"v-sub\">at %s</div>",
                      spectral_time_text((static_cast<double>(n) / 2.0 + ch.worst_frame_start) / rate).c_str());
    ok = ok &&
         text_buf_appendf(buf,
                          "<div class=\"tile-row\">\n<div class=\"tile\"><div class=\"k\">Bins Compared</div><div "
                          "class=\"v\">%zu</div></div>\n<div class=\"tile\"><div class=\"k\">Bins Failed</div><div "
                          "class=\"v%s\">%zu</div></div>\n<div class=\"tile\"><div class=\"k\">P99 Ratio</div><div "
                          "class=\"v%s\">%.3f</div></div>\n<div class=\"tile\"><div class=\"k\">Worst Bin</div><div "
                          "class=\"v\">%.1f Hz, %+.6f dB%s</div></div>\n<div class=\"tile\"><div class=\"k\">Ref Peak "
                          "Level</div><div class=\"v\">%.1f dB</div></div>\n<div class=\"tile\"><div class=\"k\">DUT Peak "
                          "Level</div><div class=\"v\">%.1f dB</div></div>\n</div>\n",
                          static_cast<std::size_t>(ch.bins_compared), ch.bins_failed > 0 ? " fail" : "",
                          static_cast<std::size_t>(ch.bins_failed), ch.p99_ratio > 1.0 ? " fail" : "", ch.p99_ratio,
                          ch.worst_bin_freq_hz, ch.worst_bin_diff_db, notes, peaks.set ? peaks.ref_db : 0.0,
                          peaks.set ? peaks.dut_db : 0.0) &&
         text_buf_append(buf, text_buf_view(chart));
    text_buf_free(chart);
    return ok;
}

bool append_frame_card(text_buf& buf, const report_inputs& in) {
    const spectral_result& r = in.results->spectral.scan;
    const spectral_channel_result& c0 = r.channels[0];
    const double rate = static_cast<double>(in.run->ref->sample_rate);
    const run_config& cfg = *in.run->config;
    char sub[192] = "";
    if (!c0.frame_gated && !c0.insufficient_samples && c0.frames_scanned != 0) {
        if (c0.frames_scanned > 1 && c0.edge_skipped_samples > 0)
            std::snprintf(sub, sizeof sub, "Checked across the whole file except the first and last %.0f ms (%zu points)",
                          static_cast<double>(c0.edge_skipped_samples) * 1000.0 / rate,
                          static_cast<std::size_t>(c0.frames_scanned));
        else if (c0.frames_scanned > 1)
            std::snprintf(sub, sizeof sub, "Checked across the whole file (%zu points)",
                          static_cast<std::size_t>(c0.frames_scanned));
        else
            std::snprintf(sub, sizeof sub, "Checked at %s of %s",
                          spectral_time_text((static_cast<double>(cfg.integer(param_id::spectral_fft_size)) / 2.0 +
                                              c0.worst_frame_start) / rate)
                              .c_str(),
                          spectral_time_text(static_cast<double>(cfg.overlap_frames) / rate).c_str());
    }
    const bool has_sub = sub[0] != '\0';
    bool ok = text_buf_appendf(buf,
                               "<section class=\"card\" id=\"spectral\">\n<div class=\"card-head\">\n<div "
                               "class=\"htext\"><h3>Spectral Fidelity</h3>%s%s%s</div>\n",
                               has_sub ? "<span class=\"sub\">" : "", sub, has_sub ? "</span>" : "") &&
              append_badge(buf, badge_for(r.pass));
    if (r.channel_count == 2) {
        for (std::uint32_t c = 0; c < 2; ++c)
            ok = ok && text_buf_append(buf, gallery_heading(c)) && append_frame_body(buf, in, c, c ? "-ch1" : "-ch0");
    } else {
        ok = ok && append_frame_body(buf, in, 0, "");
    }
    return ok && text_buf_append(buf, "</div>\n</section>\n");
}

// The tabbed snapshot widget of one channel.
bool append_snapshot_widget(text_buf& buf, const report_inputs& in, std::uint32_t c, const std::string& suffix) {
    const spectral_snapshots_result& r = in.results->spectral.snapshots;
    const std::size_t count = static_cast<std::size_t>(r.snapshot_count);
    std::size_t passed = 0;
    std::size_t first_fail = count;
    for (std::size_t i = 0; i < count; ++i) {
        if (r.snapshots[c][i].frame.pass)
            ++passed;
        else if (first_fail == count)
            first_fail = i;
    }
    const std::size_t selected = first_fail < count ? first_fail : 0;
    auto time_of = [&](std::size_t i) { return spectral_time_text(r.snapshots[0][i].time_sec); };
    bool ok = first_fail < count
                  ? text_buf_appendf(buf,
                                     "<p class=\"spectral-rollup\">%zu/%zu snapshots passed &mdash; <span "
                                     "class=\"fail-detail\">snapshot %zu at %s failed</span></p>\n",
                                     passed, count, first_fail + 1, time_of(first_fail).c_str())
                  : text_buf_appendf(buf, "<p class=\"spectral-rollup\">%zu/%zu snapshots passed</p>\n", passed, count);
    const std::string widget_id = "vt-snap-widget" + suffix;
    ok = ok && text_buf_appendf(buf, "<div id=\"%s\">\n<div class=\"spectral-snap-tabs\" role=\"tablist\">\n",
                                widget_id.c_str());
    for (std::size_t i = 0; ok && i < count; ++i) {
        const spectral_channel_result& snap = r.snapshots[c][i].frame;
        char db[64] = "";
        if (!snap.pass) std::snprintf(db, sizeof db, "<span class=\"snap-tab-db\">%+.1fdB</span>", snap.worst_bin_diff_db);
        ok = text_buf_appendf(buf,
                              "<button type=\"button\" class=\"snap-tab%s\" data-snap-idx=\"%zu\" role=\"tab\" "
                              "aria-selected=\"%s\"><span class=\"snap-tab-dot %s\"></span><span>Snapshot %zu &middot; "
                              "%s</span>%s</button>\n",
                              i == selected ? " active" : "", i, i == selected ? "true" : "false",
                              snap.pass ? "pass" : "fail", i + 1, time_of(i).c_str(), db);
    }
    ok = ok && text_buf_append(buf, "</div>\n<div class=\"spectral-snap-panels\">\n");
    char frame_id[96];
    char chart_suffix[96];
    char title[128];
    for (std::size_t i = 0; ok && i < count; ++i) {
        const spectral_channel_result& snap = r.snapshots[c][i].frame;
        std::snprintf(frame_id, sizeof frame_id, "vt-spectral-frame-snap%zu%s", i, suffix.c_str());
        std::snprintf(chart_suffix, sizeof chart_suffix, "-snap%zu%s", i, suffix.c_str());
        std::snprintf(title, sizeof title, "Snapshot %zu &middot; %s &middot; %s", i + 1, time_of(i).c_str(),
                      snap.pass ? "Pass" : "Fail");
        spectral_chart_request req = chart_request(in, c, chart_suffix);
        req.frame_start = snap.worst_frame_start;
        if (!snap.pass) {
            req.fail_freq_hz = snap.worst_bin_freq_hz;
            req.fail_db = snap.worst_bin_diff_db;
        }
        ok = text_buf_appendf(buf, "<div class=\"snap-panel\" data-snap-idx=\"%zu\"%s>\n", i,
                              i == selected ? "" : " hidden") &&
             append_chart_frame_open(buf, "scope", title, frame_id, chart_kind::spectral, true) &&
             spectral_chart(buf, req) && append_chart_frame_close(buf, chart_legend::reference_and_dut) &&
             text_buf_append(buf, "</div>\n");
    }
    // Tab switching: the clicked tab becomes the active one and only its panel is shown.
    return ok && text_buf_append(buf, "</div>\n</div>\n") &&
           text_buf_appendf(buf,
                            "<script>\n(function(){var w=document.getElementById(\"%s\");if(!w)return;"
                            "w.addEventListener(\"click\",function(e){var t=e.target.closest(\".snap-tab\");"
                            "if(!t||!w.contains(t))return;var i=t.getAttribute(\"data-snap-idx\");"
                            "w.querySelectorAll(\".snap-tab\").forEach(function(b){var on=b.getAttribute(\"data-snap-idx\")===i;"
                            "b.classList.toggle(\"active\",on);b.setAttribute(\"aria-selected\",on?\"true\":\"false\");});"
                            "w.querySelectorAll(\".snap-panel\").forEach(function(p){p.hidden=p.getAttribute(\"data-snap-idx\")!==i;});"
                            "});})();\n</script>\n",
                            widget_id.c_str());
}

bool append_snapshot_card(text_buf& buf, const report_inputs& in) {
    const spectral_snapshots_result& r = in.results->spectral.snapshots;
    bool ok = text_buf_appendf(buf,
                               "<section class=\"card\" id=\"spectral\">\n<div class=\"card-head\">\n<div "
                               "class=\"htext\"><h3>Spectral Fidelity</h3><span class=\"sub\">%zu independent "
                               "snapshots</span></div>\n",
                               static_cast<std::size_t>(r.snapshot_count)) &&
              append_badge(buf, badge_for(r.pass));
    if (r.channel_count == 2) {
        for (std::uint32_t c = 0; c < 2; ++c)
            ok = ok && text_buf_append(buf, gallery_heading(c)) &&
                 append_snapshot_widget(buf, in, c, c ? "-ch1" : "-ch0");
    } else {
        ok = ok && append_snapshot_widget(buf, in, 0, "");
    }
    return ok && text_buf_append(buf, "</div>\n</section>\n");
}

}  // namespace

std::string spectral_time_text(double seconds) {
    const double minutes = std::trunc(seconds / 60.0);
    char text[64];
    std::snprintf(text, sizeof text, "%d:%04.1f", static_cast<int>(minutes), seconds - 60.0 * minutes);
    return text;
}

bool append_spectral_card(text_buf& buf, const report_inputs& in) {
    return in.results->spectral.snapshot_mode ? append_snapshot_card(buf, in) : append_frame_card(buf, in);
}

bool append_spectral_kpi(text_buf& buf, const report_inputs& in) {
    const spectral_check_result& r = in.results->spectral;
    if (!text_buf_append(buf, "<div class=\"kpi\">\n<div class=\"k\">Spectral Fidelity</div>\n<div class=\"v\">"))
        return false;
    if (r.snapshot_mode) {
        std::size_t passed = 0;
        for (std::size_t i = 0; i < r.snapshots.snapshot_count && i < spectral_max_snapshots; ++i)
            if (r.snapshots.snapshots[0][i].frame.pass) ++passed;
        return text_buf_appendf(buf, "%zu/%zu<small> snapshots</small></div>\n</div>\n", passed,
                                static_cast<std::size_t>(r.snapshots.snapshot_count));
    }
    const spectral_channel_result& c0 = r.scan.channels[0];
    if (c0.frame_gated || c0.insufficient_samples)
        return text_buf_append(buf, "&mdash;<small> n/a</small></div>\n</div>\n");
    return text_buf_appendf(buf, "%.2f<small> p99 ratio</small></div>\n</div>\n", c0.p99_ratio);
}

}  // namespace veltrane
