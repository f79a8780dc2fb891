#pragma once
// Spectral comparison of one analysis frame: N samples of one channel taken at the same
// reference position from the reference and the DUT (the DUT frame starts offset frames
// later). Both Hann-windowed amplitude spectra are taken in dBFS (floor -200 dB, bin b
// at b * reference rate / N Hz); the frame is gated when its strongest reference bin does
// not clear the profile's level, peaks are marked, and every bin above the noise floor is
// judged: |DUT dB - reference dB| (both raised to the floor) divided by the tolerance of
// its band and level tier is the bin's ratio. Ratios above 1.00001 fail.
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "audio/wav.h"
#include "config/config_layer.h"
#include "config/run_config.h"
#include "dsp/amplitude.h"

namespace veltrane {

// A ratio above this fails. The margin of 1e-5 keeps a bin that sits exactly on its
// tolerance (ratio 1 up to rounding of the dB values) from failing.
inline constexpr double spectral_fail_ratio = 1.00001;

// One band row per bin b = 0 .. half-1 (bin frequency b * rate / n): the first row whose
// upper_freq_hz is at or above that frequency, the last row for anything above.
std::vector<std::uint8_t> build_bin_band_map(std::span<const spectral_band> bands, std::uint32_t rate_hz,
                                             std::uint64_t n);

struct spectral_frame_result {
    bool gated = false;               // too little signal: not judged
    std::uint64_t bins_compared = 0;  // bins judged (one ratio each)
    std::uint64_t bins_excluded = 0;  // both levels at or below the floor
    std::uint64_t bins_failed = 0;    // judged bins whose ratio exceeds spectral_fail_ratio
    std::int64_t worst_bin = -1;      // bin with the largest ratio; -1 when none
    double worst_ratio = -1.0;        // its ratio; -1 when none
    double worst_diff_db = 0.0;       // its level difference, DUT minus reference, dB (after flooring)
    bool worst_is_peak = false;
    bool peak_failed = false;         // a marked peak bin failed
};

// What stays the same for every frame of a scan: the frame size, the profile and its
// floors, the band table with its bin map, the sweep window, and the reused buffers.
struct spectral_frame_setup {
    std::uint64_t n = 0;  // frame length, a power of two
    spectral_profile_kind profile = spectral_profile_kind::freq_domain_multitone;
    std::optional<double> relative_floor_db;  // amp_sweep only: floor relative to the frame's peak, dB
    std::span<const spectral_band> bands;     // 1 to 5 rows
    std::span<const std::uint8_t> band_of_bin;        // n/2 entries
    std::optional<sweep_window_settings> sweep_window;  // peak search near the expected sweep frequency
    // The lowest noise floor or peak threshold of any band, dB. Levels below it only ever
    // end up floored, excluded or below every threshold, so their exact values are never
    // needed and the spectra skip them (see amplitude_spectrum_db_above).
    double lowest_threshold_db = -1e300;
};

// lowest_threshold_db for a band table.
double lowest_band_threshold_db(std::span<const spectral_band> bands);

// Work buffers of one scan, allocated once and reused by every frame.
struct spectral_frame_buffers {
    amplitude_workspace spectrum;
    std::vector<double> ref_db;          // n/2
    std::vector<double> dut_db;          // n/2
    std::vector<std::uint8_t> peak;      // n/2 flags
};

// False (buffers left empty) when memory is exhausted.
bool spectral_frame_buffers_init(spectral_frame_buffers& buf, std::uint64_t n);

// Compares the frame of `channel` starting at reference frame `first_frame` (DUT frame
// first_frame + offset; the caller guarantees both lie inside their files). Writes one
// ratio per judged bin at ratios_out (room for n/2 values) in bin order.
spectral_frame_result compare_spectral_frame(const wav_audio& ref, const wav_audio& dut, std::uint32_t channel,
                                             std::int64_t offset, std::uint64_t first_frame,
                                             const spectral_frame_setup& setup, spectral_frame_buffers& buf,
                                             double* ratios_out);

}  // namespace veltrane
