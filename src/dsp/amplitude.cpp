#include "dsp/amplitude.h"

#include <cmath>
#include <new>
#include <vector>

#include "dsp/fft.h"

namespace veltrane {

namespace {
constexpr double two_pi = 6.283185307179586476925286766559;
}

double shifted_hann(std::uint64_t i, std::uint64_t n) {
    return 0.5 * (1.0 - std::cos(two_pi * static_cast<double>(i + 1) / static_cast<double>(n - 1)));
}

void amplitude_spectrum(const wav_audio& audio, std::uint32_t channel, std::uint64_t start_frame, std::uint64_t n,
                        std::span<double> out, spectrum_form form) {
    if (n < 2) return;
    const double floor_db = form == spectrum_form::db_chart ? spectrum_chart_floor_db : spectrum_check_floor_db;
    std::vector<complex_value> frame;
    try {
        frame.resize(n);
    } catch (const std::bad_alloc&) {
        // Without a work buffer every bin reads as no level at all.
        for (std::uint64_t k = 0; k < n / 2; ++k) out[k] = form == spectrum_form::linear ? 0.0 : floor_db;
        return;
    }
    for (std::uint64_t i = 0; i < n; ++i)
        frame[i].re = audio.samples[(start_frame + i) * audio.channels + channel] * shifted_hann(i, n);
    fft_inplace(frame, false);
    for (std::uint64_t k = 0; k < n / 2; ++k) {
        double a = std::hypot(frame[k].re, frame[k].im) * 4.0 / static_cast<double>(n);
        if (form == spectrum_form::linear)
            out[k] = a;
        else
            out[k] = a > 0.0 ? 20.0 * std::log10(a) : floor_db;
    }
}

}  // namespace veltrane

namespace veltrane {

bool amplitude_workspace_init(amplitude_workspace& ws, std::uint64_t n) {
    ws = amplitude_workspace{};
    try {
        ws.window.resize(n);
        ws.frame.resize(n);
    } catch (const std::bad_alloc&) {
        ws = amplitude_workspace{};
        return false;
    }
    for (std::uint64_t i = 0; i < n; ++i) ws.window[i] = shifted_hann(i, n);
    ws.n = n;
    return true;
}

void amplitude_spectrum(amplitude_workspace& ws, const wav_audio& audio, std::uint32_t channel,
                        std::uint64_t start_frame, std::span<double> out, spectrum_form form) {
    const std::uint64_t n = ws.n;
    if (n < 2) return;
    const double floor_db = form == spectrum_form::db_chart ? spectrum_chart_floor_db : spectrum_check_floor_db;
    const std::uint32_t stride = audio.channels;
    const double* src = audio.samples.data() + start_frame * stride + channel;
    complex_value* frame = ws.frame.data();
    const double* window = ws.window.data();
    for (std::uint64_t i = 0; i < n; ++i) frame[i] = {src[i * stride] * window[i], 0.0};
    fft_inplace(ws.frame, false);
    // |X[k]| * 4 / n, as in the plain form: the product by 4 and the division by n are
    // kept as two roundings so the values match it bit for bit.
    const double size = static_cast<double>(n);
    if (form == spectrum_form::linear) {
        for (std::uint64_t k = 0; k < n / 2; ++k) out[k] = std::hypot(frame[k].re, frame[k].im) * 4.0 / size;
        return;
    }
    for (std::uint64_t k = 0; k < n / 2; ++k) {
        const double a = std::hypot(frame[k].re, frame[k].im) * 4.0 / size;
        out[k] = a > 0.0 ? 20.0 * std::log10(a) : floor_db;
    }
}

}  // namespace veltrane
