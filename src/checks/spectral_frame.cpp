#include "checks/spectral_frame.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace veltrane {

std::vector<std::uint8_t> build_bin_band_map(std::span<const spectral_band> bands, std::uint32_t rate_hz,
                                             std::uint64_t n) {
    std::vector<std::uint8_t> map(n / 2, 0);
    if (bands.empty()) return map;
    const double bin_hz = static_cast<double>(rate_hz) / static_cast<double>(n);
    std::size_t row = 0;
    for (std::uint64_t b = 0; b < n / 2; ++b) {
        const double f = static_cast<double>(b) * bin_hz;
        while (row + 1 < bands.size() && bands[row].upper_freq_hz < f) ++row;
        map[b] = static_cast<std::uint8_t>(row);
    }
    return map;
}

double lowest_band_threshold_db(std::span<const spectral_band> bands) {
    double lowest = 1e300;
    for (const spectral_band& b : bands) lowest = std::min({lowest, b.noise_floor_db, b.peak_threshold_db});
    return lowest;
}

bool spectral_frame_buffers_init(spectral_frame_buffers& buf, std::uint64_t n) {
    buf = spectral_frame_buffers{};
    try {
        buf.ref_db.resize(n / 2);
        buf.dut_db.resize(n / 2);
        buf.peak.resize(n / 2);
    } catch (const std::bad_alloc&) {
        buf = spectral_frame_buffers{};
        return false;
    }
    if (!amplitude_workspace_init(buf.spectrum, n)) {
        buf = spectral_frame_buffers{};
        return false;
    }
    return true;
}

namespace {

struct search_range {
    std::int64_t low = 0;
    std::int64_t high = 0;
};

// Bins searched for the frame's peak: the whole spectrum, or with a sweep window the bins
// within search_window_cents of the frequency the sweep should have reached.
search_range peak_search_range(const spectral_frame_setup& s, const wav_audio& ref, std::uint64_t first_frame) {
    const std::int64_t half = static_cast<std::int64_t>(s.n / 2);
    const bool windowed = s.sweep_window && (s.profile == spectral_profile_kind::freq_sweep ||
                                             s.profile == spectral_profile_kind::amp_sweep);
    if (!windowed) return {0, half - 1};
    const sweep_window_settings& w = *s.sweep_window;
    const double bin_hz = static_cast<double>(ref.sample_rate) / static_cast<double>(s.n);
    double f = w.test_freq_hz;
    if (s.profile == spectral_profile_kind::freq_sweep) {
        double p = (static_cast<double>(s.n) * 0.5 + static_cast<double>(first_frame)) /
                   static_cast<double>(ref.frame_count);
        p = std::clamp(p, 0.0, 1.0);
        if (w.shape == 1 && w.start_hz > 0.0)
            f = w.start_hz * std::pow(w.end_hz / w.start_hz, p);
        else
            f = w.start_hz + (w.end_hz - w.start_hz) * p;
    }
    const double c = w.search_window_cents;
    // Bin positions are clamped to a range every later clamp undoes, so that absurd
    // settings (a window of 1e6 cents, say) cannot overflow the conversion.
    auto bin_of = [half](double v) -> std::int64_t {
        if (std::isnan(v)) return 0;
        return static_cast<std::int64_t>(std::clamp(v, -4.0 * static_cast<double>(half), 4.0 * static_cast<double>(half)));
    };
    std::int64_t low = bin_of(std::floor(f * std::pow(2.0, -c / 1200.0) / bin_hz));
    std::int64_t high = bin_of(std::ceil(f * std::pow(2.0, c / 1200.0) / bin_hz));
    const std::int64_t centre = bin_of(std::round(f / bin_hz));
    if (low >= centre) low = centre - 1;
    if (high <= centre) high = centre + 1;
    low = std::max<std::int64_t>(low, 0);
    high = std::max<std::int64_t>(std::min(high, half - 1), 0);
    low = std::min({low, half - 1, high});
    return {low, high};
}

// Multitone peaks: every run of bins above their band's peak threshold marks its highest
// bin. A run ends at the first bin strictly below the threshold.
void mark_multitone_peaks(const spectral_frame_setup& s, const double* r, std::uint8_t* peak) {
    const std::uint64_t half = s.n / 2;
    bool in_run = false;
    std::uint64_t best = 0;
    for (std::uint64_t b = 0; b < half; ++b) {
        const double threshold = s.bands[s.band_of_bin[b]].peak_threshold_db;
        if (!in_run) {
            if (r[b] > threshold) {
                in_run = true;
                best = b;
            }
        } else if (r[b] < threshold) {
            peak[best] = 1;
            in_run = false;
        } else if (r[b] > r[best]) {
            best = b;
        }
    }
    if (in_run) peak[best] = 1;
}

}  // namespace

