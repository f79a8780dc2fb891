#pragma once
// The trim run without its printing: the search window at each end of the capture, the
// leading and trailing sync-tone searches, the cut between them, the cut written as a WAV
// file in the input's own sample format, and the trim report document. Positions and
// lengths are in frames of the input file.
#include <cstdint>
#include <string>
#include <string_view>

#include "audio/wav.h"
#include "trim/sync_detect.h"

namespace veltrane {

// How far into each end of the file the tone is searched.
struct trim_window {
    std::uint64_t configured_samples = 0;  // llround(window seconds * rate); 0 for a window of 0 s or less
    std::uint64_t samples = 0;             // what is searched: at most half the file
    bool capped = false;                   // configured_samples exceeded half the file
};

// llround(window_sec * rate), capped to frame_count / 2 so that the leading and the
// trailing search never overlap.
trim_window trim_search_window(double window_sec, std::uint32_t sample_rate_hz, std::uint64_t frame_count);

enum class trim_failure {
    none,
    leading_not_found,   // no leading tone in the first window
    trailing_not_found,  // no trailing tone in the last window
    out_of_order,        // the trailing tone starts before the leading one ends
};

struct trim_plan {
    trim_window window;
    sync_match leading;   // searched in frames [0, window)
    sync_match trailing;  // searched in frames [frame_count - window, frame_count)
    std::uint64_t sync_point = 0;  // first frame after the leading tone
    std::uint64_t trim_point = 0;  // first frame of the trailing tone
    trim_failure failure = trim_failure::none;

    // Frames of programme material between the tones (0 unless the plan succeeded).
    std::uint64_t cut_frames() const { return failure == trim_failure::none ? trim_point - sync_point : 0; }
};

// Runs the searches with the PSR threshold `psr_threshold` and the fixed similarity
// threshold. Stops at the first failure: a missing leading tone leaves the trailing
// search undone.
trim_plan plan_trim(const wav_audio& audio, const trim_window& window, double psr_threshold);

// Writes frames [sync_point, trim_point) of `audio` to `path` in the input's sample
// format. The file is written under a temporary name in the same directory and renamed
// to `path` only when complete, so a failed write leaves neither a partial file nor a
// damaged earlier file at `path`.
bool write_trimmed_wav(const std::string& path, const wav_audio& audio, std::uint64_t sync_point,
                       std::uint64_t trim_point);

// The trim report is built in a buffer of this many bytes.
inline constexpr std::size_t trim_report_buffer_size = 2048;

// The flat JSON trim report: input_file, the leading match (sample offset, channel, PSR,
// similarity, the four per-chirp PSRs), the same for the trailing match, sync_point and
// trim_point. False when it does not fit its buffer (e.g. an input path too long).
bool build_trim_report(std::string_view input_path, const trim_plan& plan, std::string& text);

}  // namespace veltrane
