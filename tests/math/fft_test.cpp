// Plans, the state union, and the transforms of all three types against the one in double.
#include <bit>

#include "tests/math/fft_api.hpp"
#include "tests/support/each.hpp"
#include "tests/support/failing_alloc.hpp"

namespace {

TEST(FftPlan, FactorsEndInTheFlag) {
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
            EXPECT_EQ(std::vector(plan->factors, plan->factors + c.words.size()), c.words) << c.n;
            Fft<float>::destroy(plan);
        };
        c.kind == kReal ? check(Fft<float>::alloc_r2c(c.n)) : check(Fft<float>::alloc_c2c(c.n));
    }
}

template <class T>
class FftOf : public testing::Test {};
TYPED_TEST_SUITE(FftOf, AllTypes);

TYPED_TEST(FftOf, PlansAreOneBlockOrNull) {
    const auto refused = [](int32_t n) {
        EXPECT_EQ(Fft<TypeParam>::alloc_c2c(n), nullptr) << n;
        EXPECT_EQ(Fft<TypeParam>::alloc_r2c(n), nullptr) << n;
    };
    for (const int32_t n : {0, -1, -8, INT32_MIN, INT32_MAX - 1, INT32_MAX, 1 << 30}) refused(n);
    const FailingAlloc no_third(2, 1000);
    auto* complex = Fft<TypeParam>::alloc_c2c(16);
    auto* real = Fft<TypeParam>::alloc_r2c(16);
    EXPECT_EQ(each(complex->forward_scaled, complex->backward_scaled, real->ncfft), "0 1 8");
    Fft<TypeParam>::destroy(complex);
    Fft<TypeParam>::destroy(real);
    refused(16);
}

TYPED_TEST(FftOf, StatesHoldAPlanOfTheirType) {
    using T = TypeParam;
    const int32_t type = kFloat<T> ? 0 : sizeof(T) == 4 ? 1 : 2;
    qel_fft_r2c_state_union state = {};
    qel_fft_r2c_state_union_init(&state, type, 20);
    EXPECT_EQ(state.type, type);
    const auto* plan = static_cast<typename Fft<T>::RealPlan*>(state.plan);
    // Twiddles begin with ones behind an odd last factor, of 10 here.
    EXPECT_EQ(plan->twiddles[0].r, kFloat<T> ? 1 : std::numeric_limits<T>::max());
    EXPECT_EQ(plan->twiddles[0].i, 0);
    qel_fft_r2c_state_union_clean(&state);
    EXPECT_EQ(state.plan, plan) << "the fields are not cleared";

    state.plan = &state;
    qel_fft_r2c_state_union_init(&state, 3, 20);
    qel_fft_r2c_state_union_clean(&state);
    EXPECT_EQ(state.plan, &state);
    EXPECT_EQ(state.type, 3);
}

TYPED_TEST(FftOf, AgreesWithTheTransformInDoubleAtEveryLength) {
    using T = TypeParam;
    for (const size_t points : lengths()) {
        for (int way = 0; way < (kFloat<T> ? 2 : 4); ++way) {
            const Kind kind = way & 1 ? kReal : kComplex;
            const bool scaled = way & 2;  // forth; the way back does what is left
            const size_t n = kind == kReal ? 2 * points : points;
            const bool power_of_two = n > 1 && std::has_single_bit(n);
            SCOPED_TRACE(testing::Message() << n << " way " << way);

            // Of float only the fast engine divides, on its way back, and radix 8 of the other one
            // is coarse. Unscaled integers leave room for a sum, at the cost of as much accuracy.
            const auto count = static_cast<double>(n);
            const double forth = scaled ? count : 1;
            const double back = (kFloat<T> ? kind == kReal || power_of_two : !scaled) ? count : 1;
            const double peak = kFloat<T> ? 1 : 0.7 * kFullScale<T> * forth / count;
            const double loss = n == 1 ? 16 : power_of_two && n > 8 ? 4 : 6;
            const double least = !kFloat<T> ? 20 * std::log10(kFullScale<T>) - loss -
                                                  (scaled ? 10 : 20) * std::log10(count)
                                 : n % 8 == 0 && kind == kComplex && !power_of_two ? 105
                                                                                   : 120;
            const auto check = [&](const auto& in, const Spectrum& exact, bool inverse) {
                const auto out = fft(kind, n, in, inverse, scaled != inverse);
                EXPECT_GT(snr_db(exact, values(inverse ? kind : kComplex, out)), least) << inverse;
                if (kind == kReal) {
                    EXPECT_EQ(fft(kind, n, in, inverse, scaled != inverse, true), out);
                    EXPECT_EQ(fft(kind, n + 1, in, inverse, scaled != inverse), out);
                }
                return out;
            };
            const auto x = random_values<T>(2 * points, peak);
            auto bins = check(x, divided(reference_dft(values(kind, x)), forth), false);
            if (kind == kReal) {
                EXPECT_EQ(bins[1], 0);
                EXPECT_EQ(bins[n + 1], 0);
                bins[1] = bins[n + 1] = 1234;  // these two are not read
            }
            check(bins, divided(values(kind, x), forth * back / count), true);
        }
    }
}

