// Vectors: records, dispatch, wrapping arithmetic, reductions, spectra; exp, log, sigmoid and
// softmax against the C library in double.
#include "qel/math/vector/qel_vector.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"

namespace {

template <class T>
struct Api;

// The API by element type, so that one test serves all three.
// clang-format off
#define OP(type, name, operation) static constexpr auto& name = qel_vector_##type##_##operation;
#define VECTOR_API(T, type)                                                                       \
    template <>                                                                                   \
    struct Api<T> {                                                                               \
        using Vector = qel_vector_##type;                                                         \
        OP(type, make, new) OP(type, free, delete) OP(type, bytes, bytes) OP(type, cpy, cpy)      \
        OP(type, data_bytes, data_bytes) OP(type, zero, zero) OP(type, realft, realft)            \
        OP(type, mul, mul) OP(type, sub, sub) OP(type, add, add) OP(type, scale, scale)           \
        OP(type, sum, sum_c) OP(type, avg, avg_c) OP(type, max, max) OP(type, min, min)           \
        OP(type, softmax, softmax) OP(type, set_nval, set_nval_c)                                 \
    };
// clang-format on
VECTOR_API(float, float32)
VECTOR_API(int32_t, int32)
VECTOR_API(int16_t, int16)

template <class T>
using Owned = std::unique_ptr<typename Api<T>::Vector, void (*&)(typename Api<T>::Vector*)>;

/// A vector of these values, made and freed through the table.
template <class T>
Owned<T> vec(const std::vector<T>& values) {
    Owned<T> made(Api<T>::make(static_cast<uint32_t>(values.size())), Api<T>::free);
    std::copy(values.begin(), values.end(), made->data);
    return made;
}

template <class T>
std::vector<T> values(const Owned<T>& vec) {
    return {vec->data, vec->data + vec->len};
}

constexpr int32_t kMax32 = INT32_MAX, kMin32 = INT32_MIN, kOne20 = 1 << 20;
constexpr int16_t kMax16 = INT16_MAX, kMin16 = INT16_MIN, kOne12 = 1 << 12;

template <class T>
class Vector : public testing::Test {};
using Types = testing::Types<float, int32_t, int16_t>;
TYPED_TEST_SUITE(Vector, Types);

TYPED_TEST(Vector, ElementsFollowAHeaderOfSixteenBytes) {
    using A = Api<TypeParam>;
    for (const uint32_t len : {0u, 1u, 3u, 513u}) {
        const auto v = vec(std::vector<TypeParam>(len, 7));
        EXPECT_EQ(A::bytes(v.get()), 16 + len * sizeof(TypeParam));
        EXPECT_EQ(A::data_bytes(v.get()), len * sizeof(TypeParam));
        A::zero(v.get());
        EXPECT_EQ(values<TypeParam>(v), std::vector<TypeParam>(len, 0));
        A::set_nval(v->data, len, 3);
        EXPECT_EQ(values<TypeParam>(v), std::vector<TypeParam>(len, 3));
        const auto copy = vec(std::vector<TypeParam>(len + 1, 5));
        A::cpy(copy.get(), v.get());
        EXPECT_EQ(values<TypeParam>(copy), values<TypeParam>(v));
    }
    EXPECT_EQ(A::make(UINT32_MAX / sizeof(TypeParam)), nullptr) << "its size passes 32 bits";
    A::free(nullptr);
    const FailingAlloc refuse(0);
    EXPECT_EQ(A::make(4), nullptr);
}

TYPED_TEST(Vector, MaxAndMinFindTheirElementAnywhere) {
    using A = Api<TypeParam>;
    for (size_t at = 0; at < 9; ++at) {
        std::vector<TypeParam> x(9, -2);
        x[at] = -3;
        EXPECT_EQ(A::min(vec(x).get()), -3);
        x[at] = -1;
        EXPECT_EQ(A::max(vec(x).get()), -1);
    }
    const auto never_had_any = vec<TypeParam>({}), emptied = vec<TypeParam>({-7});
    A::cpy(emptied.get(), never_had_any.get());
    EXPECT_EQ(A::max(never_had_any.get()), 0);
    EXPECT_EQ(A::min(emptied.get()), -7) << "element 0 counts in a vector of no length";
}

TYPED_TEST(Vector, BinaryOperationsCompareTheSourcesAndStopAtTheShortest) {
    using A = Api<TypeParam>;
    const bool is_float = std::is_same_v<TypeParam, float>;
    const std::string base = std::string("qel_vector_") + (is_float ? "float" : "int") +
                             std::to_string(8 * sizeof(TypeParam));
    const auto four = vec<TypeParam>({1, 1, 1, 1}), five = vec<TypeParam>({2, 2, 2, 2, 2});
    const char* variant = qel_vector_float32_add == qel_vector_float32_add_c ? "_c:" : "_neon:";
    int line = is_float ? 69 : 82;
    for (const auto& [name, operation] :
         {std::pair{"_mul", A::mul}, {"_sub", A::sub}, {"_add", A::add}}) {
        const LogCapture log;
        const auto dst = vec<TypeParam>({9, 9, 9, 9, 9});
        EXPECT_TRUE(operation(dst.get(), four.get(), five.get()) == -1 && dst->data[0] == 9);
        EXPECT_TRUE(log.has("[W] " + base + ":" + base + name + variant + std::to_string(line) +
                            ": vector size mismatched. 4 != 5\n"));
        line += 14;
        // A longer destination is computed as far as the sources reach.
        EXPECT_EQ(operation(dst.get(), four.get(), four.get()), 0);
        EXPECT_TRUE(dst->data[3] != 9 && dst->data[4] == 9);
        // A shorter one bounds the work.
        A::set_nval(dst->data, 5, 9);
        dst->len = 3;
        EXPECT_EQ(operation(dst.get(), four.get(), four.get()), 0);
        EXPECT_NE(dst->data[2], 9);
        EXPECT_EQ(dst->data[3], 9);
    }
}

TEST(VectorBytes, AreWholeWordsOfMemory) {
    const FailingAlloc watch(1);
    const auto three = vec<int16_t>({1, 2, 3});
    EXPECT_EQ(FailingAlloc::last_bytes(), 24);
    EXPECT_EQ(qel_vector_int16_bytes(three.get()), 22);
}

// Each case at every place of vectors that fill no, one and two registers and a rest.
template <class T>
void check_binary(const std::vector<std::tuple<const char*, T, T, T, T, T>>& cases) {
    for (const auto& [what, x, y, product, difference, sum] : cases) {
        for (const size_t n : {1, 4, 13, 32}) {
            const auto of = [n](T value) { return std::vector<T>(n, value); };
            const auto a = vec(of(x)), b = vec(of(y)), dst = vec(of(0));
            Api<T>::mul(dst.get(), a.get(), b.get());
            EXPECT_EQ(values<T>(dst), of(product)) << what;
            Api<T>::sub(dst.get(), a.get(), b.get());
            EXPECT_EQ(values<T>(dst), of(difference)) << what;
            Api<T>::add(b.get(), a.get(), b.get());  // in place
            EXPECT_EQ(values<T>(b), of(sum)) << what;
            Api<T>::scale(a.get(), y);
            EXPECT_EQ(values<T>(a), of(product)) << what;
        }
    }
}

TEST(VectorArithmetic, WrapsAndTruncates) {
    check_binary<float>({{"plain", 1.5f, -0.25f, -0.375f, 1.75f, 1.25f}});
    check_binary<int16_t>({{"the shift is arithmetic", -1, 1, -1, -2, 0},
                           {"truncates downward", -4095, 4097, -4096, -8192, 2},
                           {"sum wraps", kMax16, 1, 7, 32766, kMin16},
                           {"product wraps", kMax16, kMax16, -16, 0, -2}});
    check_binary<int32_t>(
        {{"64-bit product", 3 << 27, -5 * kOne20, -15 << 27, 407896064, 397410304},
         {"difference wraps", kMin32, 1, -2048, kMax32, kMin32 + 1}});
}

template <class T>
void check_reductions(const std::vector<std::tuple<const char*, std::vector<T>, T, T>>& cases) {
    for (const auto& [what, x, sum, avg] : cases) {
        EXPECT_EQ(Api<T>::sum(vec(x).get()), sum) << what;
        EXPECT_EQ(Api<T>::avg(vec(x).get()), avg) << what;
    }
}

TEST(VectorReductions, FollowEachTypesRule) {
    check_reductions<float>(
        {{"in order, one accumulator", {16777216, 1, 1, 1, 1, 1, 1, 1}, 16777216, 2097152},
         {"order decides", {1, 1, 1, 1, 1, 1, 2, 16777216}, 16777224, 2097153}});
    check_reductions<int32_t>(
        {{"mean", {kOne20, 3 * kOne20}, 4 * kOne20, 2 * kOne20},
         {"truncates toward 0", {-3, -4}, -7, -3},
         {"sum wraps first", {kMax32, 1}, kMin32, kMin32 / 2},
         {"a divisor of -2^31", std::vector<int32_t>(2048, -1), -2048, 1},
         {"a divisor of -2^31 + 2^20", std::vector<int32_t>(2049, 2047), 4194303, -2049},
         {"a divisor of 0", std::vector<int32_t>(4096, 1), 4096, 0}});
    check_reductions<int16_t>(
        {{"4096 times the mean, wrapped", std::vector<int16_t>(4, kOne12), 16384, 0},
         {"4096 times 2/3", {1, 1, 0}, 2, 2730},
         {"truncates toward 0", {-1, 0, 0}, -1, -1365},
         {"sum wraps first", {kMax16, 1, 0}, kMin16, 21846},
         {"a negative count", std::vector<int16_t>(65535, 1), -1, 4096},
         {"a count of 0", std::vector<int16_t>(65536, 1), 0, 0}});
    EXPECT_TRUE(std::isnan(qel_vector_float32_avg(vec<float>({}).get())));
    EXPECT_TRUE(std::isnan(qel_vector_float32_max(vec<float>({NAN, 1}).get())));
    EXPECT_EQ(qel_vector_float32_max(vec<float>({1, NAN, 2}).get()), 2);
    EXPECT_EQ(qel_vector_int16_avg_nval(vec<int16_t>({1, 1, 1})->data, 3), 4096);
}

TEST(VectorTable, LeavesTheIntegerSetNullAndIsFilledOnce) {
    EXPECT_EQ(qel_vector_float32_set, qel_vector_float32_set_c);
    EXPECT_TRUE(qel_vector_int32_set == nullptr && qel_vector_int16_set == nullptr);
    const auto add = std::exchange(qel_vector_float32_add, nullptr);
    qel_vector_init_module();
    EXPECT_EQ(std::exchange(qel_vector_float32_add, add), nullptr) << "already filled";
}

TEST(VectorPrint, BreaksItsLines) {
    testing::internal::CaptureStdout();
    qel_vector_float32_print(vec<float>({}).get());
    qel_vector_float32_print(vec(std::vector<float>(17, 0.5f)).get());
    qel_vector_int16_print(vec(std::vector<int16_t>(33, 6144)).get());
    qel_vector_int32_print(vec<int32_t>({7}).get());
    qel_vector_int32_print_float_c(vec<int32_t>({-1}).get());
    qel_vector_int16_print_float_c(vec(std::vector<int16_t>(17, 6144)).get());
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("\n\n(0.500000 ){16}\n0.500000 \n\n(6144 ){32}\n6144 \n"
                                      "\n   7 \n\n-0.000001 \n\n(1.500000 ){16}\n1.500000 \n"));
}

