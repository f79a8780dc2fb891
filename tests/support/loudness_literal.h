#pragma once
// The loudness measurement done the plain way, one value at a time: each channel copied
// whole and K-weighted in place, every block summed on its own, the range series over an
// explicitly zero-extended copy, and every true-peak output summed on its own. Tests and
// the benchmark compare the product's measure_loudness with it bit for bit.
#include <cstddef>
#include <cstdint>

#include "checks/loudness.h"

namespace veltrane::test {

// Largest |y| over every input index and phase of one channel (stride between samples).
double true_peak_abs_max_literal(const double* samples, std::size_t stride, std::uint64_t n);

loudness_measurement measure_loudness_literal(const wav_audio& audio, std::size_t channel_count,
                                              std::uint64_t first_frame, std::uint64_t n, double fs);

}  // namespace veltrane::test
