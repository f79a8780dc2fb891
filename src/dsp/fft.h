#pragma once
// The one complex FFT of the program: iterative radix-2 decimation in time, forward
// unscaled (X[k] = sum x[m] e^{-2 pi i k m / n}), inverse scaled by 1/n so that it returns
// the input. Sizes are powers of two.
#include <cstdint>
#include <span>
#include <vector>

namespace veltrane {

struct complex_value {
    double re = 0.0;
    double im = 0.0;
};

// Smallest power of two that is not below n; 1 for n below 2; 0 when n is above 2^63.
std::uint64_t next_pow2(std::uint64_t n);

// Transforms data in place; data.size() must be a power of two (any other size, and sizes
// below 2, are left unchanged). The arithmetic is fixed so results are reproducible bit
// for bit: bit-reversal reordering, then per stage length L one sine and one cosine of
// theta = -+2 pi / L, a twiddle w that starts at 1 in every block and advances by
// w = w * (cos theta + i sin theta), butterflies t = w * a[j + L/2], u = a[j],
// a[j] = u + t, a[j + L/2] = u - t; the inverse divides by n at the end. The work is
// reordered for speed (per-stage twiddle tables for short stages, running recurrences for
// long ones, three stages per pass over memory, tiled bit reversal) but performs exactly
// these operations on exactly these values. Allocates nothing (at most 64 KiB of stack).
void fft_inplace(std::span<complex_value> data, bool inverse);

// The twiddle factors of one transform size and direction, made once and reused by every
// transform of that size: the per-stage tables of the short stages and, for the long
// stages, the whole sequence each running recurrence would produce. Each value is made by
// the same recurrence from the same sine and cosine as inside fft_inplace, so a planned
// transform gives the same bits; it only stops paying for the recurrences per call.
struct fft_plan {
    std::uint64_t n = 0;
    bool inverse = false;
    std::vector<complex_value> table;      // stages of length 2 .. min(n, 4096)
    std::vector<complex_value> sequences;  // longer stages, pass by pass, recurrence by recurrence
};

// Makes the plan for n points (a power of two of at least 2); false, with the plan left
// empty, when n is not such a size or memory is exhausted.
bool fft_plan_init(fft_plan& plan, std::uint64_t n, bool inverse);

// fft_inplace(data, plan.inverse) with the plan's twiddles; data.size() must be plan.n
// (any other size is left unchanged). Allocates nothing.
void fft_inplace(std::span<complex_value> data, const fft_plan& plan);

}  // namespace veltrane
