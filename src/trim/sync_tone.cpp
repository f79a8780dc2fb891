#include "trim/sync_tone.h"

#include <algorithm>
#include <cmath>

namespace veltrane {
namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double two_pi = 2.0 * pi;

// Length of the linear fade at each end of a chirp: 3 ms, enough to avoid a click at the
// chirp's edges without noticeably shortening it.
constexpr double fade_sec = 0.003;

// One chirp of `length` samples, V-shaped sweep high -> low -> high; its first `keep`
// samples go to out[0, keep).
void synth_chirp(const chirp_band& band, std::uint32_t sample_rate_hz, double amplitude, std::uint64_t length,
                 std::uint64_t keep, double* out) {
    const double rate = static_cast<double>(sample_rate_hz);
    const std::uint64_t half = length / 2;
    const std::uint64_t fade =
        std::min<std::uint64_t>(half, static_cast<std::uint64_t>(std::llround(rate * fade_sec)));
    const double lo = band.low_hz;
    const double hi = band.high_hz;
    double phase = 0.0;
    for (std::uint64_t n = 0; n < keep; ++n) {
        double f;
        if (n < half) {
            f = hi + (static_cast<double>(n) / static_cast<double>(half)) * (lo - hi);
        } else {
            f = lo + (static_cast<double>(n - half) / static_cast<double>(length - half)) * (hi - lo);
        }
        phase += two_pi * f / rate;
        double envelope = 1.0;
        if (fade > 0) {
            if (n < fade) {
                envelope = static_cast<double>(n) / static_cast<double>(fade);
            } else if (n >= length - fade) {
                envelope = static_cast<double>(length - 1 - n) / static_cast<double>(fade);
            }
        }
        out[n] = std::sin(phase) * amplitude * envelope;
    }
}

}  // namespace

sync_tone_shape single_chirp_tone(const sync_tone_shape& tone, std::uint32_t index) {
    sync_tone_shape one = tone;
    one.chirps = {};
    one.chirps[0] = tone.chirps[index % max_sync_chirps];
    one.chirp_count = 1;
    return one;
}

std::uint64_t sync_chirp_length(const sync_tone_shape& tone, std::uint32_t sample_rate_hz) {
    const long long n = std::llround(tone.chirp_sec * static_cast<double>(sample_rate_hz));
    return n > 0 ? static_cast<std::uint64_t>(n) : 0;
}

std::uint64_t sync_gap_length(const sync_tone_shape& tone, std::uint32_t sample_rate_hz) {
    const long long n = std::llround(tone.gap_sec * static_cast<double>(sample_rate_hz));
    return n > 0 ? static_cast<std::uint64_t>(n) : 0;
}

std::uint64_t sync_tone_length(const sync_tone_shape& tone, std::uint32_t sample_rate_hz) {
    const std::uint64_t count = std::min<std::uint64_t>(tone.chirp_count, max_sync_chirps);
    if (count == 0) return 0;
    return count * sync_chirp_length(tone, sample_rate_hz) + (count - 1) * sync_gap_length(tone, sample_rate_hz);
}

std::uint64_t sync_template_length(std::uint32_t sample_rate_hz) {
    return sync_tone_length(builtin_sync_tone, sample_rate_hz);
}

void synth_sync_template(const sync_tone_shape& tone, std::uint32_t sample_rate_hz, std::span<double> out) {
    const std::uint64_t count = std::min<std::uint64_t>(tone.chirp_count, max_sync_chirps);
    const std::uint64_t chirp = sync_chirp_length(tone, sample_rate_hz);
    const std::uint64_t gap = sync_gap_length(tone, sample_rate_hz);
    const double amplitude = std::pow(10.0, tone.level_db / 20.0);
    std::uint64_t at = 0;
    for (std::uint64_t i = 0; i < count && at < out.size(); ++i) {
        const std::uint64_t n = std::min<std::uint64_t>(chirp, out.size() - at);
        synth_chirp(tone.chirps[i], sample_rate_hz, amplitude, chirp, n, out.data() + at);
        at += n;
        if (i + 1 < count) {
            const std::uint64_t z = std::min<std::uint64_t>(gap, out.size() - at);
            std::fill_n(out.begin() + static_cast<std::ptrdiff_t>(at), z, 0.0);
            at += z;
        }
    }
}

}  // namespace veltrane
