// Vector operations at the canceller's 513 bins; exp, log and sigmoid beside the C library's.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "qel/math/vector/qel_vector.h"

namespace {

constexpr uint32_t kBins = 513;

template <class T>
constexpr double kOne = std::is_same_v<T, float> ? 1
                        : sizeof(T) == 4         ? 1 << 20
                                                 : 1 << 12;

/// From -8 to 8, or above 0 for logarithms, in the format with this `one`.
template <class T>
std::vector<T> signal(double one, bool positive) {
    std::vector<T> x(kBins);
    for (uint32_t i = 0; i < kBins; ++i) {
        const double value = positive ? (i + 1) * (7.9 / kBins) : i * (15.9 / kBins) - 7.95;
        x[i] = static_cast<T>(value * one);
    }
    return x;
}

/// Times `run` on fresh copies of the signal, after comparing it with `reference`.
template <class T, class Run>
void in_place(benchmark::State& state, Run run, double (*reference)(double), bool positive) {
    const double one = kOne<T>;
    const std::vector<T> x = signal<T>(one, positive);
    std::vector<T> y = x;
    run(y.data());
    for (uint32_t i = 0; i < kBins; ++i) {
        const double right = reference(x[i] / one);
        const bool held = std::is_same_v<T, float> || right < 7.99;
        if (held && std::abs(y[i] / one - right) > std::max(1e-6 * std::abs(right), 2 / one)) {
            return state.SkipWithError("wrong result");
        }
    }
    for (auto _ : state) {
        std::copy(x.begin(), x.end(), y.begin());
        run(y.data());
        benchmark::DoNotOptimize(y.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBins);
}

double exp_of(double x) { return std::exp(x); }
double log_of(double x) { return std::log(x); }
double sigmoid_of(double x) { return 1 / (1 + std::exp(-x)); }

/// Times a bare-array operation on two signals into a third.
template <class T, class Run>
void two_arrays(benchmark::State& state, Run run) {
    const double one = kOne<T>;
    const std::vector<T> a = signal<T>(one, false), b = signal<T>(one, true);
    std::vector<T> y(kBins);
    for (auto _ : state) {
        run(y.data(), a.data(), b.data());
        benchmark::DoNotOptimize(y.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBins);
}

template <class T, class Run>
void add_in_place(const char* name, Run run, double (*reference)(double)) {
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
        in_place<T>(state, run, reference, reference == log_of);
    });
}

template <class T, class Run>
void add_two_arrays(const char* name, Run run) {
    benchmark::RegisterBenchmark(name, [=](auto& state) { two_arrays<T>(state, run); });
}

/// The C library, called for one element after the other.
void add_c_library() {
#define EACH(name, formula, reference)                           \
    add_in_place<float>(                                         \
        name "_c_library",                                       \
        [](float* y) {                                           \
            for (uint32_t i = 0; i < kBins; ++i) y[i] = formula; \
        },                                                       \
        reference)
    EACH("exp", std::exp(y[i]), exp_of);
    EACH("log", std::log(y[i]), log_of);
    EACH("sigmoid", 1 / (1 + std::exp(-y[i])), sigmoid_of);
}

#define ADD_TYPE(T, type)                                                                          \
    add_in_place<T>(                                                                               \
        "exp_" #type, [](T* y) { qel_vector_##type##_exp_nval_c(y, kBins); }, exp_of);             \
    add_in_place<T>(                                                                               \
        "log_" #type, [](T* y) { qel_vector_##type##_log_nval_c(y, kBins); }, log_of);             \
    add_in_place<T>(                                                                               \
        "sigmoid_" #type, [](T* y) { qel_vector_##type##_sigmoid_nval_c(y, kBins); }, sigmoid_of); \
    add_two_arrays<T>("softmax_" #type, [](T* y, const T* a, const T*) {                           \
        std::copy_n(a, kBins, y);                                                                  \
        qel_vector_##type##_softmax_nval_c(y, kBins);                                              \
    });                                                                                            \
    add_two_arrays<T>("add_" #type, [](T* y, const T* a, const T* b) {                             \
        qel_vector_##type##_add_nval_c(y, a, b, kBins);                                            \
    });                                                                                            \
    add_two_arrays<T>("mul_" #type, [](T* y, const T* a, const T* b) {                             \
        qel_vector_##type##_mul_nval_c(y, a, b, kBins);                                            \
    });                                                                                            \
    add_two_arrays<T>("sum_" #type, [](T* y, const T* a, const T*) {                               \
        y[0] = qel_vector_##type##_sum_nval_c(a, kBins);                                           \
    });                                                                                            \
    add_two_arrays<T>("max_" #type, [](T* y, const T* a, const T*) {                               \
        y[0] = qel_vector_##type##_max_nval_c(a, kBins);                                           \
    })

}  // namespace

int main(int argc, char** argv) {
    add_c_library();
    ADD_TYPE(float, float32);
    ADD_TYPE(int32_t, int32);
    ADD_TYPE(int16_t, int16);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
