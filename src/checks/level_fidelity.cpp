#include "checks/level_fidelity.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "checks/bit_compare.h"
#include "checks/order_statistics.h"
#include "checks/rank_bands.h"
#include "util/memory.h"

namespace veltrane {
namespace {

// Relative slack on the tolerance, so that an error or a p99 printed equal to the
// tolerance is not judged out of it by a rounding residue.
constexpr double tolerance_slack = 1e-5;
constexpr double p99_fraction = 0.99;

// Below this many overlapping frames the errors are simply computed one by one.
constexpr std::uint64_t direct_frames = 16384;

inline double ratio_of(double floor, double r, double d) {
    const double a = std::max(floor, d), b = std::max(floor, r);
    return a == b ? 1.0 : a / b;
}

// Out of tolerance (|error| > limit), decided on the ratio where it is clearly beyond or
// within the two thresholds 10^(+-limit/20), and by the error itself near them.
struct tolerance_test {
    double out_hi, out_lo, in_hi, in_lo, limit;
    explicit tolerance_test(double lim) : limit(lim) {
        const double hi = std::pow(10.0, lim / 20.0), lo = std::pow(10.0, -lim / 20.0);
        out_hi = hi * (1.0 + ratio_guard);
        out_lo = lo * (1.0 - ratio_guard);
        in_hi = hi * (1.0 - ratio_guard);
        in_lo = lo * (1.0 + ratio_guard);
    }
    bool out(double q) const {
        if (q > out_hi || q < out_lo) return true;
        if (q < in_hi && q > in_lo) return false;
        return std::fabs(error_of(q)) > limit;
    }
};

// One side of the worst point: the largest error (high side) or the smallest (low side),
// earliest frame on ties. A ratio further than the guard inside the side's current
// extreme cannot beat it, so its error is not computed.
struct extreme {
    bool has = false;
    double error = 0.0, r = 0.0, d = 0.0;
    std::uint32_t frame = 0;
    double reach = 0.0;  // ratios at or beyond this may take the place
};

std::uint64_t p99_rank(std::uint64_t n) {
    const long long k = std::llround(static_cast<double>(n - 1) * p99_fraction);
    return std::min<std::uint64_t>(k < 0 ? 0 : static_cast<std::uint64_t>(k), n - 1);
}

struct channel_pass {
    level_fidelity_channel ch;
    bool exotic = false;  // a ratio beyond [ratio_min, ratio_max]
    std::optional<rank_band> median_band, p99_band;
};

// The ratios of a block of frames and whether each pair is kept (not both magnitudes
// below the floor), written without branches so that the compiler computes several side
// by side; the strides are constants for mono and stereo files.
template <std::size_t RS, std::size_t DS>
void block_ratios(const double* rp, const double* dp, std::size_t m, double floor, double* q, bool* kept,
                  std::size_t rs = RS, std::size_t ds = DS) {
    if constexpr (RS != 0) rs = RS;
    if constexpr (DS != 0) ds = DS;
    for (std::size_t j = 0; j < m; ++j) {
        const double r = std::fabs(rp[j * rs]), d = std::fabs(dp[j * ds]);
        kept[j] = (r >= floor) | (d >= floor);
        const double a = d > floor ? d : floor, b = r > floor ? r : floor;
        q[j] = a == b ? 1.0 : a / b;
    }
}

// The one pass over the aligned pairs: counts, the ratios into `qs` (when there is
// memory), the worst point, the runs, and the median and p99 bands when placed. Frames go
// in blocks: the ratios of a block are computed side by side, and the worst point and
// the runs look at single samples only in blocks where the block's extremes or its
// tolerance counts leave them open.
void scan_pairs(const wav_audio& ref, const wav_audio& dut, std::int64_t offset, const overlap_range& o,
                std::uint32_t c, double floor, double limit, double* qs, channel_pass& p) {
    const std::size_t rs = ref.channels, ds = dut.channels;
    const double* rp = ref.samples.data() + static_cast<std::size_t>(o.start) * rs + c;
    const double* dp = dut.samples.data() + static_cast<std::size_t>(o.start + offset) * ds + c;
    const tolerance_test tol(limit);
    extreme high{false, 0.0, 0.0, 0.0, 0, -infinity}, low{false, 0.0, 0.0, 0.0, 0, infinity};
    std::uint64_t n = 0, run = 0, longest_run = 0, excluded = 0;
    bool exotic = false;
    rank_band* med = p.median_band ? &*p.median_band : nullptr;
    rank_band* p99 = p.p99_band ? &*p.p99_band : nullptr;
    constexpr std::size_t block = 256;
    double qb[block], kept_q[block];
    bool kept[block];
    for (std::int64_t i0 = o.start; i0 < o.end; i0 += block) {
        const std::size_t m = static_cast<std::size_t>(std::min<std::int64_t>(block, o.end - i0));
        if (rs == 2 && ds == 2)
            block_ratios<2, 2>(rp, dp, m, floor, qb, kept);
        else if (rs == 1 && ds == 1)
            block_ratios<1, 1>(rp, dp, m, floor, qb, kept);
        else
            block_ratios<0, 0>(rp, dp, m, floor, qb, kept, rs, ds);
        std::size_t k = 0;
        for (std::size_t j = 0; j < m; ++j) {
            kept_q[k] = qb[j];
            k += kept[j];
        }
        if (qs) std::copy(kept_q, kept_q + k, qs + n);
        // Counts over the block's included ratios, side by side: which may move the worst
        // point, which are surely within or beyond the tolerance, which leave the range.
        const std::size_t reach = k - count_strictly_inside(kept_q, k, low.reach, high.reach);
        const std::size_t sure_out = k - count_inside(kept_q, k, tol.out_lo, tol.out_hi);
        const std::size_t sure_in = count_strictly_inside(kept_q, k, tol.in_lo, tol.in_hi);
        const std::size_t far = k - count_inside(kept_q, k, ratio_min, ratio_max);
        if (med) med->add(kept_q, k);
        if (p99) p99->add(kept_q, k);
        excluded += m - k;
        n += k;
        exotic |= far > 0;
        if (reach > 0) {
            for (std::size_t j = 0; j < m; ++j) {
                if (!kept[j]) continue;
                const double q = qb[j];
                const auto frame = static_cast<std::uint32_t>(i0 + static_cast<std::int64_t>(j));
                if (q >= high.reach) {
                    const double e = error_of(q);
                    if (!high.has || e > high.error)
                        high = {true, e, std::fabs(rp[j * rs]), std::fabs(dp[j * ds]), frame, q * (1.0 - ratio_guard)};
                }
                if (q <= low.reach) {
                    const double e = error_of(q);
                    if (!low.has || e < low.error)
                        low = {true, e, std::fabs(rp[j * rs]), std::fabs(dp[j * ds]), frame, q * (1.0 + ratio_guard)};
                }
            }
        }
        if (sure_in == k) {
            if (k > 0) run = 0;  // the block ends within tolerance
        } else if (sure_out == k) {
            run += k;
            longest_run = std::max(longest_run, run);
        } else {
            for (std::size_t j = 0; j < m; ++j) {
                if (!kept[j]) continue;
                if (tol.out(qb[j])) {
                    ++run;
                    longest_run = std::max(longest_run, run);
                } else {
                    run = 0;
                }
            }
        }
        rp += m * rs;
        dp += m * ds;
    }
    level_fidelity_channel& ch = p.ch;
    p.exotic = exotic;
    ch.samples_excluded = excluded;
    ch.samples_included = n;
    ch.has_samples = n > 0;
    if (n > 0) {
        // The largest |error|, earliest on ties: the high side's maximum or the low side's minimum.
        const double hi_abs = std::fabs(high.error), lo_abs = std::fabs(low.error);
        const extreme& w = hi_abs > lo_abs || (hi_abs == lo_abs && high.frame <= low.frame) ? high : low;
        ch.worst_sample = w.frame;
        ch.worst_diff_db = w.error;
        ch.worst_ref_amp = w.r;
        ch.worst_dut_amp = w.d;
    }
    ch.longest_sustained_run_ms =
        ref.sample_rate ? static_cast<double>(longest_run) / ref.sample_rate * 1000.0 : 0.0;
}

// The median and p99 bands, placed from the ratios of a sample of the aligned pairs
// (excluded pairs left out, as in the statistics). None when the sample finds too few.
void place_pair_bands(const wav_audio& ref, const wav_audio& dut, std::int64_t offset, const overlap_range& o,
                      std::uint32_t c, double floor, channel_pass& p) {
    const std::size_t rs = ref.channels, ds = dut.channels;
    std::vector<double> qs;
    qs.reserve(sample_count);
    const std::uint64_t frames = o.frames();
    for (const std::uint64_t at : sample_positions(frames)) {
        const std::uint64_t i = static_cast<std::uint64_t>(o.start) + at;
        const double r = std::fabs(ref.samples[i * rs + c]);
        const double d = std::fabs(dut.samples[(i + static_cast<std::uint64_t>(offset)) * ds + c]);
        if (!(floor > r && floor > d)) qs.push_back(ratio_of(floor, r, d));
    }
    if (qs.size() < sample_count / 16) return;
    const std::size_t cap = static_cast<std::size_t>(std::max<std::uint64_t>(frames / 8, 65536));
    const statistic med{statistic_kind::signed_error}, mag{statistic_kind::magnitude};
    p.median_band.emplace(med, sorted_keys(qs, med), 0.5, frames, cap);
    p.p99_band.emplace(mag, sorted_keys(qs, mag), p99_fraction, frames, cap);
}

// The MAD about `median_db`: a band placed from a sample of the stored ratios, one pass.
std::optional<double> mad_from(const double* qs, std::uint64_t n, double median_db) {
    const statistic dev{statistic_kind::deviation, std::pow(10.0, median_db / 20.0), median_db};
    if (!(dev.centre >= ratio_min && dev.centre <= ratio_max)) return std::nullopt;
    std::vector<double> sample;
    sample.reserve(sample_count);
    for (const std::uint64_t at : sample_positions(n)) sample.push_back(qs[at]);
    rank_band b(dev, sorted_keys(std::move(sample), dev), 0.5, n, static_cast<std::size_t>(std::max<std::uint64_t>(n / 8, 65536)));
    constexpr std::uint64_t block = 4096;
    for (std::uint64_t i = 0; i < n; i += block) b.add(qs + i, static_cast<std::size_t>(std::min(block, n - i)));
    return median_from(b, n);
}

level_fidelity_channel check_channel(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                     const overlap_range& o, std::uint32_t c, double floor, double limit,
                                     double min_sustained_run_ms) {
    if (o.empty()) {
        level_fidelity_channel ch;
        ch.pass = true;
        return ch;
    }
    // The ratios of the included pairs: the only per-frame working array. Without it the
    // pass still counts and finds the worst point and the runs.
    std::unique_ptr<double[]> ratios = allocate_work_array(o.frames());
    double* qs = ratios.get();
    channel_pass p;
    // The statistics by bands; `banded` stays false when a band misses, and the plain route
    // below takes over.
    double median = 0.0, p99 = 0.0, mad = 0.0;
    bool banded = false;
    try {
        if (qs && o.frames() >= direct_frames) place_pair_bands(ref, dut, offset, o, c, floor, p);
    } catch (const std::bad_alloc&) {
        p.median_band.reset();  // no bands: the plain route below
        p.p99_band.reset();
    }
    scan_pairs(ref, dut, offset, o, c, floor, limit, qs, p);
    try {
        const std::uint64_t n = p.ch.samples_included;
        if (qs && n > 0 && !p.exotic && p.median_band) {
            const std::optional<double> m = median_from(*p.median_band, n);
            const std::optional<double> q99 = p.p99_band->resolve(p99_rank(n));
            p.median_band.reset();
            p.p99_band.reset();
            const std::optional<double> d = m && q99 ? mad_from(qs, n, *m) : std::nullopt;
            if (d) {
                median = *m;
                p99 = *q99;
                mad = *d;
                banded = true;
            }
        }
    } catch (const std::bad_alloc&) {
        banded = false;  // the bands' own working memory: the plain route below
    }
    level_fidelity_channel& ch = p.ch;
    if (p.exotic) {
        // Ratios near the ends of the double range, which the guard does not cover: the
        // worst point and the runs are found again from the errors themselves.
        std::uint64_t run = 0, longest_run = 0;
        double largest = -1.0;
        const std::size_t rs = ref.channels, ds = dut.channels;
        const double* rp = ref.samples.data() + static_cast<std::size_t>(o.start) * rs + c;
        const double* dp = dut.samples.data() + static_cast<std::size_t>(o.start + offset) * ds + c;
        for (std::int64_t i = o.start; i < o.end; ++i, rp += rs, dp += ds) {
            const double r = std::fabs(*rp), d = std::fabs(*dp);
            if (floor > r && floor > d) continue;
            const double error = error_of(ratio_of(floor, r, d));
            const double abs_error = std::fabs(error);
            if (abs_error > largest) {
                largest = abs_error;
                ch.worst_sample = static_cast<std::uint32_t>(i);
                ch.worst_diff_db = error;
                ch.worst_ref_amp = r;
                ch.worst_dut_amp = d;
            }
            run = abs_error > limit ? run + 1 : 0;
            longest_run = std::max(longest_run, run);
        }
        ch.longest_sustained_run_ms =
            ref.sample_rate ? static_cast<double>(longest_run) / ref.sample_rate * 1000.0 : 0.0;
    }
    ch.sustained_run_failed = min_sustained_run_ms > 0.0 && ch.longest_sustained_run_ms >= min_sustained_run_ms;
    const std::uint64_t n = ch.samples_included;
    if (n == 0) {
        ch.pass = true;
        return ch;
    }
    if (!qs) return ch;  // fails with zero statistics
    if (!banded) {
        // The plain route: the errors themselves, selected in place.
        for (std::uint64_t i = 0; i < n; ++i) qs[i] = error_of(qs[i]);
        median = median_by_selection(qs, n);
        mad = median_deviation_by_selection(qs, n, median);
        p99 = magnitude_percentile_by_selection(qs, n, p99_fraction);
    }
    ch.median_db = median;
    ch.mad_db = mad;
    ch.p99_abs_db = p99;
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