TEST(VectorUnion, HoldsTheTypeAskedFor) {
    for (const int32_t type : {0, 1, 2, 3, -1}) {
        qel_vector_union* holder = qel_vector_union_new(type, 5);
        EXPECT_TRUE(holder->type == type && !holder->vec == (type < 0 || type > 2));
        auto* block = static_cast<char*>(holder->vec);  // the sanitizer knows its size
        if (block != nullptr) std::fill_n(block + 16, type == 2 ? 10 : 20, 1);
        qel_vector_union_delete(holder);
    }
    qel_vector_union_delete(nullptr);
    const FailingAlloc refuse(0);
    EXPECT_EQ(qel_vector_union_new(0, 5), nullptr);
}

// The spectrum of a cosine in bin 3 of 16 points; lengths that fit and some that do not. A length
// counts bins or elements; the third case has room for 8 of these, but not for 9 bins.
template <class T, class Plan>
void check_realft(Plan* plan, double top, double peak, double tolerance) {
    std::vector<T> wave(16);
    for (int i = 0; i < 16; ++i)
        wave[i] = static_cast<T>(top * std::cos(3 * i * std::numbers::pi / 8));
    const std::tuple<uint32_t, uint32_t, uint32_t, bool> cases[] = {{18, 8, 16, true},
                                                                    {18, 18, 17, true},
                                                                    {8, 8, 16, false},
                                                                    {18, 9, 16, false},
                                                                    {18, 8, 15, false}};
    for (const auto& [made, len, samples, fits] : cases) {
        const LogCapture log;
        wave.resize(samples);
        const auto in = vec(wave), out = vec(std::vector<T>(made, 77));
        out->len = len;
        EXPECT_EQ(Api<T>::realft(out.get(), in.get(), plan), fits ? 0 : -1) << len;
        EXPECT_EQ(log.has("do not fit 16 points"), !fits) << len;
        for (uint32_t i = 0; i < made; ++i)
            EXPECT_NEAR(out->data[i], !fits ? 77 : i == 6 ? peak : 0, tolerance) << len << ' ' << i;
    }
    std::free(plan);
}

