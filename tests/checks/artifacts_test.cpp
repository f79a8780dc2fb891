// Artifact detection: known answers for clicks, dropouts, clipping, minimum runs,
// severity thresholds and the noise floor; and the sliding-window version against the
// literal sort-every-neighbourhood method on random and adversarial data.
#include "checks/artifacts.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "support/allocation.h"
#include "support/audio_pair.h"
#include "support/literal_artifacts.h"

namespace veltrane {
namespace {

using test::audio_from;

std::vector<double> tone(std::size_t n, double amplitude = 0.5) {
    std::vector<double> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = amplitude * std::sin(0.3 + 2.0 * M_PI * 441.0 * i / 48000.0);
    return v;
}

// Low-level noise on the DUT so that neighbourhoods have a real spread.
std::vector<double> with_noise(std::vector<double> v, double amplitude, std::uint32_t seed = 3) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-amplitude, amplitude);
    for (double& x : v) x += u(rng);
    return v;
}

artifact_channel run_mono(const std::vector<double>& ref, const std::vector<double>& dut, artifact_settings set = {},
                          std::uint32_t dut_format = 24) {
    artifact_result r = check_artifacts(audio_from(ref), audio_from(dut, 1, 48000, dut_format), 0, set);
    EXPECT_EQ(r.pass, r.channels[0].pass);
    return r.channels[0];
}

bool same_channel(const artifact_channel& a, const artifact_channel& b) {
    return a.pass == b.pass && a.samples_checked == b.samples_checked && a.samples_excluded == b.samples_excluded &&
           a.samples_flagged == b.samples_flagged && a.event_count == b.event_count &&
           a.counted_event_count == b.counted_event_count && a.minor_event_count == b.minor_event_count &&
           a.first_event_start == b.first_event_start && a.first_event_length == b.first_event_length &&
           a.worst_event_start_frame == b.worst_event_start_frame && a.worst_event_length == b.worst_event_length &&
           a.worst_event_counted == b.worst_event_counted &&
           std::memcmp(&a.worst_event_global_severity, &b.worst_event_global_severity, sizeof(double)) == 0 &&
           std::memcmp(&a.worst_event_severity, &b.worst_event_severity, sizeof(double)) == 0 &&
           std::memcmp(&a.worst_event_deviation_ratio, &b.worst_event_deviation_ratio, sizeof(double)) == 0;
}

TEST(Artifacts, IdenticalFilesPassWithoutEvents) {
    std::vector<double> s = tone(9600);
    artifact_channel ch = run_mono(s, s);
    EXPECT_TRUE(ch.pass);
    EXPECT_EQ(ch.samples_checked, 9600u);
    EXPECT_EQ(ch.event_count, 0u);
    EXPECT_EQ(ch.samples_flagged, 0u);
    EXPECT_EQ(ch.worst_event_deviation_ratio, 0.0);
}

TEST(Artifacts, KnownDefects) {
    struct defect_case {
        const char* name;
        void (*apply)(std::vector<double>& ref, std::vector<double>& dut);
        artifact_settings set;
        std::uint32_t dut_format;
        std::uint64_t events, counted, flagged, worst_start, worst_length;
    };
    const defect_case cases[] = {
        {"single-sample click", [](auto&, auto& d) { d[5000] += 0.3; }, {}, 24, 1, 1, 1, 5000, 1},
        {"ten-sample dropout", [](auto& r, auto& d) { for (int i = 0; i < 10; ++i) { r[3000 + i] = 0.4; d[3000 + i] = 0.0; } },
         {}, 24, 1, 1, 10, 3000, 10},
        {"seven-sample dropout is minor",
         [](auto& r, auto& d) { for (int i = 0; i < 7; ++i) { r[3000 + i] = 0.4; d[3000 + i] = 0.0; } },
         {.min_severity = 1e30, .min_global_severity = 1e30}, 24, 1, 0, 7, 3000, 7},
        {"integer clip", [](auto& r, auto& d) { for (int i = 0; i < 12; ++i) { r[7000 + i] = 0.998; d[7000 + i] = 0.999; } },
         {.min_severity = 1e30, .min_global_severity = 1e30}, 24, 1, 1, 12, 7000, 12},
        {"float full scale against full scale is no clip",
         [](auto& r, auto& d) { for (int i = 0; i < 12; ++i) r[7000 + i] = d[7000 + i] = 1.0; }, {}, 320, 0, 0, 0, 0, 0},
        {"two flagged in a row under min_run 3", [](auto&, auto& d) { d[4000] += 0.3; d[4001] -= 0.3; },
         {.min_run = 3}, 24, 0, 0, 0, 0, 0},
        {"below the floor nothing is flagged",
         [](auto& r, auto& d) { for (int i = 0; i < 50; ++i) { r[2000 + i] = 0.0; d[2000 + i] = i % 2 ? 5e-5 : 0.0; } },
         {}, 24, 0, 0, 0, 0, 0},
    };
    for (const defect_case& dc : cases) {
        std::vector<double> ref = tone(9600), dut = ref;
        dc.apply(ref, dut);
        artifact_channel ch = run_mono(ref, dut, dc.set, dc.dut_format);
        EXPECT_EQ(ch.event_count, dc.events) << dc.name;
        EXPECT_EQ(ch.counted_event_count, dc.counted) << dc.name;
        EXPECT_EQ(ch.minor_event_count, dc.events - dc.counted) << dc.name;
        EXPECT_EQ(ch.samples_flagged, dc.flagged) << dc.name;
        EXPECT_EQ(ch.worst_event_start_frame, dc.worst_start) << dc.name;
        EXPECT_EQ(ch.worst_event_length, dc.worst_length) << dc.name;
        EXPECT_EQ(ch.pass, dc.counted == 0) << dc.name;
        EXPECT_EQ(ch.worst_event_counted, dc.counted > 0) << dc.name;
        if (dc.events) {
            EXPECT_EQ(ch.first_event_start, dc.worst_start) << dc.name;
        }
    }
}

