#pragma once
// FFT matched filter: correlates a stretch of audio with a template at every start
// position where the template fits, and scores the best match by its peak-to-sidelobe
// ratio (PSR). Correlation values are in the product units of the inputs (sample value
// squared, summed over the template length); the PSR is a plain ratio of two of them.
#include <cstdint>
#include <span>
#include <vector>

#include "dsp/fft.h"

namespace veltrane {

struct matched_filter_result {
    std::uint64_t position = 0;  // start p of the best match, in samples from the stretch's start
    double psr = 0.0;            // |c(peak)| / mean |c(p)| over the sidelobes; 0 without sidelobes
    double peak = -1.0;          // |c(peak)|; -1 when the template fits nowhere
};

// One channel of interleaved audio, read without copying: element i is data[i * stride].
struct strided_samples {
    const double* data = nullptr;
    std::size_t stride = 1;
    std::uint64_t count = 0;
    double operator[](std::uint64_t i) const { return data[i * stride]; }
};

inline strided_samples contiguous(std::span<const double> x) { return {x.data(), 1, x.size()}; }

// Scores correlation values c(p) = c[p].re for p = 0 .. c.size() - 1 against a template of
// `template_length` samples. The peak is the largest |c(p)| (ties keep the earliest p).
// The sidelobes are the positions more than w away from the peak, with
// w = min(max(1, K / 4), template_length) for K = c.size() candidates; the PSR is the peak
// over their mean |c(p)|, summed in ascending p. No candidate: position 0, PSR 0, peak -1.
matched_filter_result score_correlation(std::span<const complex_value> c, std::uint64_t template_length);

// The transform of a template, reversed in time and zero-padded to `fft_size`, kept so
// that several stretches of the same length can be searched with one template transform.
struct template_spectrum {
    std::uint64_t fft_size = 0;  // 0: not computed yet
    std::vector<complex_value> bins;
};

// Makes `spectrum` hold the transform of `tmpl` at `fft_size` (a power of two not below
// the template length); does nothing when it already does. False when the buffer cannot
// be allocated (the spectrum is then left empty).
bool prepare_template_spectrum(std::span<const double> tmpl, std::uint64_t fft_size, template_spectrum& spectrum);

// Correlates x (n samples) with `tmpl` (m samples, n >= m - 1) through one transform of
// size next_pow2(n + m - 1): x and the time-reversed template are transformed, multiplied
// bin by bin and transformed back, so that element m - 1 + p holds c(p) =
// sum_j x[p + j] * tmpl[j]. `spectrum` caches the template's transform between calls
// with the same `tmpl`; `work` is the reusable transform buffer. False when a buffer
// cannot be allocated; `out` is then the no-candidate result.
bool matched_filter(strided_samples x, std::span<const double> tmpl, template_spectrum& spectrum,
                    std::vector<complex_value>& work, matched_filter_result& out);

// The same with its own buffers.
matched_filter_result matched_filter(std::span<const double> x, std::span<const double> tmpl);

}  // namespace veltrane
