#pragma once
// The per-channel waveform views that the Time Domain and Impulse Template cards share: a
// one-second detail around the worst sample, then the whole file, both of the reference
// with the DUT over it, each in its chart frame.
#include <cstdint>

#include "audio/wav.h"
#include "report/text_buf.h"

namespace veltrane {

// The views of channel `channel` for the card of `slug` ("timedomain",
// "impulsetemplate"): with a worst sample, a detail view titled "Detail around worst
// sample" (frame id "vt-<slug>-zoom-frame" + suffix, chart suffix "-<slug>-zoom" +
// suffix); always the full view titled "Full signal" ("vt-<slug>-frame" + suffix,
// "-<slug>" + suffix).
bool append_check_waveform_views(text_buf& buf, const wav_audio& ref, const wav_audio& dut,
                                 std::int64_t offset_frames, std::uint32_t channel, const char* suffix,
                                 bool has_worst, std::int64_t worst_frame, const char* slug);

// The check's views once without suffix for a mono result, or per channel under the
// "Left Channel" / "Right Channel" gallery headings with the suffixes "-ch0" / "-ch1".
// `worst` gives each channel's has-worst flag and frame.
struct channel_worst {
    bool has_worst = false;
    std::int64_t frame = 0;
};
bool append_check_waveform_gallery(text_buf& buf, const wav_audio& ref, const wav_audio& dut,
                                   std::int64_t offset_frames, std::uint64_t channel_count,
                                   const channel_worst (&worst)[2], const char* slug);

}  // namespace veltrane
