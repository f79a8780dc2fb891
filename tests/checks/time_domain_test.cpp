// Time domain: tiers, the floor rule and the worst pair.
#include "checks/time_domain.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/audio_pair.h"

namespace veltrane {
namespace {

using test::audio_from;

time_domain_channel run_mono(const std::vector<double>& ref, const std::vector<double>& dut) {
    time_domain_result r = check_time_domain(audio_from(ref), audio_from(dut), 0, -80.0, -60.0, 10.0, -70.0, 50.0, 50.0);
    EXPECT_EQ(r.pass, r.channels[0].pass);
    return r.channels[0];
}

TEST(TimeDomain, KnownPairs) {
    struct pair_case {
        const char* name;
        double ref, dut;
        bool excluded, fails;
        int tier;  // 0 low-level, 1 signal, 2 peak
        double pct;
    };
    const pair_case cases[] = {
        {"identical", 0.5, 0.5, false, false, 2, 0.0},
        {"5 % louder", 0.5, 0.525, false, false, 2, 5.0},
        {"12 % louder at the peak", -0.5, -0.56, false, true, 2, 12.0},
        {"12 % in the signal tier passes", 0.0005, 0.00056, false, false, 1, 12.0},
        {"reference raised to the floor", 0.00005, 0.0002, false, true, 0, 100.0},
        {"both at -90 dBFS", 3.1e-5, -3.1e-5, true, false, 0, 0.0},
        {"DUT raised to the floor with the reference's sign", -0.00025, 0.0, false, true, 0, 60.0},
    };
    for (const pair_case& pc : cases) {
        time_domain_channel ch = run_mono({0.3, pc.ref}, {0.3, pc.dut});
        EXPECT_EQ(ch.samples_excluded, pc.excluded ? 1u : 0u) << pc.name;
        EXPECT_EQ(ch.samples_included, pc.excluded ? 1u : 2u) << pc.name;
        EXPECT_EQ(ch.total_fails, pc.fails ? 1u : 0u) << pc.name;
        EXPECT_EQ(ch.pass, !pc.fails) << pc.name;
        EXPECT_EQ(ch.has_worst, pc.fails) << pc.name;
        if (pc.fails) {
            const std::uint64_t tiers[] = {ch.fails_low_level_signal_tier, ch.fails_signal_tier, ch.fails_peak_tier};
            EXPECT_EQ(tiers[pc.tier], 1u) << pc.name;
            EXPECT_NEAR(ch.worst_diff_pct, pc.pct, 1e-9) << pc.name;
            EXPECT_EQ(ch.worst_sample, 1u);
            EXPECT_EQ(ch.worst_ref_amp, pc.ref) << pc.name;  // as read, not raised
            EXPECT_EQ(ch.worst_dut_amp, pc.dut) << pc.name;
            EXPECT_EQ(ch.worst_tolerance_pct, pc.tier == 2 ? 10.0 : 50.0) << pc.name;
        }
    }
}

TEST(TimeDomain, WorstPairKeepsTheEarliestAndStereoIsPerChannel) {
    time_domain_channel ch = run_mono({0.5, 0.5, 0.5, 0.5}, {0.6, 0.7, 0.7, 0.5});
    EXPECT_EQ(ch.total_fails, 3u);
    EXPECT_EQ(ch.fails_peak_tier, 3u);
    EXPECT_EQ(ch.worst_sample, 1u);
    EXPECT_NEAR(ch.worst_diff_pct, 40.0, 1e-9);

    time_domain_result r = check_time_domain(audio_from({0.5, 0.5, 0.5, 0.5}, 2), audio_from({0.5, 0.6, 0.5, 0.5}, 2),
                                             0, -80.0, -60.0, 10.0, -70.0, 50.0, 50.0);
    EXPECT_TRUE(r.channels[0].pass);
    EXPECT_FALSE(r.channels[1].pass);
    EXPECT_FALSE(r.pass);
    r = check_time_domain(audio_from({0.5}), audio_from({0.5}), 3, -80.0, -60.0, 10.0, -70.0, 50.0, 50.0);
    EXPECT_TRUE(r.pass);
    EXPECT_EQ(r.channels[0].samples_included, 0u);
}

}  // namespace
}  // namespace veltrane
