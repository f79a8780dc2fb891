#pragma once
// The sample-exact checks: the overlap rule every check shares, the length-mismatch
// figures, and compare_bits, the one comparison behind bit-exactness (tolerance 0 dB)
// and bit accuracy (a tolerance in dB).
//
// Offsets and frame indices are in frames (one sample per channel). Reference frame i is
// paired with DUT frame i + offset, where offset is the alignment's file offset (the
// DUT's delay; negative when the DUT starts early).
#include <cstdint>

#include "audio/wav.h"

namespace veltrane {

// The compared reference frames [start, end). Empty when end <= start, which is never an
// error: checks report an empty overlap as nothing compared.
struct overlap_range {
    std::int64_t start = 0;  // reference frame: -offset when offset < 0, else 0
    std::int64_t end = 0;    // min(reference frames, DUT frames - offset); may be <= start

    bool empty() const { return end <= start; }
    // Number of compared frames (0 for an empty overlap).
    std::uint64_t frames() const { return empty() ? 0 : static_cast<std::uint64_t>(end - start); }
};

overlap_range compute_overlap(std::uint64_t ref_frames, std::uint64_t dut_frames, std::int32_t offset);

// How much of the reference has no counterpart in the DUT once the offset is applied.
struct length_mismatch_result {
    std::uint32_t ref_uncovered_samples = 0;  // frames: reference frames outside the overlap
    double ref_uncovered_pct = 0.0;           // percent of the reference frames; 0 for an empty reference
    std::uint64_t overlap_frames = 0;         // frames: reference frames minus the uncovered ones
    bool failed = false;                      // ref_uncovered_pct > tolerance (equality passes)
};

// tolerance_pct is general.length_mismatch_tolerance_pct, in percent.
length_mismatch_result compute_length_mismatch(std::uint64_t ref_frames, std::uint64_t dut_frames,
                                               std::int32_t offset, double tolerance_pct);

// Result of compare_bits. Values are normalised samples (full scale 1.0); frames are
// reference frame indices. The first/worst fields stay zero when there is no such sample.
struct bit_compare_result {
    bool pass = false;
    std::uint64_t samples_compared = 0;   // overlapping frames x channel count
    std::uint64_t samples_differing = 0;  // samples whose values are not exactly equal
    std::uint64_t first_diff_frame = 0;
    std::uint32_t first_diff_channel = 0;
    double first_diff_ref_value = 0.0;
    double first_diff_dut_value = 0.0;
    double max_error_db = 0.0;  // 6 dB per bit of the largest difference in LSB; -999.0 when none
    std::uint64_t worst_diff_frame = 0;
    std::uint32_t worst_diff_channel = 0;
    double worst_diff_ref_value = 0.0;
    double worst_diff_dut_value = 0.0;
};

// max_error_db when no difference survives (no differing sample, or integer-mode
// differences that round to the same code).
inline constexpr double bit_compare_no_error_db = -999.0;

// LSB scales. Float input (either file) is measured in 24-bit steps, 2^23 - 1; integer
// input uses the DUT's depth with the reader's own full-scale divisors 2^(bits-1) - 1, so
// differences are differences of the stored integer codes.
inline constexpr double bit_scale_float = wav_full_scale_24;

// Compares every overlapping sample of `ref` and `dut` (channels taken from the
// reference; both must have the same channel count, else nothing is compared).
// tolerance_db exactly 0.0 demands exact equality; any other tolerance passes when
// tolerance_db >= max_error_db. An empty overlap fails with nothing compared.
// Allocates nothing and changes neither input.
bit_compare_result compare_bits(const wav_audio& ref, const wav_audio& dut, std::int32_t offset,
                                double tolerance_db);

}  // namespace veltrane
