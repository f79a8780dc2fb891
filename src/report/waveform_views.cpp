#include "report/waveform_views.h"

#include <cstdio>

#include "report/chart_frame.h"
#include "report/waveform_chart.h"

namespace veltrane {
namespace {

constexpr double detail_scale = 1.0;  // one second around the worst sample

}  // namespace

bool append_check_waveform_views(text_buf& buf, const wav_audio& ref, const wav_audio& dut,
                                 std::int64_t offset_frames, std::uint32_t channel, const char* suffix,
                                 bool has_worst, std::int64_t worst_frame, const char* slug) {
    char frame_id[160], chart_id[160];
    if (has_worst) {
        std::snprintf(frame_id, sizeof frame_id, "vt-%s-zoom-frame%s", slug, suffix);
        std::snprintf(chart_id, sizeof chart_id, "-%s-zoom%s", slug, suffix);
        if (!append_chart_frame_open(buf, "scope", "Detail around worst sample", frame_id, chart_kind::waveform, true) ||
            !envelope_detail(buf, ref, &dut, offset_frames, channel, worst_frame, detail_scale, chart_id) ||
            !append_chart_frame_close(buf, chart_legend::reference_and_dut))
            return false;
    }
    std::snprintf(frame_id, sizeof frame_id, "vt-%s-frame%s", slug, suffix);
    std::snprintf(chart_id, sizeof chart_id, "-%s%s", slug, suffix);
    return append_chart_frame_open(buf, "scope", "Full signal", frame_id, chart_kind::waveform, true) &&
           envelope_full(buf, ref, &dut, offset_frames, channel, false, {}, chart_id) &&
           append_chart_frame_close(buf, chart_legend::reference_and_dut);
}

bool append_check_waveform_gallery(text_buf& buf, const wav_audio& ref, const wav_audio& dut,
                                   std::int64_t offset_frames, std::uint64_t channel_count,
                                   const channel_worst (&worst)[2], const char* slug) {
    if (channel_count != 2)
        return append_check_waveform_views(buf, ref, dut, offset_frames, 0, "", worst[0].has_worst, worst[0].frame,
                                           slug);
    return text_buf_append(buf, "<h4 class=\"channel-gallery-heading\">Left Channel</h4>\n") &&
           append_check_waveform_views(buf, ref, dut, offset_frames, 0, "-ch0", worst[0].has_worst, worst[0].frame,
                                       slug) &&
           text_buf_append(buf, "<h4 class=\"channel-gallery-heading\">Right Channel</h4>\n") &&
           append_check_waveform_views(buf, ref, dut, offset_frames, 1, "-ch1", worst[1].has_worst, worst[1].frame,
                                       slug);
}

}  // namespace veltrane
