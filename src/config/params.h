#pragma once
// The table of every settings key: its section, name, type, built-in default (constant,
// rate-scaled, fallback or automatic), text capacity, which integer values the loaders
// accept, and whether the report keeps its provenance. The loaders, the resolver and the
// report's Configuration card all walk this one table; nothing else repeats a key name
// or a default.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace veltrane {

// Where a resolved value came from. The numbers are part of the results and the report.
enum class param_source : std::uint32_t {
    builtin = 0,           // "built-in default"
    defaults_file = 1,     // "veltrane-defaults.cfg"
    config_file = 2,       // "--config"
    command_line = 3,      // "command line"
    sweep_profile = 4,     // "implied by sweep profile"
    builtin_for_rate = 5,  // "built-in default for this sample rate"
};

// The label the report shows for a source; any code outside 1..5 shows as the label of
// code 0.
std::string_view param_source_label(param_source source);
std::string_view param_source_label(std::uint32_t code);

// Sections in the order the loaders read them. The ten check sections sit at the top of
// the --config file and inside the `analysis` object of the defaults file; `alignment`
// and `tester` (the top-level "general" object of the defaults file) exist only there.
enum class param_section : std::uint8_t {
    general,
    level_fidelity,
    artifact,
    spectral_fidelity,
    distortion,
    bit_exact,
    bit_accuracy,
    time_domain,
    impulse_template,
    loudness,
    alignment,
    tester,
};
inline constexpr std::size_t check_section_count = 10;  // general .. loudness
inline constexpr std::size_t section_count = 12;

// The object name of a section in the files ("general" for both general sections).
std::string_view section_name(param_section section);
bool is_check_section(param_section section);

enum class param_type : std::uint8_t {
    number,         // double, read with json_get_number
    integer,        // int32, read with json_get_int
    boolean,        // read with json_get_bool
    text,           // read with json_get_string into text_capacity bytes
    band_list,      // spectral_fidelity.bands: up to 5 band objects
    snapshot_list,  // spectral_fidelity.snapshots: a count, true, or up to 25 time objects
};

// How the built-in value is found when neither file sets the key.
enum class default_rule : std::uint8_t {
    constant,            // the builtin_* value of the entry, source builtin
    not_set,             // no value at all (the key stays unset)
    rate_scaled,         // builtin_integer scaled to rates above 48000 Hz (builtin_for_rate)
    fallback,            // the resolved value of `fallback`
    automatic_fft_size,  // chosen from the sample rate and the overlap length
    level_profile,       // builtin_number, or impulse_number when level_fidelity.profile is "impulse"
    sweep_implied,       // builtin_bool, or true (sweep_profile) for a sweep profile without snapshots
};

