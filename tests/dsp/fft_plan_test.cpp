// A planned transform must give the same bits as fft_inplace for every size and both
// directions, including the sizes whose long stages run from kept recurrence sequences.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "dsp/fft.h"

namespace veltrane {
namespace {

TEST(FftPlan, SameBitsAsTheUnplannedTransform) {
    std::mt19937 gen(3);
    std::uniform_real_distribution<double> dist(-1.0, 1.0);
    for (unsigned bits = 1; bits <= 17; ++bits) {
        const std::uint64_t n = std::uint64_t{1} << bits;
        std::vector<complex_value> x(n);
        for (auto& v : x) v = {dist(gen), dist(gen)};
        for (bool inverse : {false, true}) {
            fft_plan plan;
            ASSERT_TRUE(fft_plan_init(plan, n, inverse));
            std::vector<complex_value> plain = x, planned = x;
            fft_inplace(plain, inverse);
            fft_inplace(planned, plan);
            fft_inplace(planned, plan);  // the plan is reusable: a second use still matches
            fft_inplace(plain, inverse);
            EXPECT_EQ(std::memcmp(plain.data(), planned.data(), n * sizeof(complex_value)), 0)
                << "n=" << n << " inverse=" << inverse;
        }
    }
}

TEST(FftPlan, RejectsSizesThatAreNotPowersOfTwoAndLeavesOtherSizesAlone) {
    fft_plan plan;
    EXPECT_FALSE(fft_plan_init(plan, 0, false));
    EXPECT_FALSE(fft_plan_init(plan, 1, false));
    EXPECT_FALSE(fft_plan_init(plan, 12, false));
    ASSERT_TRUE(fft_plan_init(plan, 8, false));
    std::vector<complex_value> other(16, complex_value{1.0, 0.0});
    fft_inplace(other, plan);
    for (const auto& v : other) EXPECT_EQ(v.re, 1.0);
}

}  // namespace
}  // namespace veltrane
