#pragma once
// A read-only view of one channel of samples, contiguous or interleaved, so alignment can
// correlate the channels of the decoded files in place instead of copying each one out.
#include <cstdint>
#include <span>

#include "align/align.h"
#include "audio/wav.h"

namespace veltrane {

struct channel_view {
    const double* data = nullptr;
    std::uint64_t size = 0;    // samples
    std::uint64_t stride = 1;  // distance between consecutive samples, in doubles

    double operator[](std::uint64_t i) const { return data[i * stride]; }
    bool empty() const { return size == 0; }
    // Samples [first, first + count); the caller keeps them within the view.
    channel_view sub(std::uint64_t first, std::uint64_t count) const { return {data + first * stride, count, stride}; }
};

inline channel_view view_of(std::span<const double> x) { return {x.data(), x.size(), 1}; }

// Channel `channel` of an interleaved file (frame_count samples).
inline channel_view channel_of(const wav_audio& audio, std::uint32_t channel) {
    if (audio.frame_count == 0) return {};
    return {audio.samples.data() + channel, audio.frame_count, audio.channels};
}

// The blockwise offset search of cross_correlate, on views. Throws std::bad_alloc when its
// buffers cannot be allocated.
correlation_peak correlate_blockwise(channel_view a, channel_view b, std::int64_t max_lag, bool inverted);

// The same search for up to two channel pairs at once (further pairs are ignored), all of
// the same two lengths as a[0] and b[0]: the channels of two interleaved files, read side
// by side so each stretch of memory is loaded once. out[c] receives pair c's result,
// exactly what correlate_blockwise gives for that pair alone. Throws std::bad_alloc when
// its buffers cannot be allocated.
void correlate_blockwise(std::span<const channel_view> a, std::span<const channel_view> b, std::int64_t max_lag,
                         bool inverted, std::span<correlation_peak> out);

// The full-length search of cross_correlate_full_length, on views. Throws std::bad_alloc
// when its buffers cannot be allocated.
correlation_peak correlate_full_length(channel_view a, channel_view b, std::int64_t max_lag, bool inverted);

}  // namespace veltrane
