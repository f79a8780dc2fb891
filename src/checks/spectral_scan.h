#pragma once
// Spectral fidelity: where the frames of the frame comparison are taken and how their
// ratios become a verdict. One centred frame, a continuous scan of the whole overlap
// (hop N x (1 - overlap fraction), sweep edges skipped), or snapshots at given or evenly
// spread times. The ratios of a channel (or of one snapshot) are pooled and reduced to
// their 50th, 95th and 99th percentiles; a channel fails when its p99 ratio exceeds
// 1.00001 or any peak bin failed. Frames are reference frame indices; the DUT frame is
// offset frames later. Frequencies in Hz, level differences in dB (DUT minus reference).
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "audio/wav.h"
#include "checks/spectral_frame.h"
#include "config/run_config.h"

namespace veltrane {

// What the spectral check takes from the run's settings.
struct spectral_settings {
    std::uint64_t fft_size = 8192;  // N
    spectral_profile_kind profile = spectral_profile_kind::freq_domain_multitone;
    std::optional<double> relative_floor_db;
    std::vector<spectral_band> bands;  // the configured table, or one row from the scalar keys
    bool continuous = false;
    double overlap_fraction = 0.0;
    std::optional<sweep_window_settings> sweep_window;
    std::int64_t edge_skip_samples = 0;  // samples skipped at each end when edge_skip_active
    bool edge_skip_active = false;
    // Snapshot mode: a count of evenly spread snapshots, or explicit centre times.
    bool snapshots = false;
    std::uint64_t snapshot_count = 0;
    std::vector<double> snapshot_times_sec;
};

// The band table of one row used when spectral_fidelity.bands is not configured: upper
// frequency 1e300 Hz (above every bin) and the scalar thresholds and tolerances.
spectral_band scalar_band(const run_config& cfg);

spectral_settings spectral_settings_from(const run_config& cfg);

struct spectral_channel_result {
    bool pass = true;
    bool frame_gated = false;           // every frame was gated
    bool insufficient_samples = false;  // the overlap is shorter than N: nothing judged
    std::uint64_t frames_scanned = 0;
    std::uint64_t edge_skipped_samples = 0;  // at each end (continuous mode)
    std::uint64_t frames_gated = 0;
    std::uint64_t bins_compared = 0;
    std::uint64_t bins_excluded = 0;
    std::uint64_t bins_failed = 0;
    double p50_ratio = 0.0;
    double p95_ratio = 0.0;
    double p99_ratio = 0.0;
    double worst_bin_freq_hz = 0.0;
    double worst_bin_ratio = 0.0;
    double worst_bin_diff_db = 0.0;
    bool worst_bin_is_peak = false;
    std::uint32_t worst_frame_start = 0;  // reference frame where the worst bin's frame starts
};

struct spectral_result {
    std::array<spectral_channel_result, 2> channels{};
    std::uint64_t channel_count = 0;
    bool pass = true;
};

struct spectral_snapshot_result {
    double time_sec = 0.0;              // centre of the frame used, seconds into the reference
    spectral_channel_result frame;      // one frame: frames_scanned 1, worst_frame_start = its first frame
};

inline constexpr std::size_t spectral_max_snapshots = 25;

struct spectral_snapshots_result {
    std::array<std::array<spectral_snapshot_result, spectral_max_snapshots>, 2> snapshots{};
    std::uint64_t snapshot_count = 0;
    std::uint64_t channel_count = 0;
    bool insufficient_samples = false;
    bool pass = true;
};

// The spectral check's record in either shape.
struct spectral_check_result {
    bool snapshot_mode = false;
    spectral_result scan;                  // without snapshots
    spectral_snapshots_result snapshots;   // in snapshot mode
    bool pass() const { return snapshot_mode ? snapshots.pass : scan.pass; }
};

// First frames of a continuous scan of [start, end) (start + skip onwards, hop apart,
// plus the end-aligned frame when edge skipping leaves a gap); `skip` is set to the
// samples skipped at each end. Empty when the overlap is shorter than N.
std::vector<std::uint64_t> continuous_frame_starts(std::int64_t start, std::int64_t end, std::uint64_t n,
                                                   double overlap_fraction, std::int64_t edge_skip,
                                                   bool edge_skip_active, std::uint64_t& skip);

// The one centred frame: max(start + covered/2 - N/2, start), pulled back to end - N.
std::uint64_t centred_frame_start(std::int64_t start, std::int64_t end, std::uint64_t n);

// Percentile p of values by selection: element llround(p x (count - 1)), capped, of the
// ascending order. Reorders `values`. Returns p50, p95, p99 (or the given fractions).
std::array<double, 3> pooled_percentiles(std::span<double> values, const std::array<double, 3>& fractions);

spectral_result scan_spectral(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                              const spectral_settings& settings);

spectral_snapshots_result scan_spectral_snapshots(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                                  const spectral_settings& settings);

// scan_spectral_snapshots in snapshot mode, scan_spectral otherwise.
spectral_check_result check_spectral(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                     const spectral_settings& settings);

}  // namespace veltrane
