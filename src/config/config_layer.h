#pragma once
// One settings file's layer: for every key of the parameter table a set flag and the
// value as read, plus the two list-valued keys of spectral_fidelity (bands and
// snapshots). A key whose value did not parse, an integer the loader does not accept,
// or a text too long for its capacity stays unset, so the next layer decides.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/params.h"

namespace veltrane {

// One row of the spectral band table; all levels in dB(FS), frequencies in Hz. Field
// order is the order of the keys of one spectral_fidelity.bands element.
struct spectral_band {
    double upper_freq_hz = 0.0;                  // highest frequency of the band, inclusive
    double noise_floor_db = 0.0;                 // at or below: noise
    double low_level_signal_threshold_db = 0.0;  // at or below (non-peak): low-level signal
    double peak_threshold_db = 0.0;              // above (reference bin): may be a peak
    double signal_tolerance_db = 0.0;
    double low_level_signal_tolerance_db = 0.0;
    double peak_tolerance_db = 0.0;
};

inline constexpr std::size_t max_spectral_bands = 5;
inline constexpr std::size_t max_snapshots = 25;
// `"snapshots": true` asks for this many evenly placed snapshots.
inline constexpr std::int32_t snapshots_true_count = 5;

struct layer_value {
    bool set = false;
    double number = 0.0;       // param_type::number
    std::int32_t integer = 0;  // param_type::integer (already passed the loader's acceptance rule)
    bool boolean = false;      // param_type::boolean
    std::string text;          // param_type::text
};

struct config_layer {
    // Indexed by param_id. The entries of spectral_bands and spectral_snapshots only carry
    // their set flag; their data is below.
    std::array<layer_value, param_count> values{};

    // spectral_fidelity.snapshots: a count above 0 (the integer form, or 5 for `true`),
    // or explicit snapshot times in seconds, in file order. At most one of the two is used.
    std::int32_t snapshot_count = 0;
    std::vector<double> snapshot_times_sec;

    // spectral_fidelity.bands, 1 to 5 rows when set.
    std::vector<spectral_band> bands;

    const layer_value& operator[](param_id id) const { return values[param_index(id)]; }
    layer_value& operator[](param_id id) { return values[param_index(id)]; }
    bool is_set(param_id id) const { return values[param_index(id)].set; }

    void set_number(param_id id, double v);
    void set_integer(param_id id, std::int32_t v);
    void set_bool(param_id id, bool v);
    void set_text(param_id id, std::string_view v);
};

// Settings-file loading, shared by the --config file and the defaults file.

// Turns a file's raw bytes into the text the reader searches: cut at the first NUL (the
// text is a C string), `//` comments stripped, braces checked. False on an over-long
// stripped text or unbalanced braces / an open string.
bool prepare_settings_text(std::string_view raw, std::string& text);

// Looks up the object of `section` in `text` (shorter than 4096 bytes, else skipped)
// and loads every key of that section into `layer`; spectral_fidelity also reads its
// bands and snapshots lists. False only when a list is invalid: a band element without
// all seven keys, a sixth band, a snapshot element without time_sec, or a twenty-sixth
// snapshot element.
bool load_section(std::string_view text, param_section section, config_layer& layer);

// Loads the ten check sections (general .. loudness) from `text` in table order.
// False when a list in spectral_fidelity is invalid.
bool load_check_sections(std::string_view text, config_layer& layer);

// The --config file: the layer is cleared, then the file is read (at most 16383 bytes),
// prepared and its ten check sections loaded from the top level. Alignment or tester
// keys in it are ignored. False when the file cannot be read, fails preparation or has an
// invalid list.
bool load_config_text(std::string_view raw, config_layer& layer);
bool load_config_file(const std::string& path, config_layer& layer);

}  // namespace veltrane
