#include "trim/sync_detect.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace veltrane {
namespace {

double energy(strided_samples x, std::uint64_t from, std::uint64_t count) {
    double sum = 0.0;
    for (std::uint64_t i = from; i < from + count; ++i) sum += x[i] * x[i];
    return sum;
}

// Channel `channel` of frames [start, start + count) of the file.
strided_samples channel_stretch(const wav_audio& audio, std::uint32_t channel, std::uint64_t start,
                                std::uint64_t count) {
    return {audio.samples.data() + start * audio.channels + channel, audio.channels, count};
}

// Checks each chirp of a found tone on its own in channel `channel`, in a stretch of
// twice the chirp length around its expected place (half a chirp before, half after).
void check_chirps(sync_detector& d, const wav_audio& audio, std::uint32_t channel, sync_match& match,
                  std::vector<complex_value>& work) {
    const std::uint64_t lc = sync_chirp_length(builtin_sync_tone, d.sample_rate_hz);
    const std::uint64_t lg = sync_gap_length(builtin_sync_tone, d.sample_rate_hz);
    const std::uint32_t count = builtin_sync_tone.chirp_count;
    match.rep_count = static_cast<std::int32_t>(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint64_t expected = match.sample_offset + i * (lc + lg);
        const std::uint64_t from = expected > lc / 2 ? expected - lc / 2 : 0;
        const std::uint64_t to = std::min<std::uint64_t>(expected + lc + lc / 2, audio.frame_count);
        if (to <= from || to - from < lc) continue;
        matched_filter_result r;
        if (matched_filter(channel_stretch(audio, channel, from, to - from), d.chirps[i], d.chirp_spectra[i], work, r))
            match.rep_psr[i] = r.psr;
    }
}

}  // namespace

void init_sync_detector(sync_detector& d, std::uint32_t sample_rate_hz) {
    d = sync_detector{};
    d.sample_rate_hz = sample_rate_hz;
    const std::uint64_t length = sync_template_length(sample_rate_hz);
    if (length == 0) return;
    try {
        d.tone.resize(length);
        synth_sync_template(builtin_sync_tone, sample_rate_hz, d.tone);
        for (std::uint32_t i = 0; i < builtin_sync_tone.chirp_count; ++i) {
            const sync_tone_shape one = single_chirp_tone(builtin_sync_tone, i);
            d.chirps[i].resize(sync_tone_length(one, sample_rate_hz));
            synth_sync_template(one, sample_rate_hz, d.chirps[i]);
        }
    } catch (const std::bad_alloc&) {
        d = sync_detector{};
        d.sample_rate_hz = sample_rate_hz;
        return;
    }
    d.tone_energy = energy(contiguous(d.tone), 0, length);
    d.ready = true;
}

sync_match find_sync(sync_detector& d, const wav_audio& audio, std::uint64_t start, std::uint64_t length,
                     double psr_threshold, double similarity_threshold) {
    sync_match match;  // the all-zero result
    const std::uint64_t tone_length = sync_template_length(audio.sample_rate);
    if (tone_length == 0 || start >= audio.frame_count) return match;
    const std::uint64_t stretch = std::min(length, audio.frame_count - start);
    if (stretch < tone_length) return match;
    // The tone is only synthesized once a stretch can hold it, so an absurd sample rate
    // never asks for a tone longer than the audio already in memory.
    if (d.sample_rate_hz != audio.sample_rate || !d.ready) init_sync_detector(d, audio.sample_rate);
    if (!d.ready) return match;

    double best_psr = -1.0;
    std::uint64_t best_position = 0;
    match.channel = -1;
    for (std::uint32_t c = 0; c < audio.channels; ++c) {
        const strided_samples x = channel_stretch(audio, c, start, stretch);
        matched_filter_result r;
        if (!matched_filter(x, d.tone, d.tone_spectrum, d.work, r)) continue;
        if (!(r.psr > best_psr)) continue;
        best_psr = r.psr;
        best_position = r.position;
        match.channel = static_cast<std::int32_t>(c);
        match.psr = r.psr;
        const double ex = energy(x, r.position, tone_length);
        double similarity = 0.0;
        if (ex != 0.0 && d.tone_energy != 0.0) similarity = r.peak / std::sqrt(ex * d.tone_energy);
        match.similarity = similarity < 0.0 ? 0.0 : similarity;
    }
    if (match.channel < 0) return match;
    match.sample_offset = start + best_position;
    match.found = best_psr >= psr_threshold && match.similarity >= similarity_threshold;
    if (match.found) {
        std::vector<complex_value> chirp_work;  // small: kept apart from the big buffer
        check_chirps(d, audio, static_cast<std::uint32_t>(match.channel), match, chirp_work);
    }
    return match;
}

sync_match find_sync(const wav_audio& audio, std::uint64_t start, std::uint64_t length, double psr_threshold,
                     double similarity_threshold) {
    sync_detector d;
    return find_sync(d, audio, start, length, psr_threshold, similarity_threshold);
}

}  // namespace veltrane
