#pragma once
// Order statistics of whole channels (medians and percentiles of per-sample figures),
// found by selection instead of a full sort. Selection yields exactly the element a
// full ascending sort would put at the same rank, so the values are identical; it only
// costs linear time. Both functions reorder their input and never allocate.
#include <cstdint>

namespace veltrane {

// The median as an ascending sort gives it: for an odd count the middle element, for an
// even count the mean of elements count/2 - 1 and count/2. 0.0 for no values.
double median_by_selection(double* values, std::uint64_t count);

// The median of |values[i] - centre| (the median absolute deviation about `centre`),
// computed on the fly: the values are reordered but not replaced.
double median_deviation_by_selection(double* values, std::uint64_t count, double centre);

// Element k = llround((count - 1) x fraction) (halves away from zero), capped at
// count - 1, of the ascending order. 0.0 for no values.
double percentile_by_selection(double* values, std::uint64_t count, double fraction);

// The same percentile of |values[i]|, computed on the fly (values reordered, not replaced).
double magnitude_percentile_by_selection(double* values, std::uint64_t count, double fraction);

}  // namespace veltrane
