// The transforms by element type, on vectors, through the dispatch table.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "qel/math/fft/qel_fft.h"
#include "tests/support/reference_dft.hpp"

template <class T>
struct Fft;

// The third argument is there for the types whose transforms take a scaled flag.
#define FFT_API(T, type, ...)                                                                   \
    template <>                                                                                 \
    struct Fft<T> {                                                                             \
        using Point = qel_fft_cpx_##type;                                                       \
        static auto* alloc_c2c(int32_t n) { return qel_fft_alloc_c2c_##type(n); }               \
        static auto* alloc_r2c(int32_t n) { return qel_fft_alloc_r2c_##type(n); }               \
        static void destroy(qel_fft_cfg_##type* plan) { qel_fft_destroy_c2c_##type(plan); }     \
        static void destroy(qel_fft_r2c_cfg_##type* plan) { qel_fft_destroy_r2c_##type(plan); } \
        static void run(T* out, const T* in, qel_fft_cfg_##type* plan, bool inverse,            \
                        bool scaled) {                                                          \
            (void)scaled;                                                                       \
            qel_fft_c2c_1d_##type((Point*)out, (Point*)in, plan, inverse __VA_OPT__(, scaled)); \
        }                                                                                       \
        static void run(T* out, const T* in, qel_fft_r2c_cfg_##type* plan, bool inverse,        \
                        bool scaled) {                                                          \
            (void)scaled;                                                                       \
            inverse ? qel_fft_c2r_1d_##type(out, (Point*)in, plan __VA_OPT__(, scaled))         \
                    : qel_fft_r2c_1d_##type((Point*)out, in, plan __VA_OPT__(, scaled));        \
        }                                                                                       \
    };
FFT_API(float, float32)
FFT_API(int32_t, int32, scaled)
FFT_API(int16_t, int16, scaled)
#undef FFT_API

[[maybe_unused]] static const bool kFftReady = (qel_fft_init_module(), true);

enum Kind { kComplex, kReal };

/// Runs a plan and destroys it. Returns the first `count` values; the test fails if there are more,
/// or if the plan's tables change.
template <class T, class Plan>
std::vector<T> run_plan(Plan* plan, const std::vector<T>& in, size_t count, bool inverse,
                        bool scaled, bool in_place) {
    constexpr T kGuard = 77;
    const auto tables = [plan] {
        return std::string(reinterpret_cast<const char*>(plan->factors),
                           reinterpret_cast<const char*>(plan->buffer));
    };
    const std::string before = tables();
    std::vector<T> out(std::max(count, in.size()) + 8, kGuard);
    if (in_place) std::copy(in.begin(), in.end(), out.begin());
    Fft<T>::run(out.data(), in_place ? out.data() : in.data(), plan, inverse, scaled);
    const auto rest = out.begin() + static_cast<int64_t>(in_place ? out.size() - 8 : count);
    EXPECT_EQ(std::count(rest, out.end(), kGuard), out.end() - rest);
    EXPECT_EQ(tables(), before);
    Fft<T>::destroy(plan);
    out.resize(count);
    return out;
}

/// A transform of n points; complex values are interleaved parts. Float ignores `scaled`.
template <class T>
std::vector<T> fft(Kind kind, size_t n, const std::vector<T>& in, bool inverse, bool scaled = false,
                   bool in_place = false) {
    const auto length = static_cast<int32_t>(n);
    if (kind == kComplex) {
        return run_plan(Fft<T>::alloc_c2c(length), in, 2 * n, inverse, scaled, in_place);
    }
    const size_t count = inverse ? n : n + 2;
    return run_plan(Fft<T>::alloc_r2c(length), in, count, inverse, scaled, in_place);
}

/// Interleaved parts, or reals, as complex values.
template <class T>
Spectrum values(Kind kind, const std::vector<T>& x) {
    if (kind == kReal) return {x.begin(), x.end()};
    Spectrum out;
    for (size_t i = 0; i < x.size(); i += 2) out.emplace_back(x[i], x[i + 1]);
    return out;
}
