// The blockwise offset search against the full-length one it replaces: the same lag
// wherever the best correlation is clear of every other lag by more than 1e-9 of its
// value (else a lag from the tie; see noise_floor for correlations that are all 0), and
// the same confidence within 1e-9.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "align/align.h"
#include "audio/wav.h"
#include "support/full_correlation.h"

namespace veltrane {
namespace {

using signal = std::vector<double>;

constexpr double tie_margin = 1e-9;  // relative to the best correlation
// Where the true correlation is 0 at every searched lag (no common content within the
// range), both methods return rounding noise of order 1e-16 * log2(n) * |a| |b| and the
// "best" is just the largest noise value. Values within this much of |a| |b| of the best
// count as tied too; it is far above that noise and far below any printed figure.
constexpr double noise_floor = 1e-12;
constexpr double confidence_margin = 1e-9;

signal random_signal(std::uint64_t n, std::uint32_t seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> dist(-0.5, 0.5);
    signal s(n);
    for (double& v : s) v = dist(gen);
    return s;
}

signal tone(std::uint64_t n, double period) {
    signal s(n);
    for (std::uint64_t i = 0; i < n; ++i) s[i] = 0.7 * std::sin(6.283185307179586 * static_cast<double>(i) / period);
    return s;
}

signal square(std::uint64_t n, std::uint64_t period) {
    signal s(n);
    for (std::uint64_t i = 0; i < n; ++i) s[i] = (i % period) < period / 2 ? 0.5 : -0.5;
    return s;
}

// Isolated clicks of random height every 997 samples.
signal clicks(std::uint64_t n, std::uint32_t seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> dist(0.1, 1.0);
    signal s(n, 0.0);
    for (std::uint64_t i = 13 % std::max<std::uint64_t>(n, 1); i < n; i += 997) s[i] = dist(gen);
    return s;
}

signal one_sample(std::uint64_t n) {
    signal s(n, 0.0);
    if (n > 0) s[n / 3] = 0.25;
    return s;
}

// `s` delayed by `delay` samples (negative: advanced), cut to `n` samples.
signal delayed(const signal& s, std::int64_t delay, std::uint64_t n) {
    signal out(n, 0.0);
    for (std::uint64_t i = 0; i < n; ++i) {
        const std::int64_t src = static_cast<std::int64_t>(i) - delay;
        if (src >= 0 && src < static_cast<std::int64_t>(s.size())) out[i] = s[static_cast<std::size_t>(src)];
    }
    return out;
}

enum class kind { random, tone, square, clicks, one_sample, inverted, near_tie, unrelated };

const char* kind_name(kind k) {
    static const char* const names[] = {"random", "tone", "square", "clicks", "one_sample", "inverted", "near_tie", "unrelated"};
    return names[static_cast<int>(k)];
}

struct pair_case {
    kind k;
    std::uint64_t la, lb;
    std::int64_t delay;
    std::int64_t max_lag;
};

struct pair_signals {
    signal a, b;
    bool inverted = false;
};

pair_signals make_pair(const pair_case& c, std::uint32_t seed) {
    pair_signals p;
    const std::uint64_t n = std::max(c.la, c.lb) + static_cast<std::uint64_t>(std::abs(c.delay));
    signal source;
    switch (c.k) {
        case kind::random:
        case kind::inverted:
        case kind::near_tie:
        case kind::unrelated: source = random_signal(n, seed); break;
        case kind::tone: source = tone(n, 37.3); break;
        case kind::square: source = square(n, 64); break;
        case kind::clicks: source = clicks(n, seed); break;
        case kind::one_sample: source = one_sample(n); break;
    }
    p.a.assign(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(c.la));
    p.b = delayed(source, c.delay, c.lb);
    if (c.k == kind::inverted) {
        for (double& v : p.b) v = -v;
        p.inverted = true;
    }
    if (c.k == kind::near_tie) {
        // Two equally strong echoes: the correlation peaks at both delays with values
        // that differ only where the overlap ends.
        const signal echo = delayed(source, c.delay + 3, c.lb);
        for (std::size_t i = 0; i < p.b.size(); ++i) p.b[i] += echo[i];
    }
    if (c.k == kind::unrelated) p.b = random_signal(c.lb, seed + 1000);
    return p;
}

std::string describe(const pair_case& c) {
    return std::string(kind_name(c.k)) + " la=" + std::to_string(c.la) + " lb=" + std::to_string(c.lb) +
           " delay=" + std::to_string(c.delay) + " max_lag=" + std::to_string(c.max_lag);
}

std::vector<pair_case> equivalence_cases() {
    std::vector<pair_case> cases;
    const kind kinds[] = {kind::random, kind::tone,     kind::square,   kind::clicks,
                          kind::one_sample, kind::inverted, kind::near_tie, kind::unrelated};
    // Very short signals, every kind, with lag ranges from none to beyond both lengths.
    for (kind k : kinds)
        for (std::uint64_t la : {1u, 2u, 3u, 7u})
            for (std::uint64_t lb : {1u, 2u, 5u})
                for (std::int64_t max_lag : {0, 1, 3, 100})
                    cases.push_back({k, la, lb, static_cast<std::int64_t>(lb / 2), max_lag});
    // Medium lengths across block boundaries (a lag range of 50 gives 4096-point blocks
    // of 3995 DUT samples), delays inside and outside the range.
    for (kind k : kinds)
        for (std::int64_t delay : {-37, 0, 41, 200})
            for (std::int64_t max_lag : {0, 50, 5000, 1 << 20}) cases.push_back({k, 12289, 11003, delay, max_lag});
    // Unequal lengths: a DUT much longer than the reference and the other way round.
    for (kind k : {kind::random, kind::clicks, kind::tone})
        for (std::int64_t max_lag : {64, 3000}) {
            cases.push_back({k, 500, 40000, 17, max_lag});
            cases.push_back({k, 40000, 500, -17, max_lag});
        }
    // Long signals: many blocks at the default range of 48 kHz, and one range beyond both.
    for (kind k : {kind::tone, kind::inverted, kind::square}) cases.push_back({k, 1 << 17, (1 << 17) + 9, -77, 4800});
    for (kind k : {kind::random, kind::clicks}) cases.push_back({k, 1 << 20, 1 << 20, 123, 4800});
    cases.push_back({kind::random, 1 << 18, 1 << 18, 5, 1 << 20});
    return cases;
}

TEST(CrossCorrelate, BlockwiseMatchesFullLength) {
    std::uint32_t seed = 1;
    for (const pair_case& c : equivalence_cases()) {
        SCOPED_TRACE(describe(c));
        const pair_signals p = make_pair(c, seed++);
        const correlation_peak block = cross_correlate(p.a, p.b, c.max_lag, p.inverted);
        const correlation_peak full = cross_correlate_full_length(p.a, p.b, c.max_lag, p.inverted);

        // The best and the runner-up of the full-length values over the searched lags.
        const test::full_correlation every = test::correlate_every_lag(p.a, p.b);
        const double sign = p.inverted ? -1.0 : 1.0;
        const std::int64_t low = -std::min(static_cast<std::int64_t>(c.lb) - 1, c.max_lag);
        const std::int64_t high = std::min(static_cast<std::int64_t>(c.la) - 1, c.max_lag);
        double best = -1e300;
        for (std::int64_t m = low; m <= high; ++m) best = std::max(best, sign * every.at(m));
        double ea = 0.0, eb = 0.0;
        for (double v : p.a) ea += v * v;
        for (double v : p.b) eb += v * v;
        const double margin = std::max(tie_margin * std::abs(best), noise_floor * std::sqrt(ea * eb));
        std::int64_t tied = 0;
        for (std::int64_t m = low; m <= high; ++m) tied += sign * every.at(m) >= best - margin ? 1 : 0;

        ASSERT_EQ(sign * every.at(-full.lag), best);  // the reference scans what it computed
        if (tied == 1) {
            EXPECT_EQ(block.lag, full.lag);
        } else {
            EXPECT_GE(sign * every.at(-block.lag), best - margin) << "lag " << block.lag << " is not among the tied";
        }
        if (block.lag == full.lag) {
            EXPECT_NEAR(block.confidence, full.confidence, confidence_margin);
        }
    }
}

// align_channels searches both channels of a stereo pair side by side; each channel must
// come out bit for bit as cross_correlate gives it alone, also when the two channels line
// up at very different lags (so their overlaps differ) and when the DUT is shorter.
TEST(CrossCorrelate, StereoSideBySideEqualsOneChannelAlone) {
    struct stereo_case {
        std::int64_t left_delay, right_delay;
        std::uint64_t ref_frames, dut_frames;
    };
    for (const stereo_case& c : {stereo_case{5, -300, 20000, 20000}, stereo_case{-450, 450, 9000, 7001},
                                 stereo_case{0, 0, 70000, 65000}}) {
        const signal left = random_signal(c.ref_frames, 41), right = tone(c.ref_frames, 91.7);
        const signal dut_left = delayed(left, c.left_delay, c.dut_frames);
        const signal dut_right = delayed(right, c.right_delay, c.dut_frames);
        wav_audio ref, dut;
        for (wav_audio* w : {&ref, &dut}) {
            w->sample_rate = 48000;
            w->channels = 2;
            w->format_code = 320;
        }
        ref.frame_count = c.ref_frames;
        dut.frame_count = c.dut_frames;
        for (std::uint64_t i = 0; i < c.ref_frames; ++i) ref.samples.insert(ref.samples.end(), {left[i], right[i]});
        for (std::uint64_t i = 0; i < c.dut_frames; ++i)
            dut.samples.insert(dut.samples.end(), {dut_left[i], dut_right[i]});
        const align_result both = align_channels(ref, dut, 500, 0.9, 1000, -70.0);
        const correlation_peak alone[2] = {cross_correlate(left, dut_left, 500, false),
                                           cross_correlate(right, dut_right, 500, false)};
        for (int ch = 0; ch < 2; ++ch) {
            SCOPED_TRACE("channel " + std::to_string(ch) + ", delays " + std::to_string(c.left_delay) + " / " +
                         std::to_string(c.right_delay));
            EXPECT_EQ(both.channel[ch].offset, ch == 0 ? c.left_delay : c.right_delay);
            EXPECT_EQ(both.channel[ch].offset, alone[ch].lag);
            EXPECT_EQ(both.channel[ch].confidence, alone[ch].confidence);
        }
    }
}

TEST(CrossCorrelate, EmptyOrNegativeRangeGivesNothing) {
    const signal a = random_signal(100, 3);
    for (const correlation_peak& p : {cross_correlate(a, {}, 10, false), cross_correlate({}, a, 10, false),
                                      cross_correlate(a, a, -1, false), cross_correlate_full_length(a, a, -1, false)}) {
        EXPECT_EQ(p.lag, 0);
        EXPECT_EQ(p.confidence, 0.0);
    }
}

TEST(CrossCorrelate, BlockSizeAndMemory) {
    // 0.1 s at 192 kHz: 38401 lags. The transform and the half spectrum summed over blocks
    // (24 bytes per point, for each of the two channels searched side by side) stay far
    // under 64 MiB, however long the files.
    const std::uint64_t lags_192k = 2 * 19200 + 1;
    const std::uint64_t hour_192k = 3600ull * 192000;
    const std::uint64_t n = blockwise_fft_size(lags_192k, hour_192k);
    EXPECT_EQ(n, 262144u);
    EXPECT_LE(2 * n * 24, 64ull << 20);
    struct size_case {
        std::uint64_t lags, b_length, expected;
    };
    for (const size_case& c : {size_case{9601, 14400000, 65536},  // 0.1 s at 48 kHz
                               size_case{1, 14400000, 4096},      // max_lag 0: the smallest block
                               size_case{9601, 100, 16384},       // one block holds every DUT sample
                               size_case{1, 1, 1}})
        EXPECT_EQ(blockwise_fft_size(c.lags, c.b_length), c.expected) << c.lags << " lags, " << c.b_length;

    // The wide probe's buffers for an hour of stereo 48 kHz: two arrays of 2^29 points.
    EXPECT_EQ(full_length_correlation_bytes(172800000, 172800000), 16ull << 30);
    EXPECT_EQ(full_length_correlation_bytes(0, 5), 0u);
}

}  // namespace
}  // namespace veltrane
