// The overlap rule, the length-mismatch figures and compare_bits (bit-exactness and bit
// accuracy), on audio built in memory.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "checks/bit_compare.h"

namespace veltrane {
namespace {

wav_audio make_audio(std::uint32_t format_code, std::uint32_t channels, std::vector<double> samples) {
    wav_audio a;
    a.sample_rate = 48000;
    a.channels = channels;
    a.format_code = format_code;
    a.frame_count = samples.size() / channels;
    a.samples = std::move(samples);
    return a;
}

// Integer codes of a depth as the reader normalises them.
std::vector<double> codes(std::uint32_t bits, const std::vector<long long>& values) {
    double scale = std::ldexp(1.0, static_cast<int>(bits) - 1) - 1.0;
    std::vector<double> out;
    for (long long v : values) out.push_back(static_cast<double>(v) / scale);
    return out;
}

std::vector<double> ramp(std::size_t n, double step = 1e-4) {
    std::vector<double> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<double>(i % 1000) * step - 0.05;
    return v;
}

TEST(Overlap, OffsetsPickTheComparedReferenceFrames) {
    struct {
        std::uint64_t ref, dut;
        std::int32_t offset;
        std::int64_t start, end;
        std::uint64_t frames;
    } cases[] = {
        {1000, 1000, 0, 0, 1000, 1000},
        {1000, 2000, 0, 0, 1000, 1000},   // longer DUT: all covered
        {1000, 1000, 10, 0, 990, 990},    // DUT late: its tail is missing
        {1000, 1000, -10, 10, 1000, 990}, // DUT early: the first 10 reference frames are missing
        {1000, 1200, 150, 0, 1000, 1000},
        {1000, 100, 200, 0, -100, 0},     // nothing overlaps
        {0, 1000, 0, 0, 0, 0},
        {1000, 1000, -1000, 1000, 1000, 0},
    };
    for (const auto& c : cases) {
        overlap_range o = compute_overlap(c.ref, c.dut, c.offset);
        EXPECT_EQ(o.start, c.start) << c.ref << "/" << c.dut << "@" << c.offset;
        EXPECT_EQ(o.end, c.end) << c.ref << "/" << c.dut << "@" << c.offset;
        EXPECT_EQ(o.frames(), c.frames);
        EXPECT_EQ(o.empty(), c.frames == 0);
    }
}

TEST(LengthMismatch, UncoveredShareAgainstTolerance) {
    // Longer DUT at offset 0: nothing uncovered.
    length_mismatch_result r = compute_length_mismatch(10000, 15000, 0, 1.0);
    EXPECT_EQ(r.ref_uncovered_samples, 0u);
    EXPECT_EQ(r.ref_uncovered_pct, 0.0);
    EXPECT_EQ(r.overlap_frames, 10000u);
    EXPECT_FALSE(r.failed);

    // 2 % short fails the default 1 %; exactly 1 % passes.
    r = compute_length_mismatch(10000, 9800, 0, 1.0);
    EXPECT_EQ(r.ref_uncovered_samples, 200u);
    EXPECT_DOUBLE_EQ(r.ref_uncovered_pct, 2.0);
    EXPECT_TRUE(r.failed);
    r = compute_length_mismatch(10000, 9900, 0, 1.0);
    EXPECT_EQ(r.ref_uncovered_pct, 1.0);
    EXPECT_FALSE(r.failed);

    // A negative offset of -k leaves the first k reference frames uncovered.
    r = compute_length_mismatch(10000, 10000, -50, 1.0);
    EXPECT_EQ(r.ref_uncovered_samples, 50u);
    EXPECT_EQ(r.overlap_frames, 9950u);

    // No overlap at all: the whole reference is uncovered.
    r = compute_length_mismatch(1000, 100, 5000, 1.0);
    EXPECT_EQ(r.ref_uncovered_samples, 1000u);
    EXPECT_EQ(r.ref_uncovered_pct, 100.0);
    EXPECT_TRUE(r.failed);

    // An empty reference reports 0 %.
    r = compute_length_mismatch(0, 100, 0, 1.0);
    EXPECT_EQ(r.ref_uncovered_pct, 0.0);
    EXPECT_FALSE(r.failed);
}

TEST(CompareBits, IdenticalFilesPass) {
    wav_audio ref = make_audio(24, 2, ramp(2000));
    wav_audio dut = ref;
    bit_compare_result r = compare_bits(ref, dut, 0, 0.0);
    EXPECT_TRUE(r.pass);
    EXPECT_EQ(r.samples_compared, 2000u);
    EXPECT_EQ(r.samples_differing, 0u);
    EXPECT_EQ(r.max_error_db, -999.0);
    EXPECT_EQ(r.first_diff_frame, 0u);
    EXPECT_EQ(r.worst_diff_frame, 0u);
    EXPECT_TRUE(compare_bits(ref, dut, 0, 108.0).pass);
}

TEST(CompareBits, OneCodeOffIn24Bit) {
    std::vector<long long> v(100, 1000);
    wav_audio ref = make_audio(24, 1, codes(24, v));
    v[37] = 1001;
    wav_audio dut = make_audio(24, 1, codes(24, v));

    bit_compare_result r = compare_bits(ref, dut, 0, 0.0);
    EXPECT_FALSE(r.pass);
    EXPECT_EQ(r.samples_differing, 1u);
    EXPECT_EQ(r.max_error_db, 0.0);
    EXPECT_EQ(r.first_diff_frame, 37u);
    EXPECT_EQ(r.worst_diff_frame, 37u);
    EXPECT_EQ(r.first_diff_ref_value, ref.samples[37]);
    EXPECT_EQ(r.first_diff_dut_value, dut.samples[37]);
    EXPECT_TRUE(compare_bits(ref, dut, 0, 0.5).pass);
}

TEST(CompareBits, BitAccuracyTolerance) {
    // 2^18 LSB is exactly 108 dB (6 dB per bit); one more LSB fails the 108 dB tolerance.
    std::vector<long long> base(10, 0);
    wav_audio ref = make_audio(24, 1, codes(24, base));
    std::vector<long long> off = base;
    off[4] = 1LL << 18;
    bit_compare_result at = compare_bits(ref, make_audio(24, 1, codes(24, off)), 0, 108.0);
    EXPECT_EQ(at.max_error_db, 108.0);
    EXPECT_TRUE(at.pass);
    off[4] = (1LL << 18) + 1;
    bit_compare_result over = compare_bits(ref, make_audio(24, 1, codes(24, off)), 0, 108.0);
    EXPECT_GT(over.max_error_db, 108.0);
    EXPECT_FALSE(over.pass);
}

TEST(CompareBits, WorstDifferenceKeepsTheEarliestTie) {
    std::vector<long long> r_codes = {0, 0, 0, 0, 0, 0, 0, 0};
    std::vector<long long> d_codes = {0, 3, 0, 9, 9, 0, -9, 0};  // stereo: frames 0..3
    wav_audio ref = make_audio(16, 2, codes(16, r_codes));
    wav_audio dut = make_audio(16, 2, codes(16, d_codes));
    bit_compare_result r = compare_bits(ref, dut, 0, 0.0);
    EXPECT_EQ(r.samples_compared, 8u);
    EXPECT_EQ(r.samples_differing, 4u);
    EXPECT_EQ(r.first_diff_frame, 0u);
    EXPECT_EQ(r.first_diff_channel, 1u);
    EXPECT_EQ(r.worst_diff_frame, 1u);  // frame 1 channel 1 (9) beats the later ties
    EXPECT_EQ(r.worst_diff_channel, 1u);
    EXPECT_DOUBLE_EQ(r.max_error_db, 6.0 * std::log2(9.0));
}

TEST(CompareBits, ScaleFollowsFormats) {
    // A float reference against a 16-bit DUT is measured in 24-bit steps, not 16-bit ones.
    wav_audio ref = make_audio(288, 1, {0.0, 0.0});
    wav_audio dut = make_audio(16, 1, codes(16, {0, 1}));
    bit_compare_result r = compare_bits(ref, dut, 0, 0.0);
    EXPECT_NEAR(r.max_error_db, 6.0 * std::log2(8388607.0 / 32767.0), 1e-9);

    // Integer mode uses the DUT's depth: a 32-bit DUT one code off is 1 LSB.
    wav_audio ref32 = make_audio(32, 1, codes(32, {5, 5}));
    wav_audio dut32 = make_audio(32, 1, codes(32, {5, 6}));
    EXPECT_EQ(compare_bits(ref32, dut32, 0, 0.0).max_error_db, 0.0);

    // Values that differ as doubles but round to the same code count as differing, yet
    // leave no error: a non-zero tolerance passes, exact comparison fails.
    wav_audio a = make_audio(16, 1, {100.0 / 32767.0});
    wav_audio b = make_audio(16, 1, {100.2 / 32767.0});
    bit_compare_result same_code = compare_bits(a, b, 0, 0.5);
    EXPECT_EQ(same_code.samples_differing, 1u);
    EXPECT_EQ(same_code.max_error_db, -999.0);
    EXPECT_EQ(same_code.worst_diff_frame, 0u);
    EXPECT_EQ(same_code.worst_diff_ref_value, 0.0);
    EXPECT_TRUE(same_code.pass);
    EXPECT_FALSE(compare_bits(a, b, 0, 0.0).pass);
}

TEST(CompareBits, OffsetsPairShiftedFrames) {
    std::vector<double> ref_samples = ramp(500);
    wav_audio ref = make_audio(24, 1, ref_samples);

    // DUT delayed by 20 frames: DUT frame i + 20 holds reference frame i.
    std::vector<double> late(20, 0.3);
    late.insert(late.end(), ref_samples.begin(), ref_samples.end());
    bit_compare_result r = compare_bits(ref, make_audio(24, 1, late), 20, 0.0);
    EXPECT_TRUE(r.pass);
    EXPECT_EQ(r.samples_compared, 500u);

    // DUT early by 30 frames: comparison starts at reference frame 30.
    std::vector<double> early(ref_samples.begin() + 30, ref_samples.end());
    early[0] += 0.25;  // pairs with reference frame 30
    r = compare_bits(ref, make_audio(24, 1, early), -30, 0.0);
    EXPECT_FALSE(r.pass);
    EXPECT_EQ(r.samples_compared, 470u);
    EXPECT_EQ(r.first_diff_frame, 30u);
    EXPECT_EQ(r.worst_diff_frame, 30u);
}

TEST(CompareBits, EmptyOverlapFails) {
    wav_audio ref = make_audio(16, 1, ramp(100));
    wav_audio dut = make_audio(16, 1, ramp(100));
    for (double tolerance : {0.0, 108.0}) {
        bit_compare_result r = compare_bits(ref, dut, 100, tolerance);
        EXPECT_FALSE(r.pass);
        EXPECT_EQ(r.samples_compared, 0u);
        EXPECT_EQ(r.max_error_db, -999.0);
    }
}

}  // namespace
}  // namespace veltrane
