// The loudness meter against the public conformance signals of broadcast loudness meters,
// its stages (percentile, gates, range), the streamed measurement against the literal
// one, and the check's verdict.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "checks/loudness.h"
#include "support/loudness_literal.h"
#include "support/wav_bytes.h"
#include "support/audio_pair.h"

namespace veltrane {
namespace {

wav_audio make_audio(std::uint32_t rate, std::uint32_t channels, std::vector<double> samples) {
    return test::audio_from(std::move(samples), channels, rate, 320);
}

struct segment {
    double dbfs;
    double seconds;
};

// Stereo 1 kHz sine, the same on both channels, at the peak level of each segment in
// turn. The sine repeats every rate / gcd(rate, 1000) samples, so one period is computed
// and tiled.
wav_audio tone_segments(std::uint32_t rate, const std::vector<segment>& segments) {
    std::uint32_t period = rate;
    for (std::uint32_t d : {1000u, 500u, 200u, 100u, 50u, 20u, 10u, 5u, 2u, 1u})
        if (rate % d == 0 && 1000 % d == 0) {
            period = rate / d;
            break;
        }
    std::vector<double> cycle(period);
    for (std::uint32_t i = 0; i < period; ++i)
        cycle[i] = std::sin(2.0 * std::numbers::pi * 1000.0 * static_cast<double>(i) / rate);
    double total_sec = 0.0;
    for (const segment& s : segments) total_sec += s.seconds;
    std::vector<double> samples(2 * static_cast<std::size_t>(std::llround(total_sec * rate)));
    std::uint64_t frame = 0;
    double end_sec = 0.0;
    for (const segment& s : segments) {
        end_sec += s.seconds;
        const std::uint64_t end = static_cast<std::uint64_t>(std::llround(end_sec * rate));
        const double amp = std::pow(10.0, s.dbfs / 20.0);
        for (std::uint32_t phase = static_cast<std::uint32_t>(frame % period); frame < end; ++frame) {
            samples[2 * frame] = samples[2 * frame + 1] = amp * cycle[phase];
            if (++phase == period) phase = 0;
        }
    }
    return make_audio(rate, 2, std::move(samples));
}

struct conformance_case {
    const char* name;
    std::vector<segment> segments;
    bool range;       // judged on the loudness range, else on integrated loudness
    double expected;  // LUFS or LU
    double tolerance;
};

// The reference signals of loudness meter conformance. Integrated loudness: +-0.1 LU.
// Loudness range: +-1 LU. The 1.5 s of zeros added before the range series contribute
// blocks that fade from the last segment's level by up to 3 dB; they are few (17 of
// about 430) and sit at the low end only when the quieter segment comes last, above its
// 10th percentile, so the ranges still come out at the step sizes.
const std::vector<conformance_case>& conformance_cases() {
    static const std::vector<conformance_case> cases = {
        {"sine_-23", {{-23, 20}}, false, -23.0, 0.1},
        {"sine_-33", {{-33, 20}}, false, -33.0, 0.1},
        {"relative_gate", {{-36, 10}, {-23, 60}, {-36, 10}}, false, -23.0, 0.1},
        {"absolute_gate", {{-72, 10}, {-36, 10}, {-23, 60}, {-36, 10}, {-72, 10}}, false, -23.0, 0.1},
        {"louder_middle", {{-26, 20}, {-20, 20.1}, {-26, 20}}, false, -23.0, 0.1},
        {"range_10", {{-20, 20}, {-30, 20}}, true, 10.0, 1.0},
        {"range_5", {{-20, 20}, {-15, 20}}, true, 5.0, 1.0},
        {"range_20", {{-40, 20}, {-20, 20}}, true, 20.0, 1.0},
    };
    return cases;
}

TEST(LoudnessConformance, ReferenceSignalsAtThreeRates) {
    for (std::uint32_t rate : {44100u, 48000u, 96000u}) {
        for (const conformance_case& c : conformance_cases()) {
            const wav_audio a = tone_segments(rate, c.segments);
            const loudness_measurement m = measure_loudness(a, 2, 0, a.frame_count, rate);
            const double got = c.range ? m.lra_lu : m.integrated_lufs;
            EXPECT_NEAR(got, c.expected, c.tolerance) << c.name << " at " << rate << " Hz";
            if (!c.range) {
                // A steady sine is as loud over 400 ms and 3 s as it is integrated, so the
                // largest block loudness is the loudest segment's level; its peaks read that
                // level too (the true peak within a tenth of a dB).
                double loudest = -200.0;
                for (const segment& s : c.segments) loudest = std::max(loudest, s.dbfs);
                EXPECT_NEAR(m.max_momentary_lufs, loudest, 0.1) << c.name;
                EXPECT_NEAR(m.max_short_term_lufs, loudest, 0.1) << c.name;
                EXPECT_NEAR(m.sample_peak_dbfs, loudest, 0.01) << c.name;
                EXPECT_NEAR(m.true_peak_dbtp, loudest, 0.1) << c.name;
            }
        }
    }
}

TEST(Loudness, PercentileInterp) {
    const double v[] = {1.0, 2.0, 3.0, 4.0};
    EXPECT_DOUBLE_EQ(percentile_interp(v, 4, 10.0), 1.3);   // pos 0.3
    EXPECT_DOUBLE_EQ(percentile_interp(v, 4, 95.0), 3.85);  // pos 2.85
    EXPECT_EQ(percentile_interp(v, 4, 100.0), 4.0);
    EXPECT_EQ(percentile_interp(v + 2, 1, 95.0), 3.0);
}

TEST(Loudness, GatesOfIntegratedLoudness) {
    // Mono blocks: two at mean square 0.01 (-20.691 LUFS), one far below the relative gate,
    // one below the absolute gate. Absolute average 0.02/3 + tiny: the relative threshold
    // is about -32.5 LUFS, so only the two loud blocks count.
    block_series s;
    s.mean_square[0] = {0.01, 0.01, 1e-5, 1e-9};
    for (double ms : s.mean_square[0]) s.loudness.push_back(loudness_of_mean_square_sum(ms));
    EXPECT_NEAR(integrated_loudness(s, 1), 10.0 * std::log10(0.01) - 0.691, 1e-12);
    // Stereo sums the channels' averages, each channel weighing 1.
    block_series st;
    st.mean_square[0] = {0.01, 0.01};
    st.mean_square[1] = {0.01, 0.01};
    st.loudness = {loudness_of_mean_square_sum(0.02), loudness_of_mean_square_sum(0.02)};
    EXPECT_NEAR(integrated_loudness(st, 2), 10.0 * std::log10(0.02) - 0.691, 1e-12);
    // Everything below -70: nothing passes the absolute gate.
    block_series quiet;
    quiet.mean_square[0] = {1e-9};
    quiet.loudness = {loudness_of_mean_square_sum(1e-9)};
    EXPECT_EQ(integrated_loudness(quiet, 1), -200.0);
    EXPECT_EQ(integrated_loudness(block_series{}, 1), -200.0);
}

TEST(Loudness, RangeGates) {
    // The -75 block fails the absolute gate, the -50 block the relative one (energy mean
    // about -23 LUFS, threshold -43); of the rest, P95 - P10 of {-30, -20, -20, -20}.
    const double lra = loudness_range({-75.0, -50.0, -30.0, -20.0, -20.0, -20.0});
    EXPECT_NEAR(lra, (-20.0) - (-30.0 + 10.0 * 0.3), 1e-12);
    EXPECT_EQ(loudness_range({-80.0}), 0.0);
    EXPECT_EQ(loudness_range({}), 0.0);
    EXPECT_EQ(max_block_loudness({}), -200.0);
    EXPECT_EQ(amplitude_db(0.0), -200.0);
    EXPECT_DOUBLE_EQ(amplitude_db(0.1), -20.0);
}

TEST(Loudness, StreamedMeasurementEqualsTheLiteralOne) {
    // Silence, a quiet stretch and noise with a tone, so every gate and series has work;
    // stereo and mono, from an offset inside the file, at a rate whose block edges
    // round; and a stretch shorter than a short-term block.
    const std::uint32_t rate = 44100;
    std::vector<double> samples = test::noise(7 * rate, 2, 0.3, 9);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (i < 2 * rate) samples[i] = 0.0;
        else if (i < 4 * rate) samples[i] *= 0.001;
        samples[i] += 0.2 * std::sin(0.07 * static_cast<double>(i / 2));
    }
    const wav_audio a = make_audio(rate, 2, samples);
    struct {
        std::size_t channels;
        std::uint64_t first, n;
    } cases[] = {{2, 0, a.frame_count}, {2, 777, a.frame_count - 1000}, {1, 5, a.frame_count - 5}, {2, 1000, rate * 2}};
    for (const auto& c : cases) {
        const loudness_measurement fast = measure_loudness(a, c.channels, c.first, c.n, rate);
        const loudness_measurement literal = test::measure_loudness_literal(a, c.channels, c.first, c.n, rate);
        EXPECT_EQ(fast.integrated_lufs, literal.integrated_lufs) << c.first;
        EXPECT_EQ(fast.lra_lu, literal.lra_lu) << c.first;
        EXPECT_EQ(fast.true_peak_dbtp, literal.true_peak_dbtp) << c.first;
        EXPECT_EQ(fast.sample_peak_dbfs, literal.sample_peak_dbfs) << c.first;
        EXPECT_EQ(fast.max_momentary_lufs, literal.max_momentary_lufs) << c.first;
        EXPECT_EQ(fast.max_short_term_lufs, literal.max_short_term_lufs) << c.first;
    }
}

TEST(Loudness, ShortAndSilentInputs) {
    const std::uint32_t rate = 48000;
    // 0.3 s: no momentary block; 0.3 + 1.5 s is still shorter than a short-term block.
    wav_audio tiny = make_audio(rate, 1, test::sine(rate * 3 / 10, 1, 997.0, rate, 0.5));
    loudness_measurement m = measure_loudness(tiny, 1, 0, tiny.frame_count, rate);
    EXPECT_EQ(m.integrated_lufs, -200.0);
    EXPECT_EQ(m.max_momentary_lufs, -200.0);
    EXPECT_EQ(m.max_short_term_lufs, -200.0);
    EXPECT_EQ(m.lra_lu, 0.0);
    EXPECT_NEAR(m.sample_peak_dbfs, 20.0 * std::log10(0.5), 0.01);
    // 2 s: momentary blocks, no short-term block, but the range series reaches 3.5 s with
    // its extension (its blocks fade out, so the range is not 0).
    wav_audio two = make_audio(rate, 1, test::sine(2 * rate, 1, 997.0, rate, 0.5));
    m = measure_loudness(two, 1, 0, two.frame_count, rate);
    EXPECT_NEAR(m.integrated_lufs, 20.0 * std::log10(0.5) - 3.01, 0.1);  // mono: one channel's power
    EXPECT_EQ(m.max_short_term_lufs, -200.0);
    EXPECT_GT(m.lra_lu, 0.0);
    // Digital silence and an empty stretch.
    wav_audio silent = make_audio(rate, 2, std::vector<double>(2 * 5 * rate, 0.0));
    for (std::uint64_t n : {std::uint64_t{0}, silent.frame_count}) {
        m = measure_loudness(silent, 2, 0, n, rate);
        EXPECT_EQ(m.integrated_lufs, -200.0);
        EXPECT_EQ(m.true_peak_dbtp, -200.0);
        EXPECT_EQ(m.sample_peak_dbfs, -200.0);
        EXPECT_EQ(m.max_momentary_lufs, -200.0);
        EXPECT_EQ(m.max_short_term_lufs, -200.0);
        EXPECT_EQ(m.lra_lu, 0.0);
    }
}

// Stereo 997 Hz sine at -20 dBFS, 4 s, scaled by `gain_db`.
wav_audio tone(double gain_db, std::int64_t delay = 0) {
    const std::uint32_t rate = 48000;
    std::vector<double> s = test::sine(4 * rate, 2, 997.0, rate, 0.1 * std::pow(10.0, gain_db / 20.0));
    if (delay > 0) s.insert(s.begin(), static_cast<std::size_t>(2 * delay), 0.0);
    return make_audio(rate, 2, std::move(s));
}

TEST(CheckLoudness, Verdicts) {
    const wav_audio ref = tone(0.0);
    loudness_result same = check_loudness(ref, ref, 0, 0.5, 0.5, false, 0.0);
    EXPECT_TRUE(same.pass);
    EXPECT_NEAR(same.ref.integrated_lufs, -20.0, 0.1);  // both channels near -23 LUFS each
    EXPECT_EQ(same.delta_integrated_lu, 0.0);

    struct {
        double gain_db;
        double tolerance_tp;
        bool ceiling_set;
        double ceiling;
        bool pass;
    } cases[] = {
        {+0.6, 0.5, false, 0.0, false},  // louder: integrated (and true peak) out of tolerance
        {-0.6, 0.5, false, 0.0, false},  // quieter: the integrated difference is absolute
        {+0.4, 0.5, false, 0.0, true},
        {+0.4, 0.3, false, 0.0, false},  // true peak up 0.4 dB against a 0.3 dB tolerance
        {0.0, 0.5, true, -21.0, false},  // the DUT's -20 dBTP peak is above the ceiling
        {0.0, 0.5, true, -19.0, true},
    };
    for (const auto& c : cases) {
        const wav_audio dut = tone(c.gain_db);
        loudness_result r = check_loudness(ref, dut, 0, 0.5, c.tolerance_tp, c.ceiling_set, c.ceiling);
        EXPECT_EQ(r.pass, c.pass) << c.gain_db << " " << c.tolerance_tp << " " << c.ceiling;
        EXPECT_NEAR(r.delta_integrated_lu, c.gain_db, 0.01);
        EXPECT_NEAR(r.delta_true_peak_db, c.gain_db, 0.01);
        EXPECT_NEAR(r.delta_sample_peak_db, c.gain_db, 0.01);
        EXPECT_NEAR(r.delta_max_momentary_lu, c.gain_db, 0.01);
        EXPECT_NEAR(r.delta_max_short_term_lu, c.gain_db, 0.01);
        EXPECT_NEAR(r.delta_lra_lu, 0.0, 0.01);
    }
    // A quieter DUT's true peak never fails on its own.
    EXPECT_TRUE(check_loudness(ref, tone(-0.6), 0, 1.0, 0.5, false, 0.0).pass);
}

TEST(CheckLoudness, MeasuresTheAlignedOverlapOnly) {
    // A DUT 480 frames late with 480 frames of silence in front reads exactly as the
    // reference; silent files give zero differences and pass.
    const wav_audio ref = tone(0.0);
    const wav_audio dut = tone(0.0, 480);
    loudness_result r = check_loudness(ref, dut, 480, 0.5, 0.5, false, 0.0);
    EXPECT_EQ(r.delta_integrated_lu, 0.0);
    EXPECT_EQ(r.delta_true_peak_db, 0.0);
    EXPECT_EQ(r.delta_lra_lu, 0.0);
    const wav_audio silent = make_audio(48000, 2, std::vector<double>(2 * 48000, 0.0));
    r = check_loudness(silent, silent, 0, 0.5, 0.5, false, 0.0);
    EXPECT_TRUE(r.pass);
    EXPECT_EQ(r.ref.integrated_lufs, -200.0);
    EXPECT_EQ(r.delta_integrated_lu, 0.0);
}

}  // namespace
}  // namespace veltrane
