#include "checks/level_fidelity.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>

#include "checks/bit_compare.h"
#include "checks/order_statistics.h"

namespace veltrane {
namespace {

// Relative slack on the tolerance, so that an error or a p99 printed equal to the
// tolerance is not judged out of it by a rounding residue.
constexpr double tolerance_slack = 1e-5;
constexpr double p99_fraction = 0.99;

std::unique_ptr<double[]> try_allocate(std::uint64_t count) {
    try {
        return std::unique_ptr<double[]>(new double[count]);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

level_fidelity_channel check_channel(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                     const overlap_range& o, std::uint32_t c, double floor, double limit,
                                     double min_sustained_run_ms) {
    level_fidelity_channel ch;
    if (o.empty()) {
        ch.pass = true;
        return ch;
    }
    const std::uint64_t n_frames = o.frames();
    // The signed errors: the only per-frame working array.
    std::unique_ptr<double[]> errors = try_allocate(n_frames);

    const std::size_t rs = ref.channels, ds = dut.channels;
    const double* rp = ref.samples.data() + static_cast<std::size_t>(o.start) * rs + c;
    const double* dp = dut.samples.data() + static_cast<std::size_t>(o.start + offset) * ds + c;
    std::uint64_t n = 0, run = 0, longest_run = 0;
    double largest = -1.0;
    for (std::int64_t i = o.start; i < o.end; ++i, rp += rs, dp += ds) {
        const double r = std::fabs(*rp), d = std::fabs(*dp);
        if (floor > r && floor > d) {
            ++ch.samples_excluded;  // neither extends nor breaks a run
            continue;
        }
        const double a = std::max(floor, d), b = std::max(floor, r);
        // Equal magnitudes give log10(1) = +0.0 exactly; skip the logarithm for them.
        const double error = a == b ? 0.0 : 20.0 * std::log10(a / b);
        if (errors) errors[n] = error;
        ++n;
        const double abs_error = std::fabs(error);
        if (abs_error > largest) {
            largest = abs_error;
            ch.worst_sample = static_cast<std::uint32_t>(i);
            ch.worst_diff_db = error;
            ch.worst_ref_amp = r;
            ch.worst_dut_amp = d;
        }
        if (abs_error > limit) {
            ++run;
            longest_run = std::max(longest_run, run);
        } else {
            run = 0;
        }
    }
    ch.samples_included = n;
    ch.has_samples = n > 0;
    ch.longest_sustained_run_ms =
        ref.sample_rate ? static_cast<double>(longest_run) / ref.sample_rate * 1000.0 : 0.0;
    ch.sustained_run_failed = min_sustained_run_ms > 0.0 && ch.longest_sustained_run_ms >= min_sustained_run_ms;
    if (n == 0) {
        ch.pass = true;
        return ch;
    }
    if (!errors) return ch;  // fails with zero statistics

    // Each figure is a selection on the same array, which it reorders: the MAD and the
    // p99 derive their values from the errors on the fly, so no second array is needed.
    double* e = errors.get();
    ch.median_db = median_by_selection(e, n);
    ch.mad_db = median_deviation_by_selection(e, n, ch.median_db);
    ch.p99_abs_db = magnitude_percentile_by_selection(e, n, p99_fraction);
    ch.pass = !ch.sustained_run_failed && limit >= ch.p99_abs_db;
    return ch;
}

}  // namespace

level_fidelity_result check_level_fidelity(const wav_audio& ref, const wav_audio& dut, std::int64_t offset_frames,
                                           double noise_floor_db, double p99_tolerance_db,
                                           double min_sustained_run_ms) {
    level_fidelity_result res;
    res.channel_count = ref.channels;
    const double floor = std::pow(10.0, noise_floor_db / 20.0);
    const double limit = p99_tolerance_db + tolerance_slack * std::fabs(p99_tolerance_db);
    overlap_range o = compute_overlap(ref.frame_count, dut.frame_count, static_cast<std::int32_t>(offset_frames));
    if (dut.channels != ref.channels) o.end = o.start;  // nothing to pair
    for (std::uint32_t c = 0; c < std::min<std::uint32_t>(ref.channels, 2); ++c) {
        res.channels[c] = check_channel(ref, dut, offset_frames, o, c, floor, limit, min_sustained_run_ms);
        res.pass = res.pass && res.channels[c].pass;
    }
    return res;
}

}  // namespace veltrane
