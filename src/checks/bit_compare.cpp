#include "checks/bit_compare.h"

#include <algorithm>
#include <cmath>

namespace veltrane {
namespace {

// log10(2): turns log10 of an LSB count into bits.
constexpr double log10_of_2 = 0.3010299956639812;
// Each bit of error counts 6 dB.
constexpr double db_per_bit = 6.0;

double lsb_scale(const wav_audio& ref, const wav_audio& dut, bool& float_mode) {
    float_mode = wav_is_float(ref) || wav_is_float(dut);
    if (float_mode) return bit_scale_float;
    switch (wav_bit_depth(dut)) {
        case 32: return wav_full_scale_32;
        case 24: return wav_full_scale_24;
        default: return wav_full_scale_16;
    }
}

}  // namespace

overlap_range compute_overlap(std::uint64_t ref_frames, std::uint64_t dut_frames, std::int32_t offset) {
    overlap_range r;
    r.start = offset < 0 ? -static_cast<std::int64_t>(offset) : 0;
    std::int64_t dut_end = static_cast<std::int64_t>(dut_frames) - offset;
    r.end = std::min(static_cast<std::int64_t>(ref_frames), dut_end);
    return r;
}

length_mismatch_result compute_length_mismatch(std::uint64_t ref_frames, std::uint64_t dut_frames,
                                               std::int32_t offset, double tolerance_pct) {
    length_mismatch_result r;
    overlap_range o = compute_overlap(ref_frames, dut_frames, offset);
    std::uint64_t covered = o.frames();
    r.ref_uncovered_samples = static_cast<std::uint32_t>(ref_frames - covered);
    r.overlap_frames = covered;
    r.ref_uncovered_pct = ref_frames == 0 ? 0.0 : r.ref_uncovered_samples * 100.0 / static_cast<double>(ref_frames);
    r.failed = r.ref_uncovered_pct > tolerance_pct;
    return r;
}

bit_compare_result compare_bits(const wav_audio& ref, const wav_audio& dut, std::int32_t offset,
                                double tolerance_db) {
    bit_compare_result r;
    bool float_mode = false;
    const double scale = lsb_scale(ref, dut, float_mode);
    const std::uint64_t channels = ref.channels;
    overlap_range o = compute_overlap(ref.frame_count, dut.frame_count, offset);

    double largest = 0.0;
    if (!o.empty() && channels > 0 && dut.channels == ref.channels) {
        for (std::int64_t i = o.start; i < o.end; ++i) {
            const double* r_frame = ref.samples.data() + static_cast<std::uint64_t>(i) * channels;
            const double* d_frame = dut.samples.data() + static_cast<std::uint64_t>(i + offset) * channels;
            for (std::uint32_t c = 0; c < channels; ++c) {
                double rv = r_frame[c];
                double dv = d_frame[c];
                if (rv == dv) continue;
                if (r.samples_differing++ == 0) {
                    r.first_diff_frame = static_cast<std::uint64_t>(i);
                    r.first_diff_channel = c;
                    r.first_diff_ref_value = rv;
                    r.first_diff_dut_value = dv;
                }
                double lsb = float_mode ? std::fabs(rv - dv) * scale
                                        : std::fabs(std::round(scale * rv) - std::round(scale * dv));
                if (lsb > largest) {
                    largest = lsb;
                    r.worst_diff_frame = static_cast<std::uint64_t>(i);
                    r.worst_diff_channel = c;
                    r.worst_diff_ref_value = rv;
                    r.worst_diff_dut_value = dv;
                }
            }
            r.samples_compared += channels;
        }
    }

    r.max_error_db = largest > 0.0 ? db_per_bit * std::log10(largest) / log10_of_2 : bit_compare_no_error_db;
    if (tolerance_db == 0.0) {
        r.pass = r.samples_compared > 0 && r.samples_differing == 0;
    } else {
        r.pass = r.samples_compared > 0 && tolerance_db >= r.max_error_db;
    }
    return r;
}

}  // namespace veltrane
