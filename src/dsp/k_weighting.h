#pragma once
// K-weighting: the frequency weighting that loudness is measured through (a high shelf
// of about +4 dB above 1.5 kHz followed by a high pass near 38 Hz), as two biquads in
// cascade. Input and output are normalised sample values (full scale 1.0); the filter has
// unity gain at 1 kHz within a fraction of a dB, so a K-weighted mean square reads in the
// same units as the input's.
//
// Each biquad runs in transposed direct form II from zero state:
//   y = b0 x + s1;  s1 = b1 x - a1 y + s2;  s2 = b2 x - a2 y
// with every product and sum rounded in that order (no fused multiply-add), so results
// are reproducible bit for bit.
#include <cstddef>
#include <span>

namespace veltrane {

struct biquad {
    double b0 = 1.0, b1 = 0.0, b2 = 0.0;  // numerator
    double a1 = 0.0, a2 = 0.0;            // denominator, a0 normalised to 1
};

struct biquad_state {
    double s1 = 0.0, s2 = 0.0;
};

struct k_weighting {
    biquad shelf;      // stage 1: high shelf
    biquad high_pass;  // stage 2: high pass, numerator 1, -2, 1
};

// Both stages' coefficients for a sample rate in Hz, from the analogue prototypes by the
// bilinear transform (the tangent pre-warps each corner frequency).
k_weighting k_weighting_for_rate(double sample_rate_hz);

// One filter step of one stage; returns y and advances the state.
inline double biquad_step(const biquad& f, biquad_state& s, double x) {
    const double y = f.b0 * x + s.s1;
    s.s1 = f.b1 * x - f.a1 * y + s.s2;
    s.s2 = f.b2 * x - f.a2 * y;
    return y;
}

// Filters one channel's contiguous samples in place, both stages from zero state.
void k_weight_in_place(const k_weighting& k, std::span<double> samples);

// Running K-weighting of up to two interleaved channels, fed in consecutive pieces.
struct k_weighting_stream {
    k_weighting filter;
    biquad_state shelf[2];
    biquad_state high_pass[2];
};

// Filters `frames` samples of each of `channels` (1 or 2) channels, in[c][i], and writes
// the square of each weighted sample to squares[c][i]. Both channels advance in one loop
// so that their recurrences overlap.
void k_weight_squares(k_weighting_stream& stream, const double* const in[2], std::size_t channels,
                      std::size_t frames, double* const squares[2]);

}  // namespace veltrane
