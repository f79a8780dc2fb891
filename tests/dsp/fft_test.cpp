#include "dsp/fft.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "dsp/amplitude.h"
#include "support/allocation.h"
#include "support/reference_fft.h"

namespace veltrane {
namespace {

std::vector<complex_value> random_signal(std::size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> dist(-1.0, 1.0);
    std::vector<complex_value> x(n);
    for (auto& v : x) v = {dist(gen), dist(gen)};
    return x;
}

TEST(Fft, NextPow2) {
    EXPECT_EQ(next_pow2(0), 1u);
    EXPECT_EQ(next_pow2(1), 1u);
    EXPECT_EQ(next_pow2(2), 2u);
    EXPECT_EQ(next_pow2(3), 4u);
    EXPECT_EQ(next_pow2(1000), 1024u);
    EXPECT_EQ(next_pow2(1024), 1024u);
    EXPECT_EQ(next_pow2(1025), 2048u);
}

// The chunked twiddle sequence must reproduce the plain per-block recurrence exactly,
// across every pass shape of the reordered transform (short table stages, one to three
// stages per pass, tiled bit reversal).
TEST(Fft, BitIdenticalToThePlainLoop) {
    for (std::size_t bits = 1; bits <= 19; ++bits) {
        for (bool inverse : {false, true}) {
            std::vector<complex_value> fast = random_signal(std::size_t{1} << bits, static_cast<unsigned>(bits));
            std::vector<complex_value> plain = fast;
            fft_inplace(fast, inverse);
            test::reference_fft(plain, inverse);
            ASSERT_EQ(std::memcmp(fast.data(), plain.data(), fast.size() * sizeof(complex_value)), 0)
                << "n = 2^" << bits << (inverse ? " inverse" : " forward");
        }
    }
}

TEST(Fft, KnownTransforms) {
    std::vector<complex_value> impulse(64);
    impulse[0].re = 1.0;
    fft_inplace(impulse, false);
    for (const auto& v : impulse) {
        EXPECT_DOUBLE_EQ(v.re, 1.0);
        EXPECT_DOUBLE_EQ(v.im, 0.0);
    }
    std::vector<complex_value> constant(64, complex_value{1.0, 0.0});
    fft_inplace(constant, false);
    EXPECT_NEAR(constant[0].re, 64.0, 1e-12);
    for (std::size_t k = 1; k < constant.size(); ++k) EXPECT_NEAR(std::hypot(constant[k].re, constant[k].im), 0.0, 1e-12);
    // A complex exponential at bin 5 lands in bin 5 only (the forward kernel is e^{-i...}).
    std::vector<complex_value> tone(64);
    for (std::size_t m = 0; m < tone.size(); ++m)
        tone[m] = {std::cos(2 * M_PI * 5 * m / 64.0), std::sin(2 * M_PI * 5 * m / 64.0)};
    fft_inplace(tone, false);
    EXPECT_NEAR(tone[5].re, 64.0, 1e-9);
    EXPECT_NEAR(std::hypot(tone[59].re, tone[59].im), 0.0, 1e-9);
}

TEST(Fft, RoundTripReturnsTheInput) {
    const std::vector<complex_value> input = random_signal(4096, 99);
    std::vector<complex_value> x = input;
    fft_inplace(x, false);
    fft_inplace(x, true);
    for (std::size_t i = 0; i < x.size(); ++i) {
        EXPECT_NEAR(x[i].re, input[i].re, 1e-12);
        EXPECT_NEAR(x[i].im, input[i].im, 1e-12);
    }
    std::vector<complex_value> one{{3.0, -1.0}};
    fft_inplace(one, true);  // sizes below 2 are left alone
    EXPECT_EQ(one[0].re, 3.0);
}

wav_audio mono(std::vector<double> samples, std::uint32_t rate = 48000) {
    wav_audio a;
    a.sample_rate = rate;
    a.channels = 1;
    a.format_code = 320;
    a.frame_count = samples.size();
    a.samples = std::move(samples);
    return a;
}

TEST(Spectrum, FullScaleSineOnABinReadsZeroDb) {
    const std::uint64_t n = 8192;
    std::vector<double> x(n);
    for (std::uint64_t i = 0; i < n; ++i) x[i] = std::sin(2 * M_PI * 100.0 * static_cast<double>(i) / n);
    wav_audio a = mono(x);
    std::vector<double> db(n / 2), lin(n / 2);
    amplitude_spectrum(a, 0, 0, n, db, spectrum_form::db_check);
    amplitude_spectrum(a, 0, 0, n, lin, spectrum_form::linear);
    EXPECT_NEAR(db[100], 0.0, 0.01);
    EXPECT_NEAR(lin[100], 1.0, 0.001);
    EXPECT_LT(db[300], -100.0);
}

TEST(Spectrum, SilenceReadsTheFloorOfEachForm) {
    wav_audio a = mono(std::vector<double>(2048, 0.0));
    std::vector<double> check(512), chart(512);
    amplitude_spectrum(a, 0, 1024, 1024, check, spectrum_form::db_check);
    amplitude_spectrum(a, 0, 0, 1024, chart, spectrum_form::db_chart);
    for (double v : check) EXPECT_EQ(v, -200.0);
    for (double v : chart) EXPECT_EQ(v, -140.0);
}

TEST(Spectrum, WithoutItsWorkBufferEveryBinReadsNoLevel) {
    const std::uint64_t n = 4096;
    wav_audio a = mono(std::vector<double>(n, 0.5));
    std::vector<double> check(n / 2, 1.0), chart(n / 2, 1.0), lin(n / 2, 1.0);
    test::allocation_limit limit(n * sizeof(complex_value) - 1);
    amplitude_spectrum(a, 0, 0, n, check, spectrum_form::db_check);
    amplitude_spectrum(a, 0, 0, n, chart, spectrum_form::db_chart);
    amplitude_spectrum(a, 0, 0, n, lin, spectrum_form::linear);
    for (std::uint64_t k = 0; k < n / 2; ++k) {
        EXPECT_EQ(check[k], -200.0);
        EXPECT_EQ(chart[k], -140.0);
        EXPECT_EQ(lin[k], 0.0);
    }
}

TEST(Spectrum, ShiftedHannWindow) {
    EXPECT_GT(shifted_hann(0, 8), 0.0);
    EXPECT_NEAR(shifted_hann(6, 8), 0.0, 1e-15);  // w[n-2] is the window's far zero
    EXPECT_NEAR(shifted_hann(7, 8), 0.5 * (1 - std::cos(2 * M_PI * 8 / 7.0)), 1e-15);
}

}  // namespace
}  // namespace veltrane
