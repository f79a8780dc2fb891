// Per-channel alignment and the probes that explain a failed one. Which correlation runs
// where:
// - alignment, the polarity probe and the head/tail probes search +-max_lag with the
//   blockwise method (working memory set by max_lag, not by the file length);
// - the wide probe searches +-half the file with the full-length method, and only when
//   its buffers fit in the memory the machine can still give (else lag 0, confidence 0).
// Channels are read in place from the decoded files, never copied.
#include "align/align.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "align/channel_view.h"
#include "util/memory.h"

namespace veltrane {
namespace {

// Fixed bar of the head/tail probes: a stretch "lines up" at this correlation, whatever
// the configured threshold.
constexpr double stretch_bar = 0.5;

// RMS of channels 0 and 1 (as far as the file has them) in one pass over the interleaved
// samples, so each stretch of memory is read once for both; every channel's squares are
// still summed on their own in frame order. 0 for an empty channel.
std::array<double, 2> channel_rms(const wav_audio& audio) {
    std::array<double, 2> sum{};
    const std::uint64_t frames = audio.frame_count;
    const std::uint64_t stride = audio.channels;
    const double* x = audio.samples.data();
    if (frames == 0) return sum;
    if (stride >= 2) {
        for (std::uint64_t i = 0; i < frames; ++i) {
            sum[0] += x[i * stride] * x[i * stride];
            sum[1] += x[i * stride + 1] * x[i * stride + 1];
        }
    } else {
        for (std::uint64_t i = 0; i < frames; ++i) sum[0] += x[i] * x[i];
    }
    for (double& s : sum) s = std::sqrt(s / static_cast<double>(frames));
    return sum;
}

// cross_correlate on views: allocation failure gives lag 0, confidence 0.
correlation_peak correlate(channel_view a, channel_view b, std::int64_t max_lag, bool inverted) {
    try {
        return correlate_blockwise(a, b, max_lag, inverted);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

// The wide probe searches half the file, so it keeps the full-length method (its
// buffers are about as large as a blockwise search of that range would need). Those
// buffers grow with the file: 16 GiB for an hour of 48 kHz. They are first compared with
// the memory the machine can still give, less an eighth kept free (the kernel's figure is
// an estimate, and the rest of the machine goes on running); when they would not fit, the
// probe takes the allocation-failure result (lag 0, confidence 0) at once instead of
// touching memory the kernel would answer by killing the process.
correlation_peak correlate_wide(channel_view a, channel_view b, std::int64_t max_lag) {
    const std::uint64_t available = available_memory_bytes();
    if (full_length_correlation_bytes(a.size, b.size) > available - available / 8) return {};
    try {
        return correlate_full_length(a, b, max_lag, false);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

struct channel_probe {
    correlation_peak peak;
    bool ref_silent = false;
    bool dut_silent = false;
    bool silent() const { return ref_silent || dut_silent; }
};

}  // namespace

const char* align_state_name(align_state state) {
    switch (state) {
        case align_state::measured: return "measured";
        case align_state::silent_borrowed: return "silent_borrowed";
        case align_state::silent_zero: return "silent_zero";
    }
    return "measured";
}

std::vector<double> extract_channel(const wav_audio& audio, std::uint32_t channel) {
    std::vector<double> out(audio.frame_count);
    for (std::uint64_t i = 0; i < audio.frame_count; ++i) out[i] = audio.samples[i * audio.channels + channel];
    return out;
}

align_result align_channels(const wav_audio& ref, const wav_audio& dut, std::int64_t max_lag, double threshold,
                            std::int32_t tolerance_samples, double silence_floor_db) {
    const double floor = std::pow(10.0, silence_floor_db / 20.0);
    align_result result;
    result.channels = std::min<std::uint64_t>(ref.channels, 2);
    channel_probe probe[2];
    const std::array<double, 2> ref_rms = channel_rms(ref);
    const std::array<double, 2> dut_rms = channel_rms(dut);
    // The channels are read in place from the interleaved samples, both in one pass: no
    // copies, and the only working memory is the correlation's own (two small blocks).
    const std::size_t count = static_cast<std::size_t>(result.channels);
    channel_view r[2], d[2];
    correlation_peak peak[2];
    for (std::size_t ch = 0; ch < count; ++ch) {
        r[ch] = channel_of(ref, static_cast<std::uint32_t>(ch));
        d[ch] = channel_of(dut, static_cast<std::uint32_t>(ch));
    }
    try {
        correlate_blockwise({r, count}, {d, count}, max_lag, false, {peak, count});
    } catch (const std::bad_alloc&) {
        peak[0] = peak[1] = {};  // lag 0, confidence 0: the channels fail the threshold
    }
    for (std::size_t ch = 0; ch < count; ++ch) {
        probe[ch].peak = peak[ch];
        probe[ch].ref_silent = floor >= ref_rms[ch];
        probe[ch].dut_silent = floor >= dut_rms[ch];
    }
    for (std::uint64_t ch = 0; ch < result.channels; ++ch) {
        align_channel& out = result.channel[ch];
        out.ref_silent = probe[ch].ref_silent;
        out.dut_silent = probe[ch].dut_silent;
        if (!probe[ch].silent()) {
            out.state = align_state::measured;
            out.offset = probe[ch].peak.lag;
            out.confidence = probe[ch].peak.confidence;
            out.channel_ok = probe[ch].peak.confidence >= threshold;
            continue;
        }
        out.channel_ok = true;
        const channel_probe* other = result.channels == 2 ? &probe[1 - ch] : nullptr;
        if (other && !other->silent() && other->peak.confidence >= threshold) {
            out.state = align_state::silent_borrowed;
            out.offset = other->peak.lag;
            out.confidence = other->peak.confidence;
        } else {
            out.state = align_state::silent_zero;
            out.offset = 0;
            out.confidence = 0.0;
        }
    }
    result.file_offset = result.channel[0].offset;
    if (result.channels < 2) {
        result.aligned = result.channel[0].channel_ok;
        result.disagreement_samples = 0;
    } else {
        result.disagreement_samples = std::abs(result.channel[0].offset - result.channel[1].offset);
        result.aligned = result.channel[0].channel_ok && result.channel[1].channel_ok &&
                         result.disagreement_samples <= tolerance_samples;
    }
    return result;
}

std::array<align_diagnosis, 2> diagnose_alignment(const wav_audio& ref, const wav_audio& dut,
                                                  const align_result& result, std::int64_t max_lag, double threshold) {
    std::array<align_diagnosis, 2> out{};
    const std::uint64_t shortest = std::min(ref.frame_count, dut.frame_count);
    const std::uint64_t rate = ref.sample_rate;
    // Head and tail stretches: a quarter of the shorter file, at most one second, and not
    // probed at all when that would be under a quarter second.
    std::uint64_t segment = std::min<std::uint64_t>(shortest / 4, rate);
    if (segment < rate / 4) segment = 0;
    const std::int64_t half = static_cast<std::int64_t>(shortest / 2);
    const std::uint64_t tail_start = shortest - segment;

    for (std::uint64_t ch = 0; ch < result.channels && ch < 2; ++ch) {
        const align_channel& state = result.channel[ch];
        if (state.state != align_state::measured || state.channel_ok) continue;
        align_diagnosis& d = out[ch];
        d.diagnosed = true;
        d.kind = align_diagnosis_kind::no_match;
        const auto c = static_cast<std::uint32_t>(ch);
        const channel_view r = channel_of(ref, c);
        const channel_view x = channel_of(dut, c);

        const correlation_peak inverted = correlate(r, x, max_lag, true);
        if (-inverted.confidence >= threshold && -inverted.confidence > state.confidence) {
            d.kind = align_diagnosis_kind::polarity_inverted;
            d.polarity_confidence = inverted.confidence;
            continue;
        }
        d.polarity_confidence = inverted.confidence;

        bool stretch_kind = false;
        if (segment > 0) {
            d.segment_len = static_cast<std::uint32_t>(segment);
            d.tail_start = static_cast<std::uint32_t>(tail_start);
            const correlation_peak head = correlate(r.sub(0, segment), x.sub(0, segment), max_lag, false);
            const correlation_peak tail =
                correlate(r.sub(tail_start, segment), x.sub(tail_start, segment), max_lag, false);
            d.head_offset = head.lag;
            d.head_confidence = head.confidence;
            d.tail_offset = tail.lag;
            d.tail_confidence = tail.confidence;
            const bool head_ok = head.confidence >= stretch_bar;
            const bool tail_ok = tail.confidence >= stretch_bar;
            stretch_kind = head_ok || tail_ok;
            if (head_ok && tail_ok)
                d.kind = head.lag == tail.lag ? align_diagnosis_kind::middle_differs : align_diagnosis_kind::drift;
            else if (head_ok)
                d.kind = align_diagnosis_kind::head_only;
            else if (tail_ok)
                d.kind = align_diagnosis_kind::tail_only;
        }
        if (!stretch_kind && max_lag < half) {
            const correlation_peak wide = correlate_wide(r, x, half);
            d.wide_offset = wide.lag;
            d.wide_confidence = wide.confidence;
            if (wide.confidence >= threshold && std::abs(static_cast<std::int64_t>(wide.lag)) > max_lag)
                d.kind = align_diagnosis_kind::outside_window;
        }
    }
    return out;
}

}  // namespace veltrane
