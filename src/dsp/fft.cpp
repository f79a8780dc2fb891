#include "dsp/fft.h"

#include <cmath>
#include <utility>
#include <vector>

namespace veltrane {
namespace {

constexpr double two_pi = 6.283185307179586476925286766559;

// Twiddle factors are produced and applied this many at a time: 2048 complex values
// (32 KiB) stay in the first-level cache while every block of the stage uses them.
constexpr std::size_t twiddle_chunk = 2048;

void bit_reverse_permute(std::span<complex_value> a) {
    const std::size_t n = a.size();
    // j runs through the bit-reversed counterparts of i, incremented from the top bit down.
    for (std::size_t i = 1, j = 0; i < n; ++i) {
        std::size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j |= bit;
        if (i < j) std::swap(a[i], a[j]);
    }
}

}  // namespace

std::uint64_t next_pow2(std::uint64_t n) {
    std::uint64_t p = 1;
    while (p < n) p <<= 1;
    return p;
}

void fft_inplace(std::span<complex_value> a, bool inverse) {
    const std::size_t n = a.size();
    if (n < 2) return;
    bit_reverse_permute(a);

    complex_value twiddles[twiddle_chunk];
    for (std::size_t len = 2; len <= n; len <<= 1) {
        const double theta = (inverse ? two_pi : -two_pi) / static_cast<double>(len);
        const double s = std::sin(theta);
        const double c = std::cos(theta);
        const std::size_t half = len / 2;
        // w continues the recurrence w <- w * (c + i s) across chunks, from w = 1.
        double wr = 1.0;
        double wi = 0.0;
        for (std::size_t j0 = 0; j0 < half; j0 += twiddle_chunk) {
            const std::size_t count = half - j0 < twiddle_chunk ? half - j0 : twiddle_chunk;
            for (std::size_t j = 0; j < count; ++j) {
                twiddles[j] = {wr, wi};
                const double next_r = wr * c - wi * s;
                const double next_i = wr * s + wi * c;
                wr = next_r;
                wi = next_i;
            }
            for (std::size_t block = 0; block < n; block += len) {
                complex_value* lo = a.data() + block + j0;
                complex_value* hi = lo + half;
                for (std::size_t j = 0; j < count; ++j) {
                    const complex_value w = twiddles[j];
                    const double tr = w.re * hi[j].re - w.im * hi[j].im;
                    const double ti = w.re * hi[j].im + w.im * hi[j].re;
                    const complex_value u = lo[j];
                    lo[j] = {u.re + tr, u.im + ti};
                    hi[j] = {u.re - tr, u.im - ti};
                }
            }
        }
    }
    if (inverse) {
        const double scale = static_cast<double>(n);
        for (complex_value& v : a) {
            v.re /= scale;
            v.im /= scale;
        }
    }
}

}  // namespace veltrane