TEST(VectorRealft, IsTheDispatchedTransform) {
    check_realft<float>(qel_fft_alloc_r2c_float32(16), 1000, 8000, 1e-3);
    check_realft<int32_t>(qel_fft_alloc_r2c_int32(16), kMax32, kMax32 / 2.0, 8);
    check_realft<int16_t>(qel_fft_alloc_r2c_int16(16), kMax16, kMax16 / 2.0, 3);
}

/// Floats between the two; 0 for two NaNs.
int64_t ulps(float a, double right) {
    const auto b = static_cast<float>(right);
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) == std::isnan(b) ? 0 : INT32_MAX;
    const auto place = [](float x) {
        const auto bits = std::bit_cast<int32_t>(x);
        return int64_t{bits < 0 ? INT32_MIN - bits : bits};
    };
    return std::abs(place(a) - place(b));
}

double sigmoid(double x) { return 1 / (1 + std::exp(-x)); }

#define FUNCTION(name, reference)                                                           \
    {                                                                                       \
#name, qel_vector_float32_##name, qel_vector_int32_##name, qel_vector_int16_##name, \
            reference                                                                       \
    }
const struct {
    const char* name;
    void (*&float32)(qel_vector_float32*);
    void (*&int32)(qel_vector_int32*);
    void (*&int16)(qel_vector_int16*);
    double (*reference)(double);
} kFunctions[] = {FUNCTION(exp, std::exp), FUNCTION(log, std::log), FUNCTION(sigmoid, sigmoid)};

