#pragma once
// Artifact detection computed the plain way, step by step: every per-sample array held
// at once, every neighbourhood copied and sorted, every median read from a full sort.
// Slow (two sorts of up to W values per sample) and memory-hungry, it exists only to show
// that the product's sliding-window version gives identical records, in the tests and in
// the benchmark. Header-only so both can include it.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "checks/artifacts.h"
#include "checks/bit_compare.h"

namespace veltrane::test {

// Median of an ascending-sorted array: the middle element, or the mean of the two middle ones.
inline double literal_sorted_median(const std::vector<double>& v) {
    const std::size_t n = v.size();
    if (n == 0) return 0.0;
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2.0;
}

inline artifact_channel literal_artifact_channel(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                                 const overlap_range& o, std::uint32_t c, double floor,
                                                 const artifact_settings& set) {
    artifact_channel ch;
    const std::size_t n = static_cast<std::size_t>(o.frames());
    if (n == 0) return ch;
    std::vector<double> diff(n), local(n), global(n), ref_v(n), dut_v(n);
    std::vector<char> below(n), flagged(n), sc(n);
    for (std::size_t j = 0; j < n; ++j) {
        ref_v[j] = ref.samples[(static_cast<std::size_t>(o.start) + j) * ref.channels + c];
        dut_v[j] = dut.samples[(static_cast<std::size_t>(o.start + offset) + j) * dut.channels + c];
        diff[j] = dut_v[j] - ref_v[j];
        below[j] = floor > std::fabs(ref_v[j]) && floor > std::fabs(dut_v[j]);
        ch.samples_excluded += below[j];
    }
    ch.samples_checked = n;

    std::vector<double> sorted = diff;
    std::sort(sorted.begin(), sorted.end());
    const double gmed = literal_sorted_median(sorted);
    for (std::size_t j = 0; j < n; ++j) sorted[j] = std::fabs(diff[j] - gmed);
    std::sort(sorted.begin(), sorted.end());
    const double gsigma = 1.4826 * std::max(literal_sorted_median(sorted), 1e-12);

    const std::size_t half = set.window_samples > 0 ? static_cast<std::size_t>(set.window_samples) / 2 : 0;
    std::vector<double> nb, dev;
    for (std::size_t j = 0; j < n; ++j) {
        nb.clear();
        const std::size_t lo = j >= half ? j - half : 0, hi = std::min(j + half, n - 1);
        for (std::size_t i = lo; i <= hi; ++i)
            if (i != j) nb.push_back(diff[i]);
        double lmed = 0.0, lsigma = 1.4826e-12;
        if (!nb.empty()) {
            std::sort(nb.begin(), nb.end());
            lmed = literal_sorted_median(nb);
            dev.clear();
            for (double x : nb) dev.push_back(std::fabs(x - lmed));
            std::sort(dev.begin(), dev.end());
            lsigma = 1.4826 * std::max(literal_sorted_median(dev), 1e-12);
        }
        local[j] = std::fabs(diff[j] - lmed) / lsigma;
        global[j] = std::fabs(diff[j] - lmed) / gsigma;
    }

    const bool float_dut = (dut.format_code & wav_float_flag) != 0;
    for (std::size_t j = 0; j < n; ++j) {
        const double ra = std::fabs(ref_v[j]), da = std::fabs(dut_v[j]);
        const bool clip = float_dut ? std::fabs(da - 1.0) < 1e-9 && std::fabs(ra - 1.0) >= 1e-9
                                    : da >= 0.999 && ra < 0.999;
        if (clip) {
            flagged[j] = sc[j] = !below[j];
        } else if (!below[j]) {
            const bool dropout = dut_v[j] == 0.0 && ref_v[j] != 0.0;
            sc[j] = dropout;
            flagged[j] = dropout || local[j] > set.k;
        }
    }

    struct event {
        std::size_t start = 0, length = 0, sc_run = 0;
        double max_ratio = 0.0, max_global = 0.0;
    };
    bool has_counted = false, has_minor = false;
    event worst_counted, worst_minor;
    for (std::size_t j = 0; j < n;) {
        if (!flagged[j]) {
            ++j;
            continue;
        }
        event e;
        e.start = j;
        std::size_t run = 0;
        for (; j < n && flagged[j]; ++j) {
            ++e.length;
            e.max_ratio = std::max(e.max_ratio, local[j]);
            if (local[j] > set.k) e.max_global = std::max(e.max_global, global[j]);
            run = sc[j] ? run + 1 : 0;
            e.sc_run = std::max(e.sc_run, run);
        }
        if (static_cast<std::int64_t>(e.length) < set.min_run) continue;
        if (ch.event_count == 0) {
            ch.first_event_start = static_cast<std::uint64_t>(o.start) + e.start;
            ch.first_event_length = e.length;
        }
        ++ch.event_count;
        ch.samples_flagged += e.length;
        const bool counted = e.max_ratio > set.k * set.min_severity || e.max_global > set.min_global_severity * set.k ||
                             (e.sc_run > 0 && static_cast<std::int64_t>(e.sc_run) >= set.min_silence_clip_run);
        if (counted) {
            ++ch.counted_event_count;
            if (!has_counted || e.max_ratio > worst_counted.max_ratio) worst_counted = e;
            has_counted = true;
        } else {
            if (!has_minor || e.max_ratio > worst_minor.max_ratio) worst_minor = e;
            has_minor = true;
        }
    }
    ch.minor_event_count = ch.event_count - ch.counted_event_count;
    if (has_counted || has_minor) {
        const event& w = has_counted ? worst_counted : worst_minor;
        ch.worst_event_start_frame = static_cast<std::uint64_t>(o.start) + w.start;
        ch.worst_event_length = w.length;
        ch.worst_event_counted = has_counted;
        ch.worst_event_deviation_ratio = w.max_ratio;
        if (set.k > 0.0) {
            ch.worst_event_severity = w.max_ratio / set.k;
            ch.worst_event_global_severity = w.max_global / set.k;
        }
    }
    ch.pass = ch.counted_event_count == 0;
    return ch;
}

inline artifact_result literal_check_artifacts(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                               const artifact_settings& set) {
    artifact_result res;
    res.channel_count = ref.channels;
    const double floor = std::pow(10.0, set.noise_floor_db / 20.0);
    overlap_range o = compute_overlap(ref.frame_count, dut.frame_count, static_cast<std::int32_t>(offset));
    if (dut.channels != ref.channels) o.end = o.start;
    for (std::uint32_t c = 0; c < std::min<std::uint32_t>(ref.channels, 2); ++c) {
        res.channels[c] = literal_artifact_channel(ref, dut, offset, o, c, floor, set);
        res.pass = res.pass && res.channels[c].pass;
    }
    return res;
}

}  // namespace veltrane::test
