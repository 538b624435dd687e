#include "qel/spu/sigp/qel_sigp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "qel/spu/aec/qel_aec_nlp.h"

namespace {

TEST(Sigp, CurvesFollowTheirFormulas) {
    qel_vector_union vec{};
    qel_vector_union_init(&vec, QEL_VECTOR_FLOAT32, 6);
    float* x = static_cast<qel_vector_float32*>(vec.vec)->data;
    std::fill_n(x, 6, -1.0f);
    qel_sigp_hanning_window_with_sqrt(&vec, 5);  // the first half of a sine
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(x[i], i < 5 ? std::sin(std::numbers::pi * (i + 0.5) / 5) : -1, 2e-7) << i;
    qel_sigp_hanning_window_with_sqrt(&vec, 1024);  // has room for its head only
    EXPECT_NEAR(x[5], std::sin(std::numbers::pi * 5.5 / 1024), 2e-7);
    std::fill_n(x, 6, -1.0f);
    qel_sigp_gen_delta_floor(&vec, 5, 4, 2.5f);
    qel_vector_union integers{vec.vec, QEL_VECTOR_INT32};  // stay as they are
    qel_sigp_gen_delta_floor(&integers, 6, 4, 1.0f);
    qel_sigp_hanning_window_with_sqrt(&integers, 6);
    EXPECT_EQ(std::vector<float>(x, x + 6), (std::vector<float>{10, 8, 6, 5, 5, -1}));
    qel_vector_union_clean(&vec);
}

TEST(Sigp, HypergeomGainInterpolatesItsTable) {
    const std::pair<float, double> edges[] = {
        {-0.1f, 1},
        {0, 82.157},
        {9.9f, (0.2 * 3.12431 + 0.8 * 3.20326) / std::sqrt(9.9001)},
        {10, 1 + 0.1296 / 10},
        {10.5f, 1 + 0.1296 / 10.5},
        {1e30f, 1},
        {NAN, 1}};
    for (const auto& [x, gain] : edges) EXPECT_NEAR(HypergeomGain(x), gain, 2e-6 * gain) << x;
}

}  // namespace
