#include "config/run_config.h"

#include <cmath>
#include <cstdio>

namespace veltrane {
namespace {

using o = command_line_overrides;

// A command-line switch that forces one bool parameter, with the label it records.
struct switch_flag {
    bool o::*given;
    param_id id;
    bool value;
    std::string_view label;
};

constexpr switch_flag switch_flags[] = {
    {&o::deepscan, param_id::time_domain_enabled, true, "--deepscan"},
    {&o::impulse, param_id::impulse_template_enabled, true, "--impulse"},
    {&o::bitaccuracy, param_id::bit_accuracy_enabled, true, "--bitaccuracy"},
    {&o::bitexact, param_id::bit_exact_gates_overall, true, "--bitexact"},
    {&o::no_distortion, param_id::distortion_enabled, false, "--no-distortion"},
    {&o::no_loudness, param_id::loudness_enabled, false, "--no-loudness"},
    {&o::loudness, param_id::loudness_gates_overall, true, "--loudness"},
    {&o::levelfidelity_ref_only, param_id::level_fidelity_gates_overall, false, "--levelfidelity-ref-only"},
    {&o::artifact_ref_only, param_id::artifact_gates_overall, false, "--artifact-ref-only"},
};

constexpr std::string_view profile_freq_domain = "freq_domain_multitone";
constexpr std::string_view profile_freq_sweep = "freq_sweep";
constexpr std::string_view profile_amp_sweep = "amp_sweep";
constexpr std::string_view level_profile_impulse = "impulse";

void set_source(resolved_param& p, param_source source) {
    p.source = source;
    p.label = param_source_label(source);
}

void take_layer_value(resolved_param& p, const param_descriptor& d, const layer_value& v, param_source source) {
    p.present = true;
    switch (d.type) {
        case param_type::number: p.number = v.number; break;
        case param_type::integer: p.integer = v.integer; break;
        case param_type::boolean: p.boolean = v.boolean; break;
        case param_type::text: p.text = v.text; break;
        case param_type::band_list:
        case param_type::snapshot_list: break;
    }
    set_source(p, source);
}

void take_constant(resolved_param& p, const param_descriptor& d) {
    p.present = true;
    p.number = d.builtin_number;
    p.integer = d.builtin_integer;
    p.boolean = d.builtin_bool;
    p.text.assign(d.builtin_text);
    set_source(p, param_source::builtin);
}

// The value of `id` from the first of the two layers that sets it; false when neither
// does. Either layer may be absent.
bool resolve_from_files(resolved_param& p, param_id id, const config_layer* config_file, const config_layer* defaults) {
    const param_descriptor& d = param_info(id);
    if (config_file && config_file->is_set(id)) {
        take_layer_value(p, d, (*config_file)[id], param_source::config_file);
        return true;
    }
    if (defaults && defaults->is_set(id)) {
        take_layer_value(p, d, (*defaults)[id], param_source::defaults_file);
        return true;
    }
    return false;
}

// Resolves a scalar parameter from the files and its built-in rule. The fallback and
// level-profile rules read other resolved parameters, so those run in a second pass.
void resolve_scalar(run_config& cfg, const param_descriptor& d, const config_layer& config_file,
                    const config_layer& defaults) {
    resolved_param& p = cfg.params[param_index(d.id)];
    if (resolve_from_files(p, d.id, &config_file, &defaults)) return;
    switch (d.rule) {
        case default_rule::constant:
        case default_rule::sweep_implied:  // settled once the profile and snapshots are known
            take_constant(p, d);
            break;
        case default_rule::not_set:
            set_source(p, param_source::builtin);
            break;
        case default_rule::rate_scaled: {
            scaled_default s = builtin_for_rate(d.builtin_integer, cfg.sample_rate_hz);
            p.present = true;
            p.integer = s.value;
            set_source(p, s.source);
            break;
        }
        case default_rule::fallback: {
            const resolved_param& f = cfg.params[param_index(d.fallback)];
            p.present = f.present;
            p.number = f.number;
            set_source(p, f.source);
            break;
        }
        case default_rule::automatic_fft_size: {
            scaled_default s = automatic_fft_size(cfg.sample_rate_hz, cfg.overlap_frames);
            p.present = true;
            p.integer = s.value;
            set_source(p, s.source);
            break;
        }
        case default_rule::level_profile: {
            take_constant(p, d);
            if (cfg.text(param_id::level_fidelity_profile) == level_profile_impulse) p.number = d.impulse_number;
            break;
        }
    }
}

void resolve_profile(run_config& cfg) {
    resolved_param& p = cfg.params[param_index(param_id::spectral_profile)];
    if (cfg.command_line.ampsweep || cfg.command_line.freqsweep) {
        p.present = true;
        p.text.assign(cfg.command_line.ampsweep ? profile_amp_sweep : profile_freq_sweep);
        set_source(p, param_source::command_line);
    }
    if (p.text == profile_freq_sweep) {
        cfg.profile_kind = spectral_profile_kind::freq_sweep;
    } else if (p.text == profile_amp_sweep) {
        cfg.profile_kind = spectral_profile_kind::amp_sweep;
    } else {
        cfg.profile_kind = spectral_profile_kind::freq_domain_multitone;
    }
    cfg.sweep_profile = p.text == profile_freq_sweep || p.text == profile_amp_sweep;
}

void take_layer_snapshots(snapshot_plan& plan, const config_layer& layer, param_source source) {
    plan.active = true;
    plan.source = source;
    if (layer.snapshot_count > 0) {
        plan.count = static_cast<std::uint64_t>(layer.snapshot_count);
    } else {
        plan.times_sec = layer.snapshot_times_sec;
        plan.count = plan.times_sec.size();
    }
}

void resolve_snapshots(run_config& cfg, const config_layer& config_file, const config_layer& defaults) {
    snapshot_plan& plan = cfg.snapshots;
    if (cfg.command_line.snapshots) {
        long n = *cfg.command_line.snapshots;
        plan.active = true;
        plan.count = n > 0 ? static_cast<std::uint64_t>(n) : 0;
        plan.source = param_source::command_line;
    } else if (config_file.is_set(param_id::spectral_snapshots)) {
        take_layer_snapshots(plan, config_file, param_source::config_file);
    } else if (defaults.is_set(param_id::spectral_snapshots)) {
        take_layer_snapshots(plan, defaults, param_source::defaults_file);
    }
    resolved_param& p = cfg.params[param_index(param_id::spectral_snapshots)];
    p.present = plan.active;
    p.integer = static_cast<std::int64_t>(plan.count);
    set_source(p, plan.source);
}

void resolve_bands(run_config& cfg, const config_layer& config_file, const config_layer& defaults) {
    resolved_param& p = cfg.params[param_index(param_id::spectral_bands)];
    if (!config_file.bands.empty()) {
        cfg.bands = config_file.bands;
        set_source(p, param_source::config_file);
    } else if (!defaults.bands.empty()) {
        cfg.bands = defaults.bands;
        set_source(p, param_source::defaults_file);
    } else {
        set_source(p, param_source::builtin);
    }
    p.present = !cfg.bands.empty();
    p.integer = static_cast<std::int64_t>(cfg.bands.size());
}

void apply_switch_flags(run_config& cfg) {
    const command_line_overrides& cl = cfg.command_line;
    for (const switch_flag& f : switch_flags) {
        if (!(cl.*f.given)) continue;
        resolved_param& p = cfg.params[param_index(f.id)];
        p.present = true;
        p.boolean = f.value;
        p.source = param_source::command_line;
        p.label = f.label;
    }
    // --bitexact only decides the gating; whether the check runs then stays with the files.
    if (cl.no_bitexact && !cl.bitexact) {
        resolved_param& p = cfg.params[param_index(param_id::bit_exact_enabled)];
        p.present = true;
        p.boolean = false;
        p.source = param_source::command_line;
        p.label = "--no-bitexact";
    }
}

void resolve_spectral_modes(run_config& cfg) {
    resolved_param& continuous = cfg.params[param_index(param_id::spectral_continuous)];
    if (continuous.source == param_source::builtin && cfg.sweep_profile && !cfg.snapshots.active) {
        continuous.boolean = true;
        set_source(continuous, param_source::sweep_profile);
    }

    const resolved_param& start = cfg[param_id::spectral_freq_sweep_start_hz];
    const resolved_param& end = cfg[param_id::spectral_freq_sweep_end_hz];
    const resolved_param& test = cfg[param_id::spectral_amp_sweep_test_freq_hz];
    cfg.sweep_window_active = (start.present && end.present) || test.present;
    if (cfg.sweep_window_active) {
        cfg.sweep_window.shape = cfg.text(param_id::spectral_freq_sweep_shape) == "log" ? 1u : 0u;
        cfg.sweep_window.start_hz = start.present ? start.number : 0.0;
        cfg.sweep_window.end_hz = end.present ? end.number : 0.0;
        cfg.sweep_window.test_freq_hz = test.present ? test.number : 0.0;
        cfg.sweep_window.search_window_cents = cfg.number(param_id::spectral_sweep_search_window_cents);
    }

    cfg.edge_skip_active = cfg.sweep_profile && continuous.boolean && !cfg.snapshots.active;
    cfg.edge_skip_samples_for_check =
        cfg.edge_skip_active ? cfg.integer(param_id::spectral_sweep_edge_skip_samples) : 0;
}

std::string format_line(const char* format, auto... args) {
    char line[512];
    std::snprintf(line, sizeof line, format, args...);
    return line;
}

// llround(rate * seconds), kept defined for any input: the commands range-check the
// setting (0 to 86400 s), but resolution itself must never reach an out-of-range
// conversion, so a NaN or negative window reads as 0 and a larger one is capped at
// 2^53 samples, far beyond any file.
std::int64_t search_window_samples(std::uint32_t sample_rate_hz, double seconds) {
    constexpr double max_samples = 9007199254740992.0;  // 2^53
    const double samples = static_cast<double>(sample_rate_hz) * seconds;
    if (!(samples > 0.0)) return 0;
    return std::llround(samples < max_samples ? samples : max_samples);
}

// Written as membership so that a NaN fraction counts as outside the range.
bool outside_overlap_range(double fraction) { return !(fraction >= 0.0 && fraction <= 0.5); }

}  // namespace

bool run_config::set_in_file(param_id id) const {
    param_source s = source(id);
    return s == param_source::config_file || s == param_source::defaults_file;
}

alignment_settings resolve_alignment_settings(const config_layer& config_file, const defaults_record& defaults,
                                              std::uint32_t sample_rate_hz) {
    auto number = [&](param_id id, const config_layer* config) {
        resolved_param p;
        if (!resolve_from_files(p, id, config, id == param_id::general_low_level_signal_threshold_db
                                                   ? &defaults.analysis
                                                   : &defaults.top_level)) {
            take_constant(p, param_info(id));
        }
        return p;
    };
    alignment_settings s;
    s.min_confidence = number(param_id::alignment_fine_align_confidence_threshold, nullptr).number;
    s.agreement_tolerance_samples = number(param_id::alignment_fine_align_agreement_tolerance_samples, nullptr).integer;
    double max_search_sec = number(param_id::alignment_fine_align_max_search_sec, nullptr).number;
    s.max_search_samples = search_window_samples(sample_rate_hz, max_search_sec);
    s.low_level_threshold_db = number(param_id::general_low_level_signal_threshold_db, &config_file).number;
    return s;
}

run_config resolve_run_config(const command_line_overrides& command_line, const config_layer& config_file,
                              const defaults_record& defaults, std::uint32_t sample_rate_hz,
                              std::uint64_t overlap_frames) {
    run_config cfg;
    cfg.sample_rate_hz = sample_rate_hz;
    cfg.overlap_frames = overlap_frames;
    cfg.command_line = command_line;
    cfg.tester = resolve_tester_identity(defaults);

    const config_layer& analysis = defaults.analysis;
    for (bool dependent_pass : {false, true}) {
        for (const param_descriptor& d : param_table) {
            if (!is_check_section(d.section)) continue;
            if (d.type == param_type::band_list || d.type == param_type::snapshot_list) continue;
            bool dependent = d.rule == default_rule::fallback || d.rule == default_rule::level_profile;
            if (dependent == dependent_pass) resolve_scalar(cfg, d, config_file, analysis);
        }
    }
    resolve_profile(cfg);
    resolve_snapshots(cfg, config_file, analysis);
    resolve_bands(cfg, config_file, analysis);
    apply_switch_flags(cfg);
    resolve_spectral_modes(cfg);
    return cfg;
}

std::optional<std::string> validate_run_config(const run_config& cfg) {
    const std::string& profile = cfg.text(param_id::spectral_profile);
    const char* profile_c = profile.c_str();

    std::int64_t fft_size = cfg.integer(param_id::spectral_fft_size);
    if (!is_supported_fft_size(fft_size)) {
        return format_line(
            "error: spectral_fidelity.fft_size %zu not supported -- must be one of %s (also used by Distortion, which "
            "reads this same field)\n",
            static_cast<std::size_t>(fft_size), supported_fft_sizes_text().c_str());
    }
    if (profile != profile_freq_domain && profile != profile_freq_sweep && profile != profile_amp_sweep) {
        return format_line(
            "error: spectral_fidelity.profile '%s' not recognized -- must be one of \"freq_domain_multitone\", "
            "\"freq_sweep\", \"amp_sweep\"\n",
            profile_c);
    }
    bool relative_set = cfg.present(param_id::spectral_relative_noise_floor_db);
    if (relative_set && profile != profile_amp_sweep) {
        return format_line(
            "error: spectral_fidelity.relative_noise_floor_db only applies to profile=\"amp_sweep\" (got "
            "profile=\"%s\")\n",
            profile_c);
    }
    if (relative_set && !cfg.bands.empty()) {
        return std::string(
            "error: spectral_fidelity.bands and spectral_fidelity.relative_noise_floor_db cannot both be set -- use "
            "only one of them\n");
    }
    if (!cfg.bands.empty()) {
        double nyquist_hz = static_cast<double>(cfg.sample_rate_hz) / 2.0;
        bool ascending = true;
        for (std::size_t i = 1; i < cfg.bands.size(); ++i) {
            if (!(cfg.bands[i].upper_freq_hz > cfg.bands[i - 1].upper_freq_hz)) ascending = false;
        }
        if (!ascending || !(cfg.bands.back().upper_freq_hz >= nyquist_hz)) {
            return format_line(
                "error: spectral_fidelity.bands must have strictly ascending upper_freq_hz, and the last band's "
                "upper_freq_hz must cover the Nyquist frequency (%.1f Hz)\n",
                nyquist_hz);
        }
    }
    bool start_set = cfg.present(param_id::spectral_freq_sweep_start_hz);
    bool end_set = cfg.present(param_id::spectral_freq_sweep_end_hz);
    if (start_set != end_set) {
        return std::string(
            "error: spectral_fidelity.freq_sweep_start_hz and freq_sweep_end_hz must both be set together, or "
            "neither\n");
    }
    if (start_set && profile != profile_freq_sweep) {
        return format_line(
            "error: spectral_fidelity.freq_sweep_start_hz/end_hz/shape only apply to profile=\"freq_sweep\" (got "
            "profile=\"%s\")\n",
            profile_c);
    }
    if (cfg.present(param_id::spectral_amp_sweep_test_freq_hz) && profile != profile_amp_sweep) {
        return format_line(
            "error: spectral_fidelity.amp_sweep_test_freq_hz only applies to profile=\"amp_sweep\" (got "
            "profile=\"%s\")\n",
            profile_c);
    }
    if (cfg.set_in_file(param_id::spectral_sweep_search_window_cents) && !cfg.sweep_window_active) {
        return std::string(
            "error: spectral_fidelity.sweep_search_window_cents only applies once sweep peak windowing is active "
            "(freq_sweep_start_hz/end_hz for profile=\"freq_sweep\", or amp_sweep_test_freq_hz for "
            "profile=\"amp_sweep\")\n");
    }
    const std::string& shape = cfg.text(param_id::spectral_freq_sweep_shape);
    if (start_set && shape != "linear" && shape != "log") {
        return format_line(
            "error: spectral_fidelity.freq_sweep_shape '%s' not recognized -- must be \"linear\" or \"log\"\n",
            shape.c_str());
    }
    if (cfg.set_in_file(param_id::spectral_sweep_edge_skip_samples)) {
        if (profile == profile_freq_domain) {
            return format_line(
                "error: spectral_fidelity.sweep_edge_skip_samples only applies to profile=\"freq_sweep\" or "
                "\"amp_sweep\" (got profile=\"%s\")\n",
                profile_c);
        }
        std::int64_t skip = cfg.integer(param_id::spectral_sweep_edge_skip_samples);
        if (skip < 0) {
            return format_line("error: spectral_fidelity.sweep_edge_skip_samples must be 0 or more, got %ld\n",
                               static_cast<long>(skip));
        }
    }
    bool continuous = cfg.flag(param_id::spectral_continuous);
    if (cfg.set_in_file(param_id::spectral_overlap_fraction) && !continuous) {
        return std::string(
            "error: spectral_fidelity.overlap_fraction only applies when spectral_fidelity.continuous is true\n");
    }
    if (continuous) {
        double overlap = cfg.number(param_id::spectral_overlap_fraction);
        if (outside_overlap_range(overlap)) {
            return format_line("error: spectral_fidelity.overlap_fraction must be in [0, 0.5], got %.4f\n", overlap);
        }
        if (cfg.snapshots.active) {
            return std::string(
                "error: spectral_fidelity.snapshots and spectral_fidelity.continuous cannot both be set -- "
                "multi-snapshot and continuous scan are alternate modes\n");
        }
    } else if (cfg.snapshots.active && (cfg.snapshots.count < 1 || cfg.snapshots.count > max_snapshots)) {
        return format_line("error: spectral_fidelity.snapshots must resolve to between 1 and %d snapshots, got %zu\n",
                           static_cast<int>(max_snapshots), static_cast<std::size_t>(cfg.snapshots.count));
    }
    if (cfg.set_in_file(param_id::distortion_overlap_fraction)) {
        if (!cfg.flag(param_id::distortion_continuous)) {
            return std::string(
                "error: distortion.overlap_fraction only applies when distortion.continuous is true\n");
        }
        double overlap = cfg.number(param_id::distortion_overlap_fraction);
        if (outside_overlap_range(overlap)) {
            return format_line("error: distortion.overlap_fraction must be in [0, 0.5], got %.4f\n", overlap);
        }
    }
    return std::nullopt;
}

settings_resolution resolve_check_settings(const command_line_overrides& command_line,
                                           const config_layer& config_file, const defaults_record& defaults,
                                           std::uint32_t sample_rate_hz, std::uint64_t overlap_frames) {
    settings_resolution r;
    r.config = resolve_run_config(command_line, config_file, defaults, sample_rate_hz, overlap_frames);
    r.error_message = validate_run_config(r.config);
    return r;
}

}  // namespace veltrane