TEST(VectorTranscendental, Float32IsWithinTwoUlpAndHasTheEdgesOfC) {
    const float inf = INFINITY, tiny = 0x1p-149f;
    // The last four: where e^x becomes infinite and where it becomes 0.
    std::vector<float> x = {0, -0.0f, inf, -inf, NAN, tiny, -tiny, 1};
    x.insert(x.end(), {0x1.62e42ep+6f, 0x1.62e43p+6f, -0x1.9fe368p+6f, -0x1.9fe36ap+6f});
    for (uint32_t bits = 0; bits < ~9973u; bits += 9973) x.push_back(std::bit_cast<float>(bits));
    for (const auto& f : kFunctions) {
        const auto whole = vec(x);
        f.float32(whole.get());
        for (size_t i = 0; i < x.size(); ++i)
            ASSERT_LE(ulps(whole->data[i], f.reference(x[i])), 2) << f.name << x[i];
    }
}

/// Expects the function's results at most 1 unit beside the true ones, truncated and clamped.
template <class T, class Run>
void check_fixed(const std::vector<T>& x, double one, Run run, double (*reference)(double)) {
    const auto v = vec(x);
    run(v.get());
    for (size_t i = 0; i < x.size(); ++i) {
        const double exact = reference(x[i] / one) * one, y = std::isnan(exact) ? -INFINITY : exact;
        const double held = std::clamp(std::trunc(y), double{std::numeric_limits<T>::min()},
                                       double{std::numeric_limits<T>::max()});
        ASSERT_NEAR(v->data[i], held, held == std::trunc(y) && held != y ? 1 : 0) << x[i];
    }
}

