#include "checks/order_statistics.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>
#include <new>

namespace veltrane {
namespace {

// Order-preserving map of a double to an unsigned key: flipping every bit of a negative
// value and the sign bit of a positive one makes unsigned order equal numeric order. The
// one difference from `<` is that -0.0 sorts below +0.0, while `<` calls them equal; the
// value at a rank is then the same number, at most with the other sign of zero.
inline std::uint64_t key_of(double x) {
    const auto bits = std::bit_cast<std::uint64_t>(x);
    return (bits >> 63) ? ~bits : bits | (std::uint64_t{1} << 63);
}

constexpr int digit_bits = 11;  // 2048 buckets: the sign and exponent of the first digit
constexpr std::size_t buckets = std::size_t{1} << digit_bits;
constexpr std::uint64_t small_range = 4096;  // below this, selection by comparison

// The value of rank k (0-based, ascending) among f(values[i]), reordering the values but
// never changing them. Most significant digit first: count the keys per digit, keep only
// the bucket holding rank k (moved to the front of the active range) and go on with the
// next digit inside it. Each round costs two passes over the active range, which shrinks
// by the bucket's share.
template <class F>
double select_rank(double* values, std::uint64_t n, std::uint64_t k, F f) {
    std::uint64_t lo = 0, hi = n;
    int shift = 64 - digit_bits;
    std::uint64_t counts[buckets];
    while (hi - lo > small_range && shift > -digit_bits) {
        const int s = std::max(shift, 0);
        const std::uint64_t mask = (std::uint64_t{1} << (shift >= 0 ? digit_bits : digit_bits + shift)) - 1;
        std::fill(std::begin(counts), std::end(counts), 0);
        for (std::uint64_t i = lo; i < hi; ++i) ++counts[(key_of(f(values[i])) >> s) & mask];
        std::uint64_t below = 0, b = 0;
        while (below + counts[b] <= k - lo) below += counts[b++];
        shift -= digit_bits;
        if (counts[b] == hi - lo) continue;  // every key shares this digit: look at the next one
        // Move the bucket's elements to the front of the range: they hold ranks
        // lo + below to lo + below + counts[b] - 1 of the whole order.
        std::uint64_t w = lo;
        for (std::uint64_t i = lo; i < hi; ++i)
            if (((key_of(f(values[i])) >> s) & mask) == b) std::swap(values[w++], values[i]);
        k -= below;
        hi = w;
    }
    std::nth_element(values + lo, values + k, values + hi, [&](double a, double b) { return f(a) < f(b); });
    return f(values[k]);
}

// For an even count the lower middle element comes from one read-only pass after the
// upper one is selected: when count / 2 values lie strictly below the upper middle, it is
// the largest of them; otherwise a value equal to the upper middle also holds the rank
// below it.
template <class F>
double median_of(double* values, std::uint64_t count, F f) {
    if (count == 0) return 0.0;
    const double upper = select_rank(values, count, count / 2, f);
    if (count % 2 == 1) return upper;
    std::uint64_t below = 0;
    double lower = upper;
    bool any_below = false;
    for (std::uint64_t i = 0; i < count; ++i) {
        const double x = f(values[i]);
        if (x < upper) {
            lower = any_below ? std::max(lower, x) : x;
            any_below = true;
            ++below;
        }
    }
    if (below < count / 2) lower = upper;
    return (lower + upper) / 2.0;
}

template <class F>
double percentile_of(double* values, std::uint64_t count, double fraction, F f) {
    if (count == 0) return 0.0;
    long long k = std::llround(static_cast<double>(count - 1) * fraction);
    auto index = std::min<std::uint64_t>(k < 0 ? 0 : static_cast<std::uint64_t>(k), count - 1);
    return select_rank(values, count, index, f);
}

// A function object (not a function pointer), so the selection loops inline it.
struct identity {
    double operator()(double x) const { return x; }
};

}  // namespace

double median_by_selection(double* values, std::uint64_t count) { return median_of(values, count, identity{}); }

double median_deviation_by_selection(double* values, std::uint64_t count, double centre) {
    return median_of(values, count, [centre](double x) { return std::fabs(x - centre); });
}

double percentile_by_selection(double* values, std::uint64_t count, double fraction) {
    return percentile_of(values, count, fraction, identity{});
}

double magnitude_percentile_by_selection(double* values, std::uint64_t count, double fraction) {
    return percentile_of(values, count, fraction, [](double x) { return std::fabs(x); });
}

}  // namespace veltrane
