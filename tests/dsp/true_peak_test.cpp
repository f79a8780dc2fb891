// The 48-tap interpolation filter and the true-peak scan against the one-output-at-a-time
// sum.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "dsp/true_peak.h"
#include "support/loudness_literal.h"
#include "support/wav_bytes.h"

namespace veltrane {
namespace {

TEST(TruePeakFilter, SymmetricTapsSummingToFour) {
    const auto h = true_peak_filter();
    double sum = 0.0;
    for (double v : h) sum += v;
    EXPECT_NEAR(sum, 4.0, 1e-12);
    for (std::size_t k = 0; k < 24; ++k) EXPECT_NEAR(h[k], h[47 - k], 1e-15) << k;
    // The two centre taps (t = -0.5, +0.5) are the largest; the window ends are small.
    EXPECT_EQ(*std::max_element(h.begin(), h.end()), h[23]);
    EXPECT_LT(std::fabs(h[0]), 0.01);
}

TEST(TruePeak, ScanEqualsOneOutputAtATime) {
    // Noise, a click and a quiet tail (whose groups the bound skips once the click has
    // set the peak), scanned in pieces with the history carried like the meter does.
    std::vector<double> x = test::noise(3001, 1, 0.8, 5);
    x[1500] = 0.99;
    for (std::size_t i = 2000; i < x.size(); ++i) x[i] *= 0.1;
    const auto h = true_peak_filter();
    std::vector<double> padded(true_peak_history, 0.0);
    padded.insert(padded.end(), x.begin(), x.end());
    double fast = 0.0;
    for (std::size_t first = 0; first < x.size(); first += 1000) {
        const std::size_t len = std::min<std::size_t>(1000, x.size() - first);
        fast = true_peak_abs_max(h, padded.data() + true_peak_history + first, len, fast);
    }
    EXPECT_EQ(fast, test::true_peak_abs_max_literal(x.data(), 1, x.size()));
    EXPECT_EQ(true_peak_abs_max(h, padded.data() + true_peak_history, 0), 0.0);
    // A running peak above everything in the piece comes back unchanged.
    EXPECT_EQ(true_peak_abs_max(h, padded.data() + true_peak_history + 2000, 1000, 0.5), 0.5);
}

TEST(TruePeak, KnownAnswers) {
    const auto h = true_peak_filter();
    // A lone unit sample: each output is one tap, so the peak is the largest tap.
    std::vector<double> impulse(true_peak_history + 20, 0.0);
    impulse[true_peak_history] = 1.0;
    EXPECT_EQ(true_peak_abs_max(h, impulse.data() + true_peak_history, 20), h[23]);
    // A 12 kHz sine at 48 kHz whose crests fall midway between samples: every sample
    // reads 0.7071 (-3.01 dBFS) while the interpolated crest comes within a few tenths
    // of a dB of the real amplitude 1.0 (the nearest phase lies 1/8 sample from the
    // crest, cos(11.25 degrees) = -0.17 dB, plus the filter's ripple).
    std::vector<double> sine(true_peak_history + 4800, 0.0);
    for (std::size_t i = 0; i < 4800; ++i)
        sine[true_peak_history + i] = std::sin(std::numbers::pi / 2.0 * static_cast<double>(i) + std::numbers::pi / 4.0);
    const double tp = true_peak_abs_max(h, sine.data() + true_peak_history, 4800);
    EXPECT_NEAR(20.0 * std::log10(tp), 0.0, 0.5);
    EXPECT_GT(20.0 * std::log10(tp), 20.0 * std::log10(std::sqrt(0.5)) + 2.0);
}

}  // namespace
}  // namespace veltrane