enum class param_id : std::uint8_t {
    // general (check section)
    general_default_profile,
    general_low_level_signal_threshold_db,
    general_length_mismatch_tolerance_pct,
    // level_fidelity
    level_fidelity_noise_floor_db,
    level_fidelity_p99_tolerance_db,
    level_fidelity_profile,
    level_fidelity_min_sustained_run_ms,
    level_fidelity_gates_overall,
    // artifact
    artifact_window_samples,
    artifact_k,
    artifact_min_run,
    artifact_noise_floor_db,
    artifact_gates_overall,
    artifact_min_severity,
    artifact_min_silence_clip_run,
    artifact_min_global_severity,
    // spectral_fidelity
    spectral_fft_size,
    spectral_profile,
    spectral_noise_floor_db,
    spectral_relative_noise_floor_db,
    spectral_low_level_signal_threshold_db,
    spectral_peak_threshold_db,
    spectral_signal_tolerance_db,
    spectral_low_level_signal_tolerance_db,
    spectral_peak_tolerance_db,
    spectral_bands,
    spectral_continuous,
    spectral_overlap_fraction,
    spectral_snapshots,
    spectral_freq_sweep_start_hz,
    spectral_freq_sweep_end_hz,
    spectral_freq_sweep_shape,
    spectral_amp_sweep_test_freq_hz,
    spectral_sweep_search_window_cents,
    spectral_sweep_edge_skip_samples,
    // distortion
    distortion_noise_floor_db,
    distortion_fundamental_notch_bins,
    distortion_tolerance_ratio,
    distortion_enabled,
    distortion_continuous,
    distortion_overlap_fraction,
    // bit_exact
    bit_exact_bit_deviation_db,
    bit_exact_gates_overall,
    bit_exact_enabled,
    // bit_accuracy
    bit_accuracy_enabled,
    bit_accuracy_tolerance_db,
    // time_domain
    time_domain_enabled,
    time_domain_noise_floor_db,
    time_domain_peak_threshold_db,
    time_domain_peak_tolerance_pct,
    time_domain_low_level_signal_threshold_db,
    time_domain_low_level_signal_tolerance_pct,
    time_domain_signal_tolerance_pct,
    // impulse_template
    impulse_template_enabled,
    impulse_template_peak_threshold_db,
    impulse_template_ratio,
    impulse_template_noise_floor_db,
    impulse_template_frame_size,
    // loudness
    loudness_enabled,
    loudness_integrated_tolerance_lu,
    loudness_true_peak_tolerance_db,
    loudness_true_peak_ceiling_dbtp,
    loudness_gates_overall,
    // alignment (defaults file only)
    alignment_fine_align_confidence_threshold,
    alignment_fine_align_max_search_sec,
    alignment_fine_align_agreement_tolerance_samples,
    alignment_sync_psr_threshold,
    alignment_sync_search_window_sec,
    // tester identity (defaults file only, top-level "general")
    tester_test_engineer,
    tester_test_product,
    tester_test_company_name,
    tester_tester_info_enabled,

    count_
};
inline constexpr std::size_t param_count = static_cast<std::size_t>(param_id::count_);

constexpr std::size_t param_index(param_id id) { return static_cast<std::size_t>(id); }

struct param_descriptor {
    param_id id = param_id::count_;
    param_section section = param_section::general;
    std::string_view key;
    param_type type = param_type::number;
    default_rule rule = default_rule::constant;
    double builtin_number = 0.0;
    std::int64_t builtin_integer = 0;  // for rate_scaled: the value at 48000 Hz and below
    bool builtin_bool = false;
    std::string_view builtin_text;
    double impulse_number = 0.0;              // level_profile: the value under profile "impulse"
    param_id fallback = param_id::count_;     // fallback: the parameter whose value is used
    std::size_t text_capacity = 0;            // text: buffer bytes; at most capacity - 1 characters
    bool positive_only = false;               // integer: the loaders accept only values above 0
    bool source_kept = false;                 // the report shows this value's provenance
};

