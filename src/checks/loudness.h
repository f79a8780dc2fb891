#pragma once
// The loudness check: integrated loudness (LUFS), loudness range (LU), true peak (dBTP),
// sample peak (dBFS) and the largest momentary (400 ms) and short-term (3 s) loudness
// (LUFS) of the reference and of the DUT over the same aligned stretch, measured through
// the K-weighting with gated 400 ms blocks as broadcast loudness meters do, and the
// differences DUT minus reference. The verdict rests on the integrated difference, the
// true-peak increase and an optional true-peak ceiling.
//
// Level conventions: -200.0 stands for "nothing to measure" (no block, digital silence);
// the loudness range is then 0.0 LU.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/wav.h"
#include "dsp/loudness_blocks.h"

namespace veltrane {

struct loudness_measurement {
    double integrated_lufs = no_level_db;      // gated integrated loudness
    double lra_lu = 0.0;                       // loudness range
    double true_peak_dbtp = no_level_db;       // largest 4x-oversampled magnitude, over channels
    double sample_peak_dbfs = no_level_db;     // largest |sample|, over channels
    double max_momentary_lufs = no_level_db;   // largest 400 ms block loudness
    double max_short_term_lufs = no_level_db;  // largest 3 s block loudness
};

struct loudness_result {
    loudness_measurement ref;
    loudness_measurement dut;
    // DUT minus reference.
    double delta_integrated_lu = 0.0;
    double delta_true_peak_db = 0.0;
    double delta_lra_lu = 0.0;
    double delta_max_momentary_lu = 0.0;
    double delta_max_short_term_lu = 0.0;
    double delta_sample_peak_db = 0.0;
    bool pass = true;
};

// Series geometry: momentary blocks of 0.4 s advancing 0.1 s, short-term blocks of 3 s
// advancing 0.09 s. The range series runs over the signal extended by 1.5 s of zeros so
// that the last 3 s block can reach the signal's end.
inline constexpr double momentary_block_sec = 0.4;
inline constexpr double momentary_overlap = 0.75;
inline constexpr double short_term_block_sec = 3.0;
inline constexpr double short_term_overlap = 0.97;
inline constexpr double range_extension_sec = 1.5;
// Gates: blocks below -70 LUFS never count; the relative gate of the integrated loudness
// lies 10 LU below the absolutely gated loudness, that of the range 20 LU below the
// energy mean of its blocks.
inline constexpr double absolute_gate_lufs = -70.0;
inline constexpr double integrated_relative_gate_lu = 10.0;
inline constexpr double range_relative_gate_lu = 20.0;

// Linearly interpolated percentile `percent` (0..100) of n >= 1 ascending values.
double percentile_interp(const double* sorted, std::size_t n, double percent);

// Gated integrated loudness over momentary blocks with per-channel mean squares.
double integrated_loudness(const block_series& momentary, std::size_t channel_count);

// Loudness range from the short-term block loudness of the zero-extended signal: the
// spread between the 10th and 95th percentile of the blocks that pass both gates.
double loudness_range(std::vector<double> block_loudness);

// Largest value of a list, -200.0 for an empty one.
double max_block_loudness(const std::vector<double>& block_loudness);

// 20 log10(amplitude), or -200.0 when it is 0.
double amplitude_db(double amplitude);

// Measures `frame_count` frames from `first_frame` of the first `channel_count` (1 or 2)
// channels of `audio` at `sample_rate_hz`. Each channel is K-weighted once, in pieces; the
// squared samples feed the momentary, short-term and range series together, and the raw
// samples feed the peaks. Working memory is a few hundred kilobytes plus the block lists.
// A figure whose working memory cannot be allocated keeps its "nothing to measure" value.
loudness_measurement measure_loudness(const wav_audio& audio, std::size_t channel_count, std::uint64_t first_frame,
                                      std::uint64_t frame_count, double sample_rate_hz);

// The check over the aligned overlap (reference frame i paired with DUT frame i + offset).
// Passes when the DUT's true peak exceeds the reference's by at most the tolerance (a
// lower DUT peak never fails), the DUT's true peak is within the ceiling when one is set,
// and the integrated loudness differs by at most its tolerance, each with a relative
// margin of 1e-5 against rounding.
loudness_result check_loudness(const wav_audio& ref, const wav_audio& dut, std::int64_t offset_frames,
                               double integrated_tolerance_lu, double true_peak_tolerance_db, bool ceiling_set,
                               double true_peak_ceiling_dbtp);

}  // namespace veltrane
