#include "dsp/true_peak.h"

#include <cmath>
#include <numbers>

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

double true_peak_abs_max(const std::array<double, true_peak_tap_count>& h, const double* x, std::size_t count) {
    double peak = 0.0;
    for (std::size_t m = 0; m < count; ++m) {
        // The four phases of one input index side by side, each summed over j in order.
        double acc[true_peak_phases] = {0.0, 0.0, 0.0, 0.0};
        for (std::size_t j = 0; j < true_peak_taps_per_phase; ++j) {
            const double v = x[static_cast<std::ptrdiff_t>(m) - static_cast<std::ptrdiff_t>(j)];
            for (std::size_t p = 0; p < true_peak_phases; ++p) acc[p] += h[4 * j + p] * v;
        }
        for (double a : acc) {
            const double v = std::fabs(a);
            peak = v > peak ? v : peak;  // a plain comparison: the maths library's fmax is a call
        }
    }
    return peak;
}

}  // namespace veltrane
