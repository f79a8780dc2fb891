#pragma once
// The impulse-template check, for impulsive material (clicks, impulses, transients): from
// the reference it builds, sample by sample, an envelope of how large the DUT's magnitude
// may be, and counts every DUT sample above it. The envelope is the largest of
//   - a floor F everywhere, and the level P over the first and last G samples of each
//     processing frame (G = 5 ms of samples, truncated);
//   - ratio x the reference's own magnitude at that sample;
//   - around each transient of the reference (a run of samples above P): ratio x the
//     transient's peak (at most full scale) over the run widened by 2 samples each side,
//     and ratio x the largest reference magnitude within G samples before and after it
//     (at most full scale) over the G samples beyond that, allowing pre- and post-ringing.
// Magnitudes are normalised sample values (full scale 1.0); levels are given in dBFS.
#include <cstddef>
#include <cstdint>

#include "audio/wav.h"

namespace veltrane {

struct impulse_template_channel {
    bool pass = true;            // no DUT sample above the envelope
    std::uint64_t total_fails = 0;
    bool has_worst = false;
    std::uint32_t worst_sample = 0;  // reference frame index of the largest excess
    double worst_diff = 0.0;         // DUT magnitude minus envelope there (linear)
    double worst_ref_amp = 0.0;      // reference magnitude there
    double worst_dut_amp = 0.0;      // DUT magnitude there
    bool unjudged = false;  // the frame arrays could not be allocated: the channel fails unjudged
};

struct impulse_template_result {
    impulse_template_channel channels[2];
    std::uint64_t channel_count = 0;
    bool pass = true;  // all channels pass
};

inline constexpr double impulse_guard_sec = 0.005;          // G: 5 ms
inline constexpr std::uint64_t impulse_default_frame_size = 8192;  // used for frame sizes below 1

// G for a sample rate: rate x 0.005 truncated (240 at 48 kHz, 220 at 44.1 kHz).
std::uint64_t impulse_guard_samples(std::uint32_t sample_rate_hz);

struct impulse_envelope_levels {
    double floor = 0.0;           // F, linear
    double peak_threshold = 0.0;  // P, linear
    double ratio = 1.0;
    std::uint64_t guard = 0;      // G, samples
};

// Fills E[0..n-1] for one frame of reference magnitudes R[0..n-1].
void build_impulse_envelope(const double* R, std::size_t n, const impulse_envelope_levels& levels, double* E);

// Samples of D above E in one frame: their count and the first largest excess.
struct frame_excess {
    std::uint64_t count = 0;
    std::size_t worst_index = 0;
    double worst = 0.0;  // valid when count > 0
};
frame_excess find_excess(const double* D, const double* E, std::size_t n);

// The check over the aligned overlap (reference frame i paired with DUT frame i + offset),
// cut into frames of `frame_size` samples from the overlap's start.
impulse_template_result check_impulse_template(const wav_audio& ref, const wav_audio& dut, std::int64_t offset_frames,
                                               double peak_threshold_db, double ratio, double noise_floor_db,
                                               std::int64_t frame_size);

}  // namespace veltrane
