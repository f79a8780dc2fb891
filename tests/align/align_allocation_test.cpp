// Alignment when memory runs out: a channel whose work arrays cannot be allocated is left
// unmatched (confidence 0, never "silent"), so exhausted memory can never pass for a
// silent channel or a good alignment, and the run fails with a diagnosis instead.
#include <gtest/gtest.h>

#include "align/align.h"
#include "support/allocation.h"
#include "support/wav_bytes.h"
#include "support/audio_pair.h"

namespace veltrane {
namespace {

wav_audio stereo(std::vector<double> samples) { return test::audio_from(std::move(samples), 2, 48000, 16); }

TEST(AlignmentAllocation, ChannelsWithoutWorkMemoryStayUnmatched) {
    const wav_audio ref = stereo(test::noise(48000, 2, 0.5, 3));
    const wav_audio dut = stereo(test::noise(48000, 2, 0.5, 3));
    align_result r;
    {
        // Every work array of the search (a channel copy alone is 384 000 bytes) fails.
        test::allocation_limit limit(4096);
        r = align_channels(ref, dut, 4800, 0.7, 2, -70.0);
    }
    EXPECT_FALSE(r.aligned);
    for (std::size_t c = 0; c < 2; ++c) {
        EXPECT_EQ(r.channel[c].confidence, 0.0);
        EXPECT_FALSE(r.channel[c].channel_ok);
        EXPECT_FALSE(r.channel[c].ref_silent);
        EXPECT_FALSE(r.channel[c].dut_silent);
    }
    // With memory the same pair aligns perfectly.
    EXPECT_TRUE(align_channels(ref, dut, 4800, 0.7, 2, -70.0).aligned);
}

TEST(AlignmentAllocation, CorrelationWithoutMemoryReportsNoMatch) {
    const std::vector<double> a = test::noise(20000, 1, 0.5, 5);
    correlation_peak peak;
    {
        test::allocation_limit limit(4096);
        peak = cross_correlate(a, a, 100, false);
    }
    EXPECT_EQ(peak.lag, 0);
    EXPECT_EQ(peak.confidence, 0.0);
    EXPECT_NEAR(cross_correlate(a, a, 100, false).confidence, 1.0, 1e-12);
}

}  // namespace
}  // namespace veltrane