spectral_frame_result compare_spectral_frame(const wav_audio& ref, const wav_audio& dut, std::uint32_t channel,
                                             std::int64_t offset, std::uint64_t first_frame,
                                             const spectral_frame_setup& s, spectral_frame_buffers& buf,
                                             double* ratios_out) {
    spectral_frame_result res;
    const std::uint64_t half = s.n / 2;
    double* r = buf.ref_db.data();
    double* d = buf.dut_db.data();
    std::uint8_t* peak = buf.peak.data();
    // Bins below every threshold read -infinity: they compare below every level exactly
    // as their true values would, and are floored before any difference is taken.
    amplitude_spectrum_db_above(buf.spectrum, ref, channel, first_frame, buf.ref_db, s.lowest_threshold_db);
    amplitude_spectrum_db_above(buf.spectrum, dut, channel,
                                static_cast<std::uint64_t>(static_cast<std::int64_t>(first_frame) + offset), buf.dut_db,
                                s.lowest_threshold_db);
    std::fill(peak, peak + half, std::uint8_t{0});

    const search_range range = peak_search_range(s, ref, first_frame);
    std::uint64_t peak_bin = static_cast<std::uint64_t>(range.low);
    for (std::int64_t b = range.low; b <= range.high; ++b)
        if (r[b] > r[peak_bin]) peak_bin = static_cast<std::uint64_t>(b);
    const double level = r[peak_bin];
    const std::uint8_t peak_row = s.band_of_bin[peak_bin];
    const spectral_band& pb = s.bands[peak_row];

    const bool relative = s.profile == spectral_profile_kind::amp_sweep && s.relative_floor_db.has_value();
    double effective_floor = pb.noise_floor_db;
    bool judged = false;
    switch (s.profile) {
        case spectral_profile_kind::amp_sweep:
            if (relative) effective_floor = std::max(level + *s.relative_floor_db, pb.noise_floor_db);
            judged = level > effective_floor;
            if (judged && level > pb.peak_threshold_db) peak[peak_bin] = 1;
            break;
        case spectral_profile_kind::freq_sweep:
            judged = level > pb.peak_threshold_db;
            if (judged && level > pb.noise_floor_db) peak[peak_bin] = 1;
            break;
        case spectral_profile_kind::freq_domain_multitone:
            judged = level > pb.noise_floor_db;
            if (judged) mark_multitone_peaks(s, r, peak);
            break;
    }
    if (!judged) {
        res.gated = true;
        return res;
    }

    for (std::uint64_t b = 0; b < half; ++b) {
        const std::uint8_t row = s.band_of_bin[b];
        const spectral_band& band = s.bands[row];
        const double floor_db = relative && row == peak_row ? effective_floor : band.noise_floor_db;
        if (r[b] <= floor_db && d[b] <= floor_db) {
            ++res.bins_excluded;
            continue;
        }
        const double rf = std::max(floor_db, r[b]);
        const double df = std::max(floor_db, d[b]);
        const double diff = df - rf;
        const bool is_peak = peak[b] != 0;
        const double tolerance = is_peak                                            ? band.peak_tolerance_db
                                 : std::max(rf, df) <= band.low_level_signal_threshold_db ? band.low_level_signal_tolerance_db
                                                                                     : band.signal_tolerance_db;
        const double ratio = std::fabs(diff) / tolerance;
        ratios_out[res.bins_compared++] = ratio;
        if (ratio > spectral_fail_ratio) {
            ++res.bins_failed;
            if (is_peak) res.peak_failed = true;
        }
        if (ratio > res.worst_ratio) {
            res.worst_bin = static_cast<std::int64_t>(b);
            res.worst_ratio = ratio;
            res.worst_diff_db = diff;
            res.worst_is_peak = is_peak;
        }
    }
    return res;
}

}  // namespace veltrane
