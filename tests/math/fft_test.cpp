// Plans, the state union and the float32 transforms.
#include "tests/math/fft_api.hpp"
#include "tests/support/failing_alloc.hpp"

namespace {

TEST(FftPlan, FactorsEndInTheFlagAndOddOnesStartWithTwiddlesOfOne) {
    const struct {
        Kind kind;
        int32_t n;
        std::vector<int32_t> words;
    } cases[] = {{kComplex, 1, {1, 1, 1, 1, 1}},
                 {kComplex, 7, {1, 1, 7, 1, 1}},
                 {kComplex, 8, {2, 4, 4, 2, 2, 1, 0}},  // a power of two keeps radices 4 and 2
                 {kComplex, 40, {2, 5, 5, 8, 8, 1, 1}},
                 {kComplex, 96, {3, 12, 4, 24, 3, 8, 8, 1, 1}},
                 {kComplex, 98, {2, 2, 2, 49, 49, 1, 1}},  // the whole remainder is one stage
                 {kComplex, 120, {4, 40, 4, 30, 2, 15, 5, 3, 3, 1, 1}},
                 {kReal, 1024, {5, 256, 4, 128, 4, 32, 4, 8, 4, 2, 2, 1, 0}},
                 {kReal, 48, {3, 8, 4, 6, 2, 3, 3, 1, 1}},  // of half the length, and no radix 8
                 {kReal, 49, {3, 8, 4, 6, 2, 3, 3, 1, 1}},
                 {kReal, 1, {1, 0, 4, 0, 0}}};  // a transform of no points is a fast one
    for (const auto& c : cases) {
        const auto check = [&c](auto* plan) {
            const int32_t *words = plan->factors, last_radix = words[2 * words[0]];
            EXPECT_EQ(std::vector(words, words + c.words.size()), c.words) << c.n;
            for (int32_t i = 0; last_radix % 2 != 0 && i < last_radix; ++i)
                EXPECT_TRUE(plan->twiddles[i].r == 1 && plan->twiddles[i].i == 0) << c.n;
            Fft<float>::destroy(plan);
        };
        c.kind == kReal ? check(Fft<float>::alloc_r2c(c.n)) : check(Fft<float>::alloc_c2c(c.n));
    }
}

template <class T>
class FftPlanOf : public testing::Test {};
using AllTypes = testing::Types<float, int32_t, int16_t>;
TYPED_TEST_SUITE(FftPlanOf, AllTypes);

TYPED_TEST(FftPlanOf, TakesOneBlockWithAlignedAreas) {
    using Api = Fft<TypeParam>;
    const auto check = [](auto* plan, auto* last) {
        ASSERT_NE(plan, nullptr);
        for (const void* area : {(void*)plan->factors, (void*)plan->twiddles, (void*)last})
            EXPECT_EQ(reinterpret_cast<uintptr_t>(area) % 8, 0u);
        Api::destroy(plan);
    };
    for (const int32_t n : {2, 14, 30, 512}) {  // 14 and 30: half of it is odd
        const FailingAlloc no_second(2, 1000);
        auto* real = Api::alloc_r2c(n);
        auto* complex = Api::alloc_c2c(n / 2);
        check(real, real->buffer);
        EXPECT_EQ(complex->forward_scaled, 0);
        EXPECT_EQ(complex->backward_scaled, 1);
        check(complex, complex->buffer);
    }
}

TYPED_TEST(FftPlanOf, IsRefusedWhenItCannotBe) {
    using Api = Fft<TypeParam>;
    for (const int32_t n : {0, -1, -8, INT32_MIN, INT32_MAX - 1, INT32_MAX, 1 << 30})
        EXPECT_TRUE(!Api::alloc_c2c(n) && !Api::alloc_r2c(n)) << n;
    const FailingAlloc none(0, 2);
    EXPECT_TRUE(!Api::alloc_c2c(16) && !Api::alloc_r2c(16));
}

TYPED_TEST(FftPlanOf, OfAnOddRealLengthLeavesTheLastPointOut) {
    using Values = std::vector<TypeParam>;
    for (const bool scaled : {false, true}) {
        EXPECT_EQ(fft<TypeParam>(kReal, 1, {}, false, scaled), Values(2));
        EXPECT_EQ(fft<TypeParam>(kReal, 1, {}, true, scaled), Values());
        for (size_t n = 2; n <= 66; n += 2) {
            const auto x = random_values<TypeParam>(n, 100), bins = fft(kReal, n, x, false, scaled);
            EXPECT_EQ(fft(kReal, n + 1, x, false, scaled), bins) << n;
            EXPECT_EQ(fft(kReal, n + 1, bins, true, scaled), fft(kReal, n, bins, true, scaled));
        }
    }
}

TEST(FftState, HoldsAPlanOfItsType) {
    qel_fft_r2c_state_union state = {};
    for (const int32_t type : {QEL_FFT_FLOAT32, QEL_FFT_INT32, QEL_FFT_INT16}) {
        qel_fft_r2c_state_union_init(&state, type, 20);
        qel_fft_r2c_state_union_clean(&state);
        EXPECT_TRUE(state.plan && state.type == type) << "the fields are not cleared";
    }
    state.plan = &state;
    qel_fft_r2c_state_union_init(&state, 3, 20);
    qel_fft_r2c_state_union_clean(&state);
    EXPECT_TRUE(state.plan == &state && state.type == 3);
}

TEST(Fft, AgreesWithTheDirectTransformAtEveryLength) {
    std::vector<size_t> lengths = {256, 320, 480, 512, 640, 960, 1009, 1024, 2048};
    for (size_t n = 1; n <= 140; ++n) lengths.push_back(n);
    for (const size_t n : lengths) {
        const bool power_of_two = (n & (n - 1)) == 0 && n > 1;
        const double floor = n % 8 == 0 && !power_of_two ? 108 : 120;  // radix 8 of those is coarse
        const auto x = random_values<float>(2 * n, 1);
        for (const bool inverse : {false, true}) {
            auto expected = reference_dft(values(kComplex, x), inverse);
            // Only the fast engine scales its inverse.
            if (inverse && power_of_two) expected = divided(expected, static_cast<double>(n));
            const auto actual = values(kComplex, fft(kComplex, n, x, inverse));
            EXPECT_GT(snr_db(expected, actual), floor) << n << (inverse ? " inverse" : "");
        }
        auto bins = fft(kReal, 2 * n, x, false);
        EXPECT_GT(snr_db(reference_dft(values(kReal, x)), values(kComplex, bins)), 120) << 2 * n;
        EXPECT_TRUE(bins[1] == 0 && bins[2 * n + 1] == 0) << 2 * n;
        EXPECT_EQ(fft(kReal, 2 * n, x, false, false, true), bins) << 2 * n << " in place";

        bins[1] = bins[2 * n + 1] = NAN;  // these two are not read
        const auto back = fft(kReal, 2 * n, bins, true);
        EXPECT_GT(snr_db(values(kReal, x), values(kReal, back)), 120) << 2 * n;
        EXPECT_EQ(fft(kReal, 2 * n, bins, true, false, true), back) << 2 * n << " in place";
    }
}

TEST(Fft, KeepsTheCoarseCosineOfRadix8) {
    std::vector<float> impulse(2 * 24);
    impulse[2 * 3] = 1;  // place 1 of the radix-8 stage, in a column without twiddles
    EXPECT_EQ(fft(kComplex, 24, impulse, false)[2], 0.70711f);
}

}  // namespace
