// The variants of transforms and vector operations against the portable ones: the transforms in
// each width of x86 registers, and all NEON ones. Equal bit for bit, NaNs and the order of float
// sums aside. No float for NEON is subnormal, nor made of two.
#include <cstring>
#include <random>

#include "tests/math/vector_api.hpp"
#ifdef QEL_X86
#include "qel/math/fft/x86/float32.hpp"
#endif
#ifdef QEL_NEON
#include "qel/math/fft/qel_fft_neon.h"
#include "qel/math/vector/qel_vector_neon.h"
#endif

namespace {

#ifdef QEL_X86
using namespace qel::fft;

/// All four transforms of n points, or 2n reals, one result behind the other.
std::vector<float> all_of(const FloatTransforms& transforms, size_t n, const std::vector<float>& x,
                          bool in_place) {
    const auto length = static_cast<int32_t>(n);
    auto* complex = qel_fft_alloc_c2c_float32_c(length);
    auto* real = qel_fft_alloc_r2c_float32_c(2 * length);
    std::vector<float> all;
    const auto keep = [&](bool may_share, auto run) {
        std::vector<float> in = x, other(x.size());
        std::vector<float>& out = may_share && in_place ? in : other;
        run(&out[1], &in[1]);  // aligned to their element only
        all.insert(all.end(), out.begin() + 1, out.begin() + 1 + 2 * length);
    };
    for (const bool inverse : {false, true})
        keep(false, [&](float* out, float* in) {
            transforms.c2c((FloatPoint*)out, (FloatPoint*)in, *complex, inverse);
        });
    keep(true, [&](float* out, float* in) { transforms.r2c((FloatPoint*)out, in, *real); });
    keep(true, [&](float* out, float* in) { transforms.c2r(out, (FloatPoint*)in, *real); });
    qel_fft_destroy_c2c_float32_c(complex);
    qel_fft_destroy_r2c_float32_c(real);
    return all;
}

TEST(FftX86, EqualsThePortableTransformsAtEveryLength) {
    const FloatTransforms& portable = kFloatTransforms<Element<float>>;
    std::vector<const FloatTransforms*> runnable = {&kSse2Transforms};
    if (has_avx2()) runnable.push_back(&kAvx2Transforms);
    if (has_avx512()) runnable.push_back(&kAvx512Transforms);
    std::vector<size_t> all = lengths();
    all.insert(all.end(), {1600, 1920, 4096, 8192});
    for (size_t n = 144; n <= 1000; n += 8) all.push_back(n);
    for (const size_t n : all) {
        const auto x = random_values<float>(2 * n + 3, 1);
        const auto expected = all_of(portable, n, x, false);
        for (const auto* wide : runnable)
            for (const bool in_place : {false, true})
                EXPECT_EQ(all_of(*wide, n, x, in_place), expected) << n << ' ' << in_place;
    }
}
#endif

#ifdef QEL_NEON

/// Runs it with either table and expects the same bits, or NaN in both.
template <class T, class Run>
void expect_same(const char* what, size_t n, Run run) {
    qel_fft_init_generic();
    qel_vector_init_generic();
    const std::vector<T> portable = run();
    qel_fft_init_neon();
    qel_vector_init_neon();
    const std::vector<T> neon = run();
    for (size_t i = 0; i < portable.size(); ++i) {
        const bool no_numbers = portable[i] != portable[i] && neon[i] != neon[i];
        ASSERT_TRUE(no_numbers || std::memcmp(&neon[i], &portable[i], sizeof(T)) == 0)
            << what << ' ' << n << ": " << neon[i] << ", not " << portable[i] << " at " << i;
    }
}

/// Numbers of all magnitudes; floats of which no two make a subnormal one.
template <class T>
std::vector<T> numbers(size_t n, uint32_t seed) {
    static const std::vector<T> all = arguments<T>();
    const auto tame = [](double x) { return !std::isnormal(x) || std::abs(std::logb(x)) <= 40; };
    std::mt19937 random(seed);
    std::vector<T> x(n);
    for (T& value : x)
        while (!tame(value = all[random() % all.size()])) continue;
    return x;
}

/// Runs a vector operation in place on all values but the last 8, which must stay.
template <class T, class Run>
void check(const char* what, const std::vector<T>& x, Run&& run) {
    expect_same<T>(what, x.size() - 8, [&] {
        const auto v = vec(x);
        v->len -= 8;
        run(v.get());
        v->len += 8;
        return values<T>(v);
    });
}

template <class T>
void check_functions(const std::vector<T>& x) {
    check("exp", x, Api<T>::exp);
    check("log", x, Api<T>::log);
    check("sigmoid", x, Api<T>::sigmoid);
    check("softmax", x, Api<T>::softmax);
}

template <class T>
class Variants : public testing::Test {};
TYPED_TEST_SUITE(Variants, AllTypes);

TYPED_TEST(Variants, OfVectorOperationsAgreeAtEveryLength) {
    using T = TypeParam;
    using A = Api<T>;
    for (const size_t more : lengths()) {
        const size_t n = more - 1;
        const auto x = numbers<T>(n + 8, n);
        const auto y = vec(numbers<T>(n, n + 9999));
        check_functions(x);
        check("mul", x, [&](auto* v) { A::mul(v, v, y.get()); });
        check("sub", x, [&](auto* v) { A::sub(v, v, y.get()); });
        check("add", x, [&](auto* v) { A::add(v, y.get(), v); });
        check("scale", x, [&](auto* v) { A::scale(v, x[n]); });
        if (kFloat<T>) continue;
        check("sum", x, [&](auto* v) { v->data[0] = A::sum(v); });
        check("avg", x, [&](auto* v) { v->data[0] = A::avg(v); });
    }
}

TYPED_TEST(Variants, OfElementaryFunctionsAgreeOverTheWholeRange) {
    check_functions(arguments<TypeParam>());
    std::vector<TypeParam> in_one_range;
    for (float x = 0; x < 80; x += 0.1f) in_one_range.push_back(static_cast<TypeParam>(x));
    check_functions(in_one_range);
}

TEST(VariantsOfSums, DifferByTheirOrderOnly) {
    for (const size_t n : lengths()) {
        for (const bool positive : {false, true}) {
            auto x = random_values<float>(n, 1);
            double magnitudes = 0;
            for (float& v : x) magnitudes += std::abs(positive ? v = std::abs(v) : v);
            const auto v = vec(x);
            const float sum = qel_vector_float32_sum_neon(v.get());
            EXPECT_NEAR(sum, qel_vector_float32_sum_c(v.get()),
                        (positive ? 8 + n / 32 : 4) * magnitudes * 0x1p-24);
            EXPECT_EQ(qel_vector_float32_avg_neon(v.get()), sum / static_cast<float>(n));
        }
    }
}

TYPED_TEST(Variants, OfTransformsAgreeAtEveryLength) {
    using T = TypeParam;
    for (const size_t n : lengths()) {
        for (int way = 0; way < 16; ++way) {
            const Kind kind = way & 1 ? kReal : kComplex;
            auto x = random_values<T>(2 * n + 2, kFullScale<T>);
            const T low = static_cast<T>(-kFullScale<T>), high = static_cast<T>(-1 - low);
            for (T& v : x)
                if (way & 8) v = v < 0 ? low : kFloat<T> ? 1 : high;  // the two extremes only
            expect_same<T>(kind == kReal ? "real" : "complex", n, [&] {
                return fft(kind, kind == kReal ? 2 * n : n, x, way & 2, way & 4);
            });
        }
    }
}

TEST(VariantsOfPlans, HaveTheLineOfALastRadix4Stage) {
    for (const auto& [n, has] : {std::pair{12, false}, {16, true}, {18, false}, {24, true}}) {
        auto* plan = qel_fft_alloc_c2c_float32_neon(n);
        ASSERT_EQ(plan->extra_twiddles != nullptr, has) << n;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(plan->extra_twiddles) % 8, 0u);
        // At 16 points it is all that the plan's own table has.
        const auto* line = plan->extra_twiddles;
        EXPECT_TRUE(n != 16 || std::equal(&line->r, &line->r + 2 * 12, &plan->twiddles->r));
        qel_fft_destroy_c2c_float32_neon(plan);
    }
}

TEST(VariantsOfTables, AreTheseAndTheRestIsPortable) {
// clang-format off
#define HOLDS(variant, pointer) EXPECT_EQ(pointer, pointer##_##variant);
#define FFT(type, operation) HOLDS(neon, qel_fft_##operation##_##type)
#define VECTOR(type, operation) HOLDS(neon, qel_vector_##type##_##operation)
#define HOLDS_ALL(type)                                                                           \
    FFT(type, alloc_c2c) FFT(type, destroy_c2c) FFT(type, c2c_1d) FFT(type, r2c_1d)               \
    FFT(type, c2r_1d) HOLDS(c, qel_fft_alloc_r2c_##type) HOLDS(c, qel_vector_##type##_max)        \
    VECTOR(type, mul) VECTOR(type, sub) VECTOR(type, add) VECTOR(type, sum) VECTOR(type, avg)     \
    VECTOR(type, exp) VECTOR(type, log) VECTOR(type, scale) VECTOR(type, softmax)                 \
    VECTOR(type, sigmoid) VECTOR(type, realft)
    // clang-format on
    HOLDS_ALL(float32)
    HOLDS_ALL(int32)
    HOLDS_ALL(int16)
}

#endif

}  // namespace
