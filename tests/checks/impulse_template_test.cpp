// The impulse template: guard length, the envelope of one frame, the excess search, and
// the check on clicks with and without smearing.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "checks/impulse_template.h"
#include "support/audio_pair.h"

namespace veltrane {
namespace {

TEST(ImpulseTemplate, GuardIsFiveMillisecondsTruncated) {
    EXPECT_EQ(impulse_guard_samples(48000), 240u);
    EXPECT_EQ(impulse_guard_samples(44100), 220u);
    EXPECT_EQ(impulse_guard_samples(22050), 110u);
    EXPECT_EQ(impulse_guard_samples(192000), 960u);
}

TEST(ImpulseTemplate, EnvelopeOfOneFrame) {
    // F 0.1, P 0.5, ratio 1.25, G 2. A transient at 8..9 (peak 1.0) decaying to 0.2 at 12:
    // edges at P, the core 6..11 at min(1, 1.25 x 1.0), its own sample 9 at 1.25 x 1.0,
    // the side zones 4..5 and 12..13 at 1.25 x 0.2 (the largest magnitude within G of the
    // core: the decay, not the peak).
    const impulse_envelope_levels lv{0.1, 0.5, 1.25, 2};
    std::vector<double> R(20, 0.0);
    R[8] = 0.8;
    R[9] = 1.0;
    R[12] = 0.2;
    std::vector<double> E(20);
    build_impulse_envelope(R.data(), R.size(), lv, E.data());
    const std::vector<double> expected = {0.5, 0.5, 0.1, 0.1, 0.25, 0.25, 1.0, 1.0, 1.0,  1.25,
                                          1.0, 1.0, 0.25, 0.25, 0.1, 0.1, 0.1, 0.1, 0.5, 0.5};
    EXPECT_EQ(E, expected);

    // A transient on the frame's first sample has no pre window and its core starts at 0;
    // one reaching the last sample ends there. Without a guard there are no edge zones.
    // The allowances stop at full scale; only the pointwise 2.0 x 0.9 goes above.
    const impulse_envelope_levels no_guard{0.1, 0.5, 2.0, 0};
    std::vector<double> R2 = {0.9, 0.0, 0.3, 0.0, 0.0, 0.0, 0.6};
    std::vector<double> E2(R2.size());
    build_impulse_envelope(R2.data(), R2.size(), no_guard, E2.data());
    const std::vector<double> expected2 = {1.8, 1.0, 1.0, 0.1, 1.0, 1.0, 1.2};
    EXPECT_EQ(E2, expected2);
}

TEST(ImpulseTemplate, ExcessKeepsTheFirstLargest) {
    const std::vector<double> D = {0.1, 0.5, 0.2, 0.5, 0.0};
    const std::vector<double> E = {0.2, 0.3, 0.1, 0.3, 0.0};
    const frame_excess fx = find_excess(D.data(), E.data(), D.size());
    EXPECT_EQ(fx.count, 3u);
    EXPECT_EQ(fx.worst_index, 1u);
    EXPECT_DOUBLE_EQ(fx.worst, 0.2);
    EXPECT_EQ(find_excess(E.data(), E.data(), E.size()).count, 0u);
}

wav_audio mono(std::vector<double> samples) { return test::audio_from(std::move(samples), 1, 48000, 320); }

// One second of silence with a full-scale click at frame 10000 decaying below P after it.
std::vector<double> click() {
    std::vector<double> s(48000, 0.0);
    s[10000] = 1.0;
    for (int k = 1; k < 100; ++k) s[10000 + k] = 0.3 * std::pow(0.9, k);
    return s;
}

TEST(ImpulseTemplate, SmearingWithinAndBeyondTheAllowance) {
    // Defaults: P -10 dBFS, ratio 1.25, F -30 dBFS, frames of 8192 (the click lies at 1808
    // in the second frame). The side zone before the click allows 1.25 x 0.243 (its decay
    // 2 samples after it).
    const wav_audio ref = mono(click());
    const double side = 1.25 * 0.3 * 0.81;
    struct {
        int at;            // frame of the added ringing
        double amplitude;  // its magnitude
        bool pass;
    } cases[] = {
        {10000 - 144, 0.25, true},  // 3 ms before the click, under the side allowance
        {10000 - 144, 0.40, false}, // 3 ms before, louder than the allowance
        {10000 - 300, 0.10, false}, // beyond the 5 ms guard: only the -30 dBFS floor holds
        {30000, 0.05, false},       // in silence, away from edges and transients
        {16384 + 100, 0.05, true},  // within the first 5 ms of a frame: the edge allowance P
    };
    for (const auto& c : cases) {
        std::vector<double> d = click();
        d[static_cast<std::size_t>(c.at)] = c.amplitude;
        const impulse_template_result r = check_impulse_template(ref, mono(d), 0, -10.0, 1.25, -30.0, 8192);
        EXPECT_EQ(r.pass, c.pass) << c.at << " " << c.amplitude;
        EXPECT_EQ(r.channel_count, 1u);
        const impulse_template_channel& ch = r.channels[0];
        EXPECT_EQ(ch.total_fails, c.pass ? 0u : 1u);
        EXPECT_EQ(ch.has_worst, !c.pass);
        if (!c.pass) {
            EXPECT_EQ(ch.worst_sample, static_cast<std::uint32_t>(c.at));
            EXPECT_EQ(ch.worst_dut_amp, c.amplitude);
            EXPECT_EQ(ch.worst_ref_amp, 0.0);
            const double envelope = c.at == 10000 - 144 ? side : std::pow(10.0, -30.0 / 20.0);
            EXPECT_NEAR(ch.worst_diff, c.amplitude - envelope, 1e-12);
        }
    }
    EXPECT_TRUE(check_impulse_template(ref, ref, 0, -10.0, 1.25, -30.0, 8192).pass);
}

TEST(ImpulseTemplate, OffsetStereoFramesAndWorstAcrossFrames) {
    // Stereo DUT 50 frames late; the right channel gets two failures in different frames,
    // the larger one second. A frame size above the overlap gives one frame.
    std::vector<double> ref(2 * 20000, 0.0), dut(2 * 20050, 0.0);
    dut[2 * (50 + 3000) + 1] = 0.1;
    dut[2 * (50 + 15000) + 1] = 0.2;
    wav_audio r = mono(ref), d = mono(dut);
    r.channels = d.channels = 2;
    r.frame_count = 20000;
    d.frame_count = 20050;
    for (std::int64_t frame_size : {std::int64_t{8192}, std::int64_t{1000000}, std::int64_t{0}}) {
        const impulse_template_result res = check_impulse_template(r, d, 50, -10.0, 1.25, -30.0, frame_size);
        EXPECT_EQ(res.channel_count, 2u);
        EXPECT_TRUE(res.channels[0].pass);
        EXPECT_FALSE(res.pass);
        EXPECT_EQ(res.channels[1].total_fails, 2u);
        EXPECT_EQ(res.channels[1].worst_sample, 15000u);
        EXPECT_DOUBLE_EQ(res.channels[1].worst_dut_amp, 0.2);
    }
    // An empty overlap passes with zero figures.
    const impulse_template_result empty = check_impulse_template(r, d, 30000, -10.0, 1.25, -30.0, 8192);
    EXPECT_TRUE(empty.pass);
    EXPECT_EQ(empty.channels[1].total_fails, 0u);
}

}  // namespace
}  // namespace veltrane
