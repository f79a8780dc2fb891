#include "config/settings_ranges.h"

#include <array>
#include <cstdio>

namespace veltrane {
namespace {

// Levels in dBFS: -300 lies far below the -200 dBFS that stands for no level at all, and
// +100 dB is far above any level a float file can sensibly hold.
constexpr double level_min_db = -300.0;
constexpr double level_max_db = 100.0;
// Tolerances and level differences in dB: 300 dB spans more than the whole range of a
// 32-bit sample (about 193 dB).
constexpr double tolerance_max_db = 300.0;
// Bit-error measures run at 6 dB per bit: 400 dB covers every bit of a 64-bit value.
constexpr double bit_error_max_db = 400.0;
// Frequencies in Hz: above 0, at most 1 MHz (five times the Nyquist frequency of the
// highest accepted rate, so a setting shared between rates stays valid).
constexpr double frequency_max_hz = 1e6;
// Times in seconds: at most one day, longer than any file the reader can hold in memory;
// a day at 192 kHz (1.7e10 samples) still converts to samples without overflow.
constexpr double seconds_max = 86400.0;
// Free ratios, factors and severities: large enough for any real setting.
constexpr double factor_max = 1e6;
// Percent tolerances of a measured level or peak: up to 100 times the value itself.
constexpr double percent_tolerance_max = 10000.0;
// Cents: ten octaves.
constexpr double cents_max = 12000.0;
// Sample counts held in 32-bit fields.
constexpr double samples_max = 2147483647.0;  // 2^31 - 1

using enum param_id;

constexpr setting_range level(param_id id) { return {id, level_min_db, level_max_db, false}; }
constexpr setting_range tolerance(param_id id) { return {id, 0.0, tolerance_max_db, false}; }
constexpr setting_range between(param_id id, double min, double max) { return {id, min, max, false}; }
constexpr setting_range above_zero(param_id id, double max) { return {id, 0.0, max, true}; }

constexpr setting_range ranges[] = {
    level(general_low_level_signal_threshold_db),
    between(general_length_mismatch_tolerance_pct, 0.0, 100.0),

    level(level_fidelity_noise_floor_db),
    tolerance(level_fidelity_p99_tolerance_db),
    between(level_fidelity_min_sustained_run_ms, 0.0, seconds_max * 1000.0),

    between(artifact_k, 0.0, factor_max),
    level(artifact_noise_floor_db),
    between(artifact_min_severity, 0.0, factor_max),
    between(artifact_min_global_severity, 0.0, factor_max),

    level(spectral_noise_floor_db),
    between(spectral_relative_noise_floor_db, -tolerance_max_db, tolerance_max_db),
    level(spectral_low_level_signal_threshold_db),
    level(spectral_peak_threshold_db),
    tolerance(spectral_signal_tolerance_db),
    tolerance(spectral_low_level_signal_tolerance_db),
    tolerance(spectral_peak_tolerance_db),
    above_zero(spectral_freq_sweep_start_hz, frequency_max_hz),
    above_zero(spectral_freq_sweep_end_hz, frequency_max_hz),
    above_zero(spectral_amp_sweep_test_freq_hz, frequency_max_hz),
    between(spectral_sweep_search_window_cents, 0.0, cents_max),

    level(distortion_noise_floor_db),
    between(distortion_tolerance_ratio, 0.0, factor_max),

    between(bit_exact_bit_deviation_db, 0.0, bit_error_max_db),
    between(bit_accuracy_tolerance_db, 0.0, bit_error_max_db),

    level(time_domain_noise_floor_db),
    level(time_domain_peak_threshold_db),
    between(time_domain_peak_tolerance_pct, 0.0, percent_tolerance_max),
    level(time_domain_low_level_signal_threshold_db),
    between(time_domain_low_level_signal_tolerance_pct, 0.0, percent_tolerance_max),
    between(time_domain_signal_tolerance_pct, 0.0, percent_tolerance_max),

    level(impulse_template_peak_threshold_db),
    between(impulse_template_ratio, 0.0, factor_max),
    level(impulse_template_noise_floor_db),

    tolerance(loudness_integrated_tolerance_lu),
    tolerance(loudness_true_peak_tolerance_db),
    level(loudness_true_peak_ceiling_dbtp),

    // A normalised correlation never exceeds 1.
    between(alignment_fine_align_confidence_threshold, 0.0, 1.0),
    between(alignment_fine_align_max_search_sec, 0.0, seconds_max),
    between(alignment_fine_align_agreement_tolerance_samples, 0.0, samples_max),
    between(alignment_sync_psr_threshold, 0.0, factor_max),
    between(alignment_sync_search_window_sec, 0.0, seconds_max),
};

// The limits of the seven keys of a spectral band, in band_keys order.
constexpr std::array<std::string_view, 7> band_key_names{
    "upper_freq_hz",     "noise_floor_db",      "low_level_signal_threshold_db", "peak_threshold_db",
    "signal_tolerance_db", "low_level_signal_tolerance_db", "peak_tolerance_db",
};
constexpr std::array<setting_range, 7> band_ranges{{
    above_zero(param_id::count_, frequency_max_hz),
    level(param_id::count_),
    level(param_id::count_),
    level(param_id::count_),
    tolerance(param_id::count_),
    tolerance(param_id::count_),
    tolerance(param_id::count_),
}};
constexpr setting_range snapshot_time_range = between(param_id::count_, 0.0, seconds_max);

bool inside(const setting_range& r, double v) {
    return (r.min_exclusive ? v > r.min : v >= r.min) && v <= r.max;
}

std::string out_of_range(std::string_view file_label, const std::string& name, double value, const setting_range& r) {
    // "must be between <min> and <max>", or "must be above <min> and at most <max>".
    char line[512];
    std::snprintf(line, sizeof line, "error: %.*s's %s %.10g is out of range -- must be %s %.10g and %s%.10g\n",
                  static_cast<int>(file_label.size()), file_label.data(), name.c_str(), value,
                  r.min_exclusive ? "above" : "between", r.min, r.min_exclusive ? "at most " : "", r.max);
    return line;
}

}  // namespace

std::optional<setting_range> range_of(param_id id) {
    for (const setting_range& r : ranges) {
        if (r.id == id) return r;
    }
    return std::nullopt;
}

std::optional<std::string> check_setting_ranges(const config_layer& layer, std::string_view file_label) {
    for (const param_descriptor& d : param_table) {
        if (!layer.is_set(d.id)) continue;
        if (d.type != param_type::number && d.type != param_type::integer) continue;
        std::optional<setting_range> r = range_of(d.id);
        if (!r) continue;
        double v = d.type == param_type::number ? layer[d.id].number : static_cast<double>(layer[d.id].integer);
        if (!inside(*r, v)) return out_of_range(file_label, param_display_name(d.id), v, *r);
    }
    for (std::size_t b = 0; b < layer.bands.size(); ++b) {
        const spectral_band& band = layer.bands[b];
        const double values[] = {band.upper_freq_hz,      band.noise_floor_db,
                                 band.low_level_signal_threshold_db, band.peak_threshold_db,
                                 band.signal_tolerance_db, band.low_level_signal_tolerance_db,
                                 band.peak_tolerance_db};
        for (std::size_t k = 0; k < band_ranges.size(); ++k) {
            if (inside(band_ranges[k], values[k])) continue;
            std::string name = "spectral_fidelity.bands[" + std::to_string(b) + "]." + std::string(band_key_names[k]);
            return out_of_range(file_label, name, values[k], band_ranges[k]);
        }
    }
    for (std::size_t i = 0; i < layer.snapshot_times_sec.size(); ++i) {
        if (inside(snapshot_time_range, layer.snapshot_times_sec[i])) continue;
        std::string name = "spectral_fidelity.snapshots[" + std::to_string(i) + "].time_sec";
        return out_of_range(file_label, name, layer.snapshot_times_sec[i], snapshot_time_range);
    }
    return std::nullopt;
}

}  // namespace veltrane
