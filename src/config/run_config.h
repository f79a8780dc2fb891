#pragma once
// Resolution of an analyze run's settings. Each check parameter is taken from the
// strongest layer that sets it: command-line flag, then the --config layer, then the
// defaults file's analysis layer, then the built-in default (constant, rate-scaled,
// fallback, automatic or implied by the spectral profile). Every resolved value keeps its
// provenance. Resolution is a pure function of its inputs and never fails; validation
// then applies the fifteen ordered rules and yields the first broken rule's message.
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/config_layer.h"
#include "config/defaults_file.h"
#include "config/params.h"

namespace veltrane {

// The analyze flags that outrank both settings files. The CLI fills this from its parsed
// command line.
struct command_line_overrides {
    std::optional<long> snapshots;  // --snapshots N; a negative N counts as 0
    bool ampsweep = false;          // spectral_fidelity.profile "amp_sweep"
    bool freqsweep = false;         // spectral_fidelity.profile "freq_sweep"
    bool deepscan = false;          // time_domain.enabled true
    bool impulse = false;           // impulse_template.enabled true
    bool bitaccuracy = false;       // bit_accuracy.enabled true
    bool bitexact = false;          // bit_exact.gates_overall true
    bool no_bitexact = false;       // bit_exact.enabled false (only without --bitexact)
    bool no_distortion = false;     // distortion.enabled false
    bool levelfidelity_ref_only = false;  // level_fidelity.gates_overall false
    bool no_loudness = false;       // loudness.enabled false
    bool loudness = false;          // loudness.gates_overall true
    bool artifact_ref_only = false; // artifact.gates_overall false
};

// One resolved parameter. Only the member matching the table's type is meaningful.
struct resolved_param {
    bool present = false;      // false: not set anywhere and no built-in value
    double number = 0.0;
    std::int64_t integer = 0;  // integer keys; for bands and snapshots the row/snapshot count
    bool boolean = false;
    std::string text;
    param_source source = param_source::builtin;
    // The provenance label the report shows: param_source_label(source), or for a value
    // forced by a command-line switch the flag itself (for example "--bitexact").
    std::string_view label = "built-in default";
};

enum class spectral_profile_kind : std::uint32_t {
    freq_domain_multitone = 0,
    freq_sweep = 1,
    amp_sweep = 2,
};

struct snapshot_plan {
    bool active = false;           // snapshot mode: the spectral check takes snapshots
    std::uint64_t count = 0;       // snapshots to take (the number of times when listed)
    std::vector<double> times_sec; // explicit centre times in seconds; empty: evenly placed
    param_source source = param_source::builtin;
};

// Sweep peak windowing handed to the spectral frame comparison.
struct sweep_window_settings {
    std::uint32_t shape = 0;           // 1 = logarithmic, 0 = linear
    double start_hz = 0.0;             // freq_sweep start frequency
    double end_hz = 0.0;               // freq_sweep end frequency
    double test_freq_hz = 0.0;         // amp_sweep tone frequency
    double search_window_cents = 0.0;  // half-width of the peak search window
};

struct run_config {
    std::uint32_t sample_rate_hz = 0;  // the reference's rate the values were resolved for
    std::uint64_t overlap_frames = 0;  // aligned overlap that chose the automatic fft size

    // Every parameter of the table, indexed by param_id (tester and alignment entries stay
    // empty here: see resolve_alignment_settings and `tester`).
    std::array<resolved_param, param_count> params{};

    // spectral_fidelity.bands, all from one layer (params[spectral_bands] has its source);
    // empty when no layer has bands.
    std::vector<spectral_band> bands;
    snapshot_plan snapshots;

    spectral_profile_kind profile_kind = spectral_profile_kind::freq_domain_multitone;
    bool sweep_profile = false;  // the profile is "freq_sweep" or "amp_sweep"

    // Active when the sweep start and end frequencies are set or the amp-sweep test
    // frequency is set; the spectral check gets `sweep_window` only then.
    bool sweep_window_active = false;
    sweep_window_settings sweep_window;

    // Edge skipping applies to a sweep profile scanned continuously without snapshots;
    // the spectral check then gets spectral_fidelity.sweep_edge_skip_samples, else 0.
    bool edge_skip_active = false;
    std::int64_t edge_skip_samples_for_check = 0;

    command_line_overrides command_line;
    tester_identity tester;  // from the defaults file only

    const resolved_param& operator[](param_id id) const { return params[param_index(id)]; }
    double number(param_id id) const { return (*this)[id].number; }
    std::int64_t integer(param_id id) const { return (*this)[id].integer; }
    bool flag(param_id id) const { return (*this)[id].boolean; }
    const std::string& text(param_id id) const { return (*this)[id].text; }
    bool present(param_id id) const { return (*this)[id].present; }
    param_source source(param_id id) const { return (*this)[id].source; }
    std::string_view label(param_id id) const { return (*this)[id].label; }
    // True when one of the two settings files supplied the value.
    bool set_in_file(param_id id) const;
};

// Alignment settings, resolved before the checks (they need only the reference rate).
struct alignment_settings {
    double min_confidence = 0.0;                   // normalised correlation a channel must reach
    std::int64_t agreement_tolerance_samples = 0;  // allowed offset difference between channels
    std::int64_t max_search_samples = 0;           // llround(rate * fine_align_max_search_sec)
    double low_level_threshold_db = 0.0;           // silence floor, dBFS
};

// alignment.* from the defaults file only; general.low_level_signal_threshold_db from the
// --config layer, then the defaults analysis layer, then -70.0.
alignment_settings resolve_alignment_settings(const config_layer& config_file, const defaults_record& defaults,
                                              std::uint32_t sample_rate_hz);

// Resolves every check parameter for a reference at `sample_rate_hz` whose aligned
// overlap with the DUT is `overlap_frames` long.
run_config resolve_run_config(const command_line_overrides& command_line, const config_layer& config_file,
                              const defaults_record& defaults, std::uint32_t sample_rate_hz,
                              std::uint64_t overlap_frames);

// The fifteen validation rules in order; the first broken rule's complete
// "error: ...\n" line, or nullopt when the settings are usable.
std::optional<std::string> validate_run_config(const run_config& config);

struct settings_resolution {
    run_config config;
    std::optional<std::string> error_message;  // set: validation failed with this line
};

// resolve_run_config followed by validate_run_config.
settings_resolution resolve_check_settings(const command_line_overrides& command_line,
                                           const config_layer& config_file, const defaults_record& defaults,
                                           std::uint32_t sample_rate_hz, std::uint64_t overlap_frames);

}  // namespace veltrane
