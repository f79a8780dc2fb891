#include "support/loudness_literal.h"

#include <cmath>
#include <vector>

#include "dsp/k_weighting.h"
#include "dsp/true_peak.h"

namespace veltrane::test {

double true_peak_abs_max_literal(const double* samples, std::size_t stride, std::uint64_t n) {
    const auto h = true_peak_filter();
    double peak = 0.0;
    for (std::uint64_t m = 0; m < n; ++m) {
        for (std::size_t p = 0; p < 4; ++p) {
            double y = 0.0;
            for (std::uint64_t j = 0; j < 12; ++j) {
                const double x = m >= j ? samples[(m - j) * stride] : 0.0;
                y += h[p + 4 * j] * x;
            }
            if (std::fabs(y) > peak) peak = std::fabs(y);
        }
    }
    return peak;
}

loudness_measurement measure_loudness_literal(const wav_audio& audio, std::size_t channel_count,
                                              std::uint64_t first_frame, std::uint64_t n, double fs) {
    loudness_measurement out;
    if (n == 0 || channel_count == 0) return out;
    const std::size_t stride = audio.channels;
    const k_weighting k = k_weighting_for_rate(fs);
    std::vector<double> weighted[2];
    double sample_peak = 0.0, true_peak = 0.0;
    for (std::size_t c = 0; c < channel_count; ++c) {
        const double* src = audio.samples.data() + first_frame * stride + c;
        weighted[c].resize(n);
        for (std::uint64_t i = 0; i < n; ++i) {
            weighted[c][i] = src[i * stride];
            sample_peak = std::fmax(sample_peak, std::fabs(src[i * stride]));
        }
        true_peak = std::fmax(true_peak, true_peak_abs_max_literal(src, stride, n));
        k_weight_in_place(k, weighted[c]);
    }
    const double* ch[2] = {weighted[0].data(), channel_count > 1 ? weighted[1].data() : nullptr};
    block_series momentary, short_term, range;
    block_loudness(ch, channel_count, n, fs, momentary_block_sec, momentary_overlap, true, momentary);
    out.integrated_lufs = integrated_loudness(momentary, channel_count);
    out.max_momentary_lufs = max_block_loudness(momentary.loudness);
    block_loudness(ch, channel_count, n, fs, short_term_block_sec, short_term_overlap, false, short_term);
    out.max_short_term_lufs = max_block_loudness(short_term.loudness);
    const std::uint64_t extended = n + static_cast<std::uint64_t>(std::llround(range_extension_sec * fs));
    for (std::size_t c = 0; c < channel_count; ++c) weighted[c].resize(extended, 0.0);
    const double* ext[2] = {weighted[0].data(), channel_count > 1 ? weighted[1].data() : nullptr};
    block_loudness(ext, channel_count, extended, fs, short_term_block_sec, short_term_overlap, false, range);
    out.lra_lu = loudness_range(range.loudness);
    out.sample_peak_dbfs = amplitude_db(sample_peak);
    out.true_peak_dbtp = amplitude_db(true_peak);
    return out;
}

}  // namespace veltrane::test
