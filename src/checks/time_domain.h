#pragma once
// Time domain (the whole-file deep scan): every aligned sample pair (reference frame i,
// DUT frame i + offset) is compared as a percentage difference relative to the reference
// sample, against the tolerance (percent) of the pair's level tier, chosen from the larger
// magnitude m: low-level signal (m <= L), peak (m > P) or signal (between). Pairs with
// both magnitudes at or below the noise floor F are excluded; a single magnitude strictly
// below F is raised to F first. Levels F, L and P are given in dBFS and used as linear
// amplitudes 10^(dB/20). Any pair outside its tolerance fails the channel.
#include <array>
#include <cstdint>

#include "audio/wav.h"

namespace veltrane {

struct time_domain_channel {
    bool pass = false;
    std::uint64_t samples_included = 0;
    std::uint64_t samples_excluded = 0;  // both magnitudes at or below the floor
    std::uint64_t total_fails = 0;
    bool has_worst = false;              // total_fails > 0
    std::uint32_t worst_sample = 0;      // reference frame of the largest failing percentage (earliest on ties)
    double worst_diff_pct = 0.0;
    double worst_ref_amp = 0.0;          // signed sample values as read, not raised to the floor
    double worst_dut_amp = 0.0;
    double worst_tolerance_pct = 0.0;    // the tolerance of its tier
    std::uint64_t fails_low_level_signal_tier = 0;
    std::uint64_t fails_signal_tier = 0;
    std::uint64_t fails_peak_tier = 0;
};

struct time_domain_result {
    std::array<time_domain_channel, 2> channels{};
    std::uint64_t channel_count = 0;  // the reference's channel count
    bool pass = true;                 // every examined channel passed
};

// One pass over the overlap of up to two channels; allocates nothing. An empty overlap
// passes with zero figures.
time_domain_result check_time_domain(const wav_audio& ref, const wav_audio& dut, std::int64_t offset_frames,
                                     double noise_floor_db, double peak_threshold_db, double peak_tolerance_pct,
                                     double low_level_threshold_db, double low_level_tolerance_pct,
                                     double signal_tolerance_pct);

}  // namespace veltrane
