#pragma once
// True peak: the largest magnitude of a signal between its samples, estimated by 4x
// oversampling through a 48-tap interpolation filter (12 taps per phase). Values are
// normalised sample values (full scale 1.0); callers turn them into dBTP.
//
// For input index m and phase p (0..3) the interpolated value is
//   y = sum over j = 0..11 of h[p + 4j] * x[m - j]     (x before the first sample is 0)
// accumulated from 0.0 in ascending j, each product rounded before it is added. No value
// is produced past the last input sample.
#include <array>
#include <cstddef>

namespace veltrane {

inline constexpr std::size_t true_peak_phases = 4;
inline constexpr std::size_t true_peak_taps_per_phase = 12;
inline constexpr std::size_t true_peak_tap_count = true_peak_phases * true_peak_taps_per_phase;  // 48
// Input samples before m that an output at m reads.
inline constexpr std::size_t true_peak_history = true_peak_taps_per_phase - 1;  // 11

// h[k] = sin(pi/4 t) / (pi t) * (0.54 - 0.46 cos(2 pi k / 47)) with t = k - 23.5: a
// Hamming-windowed sinc whose cut-off is the input's Nyquist frequency at the 4x rate
// (pi/4 of the oversampled band), centred between taps 23 and 24 so t is never 0; then
// scaled so the 48 taps sum to 4.0 (unity gain per phase on average).
std::array<double, true_peak_tap_count> true_peak_filter();

// max(peak_so_far, largest |y| over m = 0..count-1 and all four phases) for the samples
// x[0..count-1]; x[-11..-1] must be readable and hold the samples before x[0] (zeros at the
// start of a signal). The result is exactly that of the one-at-a-time sums:
//   - sixteen outputs (four input indices, four phases) are computed side by side, each
//     summed over j in ascending order from 0.0;
//   - a group of four input indices whose outputs cannot exceed the running peak is
//     skipped: |y| <= sum_j |h[p + 4j]| * max |x[m - j]|, and that bound, raised by a
//     margin far above the rounding of a 12-term sum, is compared with the peak. Only
//     values that cannot change the maximum are left out.
double true_peak_abs_max(const std::array<double, true_peak_tap_count>& h, const double* x, std::size_t count,
                         double peak_so_far = 0.0);

}  // namespace veltrane
