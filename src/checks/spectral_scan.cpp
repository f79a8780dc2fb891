#include "checks/spectral_scan.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>

#include "checks/bit_compare.h"

namespace veltrane {

spectral_band scalar_band(const run_config& cfg) {
    spectral_band b;
    b.upper_freq_hz = 1e300;  // above every bin: the one row covers the whole spectrum
    b.noise_floor_db = cfg.number(param_id::spectral_noise_floor_db);
    b.low_level_signal_threshold_db = cfg.number(param_id::spectral_low_level_signal_threshold_db);
    b.peak_threshold_db = cfg.number(param_id::spectral_peak_threshold_db);
    b.signal_tolerance_db = cfg.number(param_id::spectral_signal_tolerance_db);
    b.low_level_signal_tolerance_db = cfg.number(param_id::spectral_low_level_signal_tolerance_db);
    b.peak_tolerance_db = cfg.number(param_id::spectral_peak_tolerance_db);
    return b;
}

spectral_settings spectral_settings_from(const run_config& cfg) {
    spectral_settings s;
    s.fft_size = static_cast<std::uint64_t>(cfg.integer(param_id::spectral_fft_size));
    s.profile = cfg.profile_kind;
    if (cfg.present(param_id::spectral_relative_noise_floor_db))
        s.relative_floor_db = cfg.number(param_id::spectral_relative_noise_floor_db);
    if (cfg.bands.empty())
        s.bands.push_back(scalar_band(cfg));
    else
        s.bands = cfg.bands;
    s.continuous = cfg.flag(param_id::spectral_continuous);
    s.overlap_fraction = cfg.number(param_id::spectral_overlap_fraction);
    if (cfg.sweep_window_active) s.sweep_window = cfg.sweep_window;
    s.edge_skip_active = cfg.edge_skip_active;
    s.edge_skip_samples = cfg.edge_skip_samples_for_check;
    s.snapshots = cfg.snapshots.active;
    s.snapshot_count = cfg.snapshots.count;
    s.snapshot_times_sec = cfg.snapshots.times_sec;
    return s;
}

std::uint64_t centred_frame_start(std::int64_t start, std::int64_t end, std::uint64_t n) {
    const std::int64_t covered = end - start;
    const std::int64_t half = static_cast<std::int64_t>(n / 2);
    std::int64_t first = std::max(start + covered / 2 - half, start);
    if (first + static_cast<std::int64_t>(n) > end) first = end - static_cast<std::int64_t>(n);
    return static_cast<std::uint64_t>(first);
}

std::vector<std::uint64_t> continuous_frame_starts(std::int64_t start, std::int64_t end, std::uint64_t n,
                                                   double overlap_fraction, std::int64_t edge_skip,
                                                   bool edge_skip_active, std::uint64_t& skip_out) {
    std::vector<std::uint64_t> starts;
    skip_out = 0;
    const std::int64_t covered = end - start;
    const std::int64_t size = static_cast<std::int64_t>(n);
    if (covered < size) return starts;
    const std::int64_t skip = std::min((covered - size) / 2, std::max<std::int64_t>(edge_skip, 0));
    skip_out = static_cast<std::uint64_t>(skip);
    const std::int64_t first = start + skip;
    const std::int64_t hop = std::max<std::int64_t>(std::llround(static_cast<double>(n) * (1.0 - overlap_fraction)), 1);
    const std::int64_t frames = (covered - 2 * skip - size) / hop + 1;
    starts.reserve(static_cast<std::size_t>(frames) + 1);
    for (std::int64_t f = 0; f < frames; ++f) starts.push_back(static_cast<std::uint64_t>(first + f * hop));
    // The regular frames may stop short of the skipped edge; one more frame, aligned to
    // end exactly there, covers the rest of the sweep.
    if (edge_skip_active && end - skip > (frames - 1) * hop + first + size)
        starts.push_back(static_cast<std::uint64_t>(end - skip - size));
    return starts;
}

std::array<double, 3> pooled_percentiles(std::span<double> values, const std::array<double, 3>& fractions) {
    // Selection from the highest index down: after placing element i, everything before
    // it is the i smallest values, so the lower percentiles are selected in that prefix.
    // Each selected value equals the element at the same index of the sorted list.
    const std::size_t n = values.size();
    std::array<double, 3> out{};
    if (n == 0) return out;
    std::size_t bound = n;
    for (int k = 2; k >= 0; --k) {
        std::size_t i = static_cast<std::size_t>(std::llround(fractions[static_cast<std::size_t>(k)] * static_cast<double>(n - 1)));
        i = std::min(i, n - 1);
        if (i < bound) {
            std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(i),
                             values.begin() + static_cast<std::ptrdiff_t>(bound));
            bound = i;
            out[static_cast<std::size_t>(k)] = values[i];
        } else {
            out[static_cast<std::size_t>(k)] = values[i];  // same index as the percentile above
        }
    }
    return out;
}

