#pragma once
// The one complex FFT of the program: iterative radix-2 decimation in time, forward
// unscaled (X[k] = sum x[m] e^{-2 pi i k m / n}), inverse scaled by 1/n so that it returns
// the input. Sizes are powers of two.
#include <cstdint>
#include <span>

namespace veltrane {

struct complex_value {
    double re = 0.0;
    double im = 0.0;
};

// Smallest power of two that is not below n; 1 for n below 2.
std::uint64_t next_pow2(std::uint64_t n);

// Transforms data in place; data.size() must be a power of two (sizes below 2 are left
// unchanged). Each stage takes one sine and one cosine and advances its twiddle factor by
// complex multiplication, restarting at 1 in every block; the sequence is computed once per
// stage in bounded chunks and shared by all blocks, which yields exactly the same values.
void fft_inplace(std::span<complex_value> data, bool inverse);

}  // namespace veltrane
