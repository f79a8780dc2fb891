#pragma once
// Level fidelity: does the DUT reproduce the reference's sample amplitudes? For every
// aligned sample pair (reference frame i, DUT frame i + offset) the signed error is
// 20 log10(|DUT| / |reference|) in dB, each magnitude first raised to the noise floor
// (dBFS, as a linear amplitude 10^(dB/20)); pairs with both magnitudes strictly below the
// floor are left out. A channel passes when the 99th percentile of the absolute errors is
// within the tolerance (dB) and no run of consecutive out-of-tolerance samples lasts the
// minimum sustained run (ms) or longer.
#include <array>
#include <cstdint>

#include "audio/wav.h"

namespace veltrane {

struct level_fidelity_channel {
    bool pass = false;
    std::uint64_t samples_included = 0;  // pairs in the statistics
    std::uint64_t samples_excluded = 0;  // pairs with both magnitudes below the floor
    double median_db = 0.0;              // median signed error
    double mad_db = 0.0;                 // median absolute deviation from the median (unscaled), dB
    double p99_abs_db = 0.0;             // 99th percentile of |error|, dB
    bool has_samples = false;            // samples_included > 0
    std::uint32_t worst_sample = 0;      // reference frame of the largest |error| (earliest on ties)
    double worst_diff_db = 0.0;          // that error, signed: positive when the DUT is louder
    double worst_ref_amp = 0.0;          // |reference| there, normalised (full scale 1.0)
    double worst_dut_amp = 0.0;          // |DUT| there
    double longest_sustained_run_ms = 0.0;
    bool sustained_run_failed = false;
};

struct level_fidelity_result {
    std::array<level_fidelity_channel, 2> channels{};  // the first channel_count are meaningful
    std::uint64_t channel_count = 0;                   // the reference's channel count
    bool pass = true;                                  // every examined channel passed
};

// Runs the check on up to two channels. A channel whose working array cannot be
// allocated still reports its counts, worst point and run but fails with zero
// statistics. Working memory is one double per overlapping frame of one channel (the
// magnitude ratios, whose logarithm is taken only where it decides a figure), plus rank
// bands of at most an eighth of that for the median, MAD and p99, released before the
// next channel.
level_fidelity_result check_level_fidelity(const wav_audio& ref, const wav_audio& dut, std::int64_t offset_frames,
                                           double noise_floor_db, double p99_tolerance_db,
                                           double min_sustained_run_ms);

}  // namespace veltrane
