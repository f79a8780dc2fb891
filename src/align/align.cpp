#include "align/align.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "dsp/fft.h"
#include "util/memory.h"

namespace veltrane {
namespace {

// The kept correlation starts below any real value.
constexpr double correlation_start = -1e300;

// Fixed bar of the head/tail probes: a stretch "lines up" at this correlation, whatever
// the configured threshold.
constexpr double stretch_bar = 0.5;

double rms(std::span<const double> x) {
    if (x.empty()) return 0.0;
    double sum = 0.0;
    for (double v : x) sum += v * v;
    return std::sqrt(sum / static_cast<double>(x.size()));
}

correlation_peak correlate_or_throw(std::span<const double> a, std::span<const double> b, std::int64_t max_lag,
                                    bool inverted) {
    const std::int64_t la = static_cast<std::int64_t>(a.size());
    const std::int64_t lb = static_cast<std::int64_t>(b.size());
    const std::uint64_t n = next_pow2(static_cast<std::uint64_t>(la + lb - 1));
    std::vector<complex_value> fa;
    std::vector<complex_value> fb;
    for (std::vector<complex_value>* v : {&fa, &fb}) {
        v->reserve(n);
        advise_huge_pages(v->data(), n * sizeof(complex_value));
        v->resize(n);
    }
    for (std::int64_t i = 0; i < la; ++i) fa[i].re = a[i];
    for (std::int64_t i = 0; i < lb; ++i) fb[i].re = b[i];
    fft_inplace(fa, false);
    fft_inplace(fb, false);
    for (std::uint64_t k = 0; k < n; ++k) {
        // A * conj(B)
        const double ar = fa[k].re, ai = fa[k].im, br = fb[k].re, bi = fb[k].im;
        fa[k] = {ar * br + ai * bi, ai * br - ar * bi};
    }
    fb.clear();
    fb.shrink_to_fit();
    fft_inplace(fa, true);

    const double sign = inverted ? -1.0 : 1.0;
    const std::int64_t m_low = -std::min(lb - 1, max_lag);
    const std::int64_t m_high = std::min(la - 1, max_lag);
    std::int64_t best_m = 0;
    double best = correlation_start;
    double best_c = 0.0;
    for (std::int64_t m = m_low; m <= m_high; ++m) {
        const double c = fa[m >= 0 ? static_cast<std::uint64_t>(m) : n - static_cast<std::uint64_t>(-m)].re;
        if (sign * c > best) {
            best = sign * c;
            best_c = c;
            best_m = m;
        }
    }
    double ea = 0.0;
    double eb = 0.0;
    const std::int64_t first = std::max<std::int64_t>(best_m, 0);
    const std::int64_t last = std::min(lb + best_m, la);
    for (std::int64_t i = first; i < last; ++i) {
        ea += a[i] * a[i];
        eb += b[i - best_m] * b[i - best_m];
    }
    const double norm = std::sqrt(ea * eb);
    correlation_peak peak;
    peak.lag = static_cast<std::int32_t>(-best_m);
    peak.confidence = norm > 0.0 ? best_c / norm : 0.0;
    return peak;
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

correlation_peak cross_correlate(std::span<const double> a, std::span<const double> b, std::int64_t max_lag,
                                 bool inverted) {
    if (a.empty() || b.empty()) return {};
    try {
        return correlate_or_throw(a, b, max_lag, inverted);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

align_result align_channels(const wav_audio& ref, const wav_audio& dut, std::int64_t max_lag, double threshold,
                            std::int32_t tolerance_samples, double silence_floor_db) {
    const double floor = std::pow(10.0, silence_floor_db / 20.0);
    align_result result;
    result.channels = std::min<std::uint64_t>(ref.channels, 2);
    channel_probe probe[2];
    for (std::uint64_t ch = 0; ch < result.channels; ++ch) {
        const auto c = static_cast<std::uint32_t>(ch);
        try {
            std::vector<double> r = extract_channel(ref, c);
            std::vector<double> d = extract_channel(dut, c);
            probe[ch].peak = cross_correlate(r, d, max_lag, false);
            probe[ch].ref_silent = floor >= rms(r);
            probe[ch].dut_silent = floor >= rms(d);
        } catch (const std::bad_alloc&) {
            // No copy, no measurement: the channel stays unmatched (confidence 0, not
            // silent), so exhausted memory can never pass for a silent channel.
            probe[ch] = channel_probe{};
        }
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
        std::vector<double> r, x;
        try {
            r = extract_channel(ref, c);
            x = extract_channel(dut, c);
        } catch (const std::bad_alloc&) {
            continue;  // nothing to probe with: the diagnosis stays no_match
        }

        const correlation_peak inverted = cross_correlate(r, x, max_lag, true);
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
            std::span<const double> rs(r), xs(x);
            const correlation_peak head = cross_correlate(rs.subspan(0, segment), xs.subspan(0, segment), max_lag, false);
            const correlation_peak tail =
                cross_correlate(rs.subspan(tail_start, segment), xs.subspan(tail_start, segment), max_lag, false);
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
            const correlation_peak wide = cross_correlate(r, x, half, false);
            d.wide_offset = wide.lag;
            d.wide_confidence = wide.confidence;
            if (wide.confidence >= threshold && std::abs(static_cast<std::int64_t>(wide.lag)) > max_lag)
                d.kind = align_diagnosis_kind::outside_window;
        }
    }
    return out;
}

}  // namespace veltrane
