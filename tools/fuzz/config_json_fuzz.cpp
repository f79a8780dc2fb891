// libFuzzer harness for the settings-file reader: arbitrary bytes go through comment
// stripping, the brace check, every getter, both layer loaders, the profiles, the range
// checks and the whole settings resolution and validation. Besides the sanitizers' findings it traps on
// broken invariants (copies longer than their capacity, stripped text growing).
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "config/config_json.h"
#include "config/config_layer.h"
#include "config/defaults_file.h"
#include "config/run_config.h"
#include "config/settings_ranges.h"

namespace {

using namespace veltrane;

void require(bool condition) {
    if (!condition) __builtin_trap();
}

constexpr std::string_view probe_keys[] = {
    "general", "analysis", "spectral_fidelity", "bands", "snapshots", "time_sec", "k", "", "\"", "fft_size",
};

void exercise_getters(std::string_view text) {
    for (std::string_view key : probe_keys) {
        if (auto pos = json_find_value(text, key)) require(*pos <= text.size());
        std::int32_t i = 0;
        json_get_int(text, key, i);
        double d = 0.0;
        json_get_number(text, key, d);
        bool b = false;
        json_get_bool(text, key, b);
        for (std::size_t capacity : {std::size_t{1}, std::size_t{16}, std::size_t{256}, std::size_t{4096}}) {
            std::string s;
            if (json_get_string(text, key, s, capacity)) require(s.size() < capacity);
            if (json_get_object(text, key, s, capacity)) require(s.size() < capacity && s.front() == '{' && s.back() == '}');
            for (std::size_t index = 0; index < 3; ++index) {
                if (json_get_array_object(text, key, index, s, capacity)) require(s.size() < capacity && s.front() == '{');
            }
        }
    }
}

void exercise_resolution(const config_layer& config_file, const defaults_record& defaults, std::size_t seed) {
    command_line_overrides cl;
    cl.ampsweep = seed & 1;
    cl.freqsweep = !cl.ampsweep && (seed & 2);
    cl.bitexact = seed & 4;
    cl.no_bitexact = !cl.bitexact && (seed & 8);
    if (seed & 16) cl.snapshots = static_cast<long>(seed % 40);
    std::uint32_t rate = 22050 + static_cast<std::uint32_t>(seed * 7919 % 170000);
    settings_resolution r = resolve_check_settings(cl, config_file, defaults, rate, seed * 131);
    if (!r.error_message) require(r.config.snapshots.count <= 25 || !r.config.snapshots.active);
    resolve_alignment_settings(config_file, defaults, rate);
    resolve_plot_spectrum_settings(defaults, rate, seed);
    resolve_sync_settings(defaults);
    resolve_tester_identity(defaults);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view raw(reinterpret_cast<const char*>(data), size);

    std::string stripped;
    if (json_strip_comments(raw, stripped)) require(stripped.size() <= raw.size() && stripped.size() <= 16383);
    json_check_braces(raw);
    json_check_braces(stripped);
    exercise_getters(raw);

    config_layer config_file;
    bool config_ok = load_config_text(raw, config_file);
    defaults_record defaults;
    bool defaults_ok = load_defaults_text(raw, defaults);
    if (config_ok) {
        require(config_file.bands.size() <= max_spectral_bands);
        require(config_file.snapshot_times_sec.size() <= max_snapshots);
        std::string message;
        apply_default_profile(config_file, "--config", message);
    }
    if (defaults_ok) {
        std::string message;
        apply_default_profile(defaults.analysis, "veltrane-defaults.cfg", message);
    }
    // As the commands do: resolution only sees layers whose numbers passed the range checks.
    if (config_ok && check_setting_ranges(config_file, "--config")) config_ok = false;
    if (defaults_ok && (check_setting_ranges(defaults.top_level, "veltrane-defaults.cfg") ||
                        check_setting_ranges(defaults.analysis, "veltrane-defaults.cfg"))) {
        defaults_ok = false;
    }
    if (!config_ok) config_file = config_layer{};
    if (!defaults_ok) defaults = defaults_record{};
    if (config_ok || defaults_ok) exercise_resolution(config_file, defaults, size);
    return 0;
}
