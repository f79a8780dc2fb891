#pragma once
// The waveform envelope chart: one channel of the reference (and optionally of the DUT)
// drawn as filled min/max envelopes over 4096 columns, as an inline SVG with a time axis,
// an amplitude axis (linear full scale -1.2..+1.2, or dB -140..+20 dBFS), optional
// failure markers and an optional centre line, followed by a JSON data island holding the
// same envelopes so that the page script can redraw the chart when the user zooms or
// pans. However long the file, the chart text is bounded by the column count.
//
// Frames are reference frame indices; the DUT column of reference frames [a, b) covers
// DUT frames [a + offset, b + offset), offset being the alignment's file offset.
#include <cstddef>
#include <cstdint>
#include <span>

#include "audio/wav.h"
#include "report/text_buf.h"

namespace veltrane {

// A dashed failure line on a chart: its label (a program text, HTML-escaped on the SVG)
// and the reference frame it marks.
struct marker {
    const char* label = "";
    std::int64_t frame = 0;
};

// Columns of every envelope chart, whatever the length of the view.
inline constexpr std::size_t envelope_columns = 4096;

// Appends the chart of channel `channel` for the reference frames [start_frame,
// end_frame) (clipped to the file), the DUT drawn over the reference when `dut` is given.
// `db_scale` draws 20 log10 |x| on the dB axis instead of the linear amplitude. With
// `detail`, a dashed centre line marks `centre_frame`. Element ids are
// "vt-envelope-svg" / "vt-envelope-data" followed by `id_suffix` (and "-energy" on the dB
// scale); `label` is the SVG's accessible name. The work arrays (three of 4096 entries
// per trace) live for the call only. False when they cannot be allocated or an append
// fails; the buffer then holds what was appended before.
bool envelope_chart(text_buf& buf, const wav_audio& ref, const wav_audio* dut, std::int64_t offset_frames,
                    std::uint32_t channel, bool db_scale, std::span<const marker> markers, bool detail,
                    std::int64_t centre_frame, std::int64_t start_frame, std::int64_t end_frame,
                    const char* id_suffix, const char* label);

// The whole file: frames 0 to the reference's frame count, no centre line, label
// "Full-file waveform overview".
bool envelope_full(text_buf& buf, const wav_audio& ref, const wav_audio* dut, std::int64_t offset_frames,
                   std::uint32_t channel, bool db_scale, std::span<const marker> markers, const char* id_suffix);

// The window of trunc(rate x 0.5 x scale) frames each side of `centre_frame`, linear
// scale, no markers, centre line on `centre_frame`, label "Detail view around worst
// point". The report's cards pass scale 1.0: one second.
bool envelope_detail(text_buf& buf, const wav_audio& ref, const wav_audio* dut, std::int64_t offset_frames,
                     std::uint32_t channel, std::int64_t centre_frame, double scale, const char* id_suffix);

}  // namespace veltrane
