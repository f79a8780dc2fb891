#include "dsp/true_peak.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

#include "dsp/simd_lanes.h"

namespace veltrane {

std::array<double, true_peak_tap_count> true_peak_filter() {
    constexpr double pi = std::numbers::pi;
    std::array<double, true_peak_tap_count> h{};
    double sum = 0.0;
    for (std::size_t k = 0; k < true_peak_tap_count; ++k) {
        const double t = static_cast<double>(k) - 23.5;  // the filter's centre lies between taps 23 and 24
        h[k] = std::sin(pi / 4.0 * t) / (pi * t) * (0.54 - 0.46 * std::cos(2.0 * pi * static_cast<double>(k) / 47.0));
        sum += h[k];
    }
    const double scale = 4.0 / sum;  // four phases, each of about unity gain
    for (double& v : h) v *= scale;
    return h;
}

// Built twice, for the baseline instruction set and for AVX2 (four lanes per register),
// the better one chosen when the program starts; the lanes compute the same values.
__attribute__((target_clones("avx2", "default"))) double true_peak_abs_max(
    const std::array<double, true_peak_tap_count>& h, const double* x, std::size_t count, double peak_so_far) {
    // tap[p][j] holds h[p + 4j] in every lane; the lanes are four consecutive input indices.
    lanes4 tap[true_peak_phases][true_peak_taps_per_phase];
    double gain = 0.0;  // largest sum of |taps| over the phases
    for (std::size_t p = 0; p < true_peak_phases; ++p) {
        double phase_gain = 0.0;
        for (std::size_t j = 0; j < true_peak_taps_per_phase; ++j) {
            const double t = h[p + 4 * j];
            tap[p][j] = lanes4{t, t, t, t};
            phase_gain += std::fabs(t);
        }
        gain = std::max(gain, phase_gain);
    }
    // Margin on the bound: the rounding of the 12 products and 12 sums of an output, and of
    // the bound itself, is below 1e-14 relative; 1e-9 relative plus an absolute 1e-300 for
    // results near the underflow range leaves nothing to chance.
    const double bound_scale = gain * (1.0 + 1e-9);
    constexpr double bound_floor = 1e-300;
    constexpr std::size_t group = 8;  // input indices per step: two four-lane vectors
    double out = peak_so_far;
    std::size_t m = 0;
    for (; m + group <= count; m += group) {
        // Largest |x| the group's outputs read: x[m - 11] .. x[m + 7].
        const double* window = x + static_cast<std::ptrdiff_t>(m) - static_cast<std::ptrdiff_t>(true_peak_history);
        double w = 0.0;
        for (std::size_t k = 0; k < true_peak_history + group; ++k) {
            const double v = std::fabs(window[k]);
            w = v > w ? v : w;
        }
        if (w * bound_scale + bound_floor <= out) continue;

        // Thirty-two outputs side by side (eight input indices, four phases), every one
        // summed over j in ascending order from 0.0 like the one-at-a-time sum.
        lanes4 a[true_peak_phases], b[true_peak_phases];
        for (std::size_t p = 0; p < true_peak_phases; ++p) a[p] = b[p] = lanes4{0.0, 0.0, 0.0, 0.0};
        // Not unrolled: fully unrolled, the 48 taps no longer fit the registers and spill.
#pragma GCC unroll 1
        for (std::size_t j = 0; j < true_peak_taps_per_phase; ++j) {
            const double* xj = x + static_cast<std::ptrdiff_t>(m) - static_cast<std::ptrdiff_t>(j);
            lanes4 x0, x1;
            std::memcpy(&x0, xj, sizeof x0);  // x[m - j] .. x[m + 3 - j]
            std::memcpy(&x1, xj + 4, sizeof x1);
            for (std::size_t p = 0; p < true_peak_phases; ++p) {
                a[p] += tap[p][j] * x0;
                b[p] += tap[p][j] * x1;
            }
        }
        lanes4 peak = lanes4{out, out, out, out};
        for (std::size_t p = 0; p < true_peak_phases; ++p) {
            const lanes4 va = a[p] < 0.0 ? -a[p] : a[p];
            const lanes4 vb = b[p] < 0.0 ? -b[p] : b[p];
            peak = peak > va ? peak : va;
            peak = peak > vb ? peak : vb;
        }
        for (std::size_t l = 0; l < 4; ++l) out = peak[l] > out ? peak[l] : out;
    }
    for (; m < count; ++m) {
        for (std::size_t p = 0; p < true_peak_phases; ++p) {
            double y = 0.0;
            for (std::size_t j = 0; j < true_peak_taps_per_phase; ++j)
                y += h[p + 4 * j] * x[static_cast<std::ptrdiff_t>(m) - static_cast<std::ptrdiff_t>(j)];
            const double v = std::fabs(y);
            out = v > out ? v : out;
        }
    }
    return out;
}

}  // namespace veltrane
