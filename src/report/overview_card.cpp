#include "report/overview_card.h"

#include <cstdio>
#include <span>

#include "report/chart_frame.h"

namespace veltrane {
namespace {

bool failed(const run_results& res, check_id id) {
    const check_status& s = res.of(id);
    return s.ran && !s.passed;
}

// The frame of the spectral check's worst spot on channel 0, when it has one: the first
// snapshot that failed there, or the worst frame of a judged single-frame or continuous scan.
bool spectral_spot(const spectral_check_result& r, std::int64_t& frame) {
    if (r.snapshot_mode) {
        if (r.snapshots.channel_count == 0) return false;
        for (std::size_t i = 0; i < r.snapshots.snapshot_count && i < spectral_max_snapshots; ++i) {
            const spectral_channel_result& snap = r.snapshots.snapshots[0][i].frame;
            if (!snap.pass) {
                frame = snap.worst_frame_start;
                return true;
            }
        }
        return false;
    }
    const spectral_channel_result& ch = r.scan.channels[0];
    if (r.scan.channel_count == 0 || ch.frame_gated || ch.insufficient_samples) return false;
    frame = ch.worst_frame_start;
    return true;
}

bool append_overview_view(text_buf& buf, const report_inputs& in, std::uint32_t channel, std::span<const marker> markers,
                          const char* suffix) {
    char frame_id[64], chart_suffix[64];
    std::snprintf(frame_id, sizeof frame_id, "vt-envelope-frame%s", suffix);
    std::snprintf(chart_suffix, sizeof chart_suffix, "-overview%s", suffix);
    return append_chart_frame_open(buf, "scope overview", "Full signal", frame_id, chart_kind::waveform, true) &&
           envelope_full(buf, *in.run->ref, in.run->dut, in.results->align.file_offset, channel, false, markers,
                         chart_suffix) &&
           append_chart_frame_close(buf, chart_legend::reference_and_dut);
}

}  // namespace

std::vector<marker> overview_markers(const run_results& res) {
    std::vector<marker> m;
    if (failed(res, check_id::bitexact) && res.bitexact.samples_differing > 0)
        m.push_back({"Bit-Exact", static_cast<std::int64_t>(res.bitexact.worst_diff_frame)});
    if (failed(res, check_id::bit_accuracy) && res.bit_accuracy.samples_differing > 0)
        m.push_back({"Bit Accuracy", static_cast<std::int64_t>(res.bit_accuracy.worst_diff_frame)});
    if (failed(res, check_id::time_domain) && res.time_domain.channels[0].has_worst)
        m.push_back({"Time Domain", res.time_domain.channels[0].worst_sample});
    if (failed(res, check_id::impulse_template) && res.impulse_template.channels[0].has_worst)
        m.push_back({"Impulse", res.impulse_template.channels[0].worst_sample});
    if (failed(res, check_id::levelfidelity) && res.level.channels[0].has_samples)
        m.push_back({"Level Fidelity", res.level.channels[0].worst_sample});
    if (failed(res, check_id::artifact) && res.artifact.channels[0].event_count > 0)
        m.push_back({"Artifact", static_cast<std::int64_t>(res.artifact.channels[0].worst_event_start_frame)});
    std::int64_t spectral_frame = 0;
    if (failed(res, check_id::spectral) && spectral_spot(res.spectral, spectral_frame))
        m.push_back({"Spectral", spectral_frame});
    const distortion_channel& d = res.distortion.channels[0];
    if (failed(res, check_id::distortion) && res.distortion.channel_count > 0 && !d.frame_gated &&
        !d.insufficient_samples)
        m.push_back({"Distortion", static_cast<std::int64_t>(d.worst_frame_start)});
    return m;
}

bool append_overview_card(text_buf& buf, const report_inputs& in) {
    const std::vector<marker> markers = overview_markers(*in.results);
    if (!text_buf_append(buf,
                         "<section class=\"card\" id=\"overview\">\n<div class=\"card-head\">\n<div "
                         "class=\"htext\"><h3>Signal Overview</h3></div>\n<span class=\"badge info\">Reference "
                         "Only</span>\n</div>\n<div class=\"card-body\">\n"))
        return false;
    bool ok;
    if (in.run->ref->channels == 2) {
        ok = text_buf_append(buf, "<h4 class=\"channel-gallery-heading\">Left Channel</h4>\n") &&
             append_overview_view(buf, in, 0, markers, "-ch0") &&
             text_buf_append(buf, "<h4 class=\"channel-gallery-heading\">Right Channel</h4>\n") &&
             append_overview_view(buf, in, 1, {}, "-ch1");
    } else {
        ok = append_overview_view(buf, in, 0, markers, "");
    }
    return ok && text_buf_append(buf, "</div>\n</section>\n");
}

}  // namespace veltrane