namespace {

constexpr std::array<double, 3> ratio_percentiles = {0.5, 0.95, 0.99};

// Everything a scan shares between its channels.
struct scan_setup {
    overlap_range overlap;
    std::vector<std::uint8_t> band_of_bin;
    spectral_frame_setup frame;
};

bool make_scan_setup(scan_setup& s, const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                     const spectral_settings& settings) {
    s.overlap = compute_overlap(ref.frame_count, dut.frame_count, static_cast<std::int32_t>(offset));
    try {
        s.band_of_bin = build_bin_band_map(settings.bands, ref.sample_rate, settings.fft_size);
    } catch (const std::bad_alloc&) {
        return false;
    }
    s.frame.n = settings.fft_size;
    s.frame.profile = settings.profile;
    s.frame.relative_floor_db = settings.relative_floor_db;
    s.frame.bands = settings.bands;
    s.frame.band_of_bin = s.band_of_bin;
    s.frame.sweep_window = settings.sweep_window;
    s.frame.lowest_threshold_db = lowest_band_threshold_db(settings.bands);
    return true;
}

// Percentiles, worst-bin frequency and verdict once a channel's (or snapshot's) frames
// are done; with no compared bin the channel passes with zero figures.
void finish_channel(spectral_channel_result& ch, bool peak_failed, std::int64_t worst_bin, std::span<double> ratios,
                    std::uint32_t rate_hz, std::uint64_t n) {
    if (ch.bins_compared == 0) {
        ch.pass = true;
        ch.p50_ratio = ch.p95_ratio = ch.p99_ratio = 0.0;
        ch.worst_bin_freq_hz = ch.worst_bin_ratio = ch.worst_bin_diff_db = 0.0;
        ch.worst_bin_is_peak = false;
        return;
    }
    const std::array<double, 3> p = pooled_percentiles(ratios, ratio_percentiles);
    ch.p50_ratio = p[0];
    ch.p95_ratio = p[1];
    ch.p99_ratio = p[2];
    ch.worst_bin_freq_hz = static_cast<double>(worst_bin) * (static_cast<double>(rate_hz) / static_cast<double>(n));
    ch.pass = !peak_failed && ch.p99_ratio <= spectral_fail_ratio;
}

spectral_channel_result scan_channel(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                     std::uint32_t channel, const scan_setup& s, const spectral_settings& settings) {
    spectral_channel_result ch;
    const std::uint64_t n = settings.fft_size;
    if (s.overlap.frames() < n) {
        ch.insufficient_samples = true;
        return ch;
    }
    std::vector<std::uint64_t> starts;
    std::uint64_t skip = 0;
    std::unique_ptr<double[]> pool;
    spectral_frame_buffers buf;
    try {
        if (settings.continuous)
            starts = continuous_frame_starts(s.overlap.start, s.overlap.end, n, settings.overlap_fraction,
                                             settings.edge_skip_samples, settings.edge_skip_active, skip);
        else
            starts.push_back(centred_frame_start(s.overlap.start, s.overlap.end, n));
        pool = std::make_unique_for_overwrite<double[]>(starts.size() * (n / 2));
    } catch (const std::bad_alloc&) {
        return ch;  // unjudged: zero figures, passes
    }
    if (!spectral_frame_buffers_init(buf, n)) return ch;

    ch.edge_skipped_samples = skip;
    bool peak_failed = false;
    std::int64_t worst_bin = -1;
    double worst_ratio = -1.0;
    double* out = pool.get();
    for (std::uint64_t first : starts) {
        const spectral_frame_result fr = compare_spectral_frame(ref, dut, channel, offset, first, s.frame, buf, out);
        if (fr.gated) {
            ++ch.frames_gated;
            continue;
        }
        out += fr.bins_compared;
        ch.bins_compared += fr.bins_compared;
        ch.bins_excluded += fr.bins_excluded;
        ch.bins_failed += fr.bins_failed;
        peak_failed = peak_failed || fr.peak_failed;
        if (fr.worst_bin >= 0 && fr.worst_ratio > worst_ratio) {
            worst_ratio = fr.worst_ratio;
            worst_bin = fr.worst_bin;
            ch.worst_frame_start = static_cast<std::uint32_t>(first);
            ch.worst_bin_ratio = fr.worst_ratio;
            ch.worst_bin_diff_db = fr.worst_diff_db;
            ch.worst_bin_is_peak = fr.worst_is_peak;
        }
    }
    ch.frames_scanned = starts.size();
    ch.frame_gated = ch.frames_gated == ch.frames_scanned;
    finish_channel(ch, peak_failed, worst_bin, std::span<double>(pool.get(), ch.bins_compared), ref.sample_rate, n);
    return ch;
}

}  // namespace

