#include "checks/time_domain.h"

#include <algorithm>
#include <cmath>

#include "checks/bit_compare.h"

namespace veltrane {
namespace {

double linear(double db) { return std::pow(10.0, db / 20.0); }

struct tier_limits {
    double floor, low_level, peak;                    // linear amplitudes
    double low_level_tol, signal_tol, peak_tol;       // percent
};

time_domain_channel check_channel(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                  const overlap_range& o, std::uint32_t c, const tier_limits& t) {
    time_domain_channel ch;
    const std::size_t rs = ref.channels, ds = dut.channels;
    double largest = -1.0;
    for (std::int64_t i = o.start; i < o.end; ++i) {
        const double r = ref.samples[static_cast<std::size_t>(i) * rs + c];
        const double d = dut.samples[static_cast<std::size_t>(i + offset) * ds + c];
        const double a = std::fabs(r), b = std::fabs(d);
        if (a <= t.floor && b <= t.floor) {
            ++ch.samples_excluded;
            continue;
        }
        ++ch.samples_included;
        const double m = std::max(a, b);
        std::uint64_t* tier_fails;
        double tolerance;
        if (m <= t.low_level) {
            tier_fails = &ch.fails_low_level_signal_tier;
            tolerance = t.low_level_tol;
        } else if (m > t.peak) {
            tier_fails = &ch.fails_peak_tier;
            tolerance = t.peak_tol;
        } else {
            tier_fails = &ch.fails_signal_tier;
            tolerance = t.signal_tol;
        }
        // A magnitude below the floor is raised to it, taking the other sample's sign
        // (both below was excluded above, so at most one is raised).
        const double rv = a < t.floor ? (d >= 0.0 ? t.floor : -t.floor) : r;
        const double dv = b < t.floor ? (r < 0.0 ? -t.floor : t.floor) : d;
        const double pct = std::fabs(dv - rv) * 100.0 / std::fabs(rv);
        if (pct > tolerance) {
            ++ch.total_fails;
            ++*tier_fails;
            if (pct > largest) {
                largest = pct;
                ch.worst_sample = static_cast<std::uint32_t>(i);
                ch.worst_diff_pct = pct;
                ch.worst_ref_amp = r;
                ch.worst_dut_amp = d;
                ch.worst_tolerance_pct = tolerance;
            }
        }
    }
    ch.pass = ch.total_fails == 0;
    ch.has_worst = ch.total_fails > 0;
    return ch;
}

}  // namespace

time_domain_result check_time_domain(const wav_audio& ref, const wav_audio& dut, std::int64_t offset_frames,
                                     double noise_floor_db, double peak_threshold_db, double peak_tolerance_pct,
                                     double low_level_threshold_db, double low_level_tolerance_pct,
                                     double signal_tolerance_pct) {
    time_domain_result res;
    res.channel_count = ref.channels;
    const tier_limits t{linear(noise_floor_db), linear(low_level_threshold_db), linear(peak_threshold_db),
                        low_level_tolerance_pct, signal_tolerance_pct, peak_tolerance_pct};
    overlap_range o = compute_overlap(ref.frame_count, dut.frame_count, static_cast<std::int32_t>(offset_frames));
    if (dut.channels != ref.channels) o.end = o.start;
    for (std::uint32_t c = 0; c < std::min<std::uint32_t>(ref.channels, 2); ++c) {
        res.channels[c] = check_channel(ref, dut, offset_frames, o, c, t);
        res.pass = res.pass && res.channels[c].pass;
    }
    return res;
}

}  // namespace veltrane
