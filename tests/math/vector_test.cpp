// Vectors: records, dispatch, wrapping arithmetic, reductions, spectra; exp, log, sigmoid and
// softmax against the C library in double.
#include "qel/math/vector/qel_vector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <tuple>
#include <vector>

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
    qel_fft_init_module();
    qel_vector_init_module();
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
constexpr double kBin3 = 3 * 2 * std::numbers::pi / 16;  // of 16 points

template <class T>
class Vector : public testing::Test {};
using Types = testing::Types<float, int32_t, int16_t>;
TYPED_TEST_SUITE(Vector, Types);

TYPED_TEST(Vector, ElementsFollowAHeaderOfSixteenBytes) {
    using A = Api<TypeParam>;
    for (const uint32_t len : {0u, 1u, 3u, 513u}) {
        const auto v = vec(std::vector<TypeParam>(len, 7));
        EXPECT_EQ(reinterpret_cast<char*>(v->data) - reinterpret_cast<char*>(v.get()), 16);
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

TYPED_TEST(Vector, UnequalLengthsAreReportedAndNothingIsDone) {
    using A = Api<TypeParam>;
    const bool is_float = std::is_same_v<TypeParam, float>;
    const std::string base = std::string("qel_vector_") + (is_float ? "float" : "int") +
                             std::to_string(8 * sizeof(TypeParam));
    const auto four = vec<TypeParam>({1, 1, 1, 1}), five = vec<TypeParam>({2, 2, 2, 2, 2});
    int line = is_float ? 69 : 82;
    for (const auto& [name, operation] :
         {std::pair{"_mul", A::mul}, {"_sub", A::sub}, {"_add", A::add}}) {
        const LogCapture log;
        const auto dst = vec<TypeParam>({9, 9, 9, 9, 9});
        EXPECT_EQ(operation(dst.get(), four.get(), five.get()), -1);
        EXPECT_EQ(dst->data[0], 9);
        EXPECT_TRUE(log.has("[W] " + base + ":" + base + name + "_c:" + std::to_string(line) +
                            ": vector size mismatched. 4 != 5\n"));
        line += 14;
        // A longer destination is computed as far as the sources reach.
        EXPECT_EQ(operation(dst.get(), four.get(), four.get()), 0);
        EXPECT_NE(dst->data[3], 9);
        EXPECT_EQ(dst->data[4], 9);
    }
}

// Each case at every place of vectors that fill no, one and two registers and a rest.
template <class T>
void check_binary(const std::vector<std::tuple<const char*, T, T, T, T, T>>& cases) {
    for (const auto& [what, x, y, product, difference, sum] : cases) {
        for (const size_t n : {1, 4, 13, 32}) {
            const auto a = vec(std::vector<T>(n, x)), b = vec(std::vector<T>(n, y)),
                       dst = vec(std::vector<T>(n));
            Api<T>::mul(dst.get(), a.get(), b.get());
            EXPECT_EQ(values<T>(dst), std::vector<T>(n, product)) << what;
            Api<T>::sub(dst.get(), a.get(), b.get());
            EXPECT_EQ(values<T>(dst), std::vector<T>(n, difference)) << what;
            Api<T>::add(b.get(), a.get(), b.get());  // in place
            EXPECT_EQ(values<T>(b), std::vector<T>(n, sum)) << what;
            Api<T>::scale(a.get(), y);
            EXPECT_EQ(values<T>(a), std::vector<T>(n, product)) << what;
        }
    }
}

TEST(VectorArithmetic, WrapsAndTruncates) {
    check_binary<float>({{"plain", 1.5f, -0.25f, -0.375f, 1.75f, 1.25f}});
    check_binary<int16_t>({
        {"the shift is arithmetic", -1, 1, -1, -2, 0},
        {"truncates downward", -4095, 4097, -4096, -8192, 2},
        {"sum wraps", kMax16, 1, 7, 32766, kMin16},
        {"product wraps", kMax16, kMax16, -16, 0, -2},
    });
    check_binary<int32_t>({
        {"64-bit product", 3 << 27, -5 * kOne20, -15 << 27, 407896064, 397410304},
        {"difference wraps", kMin32, 1, -2048, kMax32, kMin32 + 1},
    });
}

template <class T>
void check_reductions(const std::vector<std::tuple<const char*, std::vector<T>, T, T>>& cases) {
    for (const auto& [what, x, sum, avg] : cases) {
        EXPECT_EQ(Api<T>::sum(vec(x).get()), sum) << what;
        EXPECT_EQ(Api<T>::avg(vec(x).get()), avg) << what;
    }
}

TEST(VectorReductions, FollowEachTypesRule) {
    check_reductions<float>({
        {"in order, one accumulator", {16777216, 1, 1, 1, 1, 1, 1, 1}, 16777216, 2097152},
        {"order decides", {1, 1, 1, 1, 1, 1, 2, 16777216}, 16777224, 2097153},
    });
    check_reductions<int32_t>({
        {"mean", {kOne20, 3 * kOne20}, 4 * kOne20, 2 * kOne20},
        {"truncates toward 0", {-3, -4}, -7, -3},
        {"sum wraps first", {kMax32, 1}, kMin32, kMin32 / 2},
        {"a divisor of -2^31", std::vector<int32_t>(2048, -1), -2048, 1},
        {"a divisor of -2^31 + 2^20", std::vector<int32_t>(2049, 2047), 4194303, -2049},
        {"a divisor of 0", std::vector<int32_t>(4096, 1), 4096, 0},
    });
    check_reductions<int16_t>({
        {"4096 times the mean, wrapped", std::vector<int16_t>(4, kOne12), 16384, 0},
        {"4096 times 2/3", {1, 1, 0}, 2, 2730},
        {"truncates toward 0", {-1, 0, 0}, -1, -1365},
        {"sum wraps first", {kMax16, 1, 0}, kMin16, 21846},
        {"a negative count", std::vector<int16_t>(65535, 1), -1, 4096},
        {"a count of 0", std::vector<int16_t>(65536, 1), 0, 0},
    });
    EXPECT_TRUE(std::isnan(qel_vector_float32_avg(vec<float>({}).get())));
    EXPECT_TRUE(std::isnan(qel_vector_float32_max(vec<float>({NAN, 1}).get())));
    EXPECT_EQ(qel_vector_float32_max(vec<float>({1, NAN, 2}).get()), 2);
    EXPECT_EQ(qel_vector_int16_avg_nval(vec<int16_t>({1, 1, 1})->data, 3), 4096);
}

TEST(VectorTable, LeavesTheIntegerSetNullAndIsFilledOnce) {
    qel_vector_init_module();
    EXPECT_EQ(qel_vector_float32_set, qel_vector_float32_set_c);
    EXPECT_EQ(qel_vector_int32_set, nullptr);
    EXPECT_EQ(qel_vector_int16_set, nullptr);
    const auto add = std::exchange(qel_vector_float32_add, nullptr);
    qel_vector_init_module();
    EXPECT_EQ(std::exchange(qel_vector_float32_add, add), nullptr) << "already filled";
}

TEST(VectorPrint, BreaksItsLines) {
    const auto printed = [](auto print, const auto& v) {
        testing::internal::CaptureStdout();
        print(v.get());
        return testing::internal::GetCapturedStdout();
    };
    const auto floats = vec(std::vector<float>(17, 0.5f));
    const auto shorts = vec(std::vector<int16_t>(33, 6144));
    EXPECT_EQ(printed(qel_vector_float32_print, vec<float>({})), "\n");
    EXPECT_EQ(printed(qel_vector_float32_print, floats).substr(16 * 9), " \n0.500000 \n");
    EXPECT_EQ(printed(qel_vector_int16_print, shorts).substr(32 * 5), " \n6144 \n");
    EXPECT_EQ(printed(qel_vector_int32_print, vec<int32_t>({7})), "\n   7 \n");
    EXPECT_EQ(printed(qel_vector_int32_print_float_c, vec<int32_t>({-1})), "\n-0.000001 \n");
    EXPECT_EQ(printed(qel_vector_int16_print_float_c, vec<int16_t>({6144})), "\n1.500000 \n");
}

TEST(VectorUnion, HoldsTheTypeAskedFor) {
    qel_vector_init_module();
    for (const int32_t type : {0, 1, 2, 3, -1}) {
        qel_vector_union* holder = qel_vector_union_new(type, 5);
        EXPECT_EQ(holder->type, type);
        EXPECT_EQ(holder->vec != nullptr, type >= 0 && type < 3);
        auto* block = static_cast<char*>(holder->vec);  // the sanitizer knows its size
        if (block != nullptr) std::memset(block + 16, 1, type == 2 ? 10 : 20);
        qel_vector_union_delete(holder);
    }
    qel_vector_union_delete(nullptr);
    const FailingAlloc refuse(0);
    EXPECT_EQ(qel_vector_union_new(0, 5), nullptr);
}

// The spectrum of a cosine in bin 3 of 16 points; lengths that fit and some that do not.
template <class T, class Plan>
void check_realft(Plan* plan, double top, double peak, double tolerance) {
    std::vector<T> wave(16);
    for (int i = 0; i < 16; ++i) wave[i] = static_cast<T>(top * std::cos(kBin3 * i));
    const std::tuple<const char*, uint32_t, uint32_t, uint32_t, bool> cases[] = {
        {"length counts bins", 18, 8, 16, true},
        {"length counts elements", 18, 18, 17, true},
        {"room for 8 elements, not for 9 bins", 8, 8, 16, false},
        {"a length of neither kind", 18, 9, 16, false},
        {"a sample missing", 18, 8, 15, false}};
    for (const auto& [what, made, len, samples, fits] : cases) {
        const LogCapture log;
        wave.resize(samples);
        const auto in = vec(wave), out = vec(std::vector<T>(made, 77));
        out->len = len;
        EXPECT_EQ(Api<T>::realft(out.get(), in.get(), plan), fits ? 0 : -1) << what;
        EXPECT_EQ(log.has("do not fit 16 points"), !fits) << what;
        for (uint32_t i = 0; i < made; ++i) {
            EXPECT_NEAR(out->data[i], !fits ? 77 : i == 6 ? peak : 0, tolerance) << what << i;
        }
    }
    std::free(plan);
}

TEST(VectorRealft, IsTheDispatchedTransform) {
    qel_fft_init_module();
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

const struct {
    const char* name;
    void (*&float32)(qel_vector_float32*);
    void (*&int32)(qel_vector_int32*);
    void (*&int16)(qel_vector_int16*);
    double (*reference)(double);
} kFunctions[] = {
    {"exp", qel_vector_float32_exp, qel_vector_int32_exp, qel_vector_int16_exp, std::exp},
    {"log", qel_vector_float32_log, qel_vector_int32_log, qel_vector_int16_log, std::log},
    {"sigmoid", qel_vector_float32_sigmoid, qel_vector_int32_sigmoid, qel_vector_int16_sigmoid,
     sigmoid},
};

TEST(VectorTranscendental, Float32IsWithinTwoUlpAndHasTheEdgesOfC) {
    const float inf = INFINITY, tiny = 0x1p-149f;
    // The last four: where e^x becomes infinite and where it becomes 0.
    std::vector<float> x = {0, -0.0f, inf, -inf, NAN, tiny, -tiny, 1};
    x.insert(x.end(), {0x1.62e42ep+6f, 0x1.62e43p+6f, -0x1.9fe368p+6f, -0x1.9fe36ap+6f});
    for (uint32_t bits = 0; bits < ~9973u; bits += 9973) x.push_back(std::bit_cast<float>(bits));
    for (const auto& f : kFunctions) {
        const auto whole = vec(x);
        f.float32(whole.get());
        for (size_t i = 0; i < x.size(); ++i) {
            ASSERT_LE(ulps(whole->data[i], f.reference(x[i])), 2) << f.name << x[i];
        }
        // Neither neighbours nor the place in a register change a result.
        for (size_t i = 0; i + 40 < x.size(); i += 100) {
            const auto part = vec(std::vector<float>(&x[i], &x[i + i / 100 % 40]));
            f.float32(part.get());
            for (uint32_t k = 0; k < part->len; ++k) {
                ASSERT_EQ(ulps(part->data[k], whole->data[i + k]), 0) << f.name << x[i + k];
            }
        }
    }
}

/// Expects the function's results at most 1 unit beside the true ones, truncated and clamped.
template <class T, class Run>
void check_fixed(const std::vector<T>& x, double one, Run run, double (*reference)(double)) {
    const auto v = vec(x);
    run(v.get());
    for (size_t i = 0; i < x.size(); ++i) {
        const bool no_log = reference(-1.0) != reference(-1.0) && x[i] <= 0;
        const double y = no_log ? -INFINITY : reference(x[i] / one) * one;
        const double held = std::clamp(std::trunc(y), double{std::numeric_limits<T>::min()},
                                       double{std::numeric_limits<T>::max()});
        ASSERT_NEAR(v->data[i], held, held == std::trunc(y) && held != y ? 1 : 0) << x[i];
    }
}

TEST(VectorTranscendental, FixedPointIsWithinOneUnitAndSaturates) {
    std::vector<int16_t> shorts;
    for (int32_t x = INT16_MIN; x <= INT16_MAX; ++x) shorts.push_back(static_cast<int16_t>(x));
    std::vector<int32_t> ints = {INT32_MIN, -1, 0, 1, INT32_MAX};
    std::mt19937 random(5);
    for (int i = 0; i < 200000; ++i) {  // all magnitudes
        ints.push_back(static_cast<int32_t>(random()) >> (random() % 31));
    }
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
        if constexpr (std::is_same_v<T, float>) {
            EXPECT_LE(ulps(v->data[i], y), 2) << x[i];
        } else {
            EXPECT_NEAR(v->data[i], std::trunc(y * one), 1) << x[i];
        }
    }
    EXPECT_NEAR(got_sum, 1, total) << x.size();
}

TEST(VectorTranscendental, SoftmaxSumsToOne) {
    std::mt19937 random(6);
    for (const size_t n : {1, 2, 3, 64, 65, 513, 5000}) {
        for (const double spread : {0.0, 0.1, 3.0, 7.9}) {
            std::vector<double> x(n);
            for (double& value : x) value = spread * (random() * 0x1p-31 - 1);
            const auto as = [&](auto zero, double scale) {
                std::vector<decltype(zero)> y;
                for (const double v : x) y.push_back(static_cast<decltype(zero)>(v * scale));
                return y;
            };
            const auto count = static_cast<double>(n);
            check_softmax(as(0.0f, 10), 1, 4 * 0x1p-23 * std::log2(count));
            check_softmax(as(int32_t{}, 1 << 20), 1 << 20, count / (1 << 20));
            check_softmax(as(int16_t{}, 4096), 4096, count / 4096);
        }
    }
    check_softmax<float>({-3e38f, 3e38f, 3e38f}, 1, 0);
    check_softmax<float>({-INFINITY, 7, -INFINITY}, 1, 0);
    check_softmax<float>({0, -100}, 1, 1e-43);  // a subnormal result
    for (const auto& none :
         {std::vector<float>{1, NAN}, {NAN, 1}, {1, INFINITY}, {-INFINITY}, {}}) {
        const auto v = vec(none);
        qel_vector_float32_softmax(v.get());
        for (const float y : values<float>(v)) EXPECT_TRUE(std::isnan(y));
    }
}

}  // namespace
