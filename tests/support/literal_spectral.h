#pragma once
// The spectral scan and the THD+N check written out literally, step by step: every
// spectrum through the per-call allocating amplitude_spectrum (window values computed per
// sample), ratios pooled in a growing list and fully sorted. Tests and the benchmark
// check that the product's scans, which reuse their tables and buffers and select
// percentiles, give exactly these numbers.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "checks/bit_compare.h"
#include "checks/distortion.h"
#include "checks/spectral_scan.h"
#include "dsp/amplitude.h"

namespace veltrane::test {

inline double literal_percentile(const std::vector<double>& sorted, double p) {
    std::size_t i = static_cast<std::size_t>(std::llround(p * static_cast<double>(sorted.size() - 1)));
    return sorted[std::min(i, sorted.size() - 1)];
}

// One frame: appends its ratios to `pool`.
inline spectral_frame_result literal_spectral_frame(const wav_audio& ref, const wav_audio& dut, std::uint32_t ch,
                                                    std::int64_t offset, std::uint64_t first,
                                                    const spectral_settings& s, std::vector<double>& pool) {
    const std::uint64_t n = s.fft_size, half = n / 2;
    std::vector<double> r(half), d(half);
    std::vector<bool> peak(half, false);
    amplitude_spectrum(ref, ch, first, n, r, spectrum_form::db_check);
    amplitude_spectrum(dut, ch, static_cast<std::uint64_t>(static_cast<std::int64_t>(first) + offset), n, d,
                       spectrum_form::db_check);
    auto band_of = [&](std::uint64_t b) {
        const double f = static_cast<double>(b) * (static_cast<double>(ref.sample_rate) / static_cast<double>(n));
        for (std::size_t i = 0; i < s.bands.size(); ++i)
            if (s.bands[i].upper_freq_hz >= f) return i;
        return s.bands.size() - 1;
    };
    std::int64_t low = 0, high = static_cast<std::int64_t>(half) - 1;
    if (s.sweep_window && s.profile != spectral_profile_kind::freq_domain_multitone) {
        const auto& w = *s.sweep_window;
        const double bw = static_cast<double>(ref.sample_rate) / static_cast<double>(n);
        double f = w.test_freq_hz;
        if (s.profile == spectral_profile_kind::freq_sweep) {
            double p = (static_cast<double>(n) * 0.5 + static_cast<double>(first)) / static_cast<double>(ref.frame_count);
            p = std::min(std::max(p, 0.0), 1.0);
            f = w.shape == 1 && w.start_hz > 0 ? w.start_hz * std::pow(w.end_hz / w.start_hz, p)
                                               : w.start_hz + (w.end_hz - w.start_hz) * p;
        }
        low = static_cast<std::int64_t>(std::floor(f * std::pow(2.0, -w.search_window_cents / 1200.0) / bw));
        high = static_cast<std::int64_t>(std::ceil(f * std::pow(2.0, w.search_window_cents / 1200.0) / bw));
        const std::int64_t centre = std::llround(f / bw);
        if (!(low < centre)) low = centre - 1;
        if (!(high > centre)) high = centre + 1;
        const std::int64_t last = static_cast<std::int64_t>(half) - 1;
        if (low < 0) low = 0;
        if (high > last) high = last;
        if (high < 0) high = 0;
        if (low > last) low = last;
        if (low > high) low = high;
    }
    std::int64_t pk = low;
    for (std::int64_t b = low; b <= high; ++b)
        if (r[b] > r[pk]) pk = b;
    const double P = r[pk];
    const spectral_band& B = s.bands[band_of(pk)];
    const bool rel = s.profile == spectral_profile_kind::amp_sweep && s.relative_floor_db;
    double eff = B.noise_floor_db;
    spectral_frame_result res;
    bool ok;
    if (s.profile == spectral_profile_kind::amp_sweep) {
        if (rel) eff = std::max(P + *s.relative_floor_db, B.noise_floor_db);
        ok = P > eff;
        if (ok && P > B.peak_threshold_db) peak[pk] = true;
    } else if (s.profile == spectral_profile_kind::freq_sweep) {
        ok = P > B.peak_threshold_db;
        if (ok && P > B.noise_floor_db) peak[pk] = true;
    } else {
        ok = P > B.noise_floor_db;
        bool in = false;
        std::uint64_t best = 0;
        for (std::uint64_t b = 0; ok && b < half; ++b) {
            const double t = s.bands[band_of(b)].peak_threshold_db;
            if (!in && r[b] > t) {
                in = true;
                best = b;
            } else if (in && r[b] < t) {
                peak[best] = true;
                in = false;
            } else if (in && r[b] > r[best]) {
                best = b;
            }
        }
        if (ok && in) peak[best] = true;
    }
    if (!ok) {
        res.gated = true;
        return res;
    }
    for (std::uint64_t b = 0; b < half; ++b) {
        const spectral_band& bb = s.bands[band_of(b)];
        const double F = rel && band_of(b) == band_of(pk) ? eff : bb.noise_floor_db;
        if (r[b] <= F && d[b] <= F) {
            ++res.bins_excluded;
            continue;
        }
        const double rr = std::max(F, r[b]), dd = std::max(F, d[b]), diff = dd - rr;
        double tol = peak[b] ? bb.peak_tolerance_db
                             : (std::max(rr, dd) <= bb.low_level_signal_threshold_db ? bb.low_level_signal_tolerance_db
                                                                                     : bb.signal_tolerance_db);
        const double ratio = std::fabs(diff) / tol;
        pool.push_back(ratio);
        ++res.bins_compared;
        if (ratio > 1.00001) {
            ++res.bins_failed;
            if (peak[b]) res.peak_failed = true;
        }
        if (ratio > res.worst_ratio) {
            res.worst_bin = static_cast<std::int64_t>(b);
            res.worst_ratio = ratio;
            res.worst_diff_db = diff;
            res.worst_is_peak = peak[b];
        }
    }
    return res;
}

inline spectral_result literal_scan_spectral(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                             const spectral_settings& s) {
    spectral_result out;
    out.channel_count = std::min<std::uint64_t>(ref.channels, 2);
    const overlap_range o = compute_overlap(ref.frame_count, dut.frame_count, static_cast<std::int32_t>(offset));
    const std::int64_t covered = o.end - o.start, n = static_cast<std::int64_t>(s.fft_size);
    for (std::uint32_t c = 0; c < out.channel_count; ++c) {
        spectral_channel_result& ch = out.channels[c];
        if (covered < n) {
            ch.insufficient_samples = true;
            continue;
        }
        std::vector<std::int64_t> starts;
        if (!s.continuous) {
            std::int64_t first = std::max(o.start + covered / 2 - n / 2, o.start);
            if (first + n > o.end) first = o.end - n;
            starts.push_back(first);
        } else {
            const std::int64_t skip = std::min((covered - n) / 2, std::max<std::int64_t>(s.edge_skip_samples, 0));
            ch.edge_skipped_samples = static_cast<std::uint64_t>(skip);
            const std::int64_t first = o.start + skip;
            const std::int64_t hop = std::max<std::int64_t>(std::llround(static_cast<double>(n) * (1.0 - s.overlap_fraction)), 1);
            const std::int64_t frames = (covered - 2 * skip - n) / hop + 1;
            for (std::int64_t f = 0; f < frames; ++f) starts.push_back(first + f * hop);
            if (s.edge_skip_active && o.end - skip > (frames - 1) * hop + first + n) starts.push_back(o.end - skip - n);
        }
        std::vector<double> pool;
        bool peak_failed = false;
        std::int64_t worst_bin = -1;
        double worst = -1.0;
        for (std::int64_t first : starts) {
            spectral_frame_result fr =
                literal_spectral_frame(ref, dut, c, offset, static_cast<std::uint64_t>(first), s, pool);
            if (fr.gated) {
                ++ch.frames_gated;
                continue;
            }
            ch.bins_compared += fr.bins_compared;
            ch.bins_excluded += fr.bins_excluded;
            ch.bins_failed += fr.bins_failed;
            peak_failed = peak_failed || fr.peak_failed;
            if (fr.worst_bin >= 0 && fr.worst_ratio > worst) {
                worst = fr.worst_ratio;
                worst_bin = fr.worst_bin;
                ch.worst_frame_start = static_cast<std::uint32_t>(first);
                ch.worst_bin_ratio = fr.worst_ratio;
                ch.worst_bin_diff_db = fr.worst_diff_db;
                ch.worst_bin_is_peak = fr.worst_is_peak;
            }
        }
        ch.frames_scanned = starts.size();
        ch.frame_gated = ch.frames_gated == ch.frames_scanned;
        if (ch.bins_compared > 0) {
            std::sort(pool.begin(), pool.end());
            ch.p50_ratio = literal_percentile(pool, 0.5);
            ch.p95_ratio = literal_percentile(pool, 0.95);
            ch.p99_ratio = literal_percentile(pool, 0.99);
            ch.worst_bin_freq_hz = static_cast<double>(worst_bin) * (static_cast<double>(ref.sample_rate) / static_cast<double>(n));
            ch.pass = !peak_failed && ch.p99_ratio <= 1.00001;
        }
        out.pass = out.pass && ch.pass;
    }
    return out;
}

inline distortion_result literal_check_distortion(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                                                  const distortion_settings& s) {
    distortion_result out;
    out.channel_count = std::min<std::uint64_t>(ref.channels, 2);
    const overlap_range o = compute_overlap(ref.frame_count, dut.frame_count, static_cast<std::int32_t>(offset));
    const std::int64_t covered = o.end - o.start, n = static_cast<std::int64_t>(s.fft_size), half = n / 2;
    for (std::uint32_t c = 0; c < out.channel_count; ++c) {
        distortion_channel& ch = out.channels[c];
        if (covered < n) {
            ch.insufficient_samples = true;
            continue;
        }
        std::vector<std::int64_t> starts;
        if (s.continuous) {
            const std::int64_t hop = std::max<std::int64_t>(std::llround(static_cast<double>(n) * (1.0 - s.overlap_fraction)), 1);
            for (std::int64_t f = 0; f < (covered - n) / hop + 1; ++f) starts.push_back(o.start + f * hop);
        } else {
            std::int64_t first = std::max(o.start + covered / 2 - half, o.start);
            if (first + n > o.end) first = o.end - n;
            starts.push_back(first);
        }
        std::vector<double> ratios;
        double worst = -1.0;
        for (std::int64_t st : starts) {
            std::vector<double> r(static_cast<std::size_t>(half)), d(static_cast<std::size_t>(half));
            amplitude_spectrum(ref, c, static_cast<std::uint64_t>(st), static_cast<std::uint64_t>(n), r, spectrum_form::linear);
            amplitude_spectrum(dut, c, static_cast<std::uint64_t>(st + offset), static_cast<std::uint64_t>(n), d,
                               spectrum_form::linear);
            std::int64_t F = 0;
            for (std::int64_t b = 0; b < half; ++b)
                if (r[b] > r[F]) F = b;
            if (!(r[F] > std::pow(10.0, s.noise_floor_db / 20.0))) {
                ++ch.frames_gated;
                continue;
            }
            const std::int64_t lo = s.notch_bins < F ? F - s.notch_bins : 0, hi = std::min(F + s.notch_bins, half - 1);
            double fp = 0.0, ex = 0.0;
            for (std::int64_t b = 0; b < half; ++b) {
                if (b >= lo && b <= hi) {
                    fp += d[b] * d[b];
                } else {
                    const double e = d[b] * d[b] - r[b] * r[b];
                    if (e > 0) ex += e;
                }
            }
            const double ratio = std::sqrt(ex / std::max(fp, 1e-300));
            ratios.push_back(ratio);
            if (ratio > worst) {
                worst = ratio;
                ch.worst_frame_start = static_cast<std::uint64_t>(st);
                ch.thdn_ratio = ratio;
                ch.fundamental_freq_hz = static_cast<double>(F) * (static_cast<double>(ref.sample_rate) / static_cast<double>(n));
                ch.thdn_db = ratio > 0 ? 20.0 * std::log10(ratio) : -200.0;
            }
        }
        ch.frames_scanned = starts.size();
        ch.frame_gated = ch.frames_gated == ch.frames_scanned;
        if (!ratios.empty()) {
            std::sort(ratios.begin(), ratios.end());
            ch.p50_thdn_ratio = literal_percentile(ratios, 0.5);
            ch.p95_thdn_ratio = literal_percentile(ratios, 0.95);
            ch.pass = s.tolerance_ratio >= ch.thdn_ratio;
        }
        out.pass = out.pass && ch.pass;
    }
    return out;
}

// Every field equal, doubles bit for bit (compared with ==).
inline bool same_channel(const spectral_channel_result& x, const spectral_channel_result& y) {
    return x.pass == y.pass && x.frame_gated == y.frame_gated && x.insufficient_samples == y.insufficient_samples &&
           x.frames_scanned == y.frames_scanned && x.edge_skipped_samples == y.edge_skipped_samples &&
           x.frames_gated == y.frames_gated && x.bins_compared == y.bins_compared && x.bins_excluded == y.bins_excluded &&
           x.bins_failed == y.bins_failed && x.p50_ratio == y.p50_ratio && x.p95_ratio == y.p95_ratio &&
           x.p99_ratio == y.p99_ratio && x.worst_bin_freq_hz == y.worst_bin_freq_hz &&
           x.worst_bin_ratio == y.worst_bin_ratio && x.worst_bin_diff_db == y.worst_bin_diff_db &&
           x.worst_bin_is_peak == y.worst_bin_is_peak && x.worst_frame_start == y.worst_frame_start;
}

inline bool same_channel(const distortion_channel& x, const distortion_channel& y) {
    return x.pass == y.pass && x.frame_gated == y.frame_gated && x.insufficient_samples == y.insufficient_samples &&
           x.frames_scanned == y.frames_scanned && x.frames_gated == y.frames_gated &&
           x.worst_frame_start == y.worst_frame_start && x.fundamental_freq_hz == y.fundamental_freq_hz &&
           x.thdn_ratio == y.thdn_ratio && x.thdn_db == y.thdn_db && x.p50_thdn_ratio == y.p50_thdn_ratio &&
           x.p95_thdn_ratio == y.p95_thdn_ratio;
}

template <class Result>
bool same_result(const Result& a, const Result& b) {
    return a.pass == b.pass && a.channel_count == b.channel_count && same_channel(a.channels[0], b.channels[0]) &&
           same_channel(a.channels[1], b.channels[1]);
}

}  // namespace veltrane::test