namespace param_table_detail {

constexpr param_descriptor number_key(param_id id, param_section s, std::string_view key, double builtin,
                                      bool kept = false) {
    param_descriptor d{};
    d.id = id;
    d.section = s;
    d.key = key;
    d.type = param_type::number;
    d.builtin_number = builtin;
    d.source_kept = kept;
    return d;
}

constexpr param_descriptor unset_number_key(param_id id, param_section s, std::string_view key, bool kept = false) {
    param_descriptor d = number_key(id, s, key, 0.0, kept);
    d.rule = default_rule::not_set;
    return d;
}

constexpr param_descriptor fallback_number_key(param_id id, param_section s, std::string_view key, param_id fallback) {
    param_descriptor d = number_key(id, s, key, 0.0);
    d.rule = default_rule::fallback;
    d.fallback = fallback;
    return d;
}

constexpr param_descriptor impulse_number_key(param_id id, param_section s, std::string_view key, double builtin,
                                              double impulse, bool kept) {
    param_descriptor d = number_key(id, s, key, builtin, kept);
    d.rule = default_rule::level_profile;
    d.impulse_number = impulse;
    return d;
}

constexpr param_descriptor integer_key(param_id id, param_section s, std::string_view key, std::int64_t builtin,
                                       bool positive_only, bool kept = false) {
    param_descriptor d{};
    d.id = id;
    d.section = s;
    d.key = key;
    d.type = param_type::integer;
    d.builtin_integer = builtin;
    d.positive_only = positive_only;
    d.source_kept = kept;
    return d;
}

constexpr param_descriptor scaled_integer_key(param_id id, param_section s, std::string_view key,
                                              std::int64_t base_at_48k, bool positive_only, bool kept) {
    param_descriptor d = integer_key(id, s, key, base_at_48k, positive_only, kept);
    d.rule = default_rule::rate_scaled;
    return d;
}

constexpr param_descriptor bool_key(param_id id, param_section s, std::string_view key, bool builtin,
                                    bool kept = false) {
    param_descriptor d{};
    d.id = id;
    d.section = s;
    d.key = key;
    d.type = param_type::boolean;
    d.builtin_bool = builtin;
    d.source_kept = kept;
    return d;
}

constexpr param_descriptor text_key(param_id id, param_section s, std::string_view key, std::size_t capacity,
                                    std::string_view builtin, bool kept = false) {
    param_descriptor d{};
    d.id = id;
    d.section = s;
    d.key = key;
    d.type = param_type::text;
    d.text_capacity = capacity;
    d.builtin_text = builtin;
    d.source_kept = kept;
    return d;
}

constexpr param_descriptor with_rule(param_descriptor d, default_rule rule) {
    d.rule = rule;
    return d;
}

constexpr param_descriptor list_key(param_id id, param_section s, std::string_view key, param_type type) {
    param_descriptor d{};
    d.id = id;
    d.section = s;
    d.key = key;
    d.type = type;
    d.rule = default_rule::not_set;
    d.source_kept = true;
    return d;
}

using enum param_id;
using enum param_section;

// Text capacities in bytes including the NUL: profile names hold 31 characters, the
// level-fidelity profile 15, tester identity texts 255.
inline constexpr std::size_t name_capacity = 32;
inline constexpr std::size_t level_profile_capacity = 16;
inline constexpr std::size_t tester_text_capacity = 256;

// Rate-scaled integers are given at 48000 Hz and below.
inline constexpr std::int64_t artifact_window_at_48k = 64;
inline constexpr std::int64_t artifact_silence_clip_run_at_48k = 8;
inline constexpr std::int64_t sweep_edge_skip_at_48k = 4096;

inline constexpr std::array<param_descriptor, param_count> table{{
    text_key(general_default_profile, general, "default_profile", name_capacity, ""),
    number_key(general_low_level_signal_threshold_db, general, "low_level_signal_threshold_db", -70.0),
    number_key(general_length_mismatch_tolerance_pct, general, "length_mismatch_tolerance_pct", 1.0),

    impulse_number_key(level_fidelity_noise_floor_db, level_fidelity, "noise_floor_db", -80.0, -30.0, false),
    impulse_number_key(level_fidelity_p99_tolerance_db, level_fidelity, "p99_tolerance_db", 1.02, 1.94, true),
    text_key(level_fidelity_profile, level_fidelity, "profile", level_profile_capacity, "general", true),
    number_key(level_fidelity_min_sustained_run_ms, level_fidelity, "min_sustained_run_ms", 20.0, true),
    bool_key(level_fidelity_gates_overall, level_fidelity, "gates_overall", true, true),

    scaled_integer_key(artifact_window_samples, artifact, "window_samples", artifact_window_at_48k, true, true),
    number_key(artifact_k, artifact, "k", 6.0),
    integer_key(artifact_min_run, artifact, "min_run", 1, true),
    number_key(artifact_noise_floor_db, artifact, "noise_floor_db", -80.0),
    bool_key(artifact_gates_overall, artifact, "gates_overall", true, true),
    number_key(artifact_min_severity, artifact, "min_severity", 4.0, true),
    scaled_integer_key(artifact_min_silence_clip_run, artifact, "min_silence_clip_run",
                       artifact_silence_clip_run_at_48k, true, true),
    number_key(artifact_min_global_severity, artifact, "min_global_severity", 100.0, true),

    with_rule(integer_key(spectral_fft_size, spectral_fidelity, "fft_size", 8192, true, true),
              default_rule::automatic_fft_size),
    text_key(spectral_profile, spectral_fidelity, "profile", name_capacity, "freq_domain_multitone", true),
    number_key(spectral_noise_floor_db, spectral_fidelity, "noise_floor_db", -100.0),
    unset_number_key(spectral_relative_noise_floor_db, spectral_fidelity, "relative_noise_floor_db", true),
    fallback_number_key(spectral_low_level_signal_threshold_db, spectral_fidelity, "low_level_signal_threshold_db",
                        general_low_level_signal_threshold_db),
    number_key(spectral_peak_threshold_db, spectral_fidelity, "peak_threshold_db", -60.0),
    number_key(spectral_signal_tolerance_db, spectral_fidelity, "signal_tolerance_db", 5.0),
    number_key(spectral_low_level_signal_tolerance_db, spectral_fidelity, "low_level_signal_tolerance_db", 10.0),
    number_key(spectral_peak_tolerance_db, spectral_fidelity, "peak_tolerance_db", 1.0, true),
    list_key(spectral_bands, spectral_fidelity, "bands", param_type::band_list),
    with_rule(bool_key(spectral_continuous, spectral_fidelity, "continuous", false, true), default_rule::sweep_implied),
    number_key(spectral_overlap_fraction, spectral_fidelity, "overlap_fraction", 0.0, true),
    list_key(spectral_snapshots, spectral_fidelity, "snapshots", param_type::snapshot_list),
    unset_number_key(spectral_freq_sweep_start_hz, spectral_fidelity, "freq_sweep_start_hz"),
    unset_number_key(spectral_freq_sweep_end_hz, spectral_fidelity, "freq_sweep_end_hz"),
    text_key(spectral_freq_sweep_shape, spectral_fidelity, "freq_sweep_shape", name_capacity, "linear"),
    unset_number_key(spectral_amp_sweep_test_freq_hz, spectral_fidelity, "amp_sweep_test_freq_hz"),
    number_key(spectral_sweep_search_window_cents, spectral_fidelity, "sweep_search_window_cents", 50.0),
    scaled_integer_key(spectral_sweep_edge_skip_samples, spectral_fidelity, "sweep_edge_skip_samples",
                       sweep_edge_skip_at_48k, false, true),

    number_key(distortion_noise_floor_db, distortion, "noise_floor_db", -100.0),
    integer_key(distortion_fundamental_notch_bins, distortion, "fundamental_notch_bins", 20, true),
    number_key(distortion_tolerance_ratio, distortion, "tolerance_ratio", 0.01),
    bool_key(distortion_enabled, distortion, "enabled", true),
    bool_key(distortion_continuous, distortion, "continuous", false),
    number_key(distortion_overlap_fraction, distortion, "overlap_fraction", 0.0),

    number_key(bit_exact_bit_deviation_db, bit_exact, "bit_deviation_db", 0.0),
    bool_key(bit_exact_gates_overall, bit_exact, "gates_overall", false, true),
    bool_key(bit_exact_enabled, bit_exact, "enabled", true),

    bool_key(bit_accuracy_enabled, bit_accuracy, "enabled", false, true),
    number_key(bit_accuracy_tolerance_db, bit_accuracy, "tolerance_db", 108.0),

    bool_key(time_domain_enabled, time_domain, "enabled", false),
    number_key(time_domain_noise_floor_db, time_domain, "noise_floor_db", -80.0),
    number_key(time_domain_peak_threshold_db, time_domain, "peak_threshold_db", -60.0),
    number_key(time_domain_peak_tolerance_pct, time_domain, "peak_tolerance_pct", 10.0),
    fallback_number_key(time_domain_low_level_signal_threshold_db, time_domain, "low_level_signal_threshold_db",
                        general_low_level_signal_threshold_db),
    number_key(time_domain_low_level_signal_tolerance_pct, time_domain, "low_level_signal_tolerance_pct", 50.0),
    number_key(time_domain_signal_tolerance_pct, time_domain, "signal_tolerance_pct", 50.0),

    bool_key(impulse_template_enabled, impulse_template, "enabled", false),
    number_key(impulse_template_peak_threshold_db, impulse_template, "peak_threshold_db", -10.0),
    number_key(impulse_template_ratio, impulse_template, "ratio", 1.25),
    number_key(impulse_template_noise_floor_db, impulse_template, "noise_floor_db", -30.0),
    integer_key(impulse_template_frame_size, impulse_template, "frame_size", 8192, true),

    bool_key(loudness_enabled, loudness, "enabled", true),
    number_key(loudness_integrated_tolerance_lu, loudness, "integrated_tolerance_lu", 0.5),
    number_key(loudness_true_peak_tolerance_db, loudness, "true_peak_tolerance_db", 0.5),
    unset_number_key(loudness_true_peak_ceiling_dbtp, loudness, "true_peak_ceiling_dbtp"),
    bool_key(loudness_gates_overall, loudness, "gates_overall", false, true),

    number_key(alignment_fine_align_confidence_threshold, alignment, "fine_align_confidence_threshold", 0.9),
    number_key(alignment_fine_align_max_search_sec, alignment, "fine_align_max_search_sec", 0.1),
    integer_key(alignment_fine_align_agreement_tolerance_samples, alignment,
                "fine_align_agreement_tolerance_samples", 2, false),
    number_key(alignment_sync_psr_threshold, alignment, "sync_psr_threshold", 6.0),
    number_key(alignment_sync_search_window_sec, alignment, "sync_search_window_sec", 45.0),

    with_rule(text_key(tester_test_engineer, tester, "test_engineer", tester_text_capacity, ""), default_rule::not_set),
    with_rule(text_key(tester_test_product, tester, "test_product", tester_text_capacity, ""), default_rule::not_set),
    with_rule(text_key(tester_test_company_name, tester, "test_company_name", tester_text_capacity, ""),
              default_rule::not_set),
    bool_key(tester_tester_info_enabled, tester, "tester_info_enabled", false),
}};

constexpr bool table_is_indexed_by_id() {
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (param_index(table[i].id) != i) return false;
    }
    return true;
}
static_assert(table_is_indexed_by_id(), "param table entries must follow the param_id order");

}  // namespace param_table_detail

