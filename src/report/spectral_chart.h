#pragma once
// The spectral chart: the magnitude spectra (dBFS, Hann window, floor -140 dB) of one
// FFT frame of the reference and optionally the DUT, as an inline SVG (viewBox 1000 x 320)
// with a logarithmic (20 Hz to Nyquist) or linear (0 Hz to Nyquist) frequency axis, a dB
// axis from -140 to +20 dB, the spectral check's level thresholds as dashed lines over
// shaded tiers, an optional fail marker at the worst bin, and a JSON data island that
// lets the page script redraw it on zoom. Used by the report's Spectral Fidelity card and
// by the plot page.
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "audio/wav.h"
#include "report/text_buf.h"

namespace veltrane {

struct spectral_chart_request {
    const wav_audio* ref = nullptr;
    const wav_audio* dut = nullptr;  // none: reference only
    std::int64_t offset = 0;         // DUT frame = reference frame + offset
    std::uint64_t n = 8192;          // frame length
    std::uint32_t channel = 0;
    double noise_floor_db = -100.0;
    std::optional<double> low_level_threshold_db;
    std::optional<double> peak_threshold_db;
    bool linear_axis = false;
    std::optional<std::uint64_t> frame_start;  // none: the frame centred in the overlap
    std::string_view id_suffix;
    std::optional<double> fail_freq_hz;  // fail marker: drawn with a DUT and both values
    std::optional<double> fail_db;
};

// Interpolated peak levels of the two spectra, set only when the chart was drawn.
struct spectral_chart_peaks {
    bool set = false;
    double ref_db = 0.0;
    double dut_db = 0.0;
};

// Appends the chart (or, when the overlap is shorter than N, a note) to `buf`. False on a
// failed append or when the spectra cannot be allocated.
bool spectral_chart(text_buf& buf, const spectral_chart_request& req, spectral_chart_peaks* peaks = nullptr);

// Level of the largest bin (the first of equals), corrected for the Hann window's
// scalloping loss of a tone between bins by the parabola-style estimate of its offset.
double spectrum_peak_level(std::span<const double> db);

// 1, 2, 5 or 10 times a power of ten: the nearest such value (round) or the smallest not
// below x (ceiling).
double nice_number(double x, bool round);

}  // namespace veltrane
