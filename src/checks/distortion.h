#pragma once
// Distortion as THD+N: in each analysis frame of N samples the fundamental is the
// strongest bin of the reference's Hann-windowed linear amplitude spectrum (full scale
// 1.0); the bins within the notch around it are the fundamental. Over every other bin the
// power by which the DUT exceeds the reference is summed, and the frame's THD+N ratio is
// sqrt(excess power / DUT fundamental power) (0.01 = 1 % = -40 dB). The worst frame
// decides the verdict. Frames are reference frame indices; the DUT frame is offset later.
#include <array>
#include <cstdint>

#include "audio/wav.h"
#include "config/run_config.h"

namespace veltrane {

struct distortion_settings {
    std::uint64_t fft_size = 8192;       // N, shared with the spectral check
    double noise_floor_db = -100.0;      // dBFS: a frame whose strongest reference bin is not above is gated
    std::int64_t notch_bins = 20;        // bins on each side of the fundamental that belong to it
    double tolerance_ratio = 0.01;       // largest acceptable THD+N ratio
    bool continuous = false;
    double overlap_fraction = 0.0;
};

distortion_settings distortion_settings_from(const run_config& cfg);

struct distortion_channel {
    bool pass = true;
    bool frame_gated = false;           // every frame was gated
    bool insufficient_samples = false;  // the overlap is shorter than N
    std::uint64_t frames_scanned = 0;
    std::uint64_t frames_gated = 0;
    std::uint64_t worst_frame_start = 0;  // reference first frame of the frame with the largest ratio
    double fundamental_freq_hz = 0.0;     // that frame's fundamental, Hz
    double thdn_ratio = 0.0;              // the largest ratio
    double thdn_db = 0.0;                 // 20 log10 of it; -200 when it is 0
    double p50_thdn_ratio = 0.0;
    double p95_thdn_ratio = 0.0;
};

struct distortion_result {
    std::array<distortion_channel, 2> channels{};
    std::uint64_t channel_count = 0;
    bool pass = true;
};

distortion_result check_distortion(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                   const distortion_settings& settings);

}  // namespace veltrane
