#include "checks/rank_bands.h"

#include <algorithm>
#include <cstring>

#include "dsp/simd_lanes.h"

namespace veltrane {

namespace {

// The count of x[0..n) with lo <= x <= hi (closed) or lo < x < hi (open).
template <bool closed>
std::size_t count_in(const double* x, std::size_t n, double lo, double hi) {
    using counts4 = decltype(lanes4{} < lanes4{});  // four 64-bit lanes of 0 or -1
    const lanes4 lo4 = {lo, lo, lo, lo}, hi4 = {hi, hi, hi, hi};
    counts4 c = {0, 0, 0, 0};
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        lanes4 v;
        std::memcpy(&v, x + i, sizeof v);
        if constexpr (closed)
            c -= (v >= lo4) & (v <= hi4);
        else
            c -= (v > lo4) & (v < hi4);
    }
    std::size_t count = static_cast<std::size_t>(c[0] + c[1] + c[2] + c[3]);
    for (; i < n; ++i) count += closed ? (x[i] >= lo) & (x[i] <= hi) : (x[i] > lo) & (x[i] < hi);
    return count;
}

}  // namespace

__attribute__((target_clones("avx2", "default"))) std::size_t count_inside(const double* x, std::size_t n, double lo,
                                                                           double hi) {
    return count_in<true>(x, n, lo, hi);
}

__attribute__((target_clones("avx2", "default"))) std::size_t count_strictly_inside(const double* x, std::size_t n,
                                                                                    double lo, double hi) {
    return count_in<false>(x, n, lo, hi);
}

std::vector<std::uint64_t> sample_positions(std::uint64_t n) {
    std::vector<std::uint64_t> at(sample_count);
    std::uint64_t state = 0x9e3779b97f4a7c15ull;  // any fixed seed: the sample only places bands
    for (std::uint64_t& a : at) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        a = (state >> 1) % n;
    }
    std::sort(at.begin(), at.end());
    return at;
}

std::vector<double> sorted_keys(std::vector<double> xs, const statistic& st) {
    for (double& x : xs) x = st.key(x);
    std::sort(xs.begin(), xs.end());
    return xs;
}

std::optional<double> median_from(const rank_band& b, std::uint64_t n) {
    const auto upper = b.resolve(n / 2);
    if (!upper || n % 2) return upper;
    const auto lower = b.resolve(n / 2 - 1);
    if (!lower) return std::nullopt;
    return (*lower + *upper) / 2.0;
}

}  // namespace veltrane
