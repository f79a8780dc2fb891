#pragma once
// Artifact detection: short local defects of the DUT (clicks, pops, glitches, dropouts
// to digital silence, clipping) that level statistics average away. The difference
// signal DUT - reference (normalised sample units, reference frame i against DUT frame
// i + offset) is judged sample by sample against the median and the median absolute
// deviation (MAD) of its own neighbourhood of W samples; flagged samples form events,
// each rated by its severity (peak local deviation ratio / k) and its whole-file severity
// (peak deviation from the local median over the whole-file MAD scale, / k). Counted
// events fail the channel; minor ones are only reported.
//
// The MAD is scaled by 1.4826 to estimate a standard deviation (the MAD of a normal
// distribution is 0.6745 sigma, and 1 / 0.6745 = 1.4826); it is clamped to 1e-12 so that
// a perfectly flat neighbourhood still yields a finite ratio.
#include <array>
#include <cstdint>

#include "audio/wav.h"

namespace veltrane {

struct artifact_channel {
    bool pass = false;                        // no counted event
    std::uint64_t samples_checked = 0;        // overlapping frames examined
    std::uint64_t samples_excluded = 0;       // of these, both magnitudes below the noise floor
    std::uint64_t samples_flagged = 0;        // sum of the event lengths
    std::uint64_t event_count = 0;
    std::uint64_t counted_event_count = 0;
    std::uint64_t minor_event_count = 0;
    std::uint64_t first_event_start = 0;      // reference frame
    std::uint64_t first_event_length = 0;     // samples
    std::uint64_t worst_event_start_frame = 0;  // reference frame of the reported worst event
    std::uint64_t worst_event_length = 0;
    bool worst_event_counted = false;
    double worst_event_global_severity = 0.0;  // its peak global ratio / k
    double worst_event_severity = 0.0;         // its peak local ratio / k
    double worst_event_deviation_ratio = 0.0;  // its peak local ratio
};

struct artifact_result {
    std::array<artifact_channel, 2> channels{};
    std::uint64_t channel_count = 0;  // the reference's channel count
    bool pass = true;                 // every examined channel passed
};

// Settings of one run of the check.
struct artifact_settings {
    std::int64_t window_samples = 64;  // W: W/2 neighbours each side (an odd W acts as W - 1)
    double k = 6.0;                    // a sample is an outlier above this local ratio
    std::int64_t min_run = 1;          // flagged samples in a row that make an event
    double noise_floor_db = -80.0;     // dBFS; pairs with both magnitudes below are excluded
    double min_severity = 4.0;         // an event counts above this severity
    std::int64_t min_silence_clip_run = 8;  // ... or with this many dropout/clip samples in a row
    double min_global_severity = 100.0;     // ... or above this whole-file severity
};

// Runs the check on up to two channels. An empty overlap or a working array that cannot
// be allocated fails the channel with zero figures. Working memory per channel: the
// differences (one double per frame), freed before the next channel; the whole-channel
// median and MAD come from rank bands holding at most an eighth of a double per frame
// (or, when a band misses, are selected in the differences, which are then computed
// again in frame order); and 2 x (W/2) + 1 doubles for the sorted window. Per-sample
// flags and ratios are produced and consumed in the same pass over the frames.
artifact_result check_artifacts(const wav_audio& ref, const wav_audio& dut, std::int64_t offset_frames,
                                const artifact_settings& settings);

}  // namespace veltrane
