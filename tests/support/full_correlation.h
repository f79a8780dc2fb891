#pragma once
// Every lag of the correlation c(m) = sum_q a[q + m] * b[q], computed the full-length way
// (both signals zero-padded to next_pow2(len a + len b - 1), A * conj(B), one inverse
// transform), so its values are bit for bit those cross_correlate_full_length scans.
// Tests use it to tell a clear best lag from a tie decided by rounding.
#include <cstdint>
#include <span>
#include <vector>

#include "dsp/fft.h"

namespace veltrane::test {

struct full_correlation {
    std::int64_t lowest_m = 0;  // m of values[0]: -(len b - 1)
    std::vector<double> values;  // c(m) for m = lowest_m .. len a - 1
    double at(std::int64_t m) const { return values[static_cast<std::size_t>(m - lowest_m)]; }
};

inline full_correlation correlate_every_lag(std::span<const double> a, std::span<const double> b) {
    full_correlation out;
    if (a.empty() || b.empty()) return out;
    const std::uint64_t n = next_pow2(a.size() + b.size() - 1);
    std::vector<complex_value> fa(n), fb(n);
    for (std::size_t i = 0; i < a.size(); ++i) fa[i].re = a[i];
    for (std::size_t i = 0; i < b.size(); ++i) fb[i].re = b[i];
    fft_inplace(fa, false);
    fft_inplace(fb, false);
    for (std::uint64_t k = 0; k < n; ++k) {
        const double ar = fa[k].re, ai = fa[k].im, br = fb[k].re, bi = fb[k].im;
        fa[k] = {ar * br + ai * bi, ai * br - ar * bi};
    }
    fft_inplace(fa, true);
    out.lowest_m = -static_cast<std::int64_t>(b.size() - 1);
    for (std::int64_t m = out.lowest_m; m < static_cast<std::int64_t>(a.size()); ++m)
        out.values.push_back(fa[m >= 0 ? static_cast<std::uint64_t>(m) : n - static_cast<std::uint64_t>(-m)].re);
    return out;
}

}  // namespace veltrane::test
