// The offset search: the correlation c(m) = sum_q a[q + m] * b[q] of a reference a and a
// DUT b over the lags m = -min(len b - 1, max_lag) .. +min(len a - 1, max_lag), the lag of
// its largest value (or its most negative one, for the inverted search) and the
// normalised confidence there.
//
// Two ways to compute c(m), which differ only in rounding:
// - blockwise (cross_correlate, used by alignment and the polarity and head/tail probes):
//   only the searched lags are computed, from the DUT in blocks, each correlated with the
//   stretch of the reference it can meet. Working memory depends on the lag range, not
//   on the file length.
// - full length (cross_correlate_full_length, used by the wide diagnosis probe whose lag
//   range is half the file anyway, and as the reference the blockwise search is checked
//   against): one pair of transforms of the next power of two above both lengths.
#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "align/align.h"
#include "align/channel_view.h"
#include "dsp/fft.h"
#include "util/memory.h"

namespace veltrane {
namespace {

// The kept correlation starts below any real value.
constexpr double correlation_start = -1e300;

// Blocks are never smaller than this many points: below it the fixed cost of a block
// (filling, one transform, one pass of accumulation) outweighs the lags it serves.
// 2^12 complex values are 64 KiB, which stays in the L2 cache.
constexpr std::uint64_t min_block_fft_size = std::uint64_t{1} << 12;

// The transform of a block is at least this many times the lag span: a block of n points
// serves n - K + 1 DUT samples for K lags, so its cost per sample, about n log2 n /
// (n - K + 1), is within a few per cent of its minimum from n = 4K on, while larger
// transforms only leave the cache.
constexpr std::uint64_t block_to_lag_ratio = 4;

struct lag_range {
    std::int64_t low = 0;   // most negative m searched
    std::int64_t high = 0;  // most positive m searched
    bool empty() const { return low > high; }
    std::uint64_t count() const { return static_cast<std::uint64_t>(high - low + 1); }
};

lag_range searched_lags(std::int64_t la, std::int64_t lb, std::int64_t max_lag) {
    return {-std::min(lb - 1, max_lag), std::min(la - 1, max_lag)};
}

// The scan over the searched lags: the largest s * c(m), a later lag replacing the kept
// one only when strictly larger, so ties keep the smallest m. c(m) is read through `at`.
struct best_lag {
    std::int64_t m = 0;
    double c = 0.0;
};

template <class Correlation>
best_lag scan_lags(lag_range lags, bool inverted, Correlation at) {
    const double sign = inverted ? -1.0 : 1.0;
    best_lag best;
    double kept = correlation_start;
    for (std::int64_t m = lags.low; m <= lags.high; ++m) {
        const double c = at(m);
        if (sign * c > kept) {
            kept = sign * c;
            best = {m, c};
        }
    }
    return best;
}

// Adds a[i]^2 to ea and b[i - m]^2 to eb for i in [from, to), in that order.
void add_energies(channel_view a, channel_view b, std::int64_t m, std::int64_t from, std::int64_t to, double& ea,
                  double& eb) {
    for (std::int64_t i = from; i < to; ++i) {
        const double x = a[static_cast<std::uint64_t>(i)];
        const double y = b[static_cast<std::uint64_t>(i - m)];
        ea += x * x;
        eb += y * y;
    }
}

// Lag -m and the normalised correlation c(m) / sqrt(Ea * Eb) of every channel pair, with
// Ea and Eb the direct energies of a and b over their overlap at that channel's m (frames
// max(m, 0) up to min(len b + m, len a)), summed in frame order; 0 when either energy is
// 0. Two pairs of one interleaved file are summed side by side over the frames both
// overlaps share, so that stretch of memory is read once for both.
void normalised_peaks(std::span<const channel_view> a, std::span<const channel_view> b,
                      std::span<const best_lag> best, std::span<correlation_peak> out) {
    const std::size_t count = a.size();
    double ea[2] = {0.0, 0.0};
    double eb[2] = {0.0, 0.0};
    std::int64_t first[2] = {0, 0};
    std::int64_t last[2] = {0, 0};
    for (std::size_t c = 0; c < count; ++c) {
        first[c] = std::max<std::int64_t>(best[c].m, 0);
        last[c] = std::min(static_cast<std::int64_t>(b[c].size) + best[c].m, static_cast<std::int64_t>(a[c].size));
    }
    const std::int64_t lo = count == 2 ? std::max(first[0], first[1]) : 0;
    const std::int64_t hi = count == 2 ? std::min(last[0], last[1]) : 0;
    if (count == 2 && lo < hi) {
        for (std::size_t c = 0; c < 2; ++c) add_energies(a[c], b[c], best[c].m, first[c], lo, ea[c], eb[c]);
        for (std::int64_t i = lo; i < hi; ++i) {
            const double x0 = a[0][static_cast<std::uint64_t>(i)], x1 = a[1][static_cast<std::uint64_t>(i)];
            const double y0 = b[0][static_cast<std::uint64_t>(i - best[0].m)];
            const double y1 = b[1][static_cast<std::uint64_t>(i - best[1].m)];
            ea[0] += x0 * x0;
            eb[0] += y0 * y0;
            ea[1] += x1 * x1;
            eb[1] += y1 * y1;
        }
        for (std::size_t c = 0; c < 2; ++c) add_energies(a[c], b[c], best[c].m, hi, last[c], ea[c], eb[c]);
    } else {
        for (std::size_t c = 0; c < count; ++c) add_energies(a[c], b[c], best[c].m, first[c], last[c], ea[c], eb[c]);
    }
    for (std::size_t c = 0; c < count; ++c) {
        const double norm = std::sqrt(ea[c] * eb[c]);
        out[c].lag = static_cast<std::int32_t>(-best[c].m);
        out[c].confidence = norm > 0.0 ? best[c].c / norm : 0.0;
    }
}

correlation_peak normalised_peak(channel_view a, channel_view b, best_lag best) {
    correlation_peak peak;
    normalised_peaks({&a, 1}, {&b, 1}, {&best, 1}, {&peak, 1});
    return peak;
}

// A vector of n complex zeros, backed by huge pages when it is large.
std::vector<complex_value> complex_buffer(std::uint64_t n) {
    std::vector<complex_value> v;
    v.reserve(n);
    advise_huge_pages(v.data(), n * sizeof(complex_value));
    v.resize(n);
    return v;
}

// One block's input per channel pair c, each element written once: real parts
// x[t] = stretch[c][t - offset] for t in [offset, offset + stretch length) and 0
// elsewhere, imaginary parts y[t] = block[c][t] for t below the block length and 0
// elsewhere. Two pairs of one interleaved file are filled side by side, so each stretch of
// the files is read from memory once for both.
template <std::size_t count>
void fill_blocks(std::vector<complex_value>* z, const channel_view* stretch, std::uint64_t offset,
                 const channel_view* block) {
    const std::uint64_t n = z[0].size();
    const std::uint64_t re_end = offset + stretch[0].size;
    const std::uint64_t im_end = block[0].size;
    // Runs of t over which neither part changes source: [0, offset), [offset, re_end) and
    // [re_end, n), each cut at im_end.
    const std::uint64_t bounds[] = {0, offset, re_end, n};
    for (int run = 0; run < 3; ++run) {
        const std::uint64_t from = bounds[run], to = bounds[run + 1];
        const std::uint64_t cut = std::clamp(im_end, from, to);
        if (run == 1) {
            for (std::uint64_t t = from; t < cut; ++t)
                for (std::size_t c = 0; c < count; ++c) z[c][t] = {stretch[c][t - offset], block[c][t]};
            for (std::uint64_t t = cut; t < to; ++t)
                for (std::size_t c = 0; c < count; ++c) z[c][t] = {stretch[c][t - offset], 0.0};
        } else {
            for (std::uint64_t t = from; t < cut; ++t)
                for (std::size_t c = 0; c < count; ++c) z[c][t] = {0.0, block[c][t]};
            for (std::uint64_t t = cut; t < to; ++t)
                for (std::size_t c = 0; c < count; ++c) z[c][t] = {};
        }
    }
}

}  // namespace

std::uint64_t blockwise_fft_size(std::uint64_t lag_count, std::uint64_t b_length) {
    const std::uint64_t wanted = std::max(min_block_fft_size, next_pow2(block_to_lag_ratio * lag_count));
    // One block holding every DUT sample needs no more than this.
    return std::min(wanted, next_pow2(b_length + lag_count - 1));
}

std::uint64_t full_length_correlation_bytes(std::uint64_t la, std::uint64_t lb) {
    if (la == 0 || lb == 0) return 0;
    return 2 * next_pow2(la + lb - 1) * sizeof(complex_value);
}

// Blockwise correlation by overlap-save. DUT block j covers samples q0 .. q0 + len - 1
// (len <= n - K + 1); the reference stretch it can meet at the searched lags is
// a[q0 + low .. q0 + low + len + K - 2], at most n samples. With x = that stretch and y =
// the block, both zero-padded to n, the circular correlation sum_j x[j + d] y[j] at
// d = 0 .. K - 1 never wraps, and it is this block's part of c(low + d).
//
// Both real sequences share one complex transform Z = FFT(x + i y): with
// Zm = conj(Z[n - k]), X[k] = (Z[k] + Zm) / 2 and Y[k] = (Z[k] - Zm) / (2i), so
// X conj(Y) = (i / 4) (Z[k] + Zm) conj(Z[k] - Zm). The products of all blocks are summed
// in the frequency domain (bins 0 .. n/2; the rest follow by conjugate symmetry, c being
// real) and transformed back once at the end.
void correlate_blockwise(std::span<const channel_view> a, std::span<const channel_view> b, std::int64_t max_lag,
                         bool inverted, std::span<correlation_peak> out) {
    const std::size_t count = std::min<std::size_t>(a.size(), 2);
    for (std::size_t c = 0; c < count; ++c) out[c] = {};
    if (count == 0 || a[0].empty() || b[0].empty()) return;
    const auto la = static_cast<std::int64_t>(a[0].size);
    const auto lb = static_cast<std::int64_t>(b[0].size);
    const lag_range lags = searched_lags(la, lb, max_lag);
    if (lags.empty()) return;  // a negative range searches nothing
    const std::uint64_t lag_count = lags.count();
    // DUT samples from la - low on meet no reference sample at any searched lag.
    const std::int64_t q_end = std::min(lb, la - lags.low);
    const std::uint64_t n = blockwise_fft_size(lag_count, static_cast<std::uint64_t>(q_end));
    const auto step = static_cast<std::int64_t>(n - lag_count + 1);
    const std::uint64_t half = n / 2;

    std::vector<complex_value> z[2];
    std::vector<complex_value> sum[2];
    for (std::size_t c = 0; c < count; ++c) {
        z[c] = complex_buffer(n);
        sum[c] = complex_buffer(half + 1);
    }
    for (std::int64_t q0 = 0; q0 < q_end; q0 += step) {
        const std::int64_t len = std::min(step, q_end - q0);
        const std::int64_t a_first = q0 + lags.low;
        const std::int64_t t_begin = std::max<std::int64_t>(0, -a_first);
        const std::int64_t t_end = std::min<std::int64_t>(len + static_cast<std::int64_t>(lag_count) - 1, la - a_first);
        // t_begin < t_end always: a_first < la because q0 < la - low, and -a_first <= -low < K.
        channel_view stretch[2];
        channel_view block[2];
        for (std::size_t c = 0; c < count; ++c) {
            stretch[c] =
                a[c].sub(static_cast<std::uint64_t>(a_first + t_begin), static_cast<std::uint64_t>(t_end - t_begin));
            block[c] = b[c].sub(static_cast<std::uint64_t>(q0), static_cast<std::uint64_t>(len));
        }
        if (count == 2)
            fill_blocks<2>(z, stretch, static_cast<std::uint64_t>(t_begin), block);
        else
            fill_blocks<1>(z, stretch, static_cast<std::uint64_t>(t_begin), block);
        for (std::size_t c = 0; c < count; ++c) {
            fft_inplace(z[c], false);
            const complex_value* zc = z[c].data();
            complex_value* acc = sum[c].data();
            for (std::uint64_t k = 0; k <= half; ++k) {
                const complex_value zk = zc[k];
                const complex_value zn = zc[(n - k) & (n - 1)];
                // p = Z[k] + conj(Z[n-k]), q = Z[k] - conj(Z[n-k]); sum += p * conj(q).
                const double pr = zk.re + zn.re, pi = zk.im - zn.im;
                const double qr = zk.re - zn.re, qi = zk.im + zn.im;
                acc[k].re += pr * qr + pi * qi;
                acc[k].im += pi * qr - pr * qi;
            }
        }
    }
    best_lag best[2];
    for (std::size_t c = 0; c < count; ++c) {
        // Spectrum of c: (i / 4) times the sum, mirrored as its conjugate above n/2.
        for (std::uint64_t k = 0; k <= half && k < n; ++k) {
            const complex_value t{-0.25 * sum[c][k].im, 0.25 * sum[c][k].re};
            z[c][k] = t;
            if (k > 0 && k < n - k) z[c][n - k] = {t.re, -t.im};
        }
        sum[c] = {};
        fft_inplace(z[c], true);
        best[c] = scan_lags(lags, inverted,
                            [&](std::int64_t m) { return z[c][static_cast<std::uint64_t>(m - lags.low)].re; });
        z[c] = {};
    }
    normalised_peaks(a.first(count), b.first(count), {best, count}, out);
}

correlation_peak correlate_blockwise(channel_view a, channel_view b, std::int64_t max_lag, bool inverted) {
    correlation_peak peak;
    correlate_blockwise({&a, 1}, {&b, 1}, max_lag, inverted, {&peak, 1});
    return peak;
}

// The full-length correlation: a and b zero-padded to N = next_pow2(len a + len b - 1),
// A * conj(B) transformed back; element m (N + m for negative m) is c(m).
correlation_peak correlate_full_length(channel_view a, channel_view b, std::int64_t max_lag, bool inverted) {
    if (a.empty() || b.empty()) return {};
    const auto la = static_cast<std::int64_t>(a.size);
    const auto lb = static_cast<std::int64_t>(b.size);
    const std::uint64_t n = next_pow2(static_cast<std::uint64_t>(la + lb - 1));
    std::vector<complex_value> fa = complex_buffer(n);
    std::vector<complex_value> fb = complex_buffer(n);
    for (std::uint64_t i = 0; i < a.size; ++i) fa[i].re = a[i];
    for (std::uint64_t i = 0; i < b.size; ++i) fb[i].re = b[i];
    fft_inplace(fa, false);
    fft_inplace(fb, false);
    for (std::uint64_t k = 0; k < n; ++k) {
        // A * conj(B)
        const double ar = fa[k].re, ai = fa[k].im, br = fb[k].re, bi = fb[k].im;
        fa[k] = {ar * br + ai * bi, ai * br - ar * bi};
    }
    fb.clear();
    fb.shrink_to_fit();
    fft_inplace(fa, true);
    const best_lag best = scan_lags(searched_lags(la, lb, max_lag), inverted, [&](std::int64_t m) {
        return fa[m >= 0 ? static_cast<std::uint64_t>(m) : n - static_cast<std::uint64_t>(-m)].re;
    });
    return normalised_peak(a, b, best);
}

correlation_peak cross_correlate(std::span<const double> a, std::span<const double> b, std::int64_t max_lag,
                                 bool inverted) {
    try {
        return correlate_blockwise(view_of(a), view_of(b), max_lag, inverted);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

correlation_peak cross_correlate_full_length(std::span<const double> a, std::span<const double> b,
                                             std::int64_t max_lag, bool inverted) {
    try {
        return correlate_full_length(view_of(a), view_of(b), max_lag, inverted);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

}  // namespace veltrane
