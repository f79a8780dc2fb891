#pragma once
// Loudness blocks: the series of overlapping gating blocks over K-weighted samples and
// their loudness. Block i of a series with block length T seconds and hop step = 1 -
// overlap (a fraction of T) covers the samples [a, b) with
//   a = floor(i * step * T * fs),  b = floor((i * step + 1) * T * fs)
// (evaluated left to right in double precision). Each channel's mean square is the sum of
// its squared K-weighted samples from a to b - 1, added in ascending order from 0.0, over
// (b - a); the block's loudness is 10 log10(sum of the channels' mean squares) - 0.691
// LUFS (-0.691 dB compensates the K-weighting's gain at 1 kHz), or -200.0 when that sum
// is 0. All channels weigh 1.0.
//
// Two forms compute the same values: block_loudness over whole K-weighted buffers, one
// block after the other, and block_sum_stream, which takes the squares in consecutive
// pieces and adds each to every block covering it, several blocks side by side.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace veltrane {

inline constexpr double no_level_db = -200.0;            // "no level at all"
inline constexpr double loudness_offset_db = -0.691;     // K-weighting gain at 1 kHz, compensated

// 10 log10(sum) - 0.691, or -200.0 when sum is 0.
double loudness_of_mean_square_sum(double sum);

struct block_span {
    std::int64_t first = 0;  // a: first sample of the block
    std::int64_t end = 0;    // b: one past its last sample
};

// Number of blocks of a series over n samples (before skipping): 0 when T exceeds the
// duration n / fs or the overlap is 1 or more, else llround((n/fs - T) / (T * step)) + 1,
// at least 1.
std::uint64_t block_series_count(std::uint64_t n, double fs, double block_sec, double overlap);
block_span block_span_of(std::uint64_t i, double fs, double block_sec, double overlap);
// Block i is measured when it lies inside the n samples and is not empty.
inline bool block_measured(const block_span& s, std::uint64_t n) {
    return s.end <= static_cast<std::int64_t>(n) && s.first < s.end;
}

// The measured blocks of a series, in order: loudness in LUFS and, when kept, each
// channel's mean square.
struct block_series {
    std::vector<double> loudness;
    std::vector<double> mean_square[2];
};

// Blocks over `channel_count` (1 or 2) K-weighted buffers of n samples each, one block at
// a time. False only when a list cannot be allocated (out is then empty).
bool block_loudness(const double* const channels[2], std::size_t channel_count, std::uint64_t n, double fs,
                    double block_sec, double overlap, bool keep_mean_squares, block_series& out);

// Running per-channel sums of squares of every block of a series, fed in consecutive
// pieces of squared K-weighted samples. Blocks reaching past the samples fed keep the sum
// of the part that was fed: the sum over a signal extended with zeros.
struct block_sum_stream {
    std::vector<block_span> spans;   // every block i < count, skipped ones included
    std::vector<double> sums[2];     // per channel, per block
    std::size_t ended = 0;           // blocks below this one have ended
    std::size_t started = 0;         // blocks below this one have started
    std::int64_t next_sample = 0;    // index of the next sample to be fed
};

// Prepares `count` blocks of the series. False when the lists cannot be allocated.
bool block_sum_stream_init(block_sum_stream& s, std::uint64_t count, double fs, double block_sec, double overlap,
                           std::size_t channel_count);

// Adds the next `frames` squared samples of each channel (squares[c][0..frames-1]) to
// every block that covers them.
void block_sum_stream_add(block_sum_stream& s, const double* const squares[2], std::size_t channel_count,
                          std::size_t frames);

// The measured blocks among the first `count` blocks over n samples, from the sums.
bool block_series_from_sums(const block_sum_stream& s, std::size_t channel_count, std::uint64_t count,
                            std::uint64_t n, bool keep_mean_squares, block_series& out);

}  // namespace veltrane
