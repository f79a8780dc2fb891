#include "report/impulse_card.h"

#include "report/check_cards.h"
#include "report/waveform_views.h"

namespace veltrane {

bool append_impulse_card(text_buf& buf, const report_inputs& in) {
    const impulse_template_result& r = in.results->impulse_template;
    const double rate = in.run->ref->sample_rate;
    if (!text_buf_append(buf,
                         "<section class=\"card\" id=\"impulsetemplate\">\n<div class=\"card-head\">\n<div "
                         "class=\"htext\"><h3>Impulse Template</h3></div>\n") ||
        !append_badge(buf, badge_for(r.pass)))
        return false;
    const std::uint64_t channels = r.channel_count < 2 ? r.channel_count : 2;
    channel_worst worst[2];
    for (std::uint64_t c = 0; c < channels; ++c) {
        const impulse_template_channel& ch = r.channels[c];
        const char* word = channels == 1 ? "Mono" : (c == 0 ? "L" : "R");
        worst[c] = {ch.has_worst, ch.worst_sample};
        if (!text_buf_appendf(buf,
                              "<div class=\"tile-row%s\">\n<div class=\"tile\"><div class=\"k\">Channel</div><div "
                              "class=\"v\">%s</div></div>\n<div class=\"tile\"><div class=\"k\">Total Fails</div><div "
                              "class=\"v%s\">%zu</div></div>\n</div>\n",
                              c == 1 ? " card-row-gap" : "", word, ch.total_fails > 0 ? " fail" : "",
                              static_cast<std::size_t>(ch.total_fails)))
            return false;
        if (ch.has_worst &&
            !text_buf_appendf(buf,
                              "<div class=\"tile-row\">\n<div class=\"tile\"><div class=\"k\">Worst Sample</div><div "
                              "class=\"v\">%ld (%.3f s)</div></div>\n<div class=\"tile\"><div class=\"k\">Diff "
                              "(linear)</div><div class=\"v fail\">%.6f</div></div>\n<div class=\"tile\"><div "
                              "class=\"k\">Ref / DUT Amplitude</div><div class=\"v\">%.6f / %.6f</div></div>\n</div>\n",
                              static_cast<long>(ch.worst_sample), rate > 0 ? ch.worst_sample / rate : 0.0,
                              ch.worst_diff, ch.worst_ref_amp, ch.worst_dut_amp))
            return false;
    }
    // The waveform views: a detail around each channel's worst sample, then the whole file.
    return append_check_waveform_gallery(buf, *in.run->ref, *in.run->dut, in.results->align.file_offset, channels,
                                         worst, "impulsetemplate") &&
           text_buf_append(buf, "</div>\n</section>\n");
}

}  // namespace veltrane
