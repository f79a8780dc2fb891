#include "config/defaults_file.h"

#include <array>
#include <cstdio>

#include "config/config_json.h"
#include "util/files.h"

namespace veltrane {
namespace {

// What a profile writes into its own layer: a bool switched on, a spectral profile
// text, or nothing at all.
struct profile_effect {
    std::string_view name;
    param_id target;  // param_id::count_ when the profile changes nothing
    std::string_view text;  // for text targets
};

constexpr std::array<profile_effect, 7> profiles{{
    {"bit_exact", param_id::count_, ""},
    {"frequency_domain", param_id::count_, ""},
    {"bit_accuracy", param_id::bit_accuracy_enabled, ""},
    {"amplitude_sweep", param_id::spectral_profile, "amp_sweep"},
    {"frequency_sweep", param_id::spectral_profile, "freq_sweep"},
    {"impulse_domain", param_id::impulse_template_enabled, ""},
    {"time_domain", param_id::time_domain_enabled, ""},
}};

double number_or_builtin(const config_layer& layer, param_id id) {
    return layer.is_set(id) ? layer[id].number : param_info(id).builtin_number;
}

}  // namespace

bool load_defaults_text(std::string_view raw, defaults_record& record) {
    record = defaults_record{};
    std::string text;
    if (!prepare_settings_text(raw, text)) return false;
    load_section(text, param_section::tester, record.top_level);
    load_section(text, param_section::alignment, record.top_level);
    std::string analysis;
    if (!json_get_object(text, "analysis", analysis, json_section_capacity)) return true;
    return load_check_sections(analysis, record.analysis);
}

bool load_defaults_file_at(const std::string& path, defaults_record& record) {
    record = defaults_record{};
    if (!path_exists(path)) return false;
    std::string raw;
    if (!read_text_file(path, raw, settings_file_buffer_size)) return false;
    return load_defaults_text(raw, record);
}

std::optional<std::string> defaults_path_in(std::string_view executable_directory) {
    std::string path(executable_directory);
    path.push_back('/');
    path.append(defaults_file_name);
    if (path.size() > max_path_chars) return std::nullopt;
    return path;
}

std::optional<std::string> implicit_defaults_path() {
    std::string dir;
    if (!executable_dir(dir, path_buffer_size)) return std::nullopt;
    return defaults_path_in(dir);
}

bool load_defaults_file(const std::optional<std::string>& named_path, defaults_record& record) {
    record = defaults_record{};
    if (named_path) return load_defaults_file_at(*named_path, record);
    std::optional<std::string> path = implicit_defaults_path();
    if (!path || !path_exists(*path)) return true;
    return load_defaults_file_at(*path, record);
}

bool apply_default_profile(config_layer& layer, std::string_view file_label, std::string& error_message) {
    if (!layer.is_set(param_id::general_default_profile)) return true;
    const std::string& name = layer[param_id::general_default_profile].text;
    for (const profile_effect& p : profiles) {
        if (p.name != name) continue;
        if (p.target != param_id::count_ && !layer.is_set(p.target)) {
            if (param_info(p.target).type == param_type::text) {
                layer.set_text(p.target, p.text);
            } else {
                layer.set_bool(p.target, true);
            }
        }
        return true;
    }
    error_message = "error: ";
    error_message.append(file_label);
    error_message.append("'s general.default_profile '");
    error_message.append(name);
    error_message.append(
        "' not recognized -- must be one of \"bit_exact\", \"bit_accuracy\", \"amplitude_sweep\", "
        "\"frequency_sweep\", \"frequency_domain\", \"impulse_domain\", \"time_domain\" (--deepscan)\n");
    return false;
}

tester_identity resolve_tester_identity(const defaults_record& defaults) {
    tester_identity identity;
    const config_layer& top = defaults.top_level;
    if (!top.is_set(param_id::tester_tester_info_enabled) || !top[param_id::tester_tester_info_enabled].boolean) {
        return identity;
    }
    auto pick = [&top](param_id id) -> std::optional<std::string> {
        if (!top.is_set(id) || top[id].text.empty()) return std::nullopt;
        return top[id].text;
    };
    identity.test_engineer = pick(param_id::tester_test_engineer);
    identity.test_product = pick(param_id::tester_test_product);
    identity.test_company_name = pick(param_id::tester_test_company_name);
    return identity;
}

sync_settings resolve_sync_settings(const defaults_record& defaults) {
    sync_settings s;
    s.psr_threshold = number_or_builtin(defaults.top_level, param_id::alignment_sync_psr_threshold);
    s.search_window_sec = number_or_builtin(defaults.top_level, param_id::alignment_sync_search_window_sec);
    return s;
}

plot_spectrum_settings resolve_plot_spectrum_settings(const defaults_record& defaults, std::uint32_t sample_rate_hz,
                                                      std::uint64_t frame_count) {
    plot_spectrum_settings s;
    const config_layer& analysis = defaults.analysis;
    if (analysis.is_set(param_id::spectral_fft_size)) {
        s.fft_size = analysis[param_id::spectral_fft_size].integer;
        if (!is_supported_fft_size(s.fft_size)) {
            char line[200];
            std::snprintf(line, sizeof line,
                          "error: spectral_fidelity.fft_size %zu not supported -- must be one of %s\n",
                          static_cast<std::size_t>(s.fft_size), supported_fft_sizes_text().c_str());
            s.error_message = line;
        }
    } else {
        s.fft_size = automatic_fft_size(sample_rate_hz, frame_count).value;
    }
    s.noise_floor_db = number_or_builtin(analysis, param_id::spectral_noise_floor_db);
    return s;
}

}  // namespace veltrane
