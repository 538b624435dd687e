// NEON variants of the vector operations against the portable ones: equal bit for bit, NaNs and the
// order of float sums aside.
#ifdef QEL_NEON
#include "qel/math/vector/qel_vector_neon.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numeric>
#include <random>
#include <type_traits>
#include <vector>

namespace {

template <class T>
struct Api;

// Each entry: the portable form and the NEON form on bare arrays.
#define PAIR(type, name) \
    { qel_vector_##type##_##name##_nval_c, qel_vector_##type##_##name##_nval_neon }
#define VECTOR_API(T, type)                                                              \
    template <>                                                                          \
    struct Api<T> {                                                                      \
        static inline int32_t (*const binary[][2])(T*, const T*, const T*, uint32_t) = { \
            PAIR(type, mul), PAIR(type, sub), PAIR(type, add)};                          \
        static inline T (*const sums[][2])(const T*, uint32_t) = {PAIR(type, sum),       \
                                                                  PAIR(type, avg)};      \
        static inline int32_t (*const in_place[][2])(T*, uint32_t) = {                   \
            PAIR(type, exp), PAIR(type, log), PAIR(type, sigmoid), PAIR(type, softmax)}; \
        static inline int32_t (*const scale[2])(T*, uint32_t, T) = PAIR(type, scale);    \
    };
VECTOR_API(float, float32)
VECTOR_API(int32_t, int32)
VECTOR_API(int16_t, int16)

/// Numbers of all magnitudes. Floats from 2^-40 to 2^40, so that nothing made of two is subnormal,
/// and now and then 0, infinity or NaN.
template <class T>
std::vector<T> numbers(size_t n, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<T> x(n);
    for (T& value : x) {
        const auto bits = static_cast<int32_t>(random());
        if constexpr (std::is_integral_v<T>) {
            value = static_cast<T>(bits >> (random() % 32));
        } else {
            const float special[] = {0, -0.0f, INFINITY, -INFINITY, NAN};
            value = std::ldexp(static_cast<float>(bits), static_cast<int>(random() % 50) - 40);
            if (random() % 64 == 0) value = special[random() % 5];
        }
    }
    return x;
}

/// Runs both forms on copies of `x`, `offset` elements from their start, and expects the same bits
/// all over, or NaN in both.
template <class T, class Form, class Run>
void compare(Form* const (&forms)[2], const std::vector<T>& x, uint32_t offset, Run run) {
    auto portable = x, neon = x;
    run(forms[0], portable.data() + offset);
    run(forms[1], neon.data() + offset);
    for (size_t i = 0; i < x.size(); ++i) {
        if (portable[i] != portable[i] && neon[i] != neon[i]) continue;
        ASSERT_EQ(neon[i], portable[i]) << i << ": " << x[i];
        ASSERT_EQ(std::signbit(neon[i]), std::signbit(portable[i])) << i << ": " << x[i];
    }
}

template <class T>
class VectorNeon : public testing::Test {};
using Types = testing::Types<float, int32_t, int16_t>;
TYPED_TEST_SUITE(VectorNeon, Types);

TYPED_TEST(VectorNeon, EqualsThePortableFormAtEveryLengthAndPlace) {
    using T = TypeParam;
    std::vector<uint32_t> lengths(34);
    std::iota(lengths.begin(), lengths.end(), 0);
    lengths.insert(lengths.end(), {67, 512, 513, 1024, 1025});
    for (const uint32_t n : lengths) {
        for (const uint32_t offset : {0, 1, 3}) {
            const auto a = numbers<T>(n + 8, n), b = numbers<T>(n + 8, n + 9999);
            const T *x = a.data() + offset, *y = b.data() + offset;
            for (const auto& forms : Api<T>::binary) {
                const auto dst = std::vector<T>(n + 8, 77);
                compare(forms, dst, offset, [=](auto form, T* d) { form(d, x, y, n); });
                compare(forms, a, offset, [=](auto form, T* d) { form(d, d, y, n); });
            }
            compare(Api<T>::scale, a, offset, [=](auto form, T* d) { form(d, n, *y); });
            for (const auto& forms : Api<T>::in_place) {
                compare(forms, a, offset, [=](auto form, T* d) { form(d, n); });
            }
            if (std::is_floating_point_v<T>) continue;
            for (const auto& [portable, neon] : Api<T>::sums) EXPECT_EQ(neon(x, n), portable(x, n));
        }
    }
}

TEST(VectorNeonTranscendental, EqualsThePortableFormOverTheWholeRange) {
    std::vector<int16_t> q12(65536);
    std::iota(q12.begin(), q12.end(), INT16_MIN);
    // Floats in order, so that few blocks hold anything unusual.
    std::vector<float> all, fine, sparse;
    for (uint32_t bits = 0; bits < ~9973u; bits += 9973) all.push_back(std::bit_cast<float>(bits));
    for (float x = -110; x < 100; x += 0x1p-10f) fine.push_back(x);
    for (float x = 0; x < 80; x += 0.1f) sparse.push_back(x);
    const auto run = [](auto& forms, const auto& x) {
        const auto n = static_cast<uint32_t>(x.size());
        compare(forms, x, 0, [n](auto form, auto* data) { form(data, n); });
    };
    for (const auto& forms : Api<int16_t>::in_place) run(forms, q12);
    for (const auto& forms : Api<float>::in_place) {
        for (const auto& x : {all, fine, sparse}) run(forms, x);
    }
}

TEST(VectorNeonSums, DifferFromThePortableOnesByTheirOrderOnly) {
    const struct {
        const char* what;
        uint32_t n;
        float low;
        double unit, bound;  // of |difference| / sum |x|, times 2^24
    } cases[] = {{"whole numbers: exact", 1025, -1, 0x1p-13, 0},
                 {"a register and a rest", 7, -1, 0, 4},
                 {"both signs", 513, -1, 0, 4},
                 {"both signs", 1025, -1, 0, 4},
                 {"positive", 513, 0, 0, 24},
                 {"positive", 1025, 0, 0, 40}};
    for (const auto& c : cases) {
        std::mt19937 random(7);
        for (int round = 0; round < 50; ++round) {
            std::vector<float> x(c.n);
            double sum = 0, magnitudes = 0;
            for (float& value : x) {
                value = std::uniform_real_distribution(c.low, 1.0f)(random);
                if (c.unit != 0) value = static_cast<float>(std::round(value / c.unit) * c.unit);
                sum += value;
                magnitudes += std::abs(value);
            }
            const float got = qel_vector_float32_sum_nval_neon(x.data(), c.n);
            const float portable = qel_vector_float32_sum_nval_c(x.data(), c.n);
            EXPECT_LE(std::abs(got - portable), c.bound * magnitudes * 0x1p-24) << c.what;
            // No element passes through more than n / 16 + 10 additions.
            EXPECT_LE(std::abs(got - sum), (c.n / 16 + 10) * magnitudes * 0x1p-24) << c.what;
            EXPECT_EQ(qel_vector_float32_avg_nval_neon(x.data(), c.n),
                      got / static_cast<float>(c.n));
        }
    }
}

TEST(VectorNeonTable, HoldsTheVariantsThereAre) {
    qel_vector_init_module();
// clang-format off
#define HOLDS(type, operation, variant) \
    EXPECT_EQ(qel_vector_##type##_##operation, qel_vector_##type##_##operation##_##variant);
#define HOLDS_ALL(type)                                                                           \
    HOLDS(type, mul, neon) HOLDS(type, sub, neon) HOLDS(type, add, neon) HOLDS(type, sum, neon)   \
    HOLDS(type, avg, neon) HOLDS(type, exp, neon) HOLDS(type, log, neon) HOLDS(type, scale, neon) \
    HOLDS(type, softmax, neon) HOLDS(type, sigmoid, neon) HOLDS(type, realft, neon)               \
    HOLDS(type, max, c) HOLDS(type, cpy, c)
    // clang-format on
    HOLDS_ALL(float32)
    HOLDS_ALL(int32)
    HOLDS_ALL(int16)
}

}  // namespace
#endif
