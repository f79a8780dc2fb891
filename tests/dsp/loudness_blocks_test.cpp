// Block geometry, block loudness, and the streamed block sums against the one-block-at-a-
// time form.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dsp/loudness_blocks.h"
#include "support/wav_bytes.h"

namespace veltrane {
namespace {

TEST(LoudnessBlocks, SeriesGeometry) {
    struct {
        std::uint64_t n;
        double fs, block_sec, overlap;
        std::uint64_t count;
    } cases[] = {
        {48000, 48000, 0.4, 0.75, 7},       // 1 s: 0.6 s of hops of 0.1 s, plus the first block
        {19199, 48000, 0.4, 0.75, 0},       // shorter than one block
        {19200, 48000, 0.4, 0.75, 1},       // exactly one block
        {144000, 48000, 3.0, 0.97, 1},      // 3 s: one short-term block
        {144000 + 72000, 48000, 3.0, 0.97, 18},  // 4.5 s: llround(1.5 / 0.09) + 1
        {48000, 48000, 0.4, 1.0, 0},        // no hop
    };
    for (const auto& c : cases)
        EXPECT_EQ(block_series_count(c.n, c.fs, c.block_sec, c.overlap), c.count) << c.n << " " << c.block_sec;
    // Spans follow floor(i step T fs): 0.1 s hops of 4800 samples at 48 kHz; the 0.09 s
    // hop at 44.1 kHz is 3969 samples and blocks are 132300 long.
    const block_span m3 = block_span_of(3, 48000, 0.4, 0.75);
    EXPECT_EQ(m3.first, 14400);
    EXPECT_EQ(m3.end, 33600);
    const block_span s2 = block_span_of(2, 44100, 3.0, 0.97);
    EXPECT_EQ(s2.first, 7938);
    EXPECT_EQ(s2.end, 7938 + 132300);
    EXPECT_TRUE(block_measured(m3, 33600));
    EXPECT_FALSE(block_measured(m3, 33599));
}

TEST(LoudnessBlocks, LoudnessOfKnownMeanSquares) {
    EXPECT_EQ(loudness_of_mean_square_sum(0.0), -200.0);
    EXPECT_DOUBLE_EQ(loudness_of_mean_square_sum(1.0), -0.691);
    // Constant 0.1 on both channels: mean square 0.01 each, sum 0.02.
    std::vector<double> c(48000, 0.1);
    const double* ch[2] = {c.data(), c.data()};
    block_series s;
    ASSERT_TRUE(block_loudness(ch, 2, c.size(), 48000, 0.4, 0.75, true, s));
    ASSERT_EQ(s.loudness.size(), 7u);
    for (std::size_t i = 0; i < 7; ++i) {
        EXPECT_NEAR(s.loudness[i], 10.0 * std::log10(0.02) - 0.691, 1e-12);
        EXPECT_NEAR(s.mean_square[1][i], 0.01, 1e-14);
    }
}

TEST(LoudnessBlocks, StreamedSumsEqualOneBlockAtATime) {
    // Both series, in pieces of awkward sizes, over a signal whose level changes; the
    // streamed sums also serve a longer series over the signal extended with zeros.
    const double fs = 44100.0;
    const std::uint64_t n = 4 * 44100 + 123;
    std::vector<double> a = test::noise(n, 1, 0.5, 3), b = test::noise(n, 1, 0.1, 4);
    for (std::uint64_t i = 0; i < n / 3; ++i) a[i] *= 0.01;
    struct {
        double block_sec, overlap;
    } series[] = {{0.4, 0.75}, {3.0, 0.97}};
    for (const auto& sr : series) {
        for (std::size_t channels : {1u, 2u}) {
            const std::uint64_t extended = n + 66150;
            std::vector<double> ea = a, eb = b;
            ea.resize(extended, 0.0);
            eb.resize(extended, 0.0);
            const double* plain[2] = {ea.data(), eb.data()};
            block_series literal, literal_ext;
            ASSERT_TRUE(block_loudness(plain, channels, n, fs, sr.block_sec, sr.overlap, true, literal));
            ASSERT_TRUE(block_loudness(plain, channels, extended, fs, sr.block_sec, sr.overlap, false, literal_ext));

            std::vector<double> sa(n), sb(n);
            for (std::uint64_t i = 0; i < n; ++i) {
                sa[i] = a[i] * a[i];
                sb[i] = b[i] * b[i];
            }
            const std::uint64_t count = block_series_count(n, fs, sr.block_sec, sr.overlap);
            const std::uint64_t count_ext = block_series_count(extended, fs, sr.block_sec, sr.overlap);
            block_sum_stream stream;
            ASSERT_TRUE(block_sum_stream_init(stream, count_ext, fs, sr.block_sec, sr.overlap, channels));
            for (std::uint64_t done = 0, piece = 1; done < n; piece = piece * 7 + 5) {
                const std::uint64_t len = std::min(piece, n - done);
                const double* sq[2] = {sa.data() + done, sb.data() + done};
                block_sum_stream_add(stream, sq, channels, len);
                done += len;
            }
            block_series fast, fast_ext;
            ASSERT_TRUE(block_series_from_sums(stream, channels, count, n, true, fast));
            ASSERT_TRUE(block_series_from_sums(stream, channels, count_ext, extended, false, fast_ext));
            EXPECT_EQ(fast.loudness, literal.loudness);
            EXPECT_EQ(fast.mean_square[0], literal.mean_square[0]);
            EXPECT_EQ(fast.mean_square[1], literal.mean_square[1]);
            EXPECT_EQ(fast_ext.loudness, literal_ext.loudness);
            EXPECT_GT(fast_ext.loudness.size(), fast.loudness.size());
        }
    }
}

}  // namespace
}  // namespace veltrane
