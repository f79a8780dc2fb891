#include "checks/order_statistics.h"

#include <algorithm>
#include <cmath>

namespace veltrane {

double median_by_selection(double* values, std::uint64_t count) {
    if (count == 0) return 0.0;
    double* mid = values + count / 2;
    std::nth_element(values, mid, values + count);
    if (count % 2 == 1) return *mid;
    // After the selection every element before `mid` is <= *mid, so the lower middle
    // element is the largest of them.
    double lower = *std::max_element(values, mid);
    return (lower + *mid) / 2.0;
}

double percentile_by_selection(double* values, std::uint64_t count, double fraction) {
    if (count == 0) return 0.0;
    long long k = std::llround(static_cast<double>(count - 1) * fraction);
    auto index = std::min<std::uint64_t>(k < 0 ? 0 : static_cast<std::uint64_t>(k), count - 1);
    std::nth_element(values, values + index, values + count);
    return values[index];
}

}  // namespace veltrane