spectral_result scan_spectral(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                              const spectral_settings& settings) {
    spectral_result res;
    res.channel_count = std::min<std::uint64_t>(ref.channels, 2);
    scan_setup setup;
    if (!make_scan_setup(setup, ref, dut, offset, settings)) return res;
    for (std::uint32_t c = 0; c < res.channel_count; ++c) {
        res.channels[c] = scan_channel(ref, dut, offset, c, setup, settings);
        res.pass = res.pass && res.channels[c].pass;
    }
    return res;
}

spectral_snapshots_result scan_spectral_snapshots(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                                  const spectral_settings& settings) {
    spectral_snapshots_result res;
    res.channel_count = std::min<std::uint64_t>(ref.channels, 2);
    const std::uint64_t n = settings.fft_size;
    scan_setup setup;
    if (!make_scan_setup(setup, ref, dut, offset, settings)) return res;
    const std::int64_t start = setup.overlap.start;
    const std::int64_t end = setup.overlap.end;
    if (setup.overlap.frames() < n) {
        res.insufficient_samples = true;
        return res;
    }
    const std::int64_t half = static_cast<std::int64_t>(n / 2);
    const double rate = static_cast<double>(ref.sample_rate);
    auto first_for_centre = [&](std::int64_t centre) {
        std::int64_t first = std::max(centre - half, start);
        if (first + static_cast<std::int64_t>(n) > end) first = end - static_cast<std::int64_t>(n);
        return first;
    };

    // Snapshot frames, shared by both channels.
    std::vector<std::int64_t> firsts;
    if (!settings.snapshot_times_sec.empty()) {
        for (double t : settings.snapshot_times_sec) {
            // A centre is a frame index of the file: times before the start count as frame
            // 0 and times past 2^32 - 1 frames as that frame.
            double c = std::round(t * rate);
            c = c >= 0.0 ? std::min(c, 4294967295.0) : 0.0;
            firsts.push_back(first_for_centre(static_cast<std::int64_t>(c)));
        }
    } else {
        const std::uint64_t k_count = settings.snapshot_count;
        const std::int64_t covered = end - start;
        const std::int64_t m = std::llround(static_cast<double>(covered) * 0.05);
        for (std::uint64_t k = 0; k < k_count; ++k) {
            std::int64_t centre;
            if (k_count == 1)
                centre = (start + end) / 2;
            else
                centre = std::llround(static_cast<double>(end - m - (start + m)) * static_cast<double>(k) /
                                      static_cast<double>(k_count - 1)) +
                         start + m;
            firsts.push_back(first_for_centre(centre));
        }
    }
    if (firsts.size() > spectral_max_snapshots) firsts.resize(spectral_max_snapshots);

    spectral_frame_buffers buf;
    std::unique_ptr<double[]> pool;
    try {
        pool = std::make_unique_for_overwrite<double[]>(n / 2);
    } catch (const std::bad_alloc&) {
        return res;
    }
    if (!spectral_frame_buffers_init(buf, n)) return res;

    res.snapshot_count = firsts.size();
    for (std::uint32_t c = 0; c < res.channel_count; ++c) {
        for (std::size_t i = 0; i < firsts.size(); ++i) {
            const std::uint64_t first = static_cast<std::uint64_t>(firsts[i]);
            spectral_snapshot_result& snap = res.snapshots[c][i];
            snap.time_sec = (static_cast<double>(n) * 0.5 + static_cast<double>(first)) / rate;
            spectral_channel_result& ch = snap.frame;
            ch.frames_scanned = 1;
            ch.worst_frame_start = static_cast<std::uint32_t>(first);
            const spectral_frame_result fr = compare_spectral_frame(ref, dut, c, offset, first, setup.frame, buf, pool.get());
            if (fr.gated) {
                ch.frames_gated = 1;
                ch.frame_gated = true;
                ch.pass = true;
                continue;
            }
            ch.bins_compared = fr.bins_compared;
            ch.bins_excluded = fr.bins_excluded;
            ch.bins_failed = fr.bins_failed;
            ch.worst_bin_ratio = fr.worst_ratio;
            ch.worst_bin_diff_db = fr.worst_diff_db;
            ch.worst_bin_is_peak = fr.worst_is_peak;
            finish_channel(ch, fr.peak_failed, fr.worst_bin, std::span<double>(pool.get(), fr.bins_compared),
                           ref.sample_rate, n);
            res.pass = res.pass && ch.pass;
        }
    }
    return res;
}

spectral_check_result check_spectral(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                     const spectral_settings& settings) {
    spectral_check_result r;
    r.snapshot_mode = settings.snapshots;
    if (r.snapshot_mode)
        r.snapshots = scan_spectral_snapshots(ref, dut, offset, settings);
    else
        r.scan = scan_spectral(ref, dut, offset, settings);
    return r;
}

}  // namespace veltrane
