// One call of each kernel on arrays of a common pool, compiled twice: see scalar_kernels.cpp.
#pragma once

#include <array>
#include <vector>

#include "qel/spu/aec/kernels/tracking.hpp"

constexpr int kLongest = 513, kTaps = 3;

/// Arrays 0 to 3 hold numbers of either sign, 4 to 7 none below 0; each has room for the complex
/// bins of kTaps partitions of the longest.
using Pool = std::array<std::vector<float>, 8>;

struct KernelCall {
    const char* name;
    void (*run)(Pool& x, int n, qel::simd::Width width);
};

/// The calls of the kernels, scalar.
extern const std::vector<KernelCall> scalar_calls;

namespace {

using qel::simd::Width;
namespace under_test = qel::kernels;

template <class T>
T* as(std::vector<float>& x) {
    return reinterpret_cast<T*>(x.data());
}

/// A bank over `n` bins with an empty band and bands that grow.
under_test::Bank bank_of(int n, Pool& x) {
    static int16_t starts[6];
    const int ends[] = {0, n / 16, n / 16, n / 4, n / 2, n};
    for (int i = 0; i < 6; ++i) starts[i] = static_cast<int16_t>(ends[i]);
    return {.starts = starts, .lower = x[4].data(), .upper = x[5].data(), .bands = 6};
}

#define QEL_CALL(name, ...)                                                               \
    {                                                                                     \
#name, [](Pool & x, int n, Width width) { under_test::name(__VA_ARGS__, width); } \
    }
#define QEL_AT(i) x[i].data()
#define QEL_TAPS \
    { kTaps, kLongest, n }

const std::vector<KernelCall> calls = {
    QEL_CALL(from_samples, as<int16_t>(x[0]), QEL_AT(1), n),
    QEL_CALL(from_wide_samples, as<char>(x[0]) + 1, 5, QEL_AT(1), n),
    QEL_CALL(to_samples, QEL_AT(0), as<int16_t>(x[1]), n),
    QEL_CALL(window_pair, QEL_AT(0), QEL_AT(1), QEL_AT(2), 1024, QEL_AT(3), n),
    QEL_CALL(window_pair, QEL_AT(0), QEL_AT(1), QEL_AT(2), 320, QEL_AT(3), n),
    QEL_CALL(window, QEL_AT(0), QEL_AT(1), 320, QEL_AT(2), n),
    QEL_CALL(divide, QEL_AT(0), 2048, n),
    QEL_CALL(divide, QEL_AT(0), 1000, n),
    QEL_CALL(overlap_add, QEL_AT(0), QEL_AT(1), 1024, QEL_AT(2), QEL_AT(3), n),
    QEL_CALL(normalise, 2, 90, QEL_AT(4), QEL_AT(5), QEL_AT(6), QEL_AT(7), n),
    QEL_CALL(update_power, {QEL_AT(0), QEL_AT(4), QEL_AT(5), QEL_AT(6), 0.5f, 0.01f}, QEL_TAPS),
    QEL_CALL(estimate_echo, {QEL_AT(3), QEL_AT(0), QEL_AT(1), QEL_AT(2), QEL_AT(4), QEL_AT(5)},
             QEL_TAPS),
    QEL_CALL(subtract, QEL_AT(0), QEL_AT(1), QEL_AT(2), n),
    QEL_CALL(take_step, QEL_AT(0), QEL_AT(4), QEL_AT(5), 0.5f, QEL_AT(1), QEL_AT(2), n),
    QEL_CALL(adapt, 0.4f, QEL_AT(0), QEL_AT(1), QEL_AT(2), QEL_TAPS),
    QEL_CALL(bound_residual, {QEL_AT(0), QEL_AT(1), QEL_AT(2), QEL_AT(3), QEL_AT(4), QEL_AT(5)}, 3,
             n),
    {"sum_leak",
     [](Pool& x, int n, Width width) {
         const auto sums =
             under_test::sum_leak(QEL_AT(4), QEL_AT(5), QEL_AT(6), QEL_AT(7), n, width);
         x[0] = {sums.error, sums.echo, sums.cross, sums.echo_auto};
     }},
    {"mean_square",
     [](Pool& x, int n, Width width) {
         x[0] = {under_test::mean_square(QEL_AT(1), n, width),
                 under_test::mean_square(as<int16_t>(x[2]), n, width)};
     }},
    QEL_CALL(smooth, 0.3f, QEL_AT(0), QEL_AT(1), n),
    QEL_CALL(raise_noise, 0.4f, QEL_AT(4), QEL_AT(5), QEL_AT(6), n),
    QEL_CALL(sum_bands, bank_of(n, x), QEL_AT(6), QEL_AT(7)),
    QEL_CALL(sum_bands, bank_of(n, x), QEL_AT(6)),
    QEL_CALL(spread_bands, bank_of(n, x), QEL_AT(6), QEL_AT(7), QEL_AT(0)),
    QEL_CALL(update_snr, QEL_AT(4), QEL_AT(5), QEL_AT(6), QEL_AT(0), QEL_AT(7), n),
    QEL_CALL(estimate_gain, QEL_AT(0), QEL_AT(4), QEL_AT(1), n),
    QEL_CALL(update_bin_gains,
             {QEL_AT(0), QEL_AT(4), QEL_AT(5), QEL_AT(6), QEL_AT(7), QEL_AT(1), QEL_AT(2)}, n),
    QEL_CALL(over_subtract, 1.2f, QEL_AT(4), QEL_AT(0), QEL_AT(1), QEL_AT(2), n),
    QEL_CALL(apply_gain, QEL_AT(0), QEL_AT(4), QEL_AT(1), n),
    QEL_CALL(measure_filter, {QEL_AT(0), QEL_AT(1), QEL_AT(2), QEL_AT(4), QEL_AT(5), QEL_AT(3)}, n),
    {"sum_filter",
     [](Pool& x, int n, Width width) {
         const auto sums = under_test::sum_filter(
             {QEL_AT(4), QEL_AT(5), QEL_AT(6), QEL_AT(7), QEL_AT(0)}, n / 3, n, width);
         x[0] = {sums.stressed_mic, sums.stressed_ref, sums.mic, sums.error, sums.excess};
     }},
    QEL_CALL(predict, {QEL_AT(4), QEL_AT(0), QEL_AT(5), QEL_AT(7), QEL_AT(6), 2, 90}, QEL_TAPS),
    QEL_CALL(weigh,
             {QEL_AT(0), QEL_AT(4), QEL_AT(5), QEL_AT(6), QEL_AT(1), QEL_AT(7), QEL_AT(2),
              QEL_AT(3), 0.5f, 0.8f, 0.002f},
             n),
    QEL_CALL(correct, {QEL_AT(0), QEL_AT(4), QEL_AT(1), QEL_AT(2), QEL_AT(6), 0.001f}, QEL_TAPS),
    QEL_CALL(scale_weights, 0.5f, QEL_AT(0), QEL_TAPS),
    QEL_CALL(raise_residual,
             {QEL_AT(0), QEL_AT(6), QEL_AT(7), QEL_AT(5), QEL_AT(1), QEL_AT(2), 2, 0.3f, 2, 0.6f,
              QEL_AT(3), x[6].data() + n},
             bank_of(n, x)),
    QEL_CALL(correlate_probes, {QEL_AT(0), QEL_AT(1), QEL_AT(4), QEL_AT(2), QEL_AT(3), QEL_AT(5),
                                0.1f, 0.03f, 0.04f, n % 7, 7}),
    QEL_CALL(
        observe_noise,
        {QEL_AT(4), QEL_AT(5), QEL_AT(0), QEL_AT(6), QEL_AT(7), QEL_AT(1), 0.3f, 3, n % 2 == 0}, n),
    QEL_CALL(observe_pause,
             {QEL_AT(4), QEL_AT(5), QEL_AT(6), QEL_AT(7), QEL_AT(0), QEL_AT(1), QEL_AT(2), 0.3f, 3,
              1.04f, n % 2 == 0},
             n),
    QEL_CALL(fill_noise, {QEL_AT(4), QEL_AT(5), QEL_AT(6), QEL_AT(0), 0.001f, 2, 12345}, n),
};

}  // namespace