TEST(Artifacts, ClickSeverityAndFloorCounts) {
    std::vector<double> ref = tone(9600), dut = ref;
    for (int i = 0; i < 100; ++i) ref[100 + i] = dut[100 + i] = 0.0;
    dut[5000] += 0.3;
    artifact_channel ch = run_mono(ref, dut);
    EXPECT_GE(ch.samples_excluded, 100u);
    // The neighbourhood of an otherwise identical signal is flat: the MAD clamps to 1e-12.
    EXPECT_NEAR(ch.worst_event_deviation_ratio, 0.3 / 1.4826e-12, 0.3 / 1.4826e-12 * 1e-9);
    EXPECT_DOUBLE_EQ(ch.worst_event_severity, ch.worst_event_deviation_ratio / 6.0);
    EXPECT_TRUE(ch.worst_event_counted);
}

TEST(Artifacts, SeverityThresholdIsStrict) {
    // A click on noise: set min_severity to the measured severity exactly, and the event
    // becomes minor; a hair below, counted.
    std::vector<double> ref = tone(9600), dut = with_noise(ref, 1e-3);
    dut[6000] += 0.05;
    artifact_settings set;
    set.min_global_severity = 1e9;
    artifact_channel measured = run_mono(ref, dut, set);
    ASSERT_GE(measured.event_count, 1u);
    set.min_severity = measured.worst_event_severity;
    // max_ratio > k x min_severity with max_ratio / k == min_severity: equal or one ulp
    // apart; the rule is strict, so pick the product exactly.
    set.min_severity = measured.worst_event_deviation_ratio / set.k;
    while (set.k * set.min_severity < measured.worst_event_deviation_ratio)
        set.min_severity = std::nextafter(set.min_severity, 1e300);
    artifact_channel at = run_mono(ref, dut, set);
    EXPECT_EQ(at.counted_event_count, 0u);
    set.min_severity = std::nextafter(set.min_severity, 0.0);
    while (set.k * set.min_severity >= measured.worst_event_deviation_ratio)
        set.min_severity = std::nextafter(set.min_severity, 0.0);
    artifact_channel below = run_mono(ref, dut, set);
    EXPECT_GE(below.counted_event_count, 1u);
}

TEST(Artifacts, EmptyOverlapAndMissingMemoryFail) {
    artifact_result r = check_artifacts(audio_from({0.1, 0.2}), audio_from({0.1}), 4, {});
    EXPECT_FALSE(r.pass);
    EXPECT_EQ(r.channels[0].samples_checked, 0u);
    wav_audio ref = audio_from(tone(20000)), dut = ref;
    {
        test::allocation_limit limit(20000 * sizeof(double) - 1);
        r = check_artifacts(ref, dut, 0, {});
    }
    EXPECT_FALSE(r.pass);
    EXPECT_EQ(r.channels[0].samples_checked, 0u);
}

