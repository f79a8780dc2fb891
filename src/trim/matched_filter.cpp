#include "trim/matched_filter.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "util/memory.h"

namespace veltrane {
namespace {

// Resizes a transform buffer without keeping its contents; the caller fills every element.
void size_buffer(std::vector<complex_value>& buf, std::uint64_t n) {
    if (buf.size() != n) {
        buf.clear();
        buf.shrink_to_fit();
        // The hint must come before the first write: it decides the page size of the
        // faults that the first touch takes.
        buf.reserve(n);
        advise_huge_pages(buf.data(), n * sizeof(complex_value));
        buf.resize(n);
    }
}

}  // namespace

matched_filter_result score_correlation(std::span<const complex_value> c, std::uint64_t template_length) {
    matched_filter_result r;
    const std::uint64_t k = c.size();
    if (k == 0) return r;
    std::uint64_t peak_at = 0;
    double peak = -1.0;
    for (std::uint64_t p = 0; p < k; ++p) {
        const double v = std::fabs(c[p].re);
        if (v > peak) {
            peak = v;
            peak_at = p;
        }
    }
    // Exclusion half-width: a quarter of the candidates (at least 1), never wider than the
    // template, so the main lobe and its immediate shoulders do not count as sidelobes.
    const std::uint64_t w = std::min<std::uint64_t>(k >= 4 ? std::max<std::uint64_t>(1, k / 4) : 1, template_length);
    double sum = 0.0;
    std::uint64_t count = 0;
    if (peak_at > w) {
        for (std::uint64_t p = 0; p < peak_at - w; ++p) sum += std::fabs(c[p].re);
        count += peak_at - w;
    }
    for (std::uint64_t p = peak_at + w + 1; p < k; ++p) {
        sum += std::fabs(c[p].re);
        ++count;
    }
    r.position = peak_at;
    r.peak = peak;
    if (count > 0) {
        const double mean = sum / static_cast<double>(count);
        r.psr = mean != 0.0 ? peak / mean : 0.0;
    }
    return r;
}

bool prepare_template_spectrum(std::span<const double> tmpl, std::uint64_t fft_size, template_spectrum& spectrum) {
    if (spectrum.fft_size == fft_size && spectrum.bins.size() == fft_size) return true;
    spectrum.fft_size = 0;
    try {
        size_buffer(spectrum.bins, fft_size);
    } catch (const std::bad_alloc&) {
        spectrum.bins = {};
        return false;
    }
    const std::uint64_t m = std::min<std::uint64_t>(tmpl.size(), fft_size);
    complex_value* b = spectrum.bins.data();
    for (std::uint64_t k = 0; k < m; ++k) b[k] = {tmpl[m - 1 - k], 0.0};
    std::fill(b + m, b + fft_size, complex_value{});
    fft_inplace(spectrum.bins, false);
    spectrum.fft_size = fft_size;
    return true;
}

bool matched_filter(strided_samples x, std::span<const double> tmpl, template_spectrum& spectrum,
                    std::vector<complex_value>& work, matched_filter_result& out) {
    out = matched_filter_result{};
    const std::uint64_t n = x.count;
    const std::uint64_t m = tmpl.size();
    if (m == 0 || n < m) return true;  // no start position where the template fits
    const std::uint64_t size = next_pow2(n + m - 1);
    if (!prepare_template_spectrum(tmpl, size, spectrum)) return false;
    try {
        size_buffer(work, size);
    } catch (const std::bad_alloc&) {
        work = {};
        return false;
    }
    complex_value* a = work.data();
    if (x.stride == 1) {
        for (std::uint64_t i = 0; i < n; ++i) a[i] = {x.data[i], 0.0};
    } else {
        for (std::uint64_t i = 0; i < n; ++i) a[i] = {x[i], 0.0};
    }
    std::fill(a + n, a + size, complex_value{});
    fft_inplace(work, false);
    const complex_value* t = spectrum.bins.data();
    for (std::uint64_t k = 0; k < size; ++k) {
        const complex_value u = a[k];
        a[k] = {u.re * t[k].re - u.im * t[k].im, u.re * t[k].im + u.im * t[k].re};
    }
    fft_inplace(work, true);
    out = score_correlation(std::span<const complex_value>(work).subspan(m - 1, n - m + 1), m);
    return true;
}

matched_filter_result matched_filter(std::span<const double> x, std::span<const double> tmpl) {
    template_spectrum spectrum;
    std::vector<complex_value> work;
    matched_filter_result r;
    matched_filter(contiguous(x), tmpl, spectrum, work, r);
    return r;
}

}  // namespace veltrane
