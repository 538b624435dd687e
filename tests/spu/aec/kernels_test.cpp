// Every width of every kernel against the same loops kept scalar; samples to and from float.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>

#include "qel/spu/aec/flush_subnormals.hpp"
#include "tests/spu/aec/kernel_calls.hpp"

namespace {

/// Numbers up to 100, or with awkward ones among them.
Pool make_pool(bool awkward) {
    const float odd[] = {0, 1e-30f, 1e30f, NAN, 100, 3e9f, 1e-12f};
    std::mt19937 bits(7);
    Pool pool;
    for (size_t a = 0; a < pool.size(); ++a) {
        for (size_t i = 0; i < 2 * kTaps * kLongest; ++i) {
            float v = std::ldexp(static_cast<float>(bits() % 100000) / 1000.0f,
                                 -static_cast<int>(bits() % 12));
            if (awkward && bits() % 5 == 0) v = odd[bits() % std::size(odd)];
            pool[a].push_back(a < 4 && bits() % 2 == 0 ? -v : v);
        }
    }
    return pool;
}

/// The same bits, NaN aside; where divisions are estimates, near each other. Between awkward
/// numbers estimates may differ without bound, except in being NaN or not.
bool agree(const std::vector<float>& x, const std::vector<float>& y,
           [[maybe_unused]] bool awkward) {
    for (size_t i = 0; i < x.size(); ++i) {
        if (std::isnan(x[i]) && std::isnan(y[i])) continue;
        bool same = std::memcmp(&x[i], &y[i], sizeof x[i]) == 0;
#ifdef __arm__
        same = same || (awkward ? std::isnan(x[i]) == std::isnan(y[i])
                                : std::fabs(x[i] - y[i]) <= 1e-4f * (1 + std::fabs(y[i])));
#endif
        if (!same) {
            ADD_FAILURE() << x[i] << " is not " << y[i] << " at " << i;
            return false;
        }
    }
    return true;
}

TEST(AecKernels, OfEveryWidthAreThePlainLoops) {
    const qel::FlushSubnormals guard;
    ASSERT_EQ(calls.size(), scalar_calls.size());
    for (const bool awkward : {false, true}) {
        const Pool pool = make_pool(awkward);
        for (const int n : {0, 1, 3, 4, 5, 8, 9, 15, 16, 17, 31, 33, 63, 64, 65, 129, kLongest}) {
            for (size_t c = 0; c < calls.size(); ++c) {
                Pool expected = pool;
                scalar_calls[c].run(expected, n, Width::kBaseline);
                for (int width = 0; width <= static_cast<int>(qel::simd::widest()); ++width) {
                    Pool got = pool;
                    calls[c].run(got, n, static_cast<Width>(width));
                    for (size_t a = 0; a < pool.size(); ++a) {
                        ASSERT_TRUE(agree(got[a], expected[a], awkward))
                            << calls[c].name << " of " << n << ", width " << width << ", array "
                            << a << (awkward ? ", awkward" : "");
                    }
                }
            }
        }
    }
}

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