// Random and adversarial inputs, each run through both methods with several settings.
TEST(Artifacts, SlidingWindowMatchesTheLiteralMethod) {
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::uniform_int_distribution<int> level(-2, 2);
    struct input_case {
        const char* name;
        std::vector<double> ref, dut;
        std::uint32_t channels = 1, dut_format = 24;
    };
    std::vector<input_case> inputs;
    {
        std::vector<double> r = tone(3000), d = with_noise(r, 1e-3);
        for (int i = 0; i < 30; ++i) d[rng() % d.size()] += u(rng) * 0.2;
        inputs.push_back({"noise with clicks", r, d});
    }
    {
        std::vector<double> r(2000), d(2000);
        for (std::size_t i = 0; i < r.size(); ++i) {
            r[i] = level(rng) * 0.125;
            d[i] = r[i] + level(rng) * 0.125 * (i % 7 == 0);  // many ties among the differences
        }
        inputs.push_back({"ties", r, d});
    }
    {
        std::vector<double> r(1500, 0.25), d(1500, 0.25);
        for (std::size_t i = 500; i < 520; ++i) d[i] = 0.0;
        for (std::size_t i = 900; i < 1000; ++i) d[i] = 0.5;
        inputs.push_back({"constant runs", r, d});
    }
    {
        std::vector<double> r(1200), d(1200);
        for (std::size_t i = 0; i < r.size(); ++i) {
            r[i] = (i % 3 == 0) ? -0.0 : 0.0;
            d[i] = (i % 5 == 0) ? -0.0 : (i % 11 == 0 ? 1e-3 : 0.0);
        }
        inputs.push_back({"signed zeros", r, d, 1, 320});
    }
    {
        std::vector<double> r(1000), d(1000);
        for (std::size_t i = 0; i < r.size(); ++i) {
            r[i] = u(rng) * (i % 2 ? 1e300 : 1e-300);
            d[i] = r[i] + u(rng) * (i % 3 ? 1e-310 : 1e299);
        }
        inputs.push_back({"huge and tiny", r, d, 1, 320});
    }
    {
        std::vector<double> r(4000), d(4000);
        for (std::size_t i = 0; i < r.size(); ++i) {
            r[i] = u(rng) * 0.9;
            d[i] = i % 97 == 0 ? 1.0 : r[i] + u(rng) * 1e-4;
        }
        inputs.push_back({"stereo with clipping", r, d, 2, 24});
    }
    {
        // Long enough for the whole-channel median and MAD to be taken by rank bands:
        // noisy, tied (three difference values) and identical (one).
        std::vector<double> r(70000), d(70000), t(70000);
        for (std::size_t i = 0; i < r.size(); ++i) {
            r[i] = u(rng) * 0.5;
            d[i] = r[i] + u(rng) * 1e-3 + (i % 4001 == 0 ? 0.3 : 0.0);
            t[i] = r[i] + level(rng) % 2 * 0.125;
        }
        inputs.push_back({"long noisy", r, d});
        inputs.push_back({"long ties", r, t});
        inputs.push_back({"long identical", r, r});
    }
    inputs.push_back({"three frames", {0.1, -0.2, 0.3}, {0.1, 0.5, 0.3}});
    inputs.push_back({"one frame", {0.1}, {0.7}});

    const std::int64_t windows[] = {64, 63, 1, 2, 3, 7, 2500};
    std::uint64_t counted = 0, minor = 0;
    for (const input_case& in : inputs) {
        wav_audio ref = audio_from(in.ref, in.channels, 48000, in.dut_format);
        wav_audio dut = audio_from(in.dut, in.channels, 48000, in.dut_format);
        for (std::int64_t w : windows) {
            if (w > 64 && in.ref.size() > 1500) continue;  // W above the overlap: on the short inputs
            if (w != 64 && in.ref.size() > 10000) continue;  // the long inputs: default W only
            for (std::int64_t offset : {0, 3}) {
                if (offset && w != 64 && w != 63) continue;
                artifact_settings set;
                set.window_samples = w;
                set.min_run = w % 2 ? 1 : 2;
                // Small k puts many samples near the threshold, where the ratio bound and
                // the exact ratio must agree on the flag.
                set.k = w == 7 ? 0.0 : w == 63 ? 1.5 : w == 2 ? 3.0 : w > 64 ? 1.0 : 6.0;
                artifact_result fast = check_artifacts(ref, dut, offset, set);
                artifact_result literal = test::literal_check_artifacts(ref, dut, offset, set);
                EXPECT_EQ(fast.pass, literal.pass) << in.name << " W=" << w;
                for (std::uint32_t c = 0; c < in.channels; ++c) {
                    EXPECT_TRUE(same_channel(fast.channels[c], literal.channels[c]))
                        << in.name << " W=" << w << " offset=" << offset << " channel " << c;
                    counted += fast.channels[c].counted_event_count;
                    minor += fast.channels[c].minor_event_count;
                }
            }
        }
    }
    // The comparison covered both kinds of event.
    EXPECT_GT(counted, 0u);
    EXPECT_GT(minor, 0u);
}

}  // namespace
}  // namespace veltrane
