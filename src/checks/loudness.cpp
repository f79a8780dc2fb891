#include "checks/loudness.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "dsp/k_weighting.h"
#include "dsp/true_peak.h"

namespace veltrane {
namespace {

// Frames per piece: the raw samples (with the true-peak filter's history in front) and
// their K-weighted squares of both channels fit in a few hundred kilobytes.
constexpr std::size_t piece_frames = 8192;

// Copies one channel's samples of a piece (stride `stride` apart) to x and returns their
// largest magnitude. Four running maxima keep the comparisons independent.
double copy_channel(const double* src, std::size_t stride, std::size_t len, double* x) {
    double p[4] = {0.0, 0.0, 0.0, 0.0};
    std::size_t i = 0;
    for (; i + 4 <= len; i += 4) {
        for (std::size_t q = 0; q < 4; ++q) {
            const double v = src[(i + q) * stride];
            x[i + q] = v;
            const double a = std::fabs(v);
            p[q] = a > p[q] ? a : p[q];
        }
    }
    for (; i < len; ++i) {
        x[i] = src[i * stride];
        const double a = std::fabs(x[i]);
        p[0] = a > p[0] ? a : p[0];
    }
    return std::max(std::max(p[0], p[1]), std::max(p[2], p[3]));
}

// 1e-5 relative margin so a figure equal to its limit up to rounding passes.
bool within(double value, double limit) { return value <= limit + 1e-5 * std::fabs(limit); }

}  // namespace

double percentile_interp(const double* v, std::size_t n, double percent) {
    if (n == 1) return v[0];
    const double pos = percent / 100.0 * static_cast<double>(n - 1);
    const double lo = std::floor(pos);
    const double hi = std::ceil(pos);
    const double vlo = v[static_cast<std::size_t>(lo)];
    const double vhi = v[static_cast<std::size_t>(hi)];
    return vlo + (vhi - vlo) * (pos - lo);
}

double integrated_loudness(const block_series& m, std::size_t channel_count) {
    const std::size_t blocks = m.loudness.size();
    // Absolute gate (inclusive), then the relative threshold from the channel averages.
    double sum[2] = {0.0, 0.0};
    std::size_t count = 0;
    for (std::size_t i = 0; i < blocks; ++i) {
        if (!(m.loudness[i] >= absolute_gate_lufs)) continue;
        for (std::size_t c = 0; c < channel_count; ++c) sum[c] += m.mean_square[c][i];
        ++count;
    }
    if (count == 0) return no_level_db;
    double total = 0.0;
    for (std::size_t c = 0; c < channel_count; ++c) total += sum[c] / static_cast<double>(count);
    const double relative = total == 0.0 ? no_level_db
                                         : 10.0 * std::log10(total) + loudness_offset_db - integrated_relative_gate_lu;
    // Both gates, strictly.
    double gated[2] = {0.0, 0.0};
    std::size_t gated_count = 0;
    for (std::size_t i = 0; i < blocks; ++i) {
        const double l = m.loudness[i];
        if (!(l > absolute_gate_lufs && l > relative)) continue;
        for (std::size_t c = 0; c < channel_count; ++c) gated[c] += m.mean_square[c][i];
        ++gated_count;
    }
    if (gated_count == 0) return no_level_db;
    double gated_total = 0.0;
    for (std::size_t c = 0; c < channel_count; ++c) gated_total += gated[c] / static_cast<double>(gated_count);
    return gated_total == 0.0 ? no_level_db : 10.0 * std::log10(gated_total) + loudness_offset_db;
}

double loudness_range(std::vector<double> l) {
    std::erase_if(l, [](double v) { return !(v >= absolute_gate_lufs); });
    if (l.empty()) return 0.0;
    double energy = 0.0;
    for (double v : l) energy += std::pow(10.0, v / 10.0);
    const double relative = 10.0 * std::log10(energy / static_cast<double>(l.size())) - range_relative_gate_lu;
    std::erase_if(l, [&](double v) { return !(v >= relative); });
    if (l.empty()) return 0.0;
    std::sort(l.begin(), l.end());
    return percentile_interp(l.data(), l.size(), 95.0) - percentile_interp(l.data(), l.size(), 10.0);
}

double max_block_loudness(const std::vector<double>& l) {
    if (l.empty()) return no_level_db;
    return *std::max_element(l.begin(), l.end());
}

double amplitude_db(double amplitude) { return amplitude == 0.0 ? no_level_db : 20.0 * std::log10(amplitude); }

loudness_measurement measure_loudness(const wav_audio& audio, std::size_t channel_count, std::uint64_t first_frame,
                                      std::uint64_t n, double fs) {
    loudness_measurement out;
    channel_count = std::min<std::size_t>(channel_count, 2);
    if (n == 0 || channel_count == 0 || audio.channels < channel_count) return out;

    const std::uint64_t momentary_count = block_series_count(n, fs, momentary_block_sec, momentary_overlap);
    const std::uint64_t short_term_count = block_series_count(n, fs, short_term_block_sec, short_term_overlap);
    const std::uint64_t extended_n = n + static_cast<std::uint64_t>(std::llround(range_extension_sec * fs));
    const std::uint64_t range_count = block_series_count(extended_n, fs, short_term_block_sec, short_term_overlap);

    // Piece buffers: per channel the raw samples behind the true-peak history, and the
    // K-weighted squares.
    constexpr std::size_t h = true_peak_history;
    std::vector<double> work;
    try {
        work.assign(channel_count * (h + 2 * piece_frames), 0.0);
    } catch (const std::bad_alloc&) {
        return out;
    }
    double* raw[2] = {nullptr, nullptr};
    double* squares[2] = {nullptr, nullptr};
    for (std::size_t c = 0; c < channel_count; ++c) {
        raw[c] = work.data() + c * (h + 2 * piece_frames);
        squares[c] = raw[c] + h + piece_frames;
    }

    // The short-term and range series share their blocks: block i has the same span in
    // both, and the zeros of the extension add nothing to a sum of squares.
    block_sum_stream momentary, long_blocks;
    const bool momentary_ok =
        block_sum_stream_init(momentary, momentary_count, fs, momentary_block_sec, momentary_overlap, channel_count);
    const bool long_ok = block_sum_stream_init(long_blocks, std::max(short_term_count, range_count), fs,
                                               short_term_block_sec, short_term_overlap, channel_count);

    k_weighting_stream weighting{k_weighting_for_rate(fs), {}, {}};
    const auto taps = true_peak_filter();
    const std::size_t stride = audio.channels;
    double sample_peak = 0.0, true_peak = 0.0;
    for (std::uint64_t done = 0; done < n;) {
        const std::size_t len = static_cast<std::size_t>(std::min<std::uint64_t>(piece_frames, n - done));
        const double* src = audio.samples.data() + (first_frame + done) * stride;
        const double* in[2] = {nullptr, nullptr};
        for (std::size_t c = 0; c < channel_count; ++c) {
            double* x = raw[c] + h;
            sample_peak = std::max(sample_peak, copy_channel(src + c, stride, len, x));
            true_peak = true_peak_abs_max(taps, x, len, true_peak);
            in[c] = x;
        }
        k_weight_squares(weighting, in, channel_count, len, squares);
        const double* sq[2] = {squares[0], squares[1]};
        if (momentary_ok) block_sum_stream_add(momentary, sq, channel_count, len);
        if (long_ok) block_sum_stream_add(long_blocks, sq, channel_count, len);
        // Keep the last samples as the next piece's true-peak history.
        for (std::size_t c = 0; c < channel_count; ++c) std::copy(raw[c] + len, raw[c] + len + h, raw[c]);
        done += len;
    }
    out.sample_peak_dbfs = amplitude_db(sample_peak);
    out.true_peak_dbtp = amplitude_db(true_peak);

    block_series series;
    if (momentary_ok && block_series_from_sums(momentary, channel_count, momentary_count, n, true, series)) {
        out.integrated_lufs = integrated_loudness(series, channel_count);
        out.max_momentary_lufs = max_block_loudness(series.loudness);
    }
    if (long_ok && block_series_from_sums(long_blocks, channel_count, short_term_count, n, false, series))
        out.max_short_term_lufs = max_block_loudness(series.loudness);
    if (long_ok && block_series_from_sums(long_blocks, channel_count, range_count, extended_n, false, series)) {
        try {
            out.lra_lu = loudness_range(std::move(series.loudness));
        } catch (const std::bad_alloc&) {
            out.lra_lu = 0.0;
        }
    }
    return out;
}

loudness_result check_loudness(const wav_audio& ref, const wav_audio& dut, std::int64_t offset,
                               double integrated_tolerance_lu, double true_peak_tolerance_db, bool ceiling_set,
                               double ceiling_dbtp) {
    loudness_result r;
    const std::int64_t start = offset < 0 ? -offset : 0;
    const std::int64_t end =
        std::min(static_cast<std::int64_t>(ref.frame_count), static_cast<std::int64_t>(dut.frame_count) - offset);
    const std::uint64_t covered = end > start ? static_cast<std::uint64_t>(end - start) : 0;
    const std::size_t channels = std::min<std::size_t>({ref.channels, dut.channels, 2});
    const double fs = ref.sample_rate;
    r.ref = measure_loudness(ref, channels, static_cast<std::uint64_t>(start), covered, fs);
    r.dut = measure_loudness(dut, channels, static_cast<std::uint64_t>(start + offset), covered, fs);
    r.delta_integrated_lu = r.dut.integrated_lufs - r.ref.integrated_lufs;
    r.delta_true_peak_db = r.dut.true_peak_dbtp - r.ref.true_peak_dbtp;
    r.delta_lra_lu = r.dut.lra_lu - r.ref.lra_lu;
    r.delta_max_momentary_lu = r.dut.max_momentary_lufs - r.ref.max_momentary_lufs;
    r.delta_max_short_term_lu = r.dut.max_short_term_lufs - r.ref.max_short_term_lufs;
    r.delta_sample_peak_db = r.dut.sample_peak_dbfs - r.ref.sample_peak_dbfs;
    r.pass = within(r.delta_true_peak_db, true_peak_tolerance_db) &&
             (!ceiling_set || within(r.dut.true_peak_dbtp, ceiling_dbtp)) &&
             within(std::fabs(r.delta_integrated_lu), integrated_tolerance_lu);
    return r;
}

}  // namespace veltrane
