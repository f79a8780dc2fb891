#include "config/params.h"

#include <cmath>
#include <string>

namespace veltrane {

std::string_view param_source_label(std::uint32_t code) {
    switch (code) {
        case 1: return "veltrane-defaults.cfg";
        case 2: return "--config";
        case 3: return "command line";
        case 4: return "implied by sweep profile";
        case 5: return "built-in default for this sample rate";
        default: return "built-in default";
    }
}

std::string_view param_source_label(param_source source) {
    return param_source_label(static_cast<std::uint32_t>(source));
}

std::string_view section_name(param_section section) {
    switch (section) {
        case param_section::general: return "general";
        case param_section::level_fidelity: return "level_fidelity";
        case param_section::artifact: return "artifact";
        case param_section::spectral_fidelity: return "spectral_fidelity";
        case param_section::distortion: return "distortion";
        case param_section::bit_exact: return "bit_exact";
        case param_section::bit_accuracy: return "bit_accuracy";
        case param_section::time_domain: return "time_domain";
        case param_section::impulse_template: return "impulse_template";
        case param_section::loudness: return "loudness";
        case param_section::alignment: return "alignment";
        case param_section::tester: return "general";
    }
    return "";
}

bool is_check_section(param_section section) {
    return static_cast<std::size_t>(section) < check_section_count;
}

std::string param_display_name(param_id id) {
    const param_descriptor& d = param_info(id);
    std::string name(section_name(d.section));
    name.push_back('.');
    name.append(d.key);
    return name;
}

scaled_default builtin_for_rate(std::int64_t base_at_48k, std::uint32_t sample_rate_hz) {
    if (sample_rate_hz <= rate_scaling_reference_hz) return {base_at_48k, param_source::builtin};
    double scaled = std::floor(static_cast<double>(base_at_48k) * static_cast<double>(sample_rate_hz) /
                                   static_cast<double>(rate_scaling_reference_hz) +
                               0.5);
    return {static_cast<std::int64_t>(scaled), param_source::builtin_for_rate};
}

std::string supported_fft_sizes_text() {
    std::string text;
    for (std::int64_t size : supported_fft_sizes) text += (text.empty() ? "" : ", ") + std::to_string(size);
    return text;
}

bool is_supported_fft_size(std::int64_t size) {
    for (std::int64_t s : supported_fft_sizes) {
        if (s == size) return true;
    }
    return false;
}

scaled_default automatic_fft_size(std::uint32_t sample_rate_hz, std::uint64_t available_frames) {
    // One frame per rate class: 8192 samples is about 170 ms at 48 kHz; the larger sizes
    // keep the bin width similar at 96 kHz and 192 kHz when the audio is long enough.
    constexpr std::int64_t base_size = 8192;
    std::int64_t size = sample_rate_hz <= 48000 ? base_size : sample_rate_hz <= 96000 ? 2 * base_size : 4 * base_size;
    while (size > base_size) {
        if (available_frames >= static_cast<std::uint64_t>(size)) return {size, param_source::builtin_for_rate};
        size /= 2;
    }
    return {size, param_source::builtin};
}

}  // namespace veltrane
