#include "report/distortion_card.h"

#include <cstdio>

#include "report/check_cards.h"

namespace veltrane {
namespace {

// The card marks a THD+N above 1 % as failing and names 1.00 % as the tolerance, whatever
// distortion.tolerance_ratio is: the tile reads against the common 1 % limit.
constexpr double card_fail_ratio = 0.01;
// Below this the figure is shown as a bound: -140 dB is the chart's floor too.
constexpr double thdn_floor_db = -140.0;

}  // namespace

bool append_thdn_kpi(text_buf& buf, const report_inputs& in) {
    const check_status& s = in.results->of(check_id::distortion);
    const distortion_channel& ch = in.results->distortion.channels[0];
    if (!text_buf_append(buf, "<div class=\"kpi\">\n<div class=\"k\">THD+N</div>\n<div class=\"v\">")) return false;
    if (!s.ran) return text_buf_append(buf, "&mdash;<small> skipped</small></div>\n</div>\n");
    if (ch.frame_gated || ch.insufficient_samples) return text_buf_append(buf, "&mdash;<small> n/a</small></div>\n</div>\n");
    return text_buf_appendf(buf, "%.2f<small> %%</small></div>\n</div>\n", 100.0 * ch.thdn_ratio);
}

bool append_distortion_card(text_buf& buf, const report_inputs& in) {
    const check_status& s = in.results->of(check_id::distortion);
    if (!text_buf_append(buf,
                         "<section class=\"card\" id=\"distortion\">\n<div class=\"card-head\">\n<div "
                         "class=\"htext\"><h3>Distortion (THD+N)</h3></div>\n"))
        return false;
    if (!s.ran)
        return append_badge(buf, card_badge::skipped) &&
               text_buf_append(buf,
                               "<p class=\"desc\">Skipped -- run without <code>--no-distortion</code> to include "
                               "it.</p>\n</div>\n</section>\n");
    const distortion_result& r = in.results->distortion;
    const distortion_channel& ch = r.channels[0];
    if (!append_badge(buf, badge_for(r.pass))) return false;
    bool ok = true;
    if (ch.frame_gated) {
        ok = text_buf_append(buf,
                             "<p class=\"chart-note\">Frame gated -- no fundamental cleared the noise floor in this "
                             "snapshot.</p>\n");
    } else if (ch.insufficient_samples) {
        ok = text_buf_append(buf, "<p class=\"chart-note\">Not enough aligned samples for a snapshot frame.</p>\n");
    } else {
        char thdn[96];
        if (ch.thdn_db <= thdn_floor_db)
            std::snprintf(thdn, sizeof thdn, "&lt; 0.00001%% (&lt; %.0f dB)", thdn_floor_db);
        else
            std::snprintf(thdn, sizeof thdn, "%.4f%% (%.1f dB)", 100.0 * ch.thdn_ratio, ch.thdn_db);
        ok = text_buf_appendf(buf,
                              "<div class=\"tile-row\">\n<div class=\"tile\"><div class=\"k\">Fundamental</div><div "
                              "class=\"v\">%.1f Hz</div></div>\n<div class=\"tile\"><div class=\"k\">THD+N</div><div "
                              "class=\"v%s\">%s</div></div>\n<div class=\"tile\"><div class=\"k\">Tolerance</div><div "
                              "class=\"v\">1.00%%</div></div>\n</div>\n",
                              ch.fundamental_freq_hz, ch.thdn_ratio > card_fail_ratio ? " fail" : "", thdn);
    }
    if (ok && ch.frames_scanned >= 2)
        ok = text_buf_appendf(buf,
                              "<div class=\"tile-row card-row-gap\">\n<div class=\"tile\"><div class=\"k\">Frames "
                              "Scanned</div><div class=\"v\">%zu</div></div>\n<div class=\"tile\"><div "
                              "class=\"k\">Frames Gated</div><div class=\"v\">%zu</div></div>\n<div class=\"tile\"><div "
                              "class=\"k\">P50 THD+N</div><div class=\"v\">%.4f%%</div></div>\n<div "
                              "class=\"tile\"><div class=\"k\">P95 THD+N</div><div class=\"v\">%.4f%%</div></div>\n</div>\n",
                              static_cast<std::size_t>(ch.frames_scanned), static_cast<std::size_t>(ch.frames_gated),
                              100.0 * ch.p50_thdn_ratio, 100.0 * ch.p95_thdn_ratio);
    return ok && text_buf_append(buf, "</div>\n</section>\n");
}

}  // namespace veltrane
