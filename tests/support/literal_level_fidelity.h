#pragma once
// Level fidelity computed the plain way: the error array, then three full ascending sorts
// (signed errors, deviations from the median, absolute errors). Used by the tests and the
// benchmark to show that the product's selection-based statistics are identical.
#include <algorithm>
#include <cmath>
#include <vector>

#include "checks/bit_compare.h"
#include "checks/level_fidelity.h"

namespace veltrane::test {

inline double literal_median_of_sorted(const std::vector<double>& v) {
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2.0;
}

inline level_fidelity_result literal_level_fidelity(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                                    double floor_db, double tolerance_db, double min_run_ms) {
    level_fidelity_result res;
    res.channel_count = ref.channels;
    const double floor = std::pow(10.0, floor_db / 20.0);
    const double limit = tolerance_db + 1e-5 * std::fabs(tolerance_db);
    const overlap_range o = compute_overlap(ref.frame_count, dut.frame_count, static_cast<std::int32_t>(offset));
    for (std::uint32_t c = 0; c < std::min<std::uint32_t>(ref.channels, 2); ++c) {
        level_fidelity_channel& ch = res.channels[c];
        if (o.empty()) {
            ch.pass = true;
            continue;
        }
        std::vector<double> errors;
        double largest = -1.0;
        std::uint64_t run = 0, longest = 0;
        for (std::int64_t i = o.start; i < o.end; ++i) {
            const double r = std::fabs(ref.samples[static_cast<std::size_t>(i) * ref.channels + c]);
            const double d = std::fabs(dut.samples[static_cast<std::size_t>(i + offset) * dut.channels + c]);
            if (floor > r && floor > d) {
                ++ch.samples_excluded;
                continue;
            }
            const double e = 20.0 * std::log10(std::max(floor, d) / std::max(floor, r));
            errors.push_back(e);
            if (std::fabs(e) > largest) {
                largest = std::fabs(e);
                ch.worst_sample = static_cast<std::uint32_t>(i);
                ch.worst_diff_db = e;
                ch.worst_ref_amp = r;
                ch.worst_dut_amp = d;
            }
            if (std::fabs(e) > limit) {
                longest = std::max(longest, ++run);
            } else {
                run = 0;
            }
        }
        const std::size_t n = errors.size();
        ch.samples_included = n;
        ch.has_samples = n > 0;
        ch.longest_sustained_run_ms = static_cast<double>(longest) / ref.sample_rate * 1000.0;
        ch.sustained_run_failed = min_run_ms > 0.0 && ch.longest_sustained_run_ms >= min_run_ms;
        if (n == 0) {
            ch.pass = true;
            continue;
        }
        std::vector<double> sorted = errors;
        std::sort(sorted.begin(), sorted.end());
        ch.median_db = literal_median_of_sorted(sorted);
        for (std::size_t j = 0; j < n; ++j) sorted[j] = std::fabs(errors[j] - ch.median_db);
        std::sort(sorted.begin(), sorted.end());
        ch.mad_db = literal_median_of_sorted(sorted);
        for (std::size_t j = 0; j < n; ++j) sorted[j] = std::fabs(errors[j]);
        std::sort(sorted.begin(), sorted.end());
        ch.p99_abs_db = sorted[std::min<std::size_t>(static_cast<std::size_t>(std::llround((n - 1) * 0.99)), n - 1)];
        ch.pass = !ch.sustained_run_failed && limit >= ch.p99_abs_db;
    }
    for (std::uint32_t c = 0; c < std::min<std::uint32_t>(ref.channels, 2); ++c) res.pass = res.pass && res.channels[c].pass;
    return res;
}

}  // namespace veltrane::test
