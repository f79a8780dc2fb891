#include "dsp/loudness_blocks.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "dsp/simd_lanes.h"

namespace veltrane {
namespace {

// Adds v[c][0..len-1], in order, to each of G consecutive sums of every channel c, the
// sums held in vector lanes: each sum still sees the samples one after the other, while
// G x C sums advance side by side (enough independent additions to keep the adder busy).
template <std::size_t G, std::size_t C>
[[gnu::always_inline]] inline void add_run_group(double* const sums[], std::size_t k, const double* const v[], std::size_t len) {
    static_assert(G % 4 == 0);
    lanes4 acc[C][G / 4];
    for (std::size_t c = 0; c < C; ++c)
        for (std::size_t q = 0; q < G / 4; ++q) std::memcpy(&acc[c][q], sums[c] + k + 4 * q, sizeof acc[c][q]);
    for (std::size_t i = 0; i < len; ++i) {
        for (std::size_t c = 0; c < C; ++c) {
            const double s = v[c][i];
            const lanes4 x = {s, s, s, s};
            for (std::size_t q = 0; q < G / 4; ++q) acc[c][q] += x;
        }
    }
    for (std::size_t c = 0; c < C; ++c)
        for (std::size_t q = 0; q < G / 4; ++q) std::memcpy(sums[c] + k + 4 * q, &acc[c][q], sizeof acc[c][q]);
}

// The last odd sum of a run, for every channel.
template <std::size_t C>
[[gnu::always_inline]] inline void add_run_single(double* const sums[], std::size_t k, const double* const v[], std::size_t len) {
    double acc[C];
    for (std::size_t c = 0; c < C; ++c) acc[c] = sums[c][k];
    for (std::size_t i = 0; i < len; ++i)
        for (std::size_t c = 0; c < C; ++c) acc[c] += v[c][i];
    for (std::size_t c = 0; c < C; ++c) sums[c][k] = acc[c];
}

// Adds v[c][0..len-1] in order to the sums [first, first + count) of every channel.
template <std::size_t C>
[[gnu::always_inline]] inline void add_run(double* const sums[], std::size_t first, std::size_t count, const double* const v[], std::size_t len) {
    constexpr std::size_t wide = C == 1 ? 32 : 16;  // 8 four-lane accumulators in flight
    std::size_t k = first;
    const std::size_t end = first + count;
    for (; k + wide <= end; k += wide) add_run_group<wide, C>(sums, k, v, len);
    if (k + 8 <= end) {
        add_run_group<8, C>(sums, k, v, len);
        k += 8;
    }
    if (k + 4 <= end) {
        add_run_group<4, C>(sums, k, v, len);
        k += 4;
    }
    for (; k < end; ++k) add_run_single<C>(sums, k, v, len);
}

// Room for `count` blocks (and their mean squares when kept); on failure `out` is left empty.
bool reserve_series(block_series& out, std::size_t channel_count, std::uint64_t count, bool keep_mean_squares) {
    try {
        out.loudness.reserve(count);
        if (keep_mean_squares)
            for (std::size_t c = 0; c < channel_count; ++c) out.mean_square[c].reserve(count);
    } catch (const std::bad_alloc&) {
        out = block_series{};
        return false;
    }
    return true;
}

}  // namespace

double loudness_of_mean_square_sum(double sum) {
    return sum == 0.0 ? no_level_db : 10.0 * std::log10(sum) + loudness_offset_db;
}

std::uint64_t block_series_count(std::uint64_t n, double fs, double block_sec, double overlap) {
    const double duration = static_cast<double>(n) / fs;
    if (block_sec > duration || overlap >= 1.0) return 0;
    const double step = 1.0 - overlap;
    const long long count = std::llround((duration - block_sec) / (block_sec * step)) + 1;
    return count < 1 ? 1 : static_cast<std::uint64_t>(count);
}

block_span block_span_of(std::uint64_t i, double fs, double block_sec, double overlap) {
    const double step = 1.0 - overlap;
    const double pos = static_cast<double>(i) * step;
    return {static_cast<std::int64_t>(std::floor(pos * block_sec * fs)),
            static_cast<std::int64_t>(std::floor((pos + 1.0) * block_sec * fs))};
}

bool block_loudness(const double* const channels[2], std::size_t channel_count, std::uint64_t n, double fs,
                    double block_sec, double overlap, bool keep_mean_squares, block_series& out) {
    out = block_series{};
    const std::uint64_t count = block_series_count(n, fs, block_sec, overlap);
    if (!reserve_series(out, channel_count, count, keep_mean_squares)) return false;
    for (std::uint64_t i = 0; i < count; ++i) {
        const block_span s = block_span_of(i, fs, block_sec, overlap);
        if (!block_measured(s, n)) continue;
        const double len = static_cast<double>(s.end - s.first);
        double total = 0.0;
        for (std::size_t c = 0; c < channel_count; ++c) {
            double sum = 0.0;
            for (std::int64_t k = s.first; k < s.end; ++k) sum += channels[c][k] * channels[c][k];
            const double ms = sum / len;
            total += ms;
            if (keep_mean_squares) out.mean_square[c].push_back(ms);
        }
        out.loudness.push_back(loudness_of_mean_square_sum(total));
    }
    return true;
}

bool block_sum_stream_init(block_sum_stream& s, std::uint64_t count, double fs, double block_sec, double overlap,
                           std::size_t channel_count) {
    s = block_sum_stream{};
    try {
        s.spans.resize(count);
        for (std::size_t c = 0; c < channel_count; ++c) s.sums[c].assign(count, 0.0);
    } catch (const std::bad_alloc&) {
        s = block_sum_stream{};
        return false;
    }
    for (std::uint64_t i = 0; i < count; ++i) s.spans[i] = block_span_of(i, fs, block_sec, overlap);
    return true;
}

// Built twice, for the baseline instruction set and for AVX2 (four lanes per register),
// the better one chosen when the program starts; the lanes compute the same values.
__attribute__((target_clones("avx2", "default"))) void block_sum_stream_add(block_sum_stream& s, const double* const squares[2], std::size_t channel_count,
                          std::size_t frames) {
    const std::size_t count = s.spans.size();
    const std::int64_t base = s.next_sample;
    const std::int64_t stop = base + static_cast<std::int64_t>(frames);
    std::int64_t n = base;
    while (n < stop) {
        // Spans are ascending in both ends, so the blocks covering sample n are the
        // contiguous run [ended, started): every block starting at or before n that has
        // not ended yet. The run stays the same until the next block ends or starts.
        while (s.ended < count && s.spans[s.ended].end <= n) ++s.ended;
        while (s.started < count && s.spans[s.started].first <= n) ++s.started;
        std::int64_t until = stop;
        if (s.ended < count) until = std::min(until, s.spans[s.ended].end);
        if (s.started < count) until = std::min(until, s.spans[s.started].first);
        if (s.ended < s.started) {
            const std::size_t len = static_cast<std::size_t>(until - n);
            double* sums[2] = {s.sums[0].data(), s.sums[1].data()};
            const double* v[2] = {squares[0] + (n - base), channel_count > 1 ? squares[1] + (n - base) : nullptr};
            if (channel_count > 1)
                add_run<2>(sums, s.ended, s.started - s.ended, v, len);
            else
                add_run<1>(sums, s.ended, s.started - s.ended, v, len);
        }
        n = until;
    }
    s.next_sample = stop;
}

bool block_series_from_sums(const block_sum_stream& s, std::size_t channel_count, std::uint64_t count,
                            std::uint64_t n, bool keep_mean_squares, block_series& out) {
    out = block_series{};
    count = std::min<std::uint64_t>(count, s.spans.size());
    if (!reserve_series(out, channel_count, count, keep_mean_squares)) return false;
    for (std::uint64_t i = 0; i < count; ++i) {
        const block_span& sp = s.spans[i];
        if (!block_measured(sp, n)) continue;
        const double len = static_cast<double>(sp.end - sp.first);
        double total = 0.0;
        for (std::size_t c = 0; c < channel_count; ++c) {
            const double ms = s.sums[c][i] / len;
            total += ms;
            if (keep_mean_squares) out.mean_square[c].push_back(ms);
        }
        out.loudness.push_back(loudness_of_mean_square_sum(total));
    }
    return true;
}

}  // namespace veltrane
