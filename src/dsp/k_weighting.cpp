#include "dsp/k_weighting.h"

#include <cmath>

#include "dsp/simd_lanes.h"

namespace veltrane {
namespace {

// Shelf of stage 1: corner 1681.974450955532 Hz (the tangent's argument is pi times it,
// 5284.078578647624), quality 0.7071752369554193, high-frequency gain Vh =
// 1.5848647011302448 (+4.0 dB) and band gain Vb = 1.258720930232585 (its square root).
constexpr double shelf_pi_f = 5284.078578647624;
constexpr double shelf_q = 0.7071752369554193;
constexpr double shelf_vh = 1.5848647011302448;
constexpr double shelf_vb = 1.258720930232585;

// High pass of stage 2: corner 38.13547087613982 Hz (pi times it: 119.80611514566837),
// quality 0.5003270373253953.
constexpr double high_pass_pi_f = 119.80611514566837;
constexpr double high_pass_q = 0.5003270373253953;

template <std::size_t C>
void squares_of(k_weighting_stream& st, const double* const in[2], std::size_t frames, double* const squares[2]) {
    const biquad shelf = st.filter.shelf;
    const biquad hp = st.filter.high_pass;
    biquad_state s1[C], s2[C];
    for (std::size_t c = 0; c < C; ++c) {
        s1[c] = st.shelf[c];
        s2[c] = st.high_pass[c];
    }
    for (std::size_t i = 0; i < frames; ++i) {
        for (std::size_t c = 0; c < C; ++c) {
            const double y = biquad_step(hp, s2[c], biquad_step(shelf, s1[c], in[c][i]));
            squares[c][i] = y * y;
        }
    }
    for (std::size_t c = 0; c < C; ++c) {
        st.shelf[c] = s1[c];
        st.high_pass[c] = s2[c];
    }
}

}  // namespace

k_weighting k_weighting_for_rate(double fs) {
    k_weighting k;
    {
        const double K = std::tan(shelf_pi_f / fs);
        const double a0 = 1.0 + K / shelf_q + K * K;
        k.shelf.b0 = (shelf_vh + shelf_vb * K / shelf_q + K * K) / a0;
        k.shelf.b1 = 2.0 * (K * K - shelf_vh) / a0;
        k.shelf.b2 = (shelf_vh - shelf_vb * K / shelf_q + K * K) / a0;
        k.shelf.a1 = 2.0 * (K * K - 1.0) / a0;
        k.shelf.a2 = (1.0 - K / shelf_q + K * K) / a0;
    }
    {
        const double K = std::tan(high_pass_pi_f / fs);
        const double a0 = 1.0 + K / high_pass_q + K * K;
        k.high_pass.b0 = 1.0;
        k.high_pass.b1 = -2.0;
        k.high_pass.b2 = 1.0;
        k.high_pass.a1 = 2.0 * (K * K - 1.0) / a0;
        k.high_pass.a2 = (1.0 - K / high_pass_q + K * K) / a0;
    }
    return k;
}

void k_weight_in_place(const k_weighting& k, std::span<double> samples) {
    biquad_state s1, s2;
    for (double& x : samples) x = biquad_step(k.high_pass, s2, biquad_step(k.shelf, s1, x));
}

// Both channels in the two lanes of one vector: each lane runs the scalar recurrence.
void stereo_squares(k_weighting_stream& st, const double* const in[2], std::size_t frames, double* const squares[2]) {
    const biquad f1 = st.filter.shelf, f2 = st.filter.high_pass;
    const lanes2 b10 = broadcast2(f1.b0), b11 = broadcast2(f1.b1), b12 = broadcast2(f1.b2);
    const lanes2 a11 = broadcast2(f1.a1), a12 = broadcast2(f1.a2);
    const lanes2 b20 = broadcast2(f2.b0), b21 = broadcast2(f2.b1), b22 = broadcast2(f2.b2);
    const lanes2 a21 = broadcast2(f2.a1), a22 = broadcast2(f2.a2);
    lanes2 s11 = {st.shelf[0].s1, st.shelf[1].s1}, s12 = {st.shelf[0].s2, st.shelf[1].s2};
    lanes2 s21 = {st.high_pass[0].s1, st.high_pass[1].s1}, s22 = {st.high_pass[0].s2, st.high_pass[1].s2};
    for (std::size_t i = 0; i < frames; ++i) {
        const lanes2 x = {in[0][i], in[1][i]};
        const lanes2 u = b10 * x + s11;
        s11 = b11 * x - a11 * u + s12;
        s12 = b12 * x - a12 * u;
        const lanes2 y = b20 * u + s21;
        s21 = b21 * u - a21 * y + s22;
        s22 = b22 * u - a22 * y;
        const lanes2 sq = y * y;
        squares[0][i] = sq[0];
        squares[1][i] = sq[1];
    }
    for (std::size_t c = 0; c < 2; ++c) {
        st.shelf[c] = {s11[c], s12[c]};
        st.high_pass[c] = {s21[c], s22[c]};
    }
}

void k_weight_squares(k_weighting_stream& stream, const double* const in[2], std::size_t channels,
                      std::size_t frames, double* const squares[2]) {
    if (channels >= 2)
        stereo_squares(stream, in, frames, squares);
    else if (channels == 1)
        squares_of<1>(stream, in, frames, squares);
}

}  // namespace veltrane