TEST(VectorTranscendental, FixedPointIsWithinOneUnitAndSaturates) {
    std::vector<int16_t> shorts(65536);
    std::iota(shorts.begin(), shorts.end(), kMin16);
    std::vector<int32_t> ints = {INT32_MIN, -1, 0, 1, INT32_MAX};
    std::mt19937 random(5);
    for (int i = 0; i < 200000; ++i)  // all magnitudes
        ints.push_back(static_cast<int32_t>(random()) >> (random() % 31));
    for (const auto& f : kFunctions) {
        SCOPED_TRACE(f.name);
        check_fixed(shorts, 4096, f.int16, f.reference);
        check_fixed(ints, 1 << 20, f.int32, f.reference);
    }
}

/// Checks one softmax against double: the values, in ULP (float) or units, and their sum.
template <class T>
void check_softmax(const std::vector<T>& x, double one, double total) {
    const double largest = *std::max_element(x.begin(), x.end());
    double sum = 0, got_sum = 0;
    for (const T value : x) sum += std::exp((value - largest) / one);
    const auto v = vec(x);
    Api<T>::softmax(v.get());
    for (size_t i = 0; i < x.size(); ++i) {
        got_sum += v->data[i] / one;
        const double y = std::exp((x[i] - largest) / one) / sum;
        const bool is_float = std::is_same_v<T, float>;
        EXPECT_LE(is_float ? ulps(v->data[i], y) / 2.0 : std::abs(v->data[i] - std::trunc(y * one)),
                  1)
            << x[i];
    }
    EXPECT_NEAR(got_sum, 1, total) << x.size();
}

TEST(VectorTranscendental, SoftmaxSumsToOne) {
    std::mt19937 random(6);
    for (const size_t n : {1, 2, 3, 64, 65, 513, 5000}) {
        for (const double spread : {0.0, 0.1, 3.0, 7.9}) {
            const auto noise = [&](auto zero, double scale) {
                std::vector<decltype(zero)> x(n);
                for (auto& v : x)
                    v = static_cast<decltype(zero)>(scale * spread * (random() * 0x1p-31 - 1));
                return x;
            };
            const auto count = static_cast<double>(n);
            check_softmax(noise(0.0f, 10), 1, 4 * 0x1p-23 * std::log2(count));
            check_softmax(noise(int32_t{}, 1 << 20), 1 << 20, count / (1 << 20));
            check_softmax(noise(int16_t{}, 4096), 4096, count / 4096);
        }
    }
    check_softmax<float>({-3e38f, 3e38f, 3e38f}, 1, 0);
    check_softmax<float>({-INFINITY, 7, -INFINITY}, 1, 0);
    check_softmax<float>({0, -100}, 1, 1e-43);  // a subnormal result
    for (const auto& x : {std::vector<float>{1, NAN}, {NAN, 1}, {1, INFINITY}, {-INFINITY}, {}}) {
        const auto v = vec(x);
        qel_vector_float32_softmax(v.get());
        for (const float y : values<float>(v)) EXPECT_TRUE(std::isnan(y));
    }
}

}  // namespace
