#include "benchmarks/peers/elementary.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "benchmarks/peers/measure.hpp"
#include "qel/math/vector/qel_vector.h"

namespace {

constexpr uint32_t kBins = 513;
constexpr double kSeconds = 0.6;

/// Both work in place, on a fresh copy each time, whose cost is counted with both.
template <class Ours, class Theirs>
void compare_one(const char* name, bool positive, Ours ours, Theirs theirs) {
    std::vector<float> x(kBins), y(kBins);
    for (uint32_t i = 0; i < kBins; ++i)
        x[i] = static_cast<float>(positive ? (i + 1) * (7.9 / kBins) : i * (15.9 / kBins) - 7.95);
    const auto copy = [&] { std::copy(x.begin(), x.end(), y.begin()); };
    copy();
    ours(y.data());
    for (uint32_t i = 0; i < kBins; ++i) {
        float right = x[i];
        theirs(&right, 1);
        check(std::abs(y[i] - right) <= 1e-6f * std::max(1.0f, std::abs(right)),
              std::string(name) + " is wrong");
    }
    compare({[&] { copy(), ours(y.data()); }}, {{name, {[&] { copy(), theirs(y.data(), kBins); }}}},
            kSeconds);
}

template <float (*formula)(float)>
void each(float* y, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) y[i] = formula(y[i]);
}
float exp_of(float x) { return std::exp(x); }
float log_of(float x) { return std::log(x); }
float sigmoid_of(float x) { return 1 / (1 + std::exp(-x)); }

}  // namespace

void compare_elementary() {
    compare_one(
        "exp", false, [](float* y) { qel_vector_float32_exp_nval_c(y, kBins); }, each<exp_of>);
    compare_one(
        "log", true, [](float* y) { qel_vector_float32_log_nval_c(y, kBins); }, each<log_of>);
    compare_one(
        "sigmoid", false, [](float* y) { qel_vector_float32_sigmoid_nval_c(y, kBins); },
        each<sigmoid_of>);
}
