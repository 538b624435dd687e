// Vectors: records, dispatch, wrapping arithmetic, reductions, spectra; exp, log, sigmoid and
// softmax against the C library in double.
#include <gmock/gmock.h>

#include "tests/math/vector_api.hpp"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"

namespace {

constexpr int32_t kMax32 = INT32_MAX, kMin32 = INT32_MIN, kOne20 = 1 << 20;
constexpr int16_t kMax16 = INT16_MAX, kMin16 = INT16_MIN, kOne12 = 1 << 12;

template <class T>
class Vector : public testing::Test {};
TYPED_TEST_SUITE(Vector, AllTypes);

TYPED_TEST(Vector, ElementsFollowAHeaderOfSixteenBytes) {
    using A = Api<TypeParam>;
    using Values = std::vector<TypeParam>;
    for (const uint32_t len : {0, 1, 3, 513}) {
        const auto v = vec(Values(len, 7)), copy = vec(Values(len + 1, 5));
        EXPECT_EQ(A::bytes(v.get()), 16 + len * sizeof(TypeParam));
        EXPECT_EQ(A::data_bytes(v.get()), len * sizeof(TypeParam));
        A::zero(v.get());
        EXPECT_EQ(values<TypeParam>(v), Values(len, 0));
        A::set_nval(v->data, len, 3);
        EXPECT_EQ(values<TypeParam>(v), Values(len, 3));
        A::cpy(copy.get(), v.get());
        EXPECT_EQ(values<TypeParam>(copy), values<TypeParam>(v));
    }
    EXPECT_EQ(A::make(UINT32_MAX / sizeof(TypeParam)), nullptr) << "its size passes 32 bits";
    A::free(nullptr);
}

TYPED_TEST(Vector, MaxAndMinFindTheirElementAnywhere) {
    using A = Api<TypeParam>;
    std::vector<TypeParam> x = {-3, -1, -2, -2, -2, -2, -2, -2, -2};
    for (size_t at = 0; at < x.size(); ++at) {
        std::rotate(x.begin(), x.begin() + 1, x.end());
        EXPECT_EQ(A::min(vec(x).get()), -3) << at;
        EXPECT_EQ(A::max(vec(x).get()), -1) << at;
    }
    const auto never_had_any = vec<TypeParam>({}), emptied = vec<TypeParam>({-7});
    A::cpy(emptied.get(), never_had_any.get());
    EXPECT_EQ(A::max(never_had_any.get()), 0);
    EXPECT_EQ(A::min(emptied.get()), -7) << "element 0 counts in a vector of no length";
}

TYPED_TEST(Vector, BinaryOperationsCompareTheSourcesAndStopAtTheShortest) {
    using A = Api<TypeParam>;
    using Values = std::vector<TypeParam>;
    const std::string type = A::kName;
    const auto four = vec(Values(4, 1)), five = vec(Values(5, 2));
    int line = kFloat<TypeParam> ? 69 : 82;
    for (const auto& [name, operation] :
         {std::pair{"_mul", A::mul}, {"_sub", A::sub}, {"_add", A::add}}) {
        const LogCapture log;
        const auto dst = vec(Values(5, 9));
        EXPECT_EQ(operation(dst.get(), four.get(), five.get()), -1);
        EXPECT_EQ(values<TypeParam>(dst), Values(5, 9));
        EXPECT_THAT(log.text(), testing::ContainsRegex("\\[W\\] " + type + ":" + type + name +
                                                       "_(c|neon):" + std::to_string(line) +
                                                       ": vector size mismatched. 4 != 5\n"));
        line += 14;
        for (const auto& [len, done] : {std::pair{3, 3}, {5, 4}}) {
            dst->len = len;
            EXPECT_EQ(operation(dst.get(), four.get(), four.get()), 0);
            EXPECT_NE(dst->data[done - 1], 9);
            EXPECT_EQ(dst->data[done], 9);
        }
    }
}

// Each case at every place of a vector that fills registers and a rest.
template <class T>
void check_binary(const std::vector<std::tuple<const char*, T, T, T, T, T>>& cases) {
    using Values = std::vector<T>;
    for (const auto& [what, x, y, product, difference, sum] : cases) {
        const auto a = vec(Values(13, x)), b = vec(Values(13, y)), dst = vec(Values(13));
        Api<T>::mul(dst.get(), a.get(), b.get());
        EXPECT_EQ(values<T>(dst), Values(13, product)) << what;
        Api<T>::sub(dst.get(), a.get(), b.get());
        EXPECT_EQ(values<T>(dst), Values(13, difference)) << what;
        Api<T>::add(b.get(), a.get(), b.get());  // in place
        EXPECT_EQ(values<T>(b), Values(13, sum)) << what;
        Api<T>::scale(a.get(), y);
        EXPECT_EQ(values<T>(a), Values(13, product)) << what;
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
        EXPECT_EQ(Api<T>::sum_c(vec(x).get()), sum) << what;
        EXPECT_EQ(Api<T>::avg_c(vec(x).get()), avg) << what;
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
    EXPECT_EQ(qel_vector_int32_set, nullptr);
    EXPECT_EQ(qel_vector_int16_set, nullptr);
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

TEST(VectorUnion, HoldsTheTypeAskedForInWholeWords) {
    constexpr uint32_t kNone = sizeof(qel_vector_union);  // asked for no other block
    for (const auto& [type, bytes] :
         {std::pair{0, 28u}, {1, 28}, {2, 24}, {3, kNone}, {-1, kNone}}) {
        const FailingAlloc watch(INT64_MAX, 0);
        qel_vector_union* holder = qel_vector_union_new(type, 3);
        EXPECT_EQ(holder->type, type);
        EXPECT_EQ(holder->vec == nullptr, bytes == kNone);
        EXPECT_EQ(FailingAlloc::last_bytes(), bytes);
        qel_vector_union_delete(holder);
    }
    qel_vector_union_delete(nullptr);
}

// The spectrum of a cosine in bin 3 of 16 points, by a plan of an odd length. A length counts bins
// or elements; the third case has room for 8 of these, but not for 9 bins.
TYPED_TEST(Vector, RealftTakesWhatHoldsTheSpectrum) {
    using T = TypeParam;
    const double top = kFullScale<T> - !kFloat<T>, peak = kFloat<T> ? 8 * top : top / 2;
    const auto in = vec(std::vector<T>(17)), out = vec(std::vector<T>(18));
    for (int i = 0; i < 16; ++i)
        in->data[i] = static_cast<T>(top * std::cos(3 * i * std::numbers::pi / 8));
    auto* plan = Fft<T>::alloc_r2c(17);
    for (const auto& [room, len, samples, fits] : {std::tuple{18u, 8u, 16u, true},
                                                   {18u, 18u, 17u, true},
                                                   {8u, 8u, 16u, false},
                                                   {18u, 9u, 16u, false},
                                                   {18u, 8u, 15u, false}}) {
        const LogCapture log;
        Api<T>::set_nval(out->data, 18, 77);
        out->capacity = room;
        out->len = len;
        in->len = samples;
        EXPECT_EQ(Api<T>::realft(out.get(), in.get(), plan), fits ? 0 : -1) << len;
        EXPECT_EQ(log.has("do not fit 16 points"), !fits) << len;
        for (uint32_t i = 0; i < 18; ++i)
            EXPECT_NEAR(out->data[i], !fits ? 77 : i == 6 ? peak : 0, kFloat<T> ? 1e-6 : 8) << i;
    }
    Fft<T>::destroy(plan);
}

/// The error of a result, as a share of what is allowed: 2 ULP of a float. In fixed point a unit
/// beside the true value truncated, and nothing where that saturates, as a NaN does downwards.
template <class T>
double error_of(T got, double exact) {
    if constexpr (kFloat<T>) {
        const auto right = static_cast<float>(exact);
        if (got == right || (std::isnan(got) && std::isnan(right))) return 0;
        const float size = std::abs(right);
        return std::abs(got - right) / (std::nextafter(size, INFINITY) - size) / 2;
    } else {
        const double y = std::isnan(exact) ? -INFINITY : std::trunc(exact * kOne<T>);
        const double held =
            std::clamp<double>(y, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
        return std::abs(got - held) * (held == y ? 1 : 2);
    }
}

/// Runs a function in place and compares it with the one in double.
template <class T, class Function, class Reference>
void check(const std::vector<T>& x, Function function, Reference reference) {
    const auto v = vec(x);
    function(v.get());
    for (size_t i = 0; i < x.size(); ++i)
        ASSERT_LE(error_of(v->data[i], reference(x[i] / kOne<T>)), 1) << x[i];
}

TYPED_TEST(Vector, ElementaryFunctionsAreAccurateAndHaveTheEdgesOfC) {
    const auto log = [](double y) { return std::log(y); };
    auto x = arguments<TypeParam>();
    check(x, Api<TypeParam>::exp, [](double y) { return std::exp(y); });
    check(x, Api<TypeParam>::log, log);
    check(x, Api<TypeParam>::sigmoid, [](double y) { return 1 / (1 + std::exp(-y)); });
    // The logarithm has a way of its own for vectors that hold nothing unusual.
    std::erase_if(x, [](double y) { return !(y >= 0x1p-126 && y < INFINITY); });
    check(x, Api<TypeParam>::log, log);
    if constexpr (std::is_floating_point_v<TypeParam>) {
        x[5] = INFINITY;
        check(x, Api<TypeParam>::log, log);
    }
    check<TypeParam>({std::numeric_limits<TypeParam>::denorm_min()}, Api<TypeParam>::log, log);
}

template <class T>
void check_softmax(const std::vector<T>& x) {
    double largest = x.empty() ? 0 : *std::max_element(x.begin(), x.end()) / kOne<T>, sum = 0;
    for (const T value : x) sum += std::exp(value / kOne<T> - largest);
    check(x, Api<T>::softmax, [=](double y) { return std::exp(y - largest) / sum; });
}

TYPED_TEST(Vector, SoftmaxIsAccurateAtEveryLength) {
    const double scale = kFloat<TypeParam> ? 10 : kOne<TypeParam>;
    for (const size_t n : {0, 1, 2, 3, 64, 65, 513, 5000})
        for (const double spread : {0.0, 0.1, 3.0, 7.9})
            check_softmax(random_values<TypeParam>(n, spread * scale));
}

TEST(VectorSoftmax, HasTheEdgesOfItsFormula) {
    // The second has a subnormal result.
    for (const std::vector<float>& x : {std::vector<float>{-3e38f, 3e38f, 3e38f},
                                        {0, -100, -INFINITY},
                                        {1, NAN, 2},
                                        {1, INFINITY},
                                        {-INFINITY}})
        check_softmax(x);
}

}  // namespace
