// Samples to and from float, with every length of the tail.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <complex>
#include <cstring>
#include <random>

#include "qel/spu/aec/neon/products.hpp"
#include "qel/spu/aec/qel_aec.hpp"
#include "tests/support/reference_dft.hpp"

namespace {

TEST(AecSamples, KeepTheLow16BitsOfTheSaturatedWhole) {
    std::vector<float> x = {0.99f,  -0.99f, 32767.9f, 32768,          40000, 65536.5f, 2147483520,
                            3e9f,   -3e9f,  INFINITY, 2147483648,     NAN,   1e-40f,   -INFINITY,
                            -65537, -NAN,   8388609,  -2147483648.0f, -0.0f};
    std::mt19937 bits(1);
    while (x.size() < 20000) x.push_back(std::bit_cast<float>(static_cast<uint32_t>(bits())));
    for (size_t n = 1; n <= x.size(); n += n < 40 ? 1 : 1999) {
        std::vector<int16_t> out(n + 1, 77);
        qel::to_samples(x.data(), out.data(), static_cast<int32_t>(n));
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
    qel_aec_cfg cfg{};
    for (cfg.frame_size = 1; cfg.frame_size < 40; ++cfg.frame_size) {
        const auto n = static_cast<size_t>(cfg.frame_size);
        std::vector<float> out(n + 1, 77);
        cfg.use_hdr = 0;
        qel::from_samples(cfg, x.data(), out.data());
        for (size_t i = 0; i < n; ++i) {
            const int32_t pair = x[i / 2];
            ASSERT_EQ(out[i], static_cast<int16_t>(i % 2 == 0 ? pair : pair >> 16)) << i;
        }
        cfg.use_hdr = 1;
        std::vector<char> odd(4 * n + 1);
        std::memcpy(&odd[1], x.data(), 4 * n);
        for (const int shift : {0, 6, 31}) {
            const int more = shift < 8 ? 5 : -5;  // whole steps of 6 dB count
            cfg.hdr_gain_db = static_cast<int16_t>(6 * (8 - shift) + more);
            qel::from_samples(cfg, &odd[1], out.data());
            for (size_t i = 0; i < n; ++i) {
                ASSERT_EQ(out[i], static_cast<float>(std::floor(std::ldexp(x[i], -shift)))) << x[i];
            }
        }
        EXPECT_EQ(out[n], 77);
    }
}

TEST(AecProducts, OfWholeRegistersEqualTheLoops) {
    const auto x = random_values<float>(40, 1000), y = random_values<float>(40, 1);
    const std::vector<float> z(x.rbegin(), x.rend());
    const auto at = [](const auto& v, size_t k) { return std::complex(v[2 * k], v[2 * k + 1]); };
    for (int n = 0; n < 20; ++n) {
        auto sum = x, conj = x;
        const int done = qel::neon::add_products(sum.data(), y.data(), z.data(), n);
        qel::neon::add_conj_products(conj.data(), 0.4f, y.data(), z.data(), n);
        for (size_t k = 0; k < 20; ++k) {
            const float one = static_cast<int>(k) < done;
            EXPECT_EQ(at(sum, k), at(x, k) + one * (at(y, k) * at(z, k))) << k << " of " << n;
            EXPECT_EQ(at(conj, k), at(x, k) + one * 0.4f * (at(y, k) * std::conj(at(z, k)))) << k;
        }
    }
}

}  // namespace