// The whole table, in param_id order (which is also section order).
inline constexpr std::span<const param_descriptor, param_count> param_table{param_table_detail::table};

constexpr const param_descriptor& param_info(param_id id) { return param_table_detail::table[param_index(id)]; }

// "section.key" as written in messages and documents ("general.test_engineer" for the
// tester items).
std::string param_display_name(param_id id);

// Sample rates above this get rate-scaled built-in defaults.
inline constexpr std::uint32_t rate_scaling_reference_hz = 48000;

struct scaled_default {
    std::int64_t value = 0;
    param_source source = param_source::builtin;
};

// The built-in value of a rate-scaled integer: the value at 48000 Hz and below (source
// builtin), else floor(base * rate / 48000 + 0.5) (source builtin_for_rate).
scaled_default builtin_for_rate(std::int64_t base_at_48k, std::uint32_t sample_rate_hz);

// The FFT sizes the spectral and distortion checks support.
inline constexpr std::array<std::int64_t, 6> supported_fft_sizes{1024, 2048, 4096, 8192, 16384, 32768};
bool is_supported_fft_size(std::int64_t size);
// The supported sizes as messages list them: "1024, 2048, 4096, 8192, 16384, 32768".
std::string supported_fft_sizes_text();

// The FFT size used when no file sets spectral_fidelity.fft_size: 8192 up to 48000 Hz,
// 16384 up to 96000 Hz, 32768 above; then, while above 8192, kept (builtin_for_rate)
// when `available_frames` holds a whole frame, else halved. 8192 has source builtin.
scaled_default automatic_fft_size(std::uint32_t sample_rate_hz, std::uint64_t available_frames);

}  // namespace veltrane
