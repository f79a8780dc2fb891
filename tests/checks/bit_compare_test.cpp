// The overlap rule, the length-mismatch figures and compare_bits (bit-exactness and bit
// accuracy), on audio built in memory.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "checks/bit_compare.h"
#include "support/audio_pair.h"

namespace veltrane {
namespace {

wav_audio make_audio(std::uint32_t format_code, std::uint32_t channels, std::vector<double> samples) {
    return test::audio_from(std::move(samples), channels, 48000, format_code);
}

// Integer codes of a depth, normalised as the reader does.
std::vector<double> codes(std::uint32_t bits, const std::vector<long long>& values) {
    double scale = std::ldexp(1.0, static_cast<int>(bits) - 1) - 1.0;
    std::vector<double> out;
    for (long long v : values) out.push_back(static_cast<double>(v) / scale);
    return out;
}

std::vector<double> ramp(std::size_t n) {
    std::vector<double> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<double>(i % 1000) * 1e-4 - 0.05;
    return v;
}

TEST(Overlap, OffsetsPickTheComparedReferenceFrames) {
    struct {
        std::uint64_t ref, dut;
        std::int32_t offset;
        std::int64_t start, end;
    } cases[] = {
        {1000, 2000, 0, 0, 1000},    // longer DUT: all covered
        {1000, 1000, 10, 0, 990},    // DUT late: the reference tail has no partner
        {1000, 1000, -10, 10, 1000}, // DUT early: the first 10 reference frames have none
        {1000, 100, 200, 0, -100},   // nothing overlaps
    };
    for (const auto& c : cases) {
        overlap_range o = compute_overlap(c.ref, c.dut, c.offset);
        EXPECT_EQ(o.start, c.start) << c.offset;
        EXPECT_EQ(o.end, c.end) << c.offset;
        EXPECT_EQ(o.frames(), c.end > c.start ? static_cast<std::uint64_t>(c.end - c.start) : 0u);
    }
}

TEST(LengthMismatch, UncoveredShareAgainstTolerance) {
    length_mismatch_result r = compute_length_mismatch(10000, 15000, 0, 1.0);
    EXPECT_TRUE(r.ref_uncovered_samples == 0 && r.overlap_frames == 10000 && !r.failed);
    r = compute_length_mismatch(10000, 9800, 0, 1.0);  // 2 % short
    EXPECT_EQ(r.ref_uncovered_samples, 200u);
    EXPECT_DOUBLE_EQ(r.ref_uncovered_pct, 2.0);
    EXPECT_TRUE(r.failed);
    r = compute_length_mismatch(10000, 9900, 0, 1.0);  // exactly 1 % passes
    EXPECT_EQ(r.ref_uncovered_pct, 1.0);
    EXPECT_FALSE(r.failed);
    r = compute_length_mismatch(10000, 10000, -50, 1.0);
    EXPECT_TRUE(r.ref_uncovered_samples == 50 && r.overlap_frames == 9950);
    r = compute_length_mismatch(1000, 100, 5000, 1.0);  // no overlap at all
    EXPECT_TRUE(r.ref_uncovered_samples == 1000 && r.ref_uncovered_pct == 100.0 && r.failed);
    r = compute_length_mismatch(0, 100, 0, 1.0);  // an empty reference
    EXPECT_TRUE(r.ref_uncovered_pct == 0.0 && !r.failed);
}

TEST(CompareBits, IdenticalAndOneCodeOff) {
    wav_audio ref = make_audio(24, 2, ramp(2000));
    bit_compare_result same = compare_bits(ref, ref, 0, 0.0);
    EXPECT_TRUE(same.pass);
    EXPECT_TRUE(same.samples_compared == 2000 && same.samples_differing == 0);
    EXPECT_EQ(same.max_error_db, -999.0);

    std::vector<long long> v(100, 1000);
    wav_audio mono = make_audio(24, 1, codes(24, v));
    v[37] = 1001;
    wav_audio dut = make_audio(24, 1, codes(24, v));
    bit_compare_result r = compare_bits(mono, dut, 0, 0.0);
    EXPECT_FALSE(r.pass);
    EXPECT_EQ(r.samples_differing, 1u);
    EXPECT_EQ(r.max_error_db, 0.0);
    EXPECT_TRUE(r.first_diff_frame == 37 && r.worst_diff_frame == 37);
    EXPECT_TRUE(r.first_diff_ref_value == mono.samples[37] && r.first_diff_dut_value == dut.samples[37]);
    EXPECT_TRUE(compare_bits(mono, dut, 0, 0.5).pass);
}

TEST(CompareBits, BitAccuracyToleranceAndTies) {
    // 2^18 LSB is exactly 108 dB (6 dB per bit); one LSB more fails the 108 dB tolerance.
    wav_audio ref = make_audio(24, 1, codes(24, std::vector<long long>(10, 0)));
    std::vector<long long> off(10, 0);
    off[4] = 1LL << 18;
    bit_compare_result at = compare_bits(ref, make_audio(24, 1, codes(24, off)), 0, 108.0);
    EXPECT_EQ(at.max_error_db, 108.0);
    EXPECT_TRUE(at.pass);
    off[4] += 1;
    EXPECT_FALSE(compare_bits(ref, make_audio(24, 1, codes(24, off)), 0, 108.0).pass);

    // Stereo: first difference at frame 0 channel 1; the largest (9 LSB) first met at
    // frame 1 channel 1 keeps its place against later ties.
    wav_audio zeros = make_audio(16, 2, codes(16, std::vector<long long>(8, 0)));
    wav_audio dut = make_audio(16, 2, codes(16, {0, 3, 0, 9, 9, 0, -9, 0}));
    bit_compare_result r = compare_bits(zeros, dut, 0, 0.0);
    EXPECT_TRUE(r.samples_compared == 8 && r.samples_differing == 4);
    EXPECT_TRUE(r.first_diff_frame == 0 && r.first_diff_channel == 1);
    EXPECT_TRUE(r.worst_diff_frame == 1 && r.worst_diff_channel == 1);
    EXPECT_DOUBLE_EQ(r.max_error_db, 6.0 * std::log2(9.0));
}

TEST(CompareBits, ScaleFollowsFormats) {
    // A float reference against a 16-bit DUT is measured in 24-bit steps, not 16-bit ones.
    bit_compare_result f = compare_bits(make_audio(288, 1, {0.0, 0.0}), make_audio(16, 1, codes(16, {0, 1})), 0, 0.0);
    EXPECT_NEAR(f.max_error_db, 6.0 * std::log2(8388607.0 / 32767.0), 1e-9);
    // Integer mode uses the DUT's depth: a 32-bit DUT one code off is 1 LSB.
    EXPECT_EQ(compare_bits(make_audio(32, 1, codes(32, {5})), make_audio(32, 1, codes(32, {6})), 0, 0.0).max_error_db,
              0.0);
    // Values that differ as doubles but round to one code count as differing yet leave no
    // error: a non-zero tolerance passes, an exact comparison fails.
    wav_audio a = make_audio(16, 1, {100.0 / 32767.0});
    wav_audio b = make_audio(16, 1, {100.2 / 32767.0});
    bit_compare_result same_code = compare_bits(a, b, 0, 0.5);
    EXPECT_EQ(same_code.samples_differing, 1u);
    EXPECT_EQ(same_code.max_error_db, -999.0);
    EXPECT_EQ(same_code.worst_diff_ref_value, 0.0);
    EXPECT_TRUE(same_code.pass);
    EXPECT_FALSE(compare_bits(a, b, 0, 0.0).pass);
}

TEST(CompareBits, OffsetsPairShiftedFrames) {
    std::vector<double> ref_samples = ramp(500);
    wav_audio ref = make_audio(24, 1, ref_samples);
    std::vector<double> late(20, 0.3);  // DUT frame i + 20 holds reference frame i
    late.insert(late.end(), ref_samples.begin(), ref_samples.end());
    bit_compare_result r = compare_bits(ref, make_audio(24, 1, late), 20, 0.0);
    EXPECT_TRUE(r.pass);
    EXPECT_EQ(r.samples_compared, 500u);

    std::vector<double> early(ref_samples.begin() + 30, ref_samples.end());  // starts at reference frame 30
    early[0] += 0.25;
    r = compare_bits(ref, make_audio(24, 1, early), -30, 0.0);
    EXPECT_FALSE(r.pass);
    EXPECT_EQ(r.samples_compared, 470u);
    EXPECT_TRUE(r.first_diff_frame == 30 && r.worst_diff_frame == 30);

    for (double tolerance : {0.0, 108.0}) {  // an empty overlap fails with nothing compared
        bit_compare_result none = compare_bits(ref, ref, 500, tolerance);
        EXPECT_TRUE(!none.pass && none.samples_compared == 0 && none.max_error_db == -999.0);
    }
}

}  // namespace
}  // namespace veltrane
