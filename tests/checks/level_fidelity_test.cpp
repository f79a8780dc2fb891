// Level fidelity: known answers for the error statistics, the noise floor, the sustained
// run, the tolerance slack and the degraded results without memory; and the selection
// helpers against a full sort.
#include "checks/level_fidelity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "checks/order_statistics.h"
#include "support/allocation.h"
#include "support/audio_pair.h"
#include "support/literal_level_fidelity.h"

namespace veltrane {
namespace {

using test::audio_from;

level_fidelity_channel run_mono(const std::vector<double>& ref, const std::vector<double>& dut, double tol = 1.02,
                                double run_ms = 20.0, double floor_db = -80.0, std::int64_t offset = 0) {
    level_fidelity_result r =
        check_level_fidelity(audio_from(ref), audio_from(dut), offset, floor_db, tol, run_ms);
    EXPECT_EQ(r.channel_count, 1u);
    EXPECT_EQ(r.pass, r.channels[0].pass);
    return r.channels[0];
}

std::vector<double> scaled(std::vector<double> v, double gain) {
    for (double& x : v) x *= gain;
    return v;
}

std::vector<double> tone(std::size_t n, double amplitude = 0.5) {
    std::vector<double> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = amplitude * std::sin(0.01 + 2.0 * M_PI * 997.0 * i / 48000.0);
    return v;
}

TEST(LevelFidelity, IdenticalFilesPassWithZeroFigures) {
    std::vector<double> s = tone(4800);
    s[0] = 0.0;  // below the floor: excluded, so the first included frame is 1
    level_fidelity_channel ch = run_mono(s, s);
    EXPECT_TRUE(ch.pass);
    EXPECT_GE(ch.samples_excluded, 1u);
    EXPECT_EQ(ch.samples_included + ch.samples_excluded, 4800u);
    EXPECT_EQ(ch.median_db, 0.0);
    EXPECT_EQ(ch.mad_db, 0.0);
    EXPECT_EQ(ch.p99_abs_db, 0.0);
    EXPECT_EQ(ch.longest_sustained_run_ms, 0.0);
    EXPECT_TRUE(ch.has_samples);
    EXPECT_EQ(ch.worst_sample, 1u);
    EXPECT_EQ(ch.worst_diff_db, 0.0);
}

TEST(LevelFidelity, ConstantGainErrors) {
    struct gain_case {
        double gain, tolerance;
        bool pass;
    };
    const gain_case cases[] = {{0.5, 1.02, false}, {std::pow(10.0, 0.5 / 20.0), 0.1, false},
                               {std::pow(10.0, 0.5 / 20.0), 1.02, true}, {1.0, 0.0, true}};
    for (const gain_case& gc : cases) {
        std::vector<double> ref = tone(9600, 0.25);
        level_fidelity_channel ch = run_mono(ref, scaled(ref, gc.gain), gc.tolerance);
        const double expected = 20.0 * std::log10(gc.gain);
        EXPECT_NEAR(ch.median_db, expected, 1e-9) << gc.gain;
        EXPECT_NEAR(ch.mad_db, 0.0, 1e-9) << gc.gain;
        EXPECT_NEAR(ch.p99_abs_db, std::fabs(expected), 1e-9) << gc.gain;
        EXPECT_EQ(ch.pass, gc.pass) << gc.gain;
        // Out of tolerance everywhere: the run spans every included sample.
        if (!gc.pass) {
            EXPECT_NEAR(ch.longest_sustained_run_ms, ch.samples_included / 48.0, 1e-9);
        }
    }
}

TEST(LevelFidelity, FloorRaisesSilentReference) {
    // Reference 0.0, DUT 0.001 (above the -80 dB floor of 1e-4): 20 log10(0.001 / 1e-4) = +20 dB.
    level_fidelity_channel ch = run_mono({0.5, 0.0, 0.5, 0.00001}, {0.5, 0.001, 0.5, 0.00002});
    EXPECT_EQ(ch.samples_included, 3u);
    EXPECT_EQ(ch.samples_excluded, 1u);
    EXPECT_EQ(ch.worst_sample, 1u);
    EXPECT_NEAR(ch.worst_diff_db, 20.0, 1e-9);
    EXPECT_EQ(ch.worst_ref_amp, 0.0);
    EXPECT_EQ(ch.worst_dut_amp, 0.001);
    EXPECT_EQ(ch.median_db, 0.0);
    // p99 index llround(2 x 0.99) = 2 of three absolute errors {0, 0, 20}.
    EXPECT_NEAR(ch.p99_abs_db, 20.0, 1e-9);
    EXPECT_FALSE(ch.pass);
}

TEST(LevelFidelity, SustainedRunAtTheTwentyMillisecondMark) {
    struct run_case {
        std::size_t bad, excluded_gap;  // out-of-tolerance samples, and a below-floor gap in their middle
        double run_ms_setting;
        bool pass;
        double expected_ms;
    };
    const run_case cases[] = {
        {960, 0, 20.0, false, 20.0},
        {959, 0, 20.0, true, 959 / 48.0},
        {959, 5, 20.0, true, 959 / 48.0},     // the gap neither breaks nor extends the run
        {960, 5, 20.0, false, 20.0},
        {960, 0, 0.0, true, 20.0},            // run test off: only the p99 decides
    };
    for (const run_case& rc : cases) {
        std::vector<double> ref = tone(480000 / 4, 0.5);
        std::vector<double> dut = ref;
        const std::size_t at = 10000;
        std::size_t placed = 0;
        for (std::size_t i = at; placed < rc.bad; ++i) {
            if (rc.excluded_gap && i >= at + 400 && i < at + 400 + rc.excluded_gap) {
                ref[i] = dut[i] = 0.0;
                continue;
            }
            if (std::fabs(ref[i]) < 0.01) ref[i] = 0.25;
            dut[i] = ref[i] * 2.0;  // +6 dB
            ++placed;
        }
        level_fidelity_channel ch = run_mono(ref, dut, 1.02, rc.run_ms_setting);
        EXPECT_NEAR(ch.longest_sustained_run_ms, rc.expected_ms, 1e-9) << rc.bad << "/" << rc.excluded_gap;
        EXPECT_EQ(ch.sustained_run_failed, !rc.pass) << rc.bad;
        EXPECT_EQ(ch.pass, rc.pass) << rc.bad << "/" << rc.excluded_gap;
        EXPECT_LT(ch.p99_abs_db, 1.02);
    }
}

TEST(LevelFidelity, ErrorEqualToTheToleranceIsWithinIt) {
    const double tol = 20.0 * std::log10(0.6 / 0.5);
    std::vector<double> ref(2000, 0.5), dut(2000, 0.6);
    level_fidelity_channel ch = run_mono(ref, dut, tol, 20.0);
    EXPECT_EQ(ch.p99_abs_db, tol);
    EXPECT_EQ(ch.longest_sustained_run_ms, 0.0);
    EXPECT_TRUE(ch.pass);
    // Just above the tolerance plus its 1e-5 relative slack: every sample is out.
    ch = run_mono(ref, dut, tol / (1.0 + 2e-5), 20.0);
    EXPECT_FALSE(ch.pass);
    EXPECT_NEAR(ch.longest_sustained_run_ms, 2000 / 48.0, 1e-9);
}

TEST(LevelFidelity, MediansOfEvenCountsAndTwoSamplePercentile) {
    // Errors +20 dB and 0 dB: median 10, MAD 10, p99 index llround(0.99) = 1 -> 20.
    level_fidelity_channel ch = run_mono({0.01, 0.5}, {0.1, 0.5}, 1.02, 0.0);
    EXPECT_NEAR(ch.median_db, 10.0, 1e-12);
    EXPECT_NEAR(ch.mad_db, 10.0, 1e-12);
    EXPECT_NEAR(ch.p99_abs_db, 20.0, 1e-12);
    EXPECT_EQ(ch.worst_sample, 0u);
}

TEST(LevelFidelity, EmptyOverlapStereoAndOffset) {
    level_fidelity_result r = check_level_fidelity(audio_from({0.5, 0.5}), audio_from({0.5}), 5, -80, 1.02, 20);
    EXPECT_TRUE(r.pass);
    EXPECT_TRUE(r.channels[0].pass);
    EXPECT_EQ(r.channels[0].samples_included + r.channels[0].samples_excluded, 0u);

    // Stereo, DUT delayed by 2 frames; the right channel is 6 dB low, the left exact.
    std::vector<double> ref = {0.5, 0.5, 0.25, 0.25, -0.5, -0.5}, dut = {0, 0, 0, 0};
    for (std::size_t i = 0; i < ref.size(); i += 2) {
        dut.push_back(ref[i]);
        dut.push_back(ref[i + 1] / 2);
    }
    r = check_level_fidelity(audio_from(ref, 2), audio_from(dut, 2), 2, -80, 1.02, 20);
    EXPECT_EQ(r.channel_count, 2u);
    EXPECT_TRUE(r.channels[0].pass);
    EXPECT_FALSE(r.channels[1].pass);
    EXPECT_FALSE(r.pass);
    EXPECT_NEAR(r.channels[1].median_db, -6.0206, 1e-4);
    EXPECT_EQ(r.channels[1].samples_included, 3u);
}

TEST(LevelFidelity, WithoutMemoryTheCountsRemainAndTheChannelFails) {
    wav_audio ref = audio_from(tone(20000)), dut = audio_from(scaled(tone(20000), 1.01));
    level_fidelity_result whole = check_level_fidelity(ref, dut, 0, -80, 1.02, 20);
    level_fidelity_result r;
    {
        test::allocation_limit limit(20000 * sizeof(double) - 1);
        r = check_level_fidelity(ref, dut, 0, -80, 1.02, 20);
    }
    const level_fidelity_channel& a = whole.channels[0];
    const level_fidelity_channel& b = r.channels[0];
    EXPECT_TRUE(a.pass);
    EXPECT_FALSE(b.pass);
    EXPECT_EQ(b.samples_included, a.samples_included);
    EXPECT_EQ(b.samples_excluded, a.samples_excluded);
    EXPECT_EQ(b.worst_sample, a.worst_sample);
    EXPECT_EQ(b.worst_diff_db, a.worst_diff_db);
    EXPECT_EQ(b.median_db, 0.0);
    EXPECT_EQ(b.p99_abs_db, 0.0);
}

void expect_same_as_literal(const wav_audio& r, const wav_audio& d, double floor_db, double tol, const char* name) {
    const level_fidelity_result fast = check_level_fidelity(r, d, 0, floor_db, tol, 0.1);
    const level_fidelity_result literal = test::literal_level_fidelity(r, d, 0, floor_db, tol, 0.1);
    for (std::uint32_t c = 0; c < r.channels; ++c) {
        SCOPED_TRACE(testing::Message() << name << " channel " << c);
        const level_fidelity_channel &a = fast.channels[c], &b = literal.channels[c];
        EXPECT_EQ(a.pass, b.pass);
        EXPECT_EQ(a.samples_included, b.samples_included);
        EXPECT_EQ(a.samples_excluded, b.samples_excluded);
        EXPECT_EQ(a.median_db, b.median_db);
        EXPECT_EQ(a.mad_db, b.mad_db);
        EXPECT_EQ(a.p99_abs_db, b.p99_abs_db);
        EXPECT_EQ(a.worst_sample, b.worst_sample);
        EXPECT_EQ(a.worst_diff_db, b.worst_diff_db);
        EXPECT_EQ(a.worst_ref_amp, b.worst_ref_amp);
        EXPECT_EQ(a.worst_dut_amp, b.worst_dut_amp);
        EXPECT_EQ(a.longest_sustained_run_ms, b.longest_sustained_run_ms);
    }
}

// Small files take the error-by-error route, long ones the ratio bands: both must give the
// literal figures bit for bit, on data made to sit on the bands' and guards' edges.
TEST(LevelFidelity, MatchesTheFullSortMethod) {
    std::mt19937 rng(5);
    const double tol = 20.0 * std::log10(0.6 / 0.5);  // some pairs land exactly on it
    using maker = void (*)(std::mt19937&, std::size_t, double&, double&);
    struct data_case {
        const char* name;
        maker make;
        double floor_db;
    };
    static std::uniform_real_distribution<double> uu(-1.0, 1.0);
    const data_case cases[] = {
        {"noisy gain, ties", [](std::mt19937& g, std::size_t i, double& r, double& d) {
             r = uu(g) * (i % 5 ? 0.5 : 1e-5);
             d = i % 3 ? r * (1.0 + 0.1 * uu(g)) : std::round(uu(g) * 4) / 8;
         }, -80.0},
        {"identical", [](std::mt19937& g, std::size_t, double& r, double& d) { r = d = uu(g); }, -80.0},
        {"half, 16-bit codes", [](std::mt19937& g, std::size_t, double& r, double& d) {
             r = std::round(uu(g) * 32767) / 32768;
             d = std::round(r * 16384) / 32768;
         }, -80.0},
        {"mostly identical", [](std::mt19937& g, std::size_t i, double& r, double& d) {
             r = uu(g);
             d = i % 5 < 3 ? r : r * (1.0 + 0.01 * uu(g));
         }, -80.0},
        {"on the tolerance", [](std::mt19937& g, std::size_t i, double& r, double& d) {
             r = 0.5 * (i % 2 ? 1 : -1);
             d = i % 7 ? 0.6 : 0.6 * (1.0 + 1e-12 * uu(g));
         }, -80.0},
        {"near-equal ratios", [](std::mt19937& g, std::size_t, double& r, double& d) {
             r = 0.25;
             d = std::nextafter(0.25 * 1.1, 1.0 + uu(g));
         }, -80.0},
        {"quiet, floor-raised", [](std::mt19937& g, std::size_t i, double& r, double& d) {
             r = uu(g) * 2e-4;
             d = i % 11 ? uu(g) * 2e-4 : 0.0;
         }, -80.0},
        {"tiny floor, zeros", [](std::mt19937& g, std::size_t i, double& r, double& d) {
             r = i % 9 ? uu(g) : 0.0;
             d = i % 13 ? uu(g) : 0.0;
         }, -4000.0},  // ratios of 1e200 and 1e-200 against the floor
        {"huge and tiny", [](std::mt19937& g, std::size_t i, double& r, double& d) {
             r = uu(g) * (i % 2 ? 1e30 : 1.0);
             d = uu(g) * (i % 3 ? 1e-30 : 1.0);
         }, -4000.0},
    };
    for (const data_case& dc : cases) {
        for (std::size_t n : {1u, 2u, 7u, 20001u, 70001u}) {
            std::vector<double> ref(2 * n), dut(2 * n);
            for (std::size_t i = 0; i < ref.size(); ++i) dc.make(rng, i, ref[i], dut[i]);
            const std::string name = std::string(dc.name) + " n=" + std::to_string(n);
            expect_same_as_literal(audio_from(ref, 2), audio_from(dut, 2), dc.floor_db, tol, name.c_str());
            // A rising ramp of ratios: the worst point moves on nearly every sample.
            if (n == 70001u) {
                for (std::size_t i = 0; i < n; ++i) dut[i] = ref[i] * (1.0 + 1e-6 * static_cast<double>(i));
                expect_same_as_literal(audio_from(ref), audio_from(dut), dc.floor_db, tol, (name + " ramp").c_str());
            }
        }
    }
}

TEST(OrderStatistics, SelectionMatchesAFullSort) {
    std::mt19937 rng(7);
    using fill_fn = double (*)(std::mt19937&, std::size_t);
    struct distribution {
        const char* name;
        fill_fn value;
    };
    static std::uniform_int_distribution<int> few(-3, 3);
    static std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const distribution distributions[] = {
        {"wide", [](std::mt19937& r, std::size_t) { return std::ldexp(double(r()), -20) - 2048.0; }},
        {"ties", [](std::mt19937& r, std::size_t) { return few(r) * 0.25; }},
        {"constant", [](std::mt19937&, std::size_t) { return 0.2; }},
        {"one exponent", [](std::mt19937& r, std::size_t) { return 0.125 + unit(r) * 0.01 + 0.01; }},
        {"huge and tiny", [](std::mt19937& r, std::size_t i) { return unit(r) * (i % 2 ? 1e300 : 1e-310); }},
        {"near-equal", [](std::mt19937& r, std::size_t) { return std::nextafter(1.0, 2.0 + few(r)); }},
        {"negative", [](std::mt19937& r, std::size_t) { return -0.5 - unit(r) * 1e-3; }},
        {"positive zeros and ones", [](std::mt19937& r, std::size_t) { return r() % 3 ? 0.0 : 1.0; }},
    };
    for (const distribution& dist : distributions) {
        for (std::size_t n : {1u, 2u, 3u, 4u, 101u, 4097u, 10000u, 65537u}) {
            std::vector<double> v(n);
            for (std::size_t i = 0; i < n; ++i) v[i] = dist.value(rng, i);
            std::vector<double> sorted = v;
            std::sort(sorted.begin(), sorted.end());
            double median = n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2.0;
            std::vector<double> w = v;
            EXPECT_EQ(median_by_selection(w.data(), n), median) << dist.name << " " << n;
            std::vector<double> a = w;  // the values are reordered, never changed
            std::sort(a.begin(), a.end());
            EXPECT_EQ(a, sorted) << dist.name;
            // Deviations about the median, and magnitudes, selected without a second array.
            std::vector<double> dev(n), mag(n);
            for (std::size_t i = 0; i < n; ++i) {
                dev[i] = std::fabs(v[i] - median);
                mag[i] = std::fabs(v[i]);
            }
            std::sort(dev.begin(), dev.end());
            std::sort(mag.begin(), mag.end());
            w = v;
            EXPECT_EQ(median_deviation_by_selection(w.data(), n, median),
                      n % 2 ? dev[n / 2] : (dev[n / 2 - 1] + dev[n / 2]) / 2.0)
                << dist.name << " " << n;
            for (double p : {0.0, 0.5, 0.99, 1.0}) {
                w = v;
                std::size_t k = std::min<std::size_t>(static_cast<std::size_t>(std::llround((n - 1) * p)), n - 1);
                EXPECT_EQ(magnitude_percentile_by_selection(w.data(), n, p), mag[k]) << dist.name << " " << n;
            }
            for (double p : {0.0, 0.5, 0.99, 1.0}) {
                w = v;
                std::size_t k = std::min<std::size_t>(static_cast<std::size_t>(std::llround((n - 1) * p)), n - 1);
                EXPECT_EQ(percentile_by_selection(w.data(), n, p), sorted[k]) << dist.name << " " << n << " " << p;
            }
        }
    }
    EXPECT_EQ(median_by_selection(nullptr, 0), 0.0);
}

}  // namespace
}  // namespace veltrane