TYPED_TEST(FftOf, OneRealPointHasOneBinWhichIsZero) {
    for (const bool scaled : {false, true}) {
        EXPECT_EQ(fft<TypeParam>(kReal, 1, {}, false, scaled), std::vector<TypeParam>(2));
        EXPECT_TRUE(fft<TypeParam>(kReal, 1, {}, true, scaled).empty());
    }
}

TEST(FftTwiddles, AreRoundedToNearest) {
    qel_fft_cpx_int32 line[2];
    qel_fft_generate_twiddles_line_int32(line, 2, 1, 2, 16);
    // 2^31 cos(pi/8) is 1984016188.68.
    EXPECT_EQ(each(line[0].r, line[1].r, line[1].i), "2147483647 1984016189 -821806413");
}

TEST(Fft, KeepsTheCoarseCosineOfRadix8) {
    std::vector<float> impulse(2 * 24);
    impulse[2 * 3] = 1;  // place 1 of the radix-8 stage, in a column without twiddles
    EXPECT_EQ(fft(kComplex, 24, impulse, false)[2], 0.70711f);
}

TEST(Fft, TakesFactorsOfTwoInTheMixedRadixEngine) {
    for (const bool inverse : {false, true}) {
        const auto x = random_values<float>(2 * 32, 1);
        auto* plan = Fft<float>::alloc_c2c(32);
        plan->factors[2 * (plan->factors[0] + 1)] = 1;  // the flag
        auto out = x;
        Fft<float>::run(out.data(), x.data(), plan, inverse, false);
        Fft<float>::destroy(plan);
        const auto exact = reference_dft(values(kComplex, x), inverse);
        EXPECT_GT(snr_db(exact, values(kComplex, out)), 120) << inverse;
    }
}

template <class T>
class FftFixed : public testing::Test {};
using FixedTypes = testing::Types<int32_t, int16_t>;
TYPED_TEST_SUITE(FftFixed, FixedTypes);

TYPED_TEST(FftFixed, NothingOverflowsWhenScaled) {
    constexpr TypeParam kMin = std::numeric_limits<TypeParam>::min();
    constexpr TypeParam kMax = std::numeric_limits<TypeParam>::max();
    for (const size_t n : {2, 4, 7, 8, 16, 24, 120, 512, 1024}) {
        // Which parts are at the minimum, the others being at the maximum: a bit for each of eight,
        // or corners that turn with a bin. These exceed full scale, by up to 4/pi, above only.
        for (const int mask : {0xFF, 0x00, 0x33, 0x0F, -1}) {
            const double turn = 2 * std::numbers::pi * (n / 8 + 1.0) / static_cast<double>(n);
            std::vector<TypeParam> x;
            for (size_t i = 0; i < 2 * n; ++i) {
                const bool low = mask < 0 ? std::cos(turn * (i / 2) + 0.1 - (i % 2) * 1.5708) < 0
                                          : mask >> i % 8 & 1;
                x.push_back(low ? kMin : kMax);
            }
            for (const auto& [kind, inverse] :
                 {std::pair{kComplex, false}, {kComplex, true}, {kReal, false}}) {
                if (kind == kReal && mask < 0) continue;
                const size_t length = kind == kReal ? 2 * n : n;
                auto exact = divided(reference_dft(values(kind, x), inverse), 1.0 * length);
                for (auto& v : exact)
                    v = {std::min<double>(v.real(), kMax), std::min<double>(v.imag(), kMax)};
                // The twiddle of 1.0 is a unit short, which shows near full scale, once a stage.
                const auto actual = values(kComplex, fft(kind, length, x, inverse, true));
                EXPECT_GT(snr_db(exact, actual), 20 * std::log10(-1.0 * kMin) - 20)
                    << length << " #" << mask << " kind " << kind << inverse;
            }
        }
    }
}

TYPED_TEST(FftFixed, UnscaledWraps) {
    const auto level = static_cast<TypeParam>(kFullScale<TypeParam> * 0.75);
    const auto sum = fft<TypeParam>(kComplex, 4, std::vector<TypeParam>(2 * 4, level), false);
    EXPECT_EQ(sum[0], static_cast<TypeParam>(4 * static_cast<int64_t>(level)));
}

}  // namespace
