// The transforms by element type, on vectors, through the dispatch table.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "qel/math/fft/qel_fft.h"
#include "tests/support/reference_dft.hpp"

template <class T>
struct Fft;

// The third argument is there for the types whose transforms take a scaled flag.
#define FFT_API(T, type, ...)                                                                  \
    template <>                                                                                \
    struct Fft<T> {                                                                            \
        using Point = qel_fft_cpx_##type;                                                      \
        using Plan = qel_fft_cfg_##type;                                                       \
        using RealPlan = qel_fft_r2c_cfg_##type;                                               \
        static Plan* alloc_c2c(int32_t n) { return qel_fft_alloc_c2c_##type(n); }              \
        static RealPlan* alloc_r2c(int32_t n) { return qel_fft_alloc_r2c_##type(n); }          \
        static void destroy(Plan* plan) { qel_fft_destroy_c2c_##type(plan); }                  \
        static void destroy(RealPlan* plan) { qel_fft_destroy_r2c_##type(plan); }              \
        static void run(T* out, const T* in, Plan* plan, bool inverse, bool __VA_ARGS__) {     \
            qel_fft_c2c_1d_##type((Point*)out, (Point*)in, plan,                               \
                                  inverse __VA_OPT__(, ) __VA_ARGS__);                         \
        }                                                                                      \
        static void run(T* out, const T* in, RealPlan* plan, bool inverse, bool __VA_ARGS__) { \
            inverse ? qel_fft_c2r_1d_##type(out, (Point*)in, plan __VA_OPT__(, ) __VA_ARGS__)  \
                    : qel_fft_r2c_1d_##type((Point*)out, in, plan __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                                      \
    };
FFT_API(float, float32)
FFT_API(int32_t, int32, scaled)
FFT_API(int16_t, int16, scaled)
#undef FFT_API

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
    // Place 0 is left out: the data are aligned to their element only.
    std::vector<T> out(std::max(count, in.size()) + 9, kGuard), from(1);
    from.insert(from.end(), in.begin(), in.end());
    if (in_place) std::copy(in.begin(), in.end(), out.begin() + 1);
    Fft<T>::run(&out[1], in_place ? &out[1] : from.data() + 1, plan, inverse, scaled);
    const auto rest = out.begin() + static_cast<int64_t>(in_place ? out.size() - 8 : count + 1);
    EXPECT_EQ(std::count(rest, out.end(), kGuard), out.end() - rest);
    EXPECT_EQ(out[0], kGuard);
    out.erase(out.begin());
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
    if (kind == kComplex)
        return run_plan(Fft<T>::alloc_c2c(length), in, 2 * n, inverse, scaled, in_place);
    const size_t count = n / 2 * 2 + (inverse ? 0 : 2);
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
