// Samples to and from float, with every length of the tail.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "qel/spu/aec/kernels.hpp"

namespace {

TEST(AecSamples, KeepTheLow16BitsOfTheSaturatedWhole) {
    std::vector<float> x = {0.99f,  -0.99f, 32767.9f, 32768,          40000, 65536.5f, 2147483520,
                            3e9f,   -3e9f,  INFINITY, 2147483648,     NAN,   1e-40f,   -INFINITY,
                            -65537, -NAN,   8388609,  -2147483648.0f, -0.0f};
    std::mt19937 bits(1);
    while (x.size() < 20000) x.push_back(std::bit_cast<float>(static_cast<uint32_t>(bits())));
    for (size_t n = 1; n <= x.size(); n += n < 40 ? 1 : 1999) {
        std::vector<int16_t> out(n + 1, 77);
        qel::kernels::to_samples(x.data(), out.data(), static_cast<int32_t>(n));
        EXPECT_EQ(out[n], 77);
        for (size_t i = 0; i < n; ++i) {
            const double whole = std::isnan(x[i]) ? 0 : std::trunc(1.0 * x[i]);
            const auto held =
                static_cast<int64_t>(std::fmax(INT32_MIN, std::fmin(whole, INT32_MAX)));
            ASSERT_EQ(out[i], static_cast<int16_t>(held)) << x[i] << " of " << n;
        }
    }
}

TEST(AecSamples, BecomeFloatsAtAnyDepthAndAddress) {
    std::vector<int32_t> x = {INT32_MIN, INT32_MAX, -1, 63, -64, (1 << 30) + 32};
    std::mt19937 bits(1);
    while (x.size() < 1000) x.push_back(static_cast<int32_t>(bits()));
    for (size_t n = 1; n < 40; ++n) {
        const auto len = static_cast<int32_t>(n);
        std::vector<float> out(n + 1, 77);
        std::vector<int16_t> narrow(n);
        std::memcpy(narrow.data(), x.data(), 2 * n);
        qel::kernels::from_samples(narrow.data(), out.data(), len);
        for (size_t i = 0; i < n; ++i) ASSERT_EQ(out[i], narrow[i]) << i;
        std::vector<char> odd(4 * n + 1);
        std::memcpy(&odd[1], x.data(), 4 * n);
        for (const int shift : {0, 6, 31}) {
            qel::kernels::from_wide_samples(&odd[1], shift, out.data(), len);
            for (size_t i = 0; i < n; ++i) {
                ASSERT_EQ(out[i], static_cast<float>(std::floor(std::ldexp(x[i], -shift)))) << x[i];
            }
        }
        EXPECT_EQ(out[n], 77);
    }
}

}  // namespace
