#include "dsp/amplitude.h"

#include <cmath>
#include <limits>
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
    if (n >= 2 && !fft_plan_init(ws.plan, n, false)) {
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
    fft_inplace(ws.frame, ws.plan);
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

void amplitude_spectrum_db_above(amplitude_workspace& ws, const wav_audio& audio, std::uint32_t channel,
                                 std::uint64_t start_frame, std::span<double> out, double cutoff_db) {
    // 0.001 dB below the cutoff is the skip level; levels below it are not needed.
    const double skip_db = cutoff_db - 0.001;
    if (!(skip_db > -199.999)) {
        amplitude_spectrum(ws, audio, channel, start_frame, out, spectrum_form::db_check);
        return;
    }
    const std::uint64_t n = ws.n;
    if (n < 2) return;
    const std::uint32_t stride = audio.channels;
    const double* src = audio.samples.data() + start_frame * stride + channel;
    complex_value* frame = ws.frame.data();
    const double* window = ws.window.data();
    for (std::uint64_t i = 0; i < n; ++i) frame[i] = {src[i * stride] * window[i], 0.0};
    fft_inplace(ws.frame, ws.plan);
    const double size = static_cast<double>(n);
    // |X| below this modulus means an amplitude below the skip level: (a * n / 4)^2, less
    // a relative margin of 1e-6 for the rounding of re^2 + im^2 and of the modulus.
    const double modulus = std::pow(10.0, skip_db / 20.0) * size / 4.0;
    const double skip_power = modulus * modulus * (1.0 - 1e-6);
    const double none = -std::numeric_limits<double>::infinity();
    for (std::uint64_t k = 0; k < n / 2; ++k) {
        const double re = frame[k].re;
        const double im = frame[k].im;
        if (re * re + im * im < skip_power) {
            out[k] = none;
            continue;
        }
        const double a = std::hypot(re, im) * 4.0 / size;
        out[k] = a > 0.0 ? 20.0 * std::log10(a) : spectrum_check_floor_db;
    }
}

}  // namespace veltrane
