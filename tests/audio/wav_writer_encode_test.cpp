// The integer sample encoder against the plain rule, value by value: clamp to [-1, 1],
// scale by 2^(bits-1) - 1, round half away from zero (llround), NaN as 0.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "audio/wav.h"

namespace veltrane {
namespace {

std::int64_t plain_code(double x, std::uint32_t bits) {
    if (std::isnan(x)) return 0;
    const double scale = static_cast<double>((std::int64_t{1} << (bits - 1)) - 1);
    return std::llround(std::fmax(-1.0, std::fmin(1.0, x)) * scale);
}

TEST(WavEncode, EveryWidthMatchesThePlainRule) {
    std::vector<double> values = {0.0, -0.0, 1.0, -1.0, 1.0000001, -1.0000001, 1e300, -1e300,
                                  std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                  std::nan(""), std::numeric_limits<double>::denorm_min(), 0.49999999999999994};
    for (std::uint32_t bits : {16u, 24u, 32u}) {
        const double scale = static_cast<double>((std::int64_t{1} << (bits - 1)) - 1);
        // Exact halves and their neighbours, where rounding direction matters.
        for (double k : {0.0, 1.0, 2.0, 100.0, 12345.0, scale - 1.0}) {
            for (double half : {0.5, -0.5}) {
                const double t = (k + half) * (half > 0 ? 1.0 : -1.0);
                for (double v : {t, std::nextafter(t, 0.0), std::nextafter(t, 1e9), std::nextafter(t, -1e9)})
                    values.push_back(v / scale);
            }
        }
    }
    std::uint32_t seed = 7;
    for (int i = 0; i < 5000; ++i) {  // more than one encoding run, odd count
        seed = seed * 1664525u + 1013904223u;
        values.push_back((static_cast<double>(seed) / 4294967296.0 - 0.5) * 2.2);
    }
    for (std::uint32_t bits : {16u, 24u, 32u}) {
        SCOPED_TRACE(bits);
        std::vector<std::uint8_t> out = {0xAA};  // appended after what is already there
        encode_pcm_samples(bits, values, out);
        const std::size_t width = bits / 8;
        ASSERT_EQ(out.size(), 1 + width * values.size());
        EXPECT_EQ(out[0], 0xAA);
        for (std::size_t i = 0; i < values.size(); ++i) {
            std::uint64_t u = 0;
            for (std::size_t k = 0; k < width; ++k) u |= static_cast<std::uint64_t>(out[1 + width * i + k]) << (8 * k);
            const std::uint64_t sign = std::uint64_t{1} << (bits - 1);
            const auto code = static_cast<std::int64_t>(u ^ sign) - static_cast<std::int64_t>(sign);
            ASSERT_EQ(code, plain_code(values[i], bits)) << "value " << values[i] << " at " << i;
        }
    }
}

}  // namespace
}  // namespace veltrane
