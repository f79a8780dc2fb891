#pragma once
// The FFT loop written out plainly, block by block with the twiddle factor advanced in
// place, to check the optimised transform against (it must give the same bits) and to
// measure the speed-up in the benchmarks.
#include <cmath>
#include <span>
#include <utility>

#include "dsp/fft.h"

namespace veltrane::test {

inline void reference_fft(std::span<complex_value> a, bool inverse) {
    const std::size_t n = a.size();
    if (n < 2) return;
    std::size_t bits = 0;
    while ((std::size_t{1} << bits) < n) ++bits;
    for (std::size_t i = 0; i < n; ++i) {
        std::size_t j = 0;
        for (std::size_t b = 0; b < bits; ++b)
            if (i & (std::size_t{1} << b)) j |= std::size_t{1} << (bits - 1 - b);
        if (i < j) std::swap(a[i], a[j]);
    }
    for (std::size_t len = 2; len <= n; len <<= 1) {
        const double theta = (inverse ? 2.0 : -2.0) * 3.14159265358979323846264338327950288 / static_cast<double>(len);
        const double s = std::sin(theta);
        const double c = std::cos(theta);
        for (std::size_t start = 0; start < n; start += len) {
            double wr = 1.0, wi = 0.0;
            for (std::size_t j = 0; j < len / 2; ++j) {
                complex_value& x = a[start + j];
                complex_value& y = a[start + j + len / 2];
                const double tr = wr * y.re - wi * y.im;
                const double ti = wr * y.im + wi * y.re;
                const complex_value u = x;
                x = {u.re + tr, u.im + ti};
                y = {u.re - tr, u.im - ti};
                const double nr = wr * c - wi * s;
                const double ni = wr * s + wi * c;
                wr = nr;
                wi = ni;
            }
        }
    }
    if (inverse)
        for (complex_value& v : a) {
            v.re /= static_cast<double>(n);
            v.im /= static_cast<double>(n);
        }
}

}  // namespace veltrane::test
