#include "config/config_layer.h"

#include "config/config_json.h"
#include "util/files.h"

namespace veltrane {
namespace {

constexpr std::string_view band_keys[] = {
    "upper_freq_hz",     "noise_floor_db",      "low_level_signal_threshold_db", "peak_threshold_db",
    "signal_tolerance_db", "low_level_signal_tolerance_db", "peak_tolerance_db",
};

void load_scalar(std::string_view section_text, const param_descriptor& d, config_layer& layer) {
    switch (d.type) {
        case param_type::number: {
            double v = 0.0;
            if (json_get_number(section_text, d.key, v)) layer.set_number(d.id, v);
            break;
        }
        case param_type::integer: {
            std::int32_t v = 0;
            if (json_get_int(section_text, d.key, v) && (!d.positive_only || v > 0)) layer.set_integer(d.id, v);
            break;
        }
        case param_type::boolean: {
            bool v = false;
            if (json_get_bool(section_text, d.key, v)) layer.set_bool(d.id, v);
            break;
        }
        case param_type::text: {
            std::string v;
            if (json_get_string(section_text, d.key, v, d.text_capacity)) layer.set_text(d.id, v);
            break;
        }
        case param_type::band_list:
        case param_type::snapshot_list: break;
    }
}

// `snapshots`: a count above 0 wins; otherwise the array of {time_sec} objects; an array
// without readable elements together with the value `true` gives the default count.
bool load_snapshots(std::string_view section_text, config_layer& layer) {
    std::string_view key = param_info(param_id::spectral_snapshots).key;
    std::int32_t count = 0;
    if (json_get_int(section_text, key, count) && count > 0) {
        layer.snapshot_count = count;
        layer[param_id::spectral_snapshots].set = true;
        return true;
    }
    std::string element;
    for (std::size_t i = 0; json_get_array_object(section_text, key, i, element, json_snapshot_element_capacity); ++i) {
        if (i >= max_snapshots) return false;
        double time_sec = 0.0;
        if (!json_get_number(element, "time_sec", time_sec)) return false;
        layer.snapshot_times_sec.push_back(time_sec);
    }
    bool flag = false;
    if (layer.snapshot_times_sec.empty() && json_get_bool(section_text, key, flag) && flag) {
        layer.snapshot_count = snapshots_true_count;
    }
    layer[param_id::spectral_snapshots].set = layer.snapshot_count > 0 || !layer.snapshot_times_sec.empty();
    return true;
}

bool load_bands(std::string_view section_text, config_layer& layer) {
    std::string_view key = param_info(param_id::spectral_bands).key;
    std::string element;
    for (std::size_t i = 0; json_get_array_object(section_text, key, i, element, json_band_element_capacity); ++i) {
        if (i >= max_spectral_bands) return false;
        double v[std::size(band_keys)] = {};
        for (std::size_t k = 0; k < std::size(band_keys); ++k) {
            if (!json_get_number(element, band_keys[k], v[k])) return false;
        }
        layer.bands.push_back(spectral_band{v[0], v[1], v[2], v[3], v[4], v[5], v[6]});
    }
    layer[param_id::spectral_bands].set = !layer.bands.empty();
    return true;
}

}  // namespace

void config_layer::set_number(param_id id, double v) {
    layer_value& e = (*this)[id];
    e.set = true;
    e.number = v;
}

void config_layer::set_integer(param_id id, std::int32_t v) {
    layer_value& e = (*this)[id];
    e.set = true;
    e.integer = v;
}

void config_layer::set_bool(param_id id, bool v) {
    layer_value& e = (*this)[id];
    e.set = true;
    e.boolean = v;
}

void config_layer::set_text(param_id id, std::string_view v) {
    layer_value& e = (*this)[id];
    e.set = true;
    e.text.assign(v);
}

bool prepare_settings_text(std::string_view raw, std::string& text) {
    raw = raw.substr(0, raw.find('\0'));
    std::string stripped;
    if (!json_strip_comments(raw, stripped)) return false;
    if (!json_check_braces(stripped)) return false;
    text = std::move(stripped);
    return true;
}

bool load_section(std::string_view text, param_section section, config_layer& layer) {
    std::string section_text;
    if (!json_get_object(text, section_name(section), section_text, json_section_capacity)) return true;
    for (const param_descriptor& d : param_table) {
        if (d.section == section) load_scalar(section_text, d, layer);
    }
    if (section != param_section::spectral_fidelity) return true;
    return load_snapshots(section_text, layer) && load_bands(section_text, layer);
}

bool load_check_sections(std::string_view text, config_layer& layer) {
    for (std::size_t s = 0; s < check_section_count; ++s) {
        if (!load_section(text, static_cast<param_section>(s), layer)) return false;
    }
    return true;
}

bool load_config_text(std::string_view raw, config_layer& layer) {
    layer = config_layer{};
    std::string text;
    if (!prepare_settings_text(raw, text)) return false;
    return load_check_sections(text, layer);
}

bool load_config_file(const std::string& path, config_layer& layer) {
    layer = config_layer{};
    std::string raw;
    if (!read_text_file(path, raw, settings_file_buffer_size)) return false;
    return load_config_text(raw, layer);
}

}  // namespace veltrane
