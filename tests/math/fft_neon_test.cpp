// The NEON variants against the portable ones.
#ifdef QEL_NEON
#include "qel/math/fft/qel_fft_neon.h"

#include <limits>

#include "tests/math/fft_api.hpp"

namespace {

template <class T>
class FftNeon : public testing::Test {};
using AllTypes = testing::Types<float, int32_t, int16_t>;
TYPED_TEST_SUITE(FftNeon, AllTypes);

/// Noise, and noise of the two extremes only.
template <class T>
std::vector<std::vector<T>> inputs(size_t count) {
    constexpr bool kWhole = std::is_integral_v<T>;
    const double low = kWhole ? std::numeric_limits<T>::min() : -1.0;
    const T high = kWhole ? std::numeric_limits<T>::max() : T{1};
    const auto noise = random_values<T>(count, -low);
    auto extremes = noise;
    for (T& v : extremes) v = v < 0 ? static_cast<T>(low) : high;
    return {noise, extremes};
}

// Bound of the difference: 0, for float too while no value is subnormal.
TYPED_TEST(FftNeon, EqualsThePortableVariantAtEveryLength) {
    std::vector<size_t> lengths = {240, 256, 480, 512, 960, 1000, 1009, 1024, 2048};
    for (size_t n = 1; n <= 140; ++n) lengths.push_back(n);
    for (const size_t n : lengths) {
        for (const auto& x : inputs<TypeParam>(2 * n + 2)) {
            for (int way = 0; way < 8; ++way) {
                const Kind kind = way % 2 == 0 ? kComplex : kReal;
                const size_t points = kind == kReal ? 2 * n : n;
                const bool inverse = way & 2, scaled = way & 4;
                qel_fft_init_generic();
                const auto expected = fft(kind, points, x, inverse, scaled);
                qel_fft_init_neon();
                EXPECT_EQ(fft(kind, points, x, inverse, scaled), expected) << points << ' ' << way;
            }
        }
    }
}

TEST(FftNeonTable, HoldsTheVariantsAndThePortableRealPlans) {
    qel_fft_init_neon();
#define HOLDS(type)                                                           \
    EXPECT_EQ(qel_fft_alloc_c2c_##type, qel_fft_alloc_c2c_##type##_neon);     \
    EXPECT_EQ(qel_fft_destroy_c2c_##type, qel_fft_destroy_c2c_##type##_neon); \
    EXPECT_EQ(qel_fft_c2c_1d_##type, qel_fft_c2c_1d_##type##_neon);           \
    EXPECT_EQ(qel_fft_r2c_1d_##type, qel_fft_r2c_1d_##type##_neon);           \
    EXPECT_EQ(qel_fft_c2r_1d_##type, qel_fft_c2r_1d_##type##_neon);           \
    EXPECT_EQ(qel_fft_alloc_r2c_##type, qel_fft_alloc_r2c_##type##_c);
    HOLDS(float32) HOLDS(int32) HOLDS(int16)
#undef HOLDS
}

TEST(FftNeonEngine, TakesFactorsOfTwoInTheMixedRadixForm) {
    for (const int32_t n : {2, 8, 32, 60, 512}) {
        const auto* plan = qel_fft_alloc_c2c_float32_c(n);
        const auto noise = random_values<float>(2 * static_cast<size_t>(n), 1);
        const auto run = [&](auto* engine) {
            std::vector<float> out(noise.size());
            engine((qel_fft_cpx_float32*)out.data(), (const qel_fft_cpx_float32*)noise.data(),
                   plan->factors, plan->twiddles, plan->buffer);
            return out;
        };
        EXPECT_EQ(run(_mixed_radix_generic_butterfly_float32_neon),
                  run(_mixed_radix_generic_butterfly_float32_c));
        EXPECT_EQ(run(_mixed_radix_generic_butterfly_inverse_float32_neon),
                  run(_mixed_radix_generic_butterfly_inverse_float32_c));
        qel_fft_destroy_c2c_float32_c(const_cast<qel_fft_cfg_float32*>(plan));
    }
}

TEST(FftNeonPlan, HasTheLineOfALastRadix4Stage) {
    const struct {
        int32_t n;
        bool has;
    } cases[] = {{12, false}, {15, false}, {16, true}, {18, false}, {24, true}, {1024, true}};
    for (const auto& [n, has] : cases) {
        auto* plan = qel_fft_alloc_c2c_float32_neon(n);
        ASSERT_EQ(plan->extra_twiddles != nullptr, has) << n;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(plan->extra_twiddles) % 8, 0u);
        for (int32_t i = 0; has && i < 3 * n / 4; ++i) {
            const int32_t power = (i / (n / 4) + 1) * (i % (n / 4));
            const auto root = std::polar(1.0, -2 * std::numbers::pi * power / n);
            EXPECT_NEAR(plan->extra_twiddles[i].r, root.real(), 1e-6) << n << ' ' << i;
            EXPECT_NEAR(plan->extra_twiddles[i].i, root.imag(), 1e-6) << n << ' ' << i;
        }
        qel_fft_destroy_c2c_float32_neon(plan);
    }
}

}  // namespace
#endif
