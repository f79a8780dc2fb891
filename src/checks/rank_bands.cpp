#include "checks/rank_bands.h"

#include <algorithm>

namespace veltrane {

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
