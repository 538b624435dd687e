// The transforms by element type, on vectors, through the dispatch table.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "qel/math/fft/qel_fft.h"
#include "tests/support/reference_dft.hpp"

template <class T>
constexpr bool kFloat = std::is_floating_point_v<T>;
using AllTypes = testing::Types<float, int32_t, int16_t>;

template <class T>
constexpr double kFullScale = kFloat<T> ? 1 : -1.0 * std::numeric_limits<T>::min();

/// All up to 140, and some of the longer ones that applications use.
inline std::vector<size_t> lengths() {
    std::vector<size_t> all = {256, 320, 480, 512, 640, 960, 1000, 1009, 1024, 2048};
    for (size_t n = 1; n <= 140; ++n) all.push_back(n);
    return all;
}

template <class T>
struct Fft;

// The third argument is there for the types whose transforms take a scaled flag.
#define FFT_API(T, type, ...)                                                                  \
    template <>                                                                                \
    struct Fft<T> {                                                                            \
        using Point = qel_fft_cpx_##type;                                                      \
        using Plan = qel_fft_cfg_##type;                                                       \
        using RealPlan = qel_fft_r2c_cfg_##type;                                               \
        static constexpr auto& alloc_c2c = qel_fft_alloc_c2c_##type;                           \
        static constexpr auto& alloc_r2c = qel_fft_alloc_r2c_##type;                           \
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

/// A transform of n points, by a plan made for it; complex values are interleaved parts. Float
/// ignores `scaled`. The test fails if more is written, if the plan's tables change or if an area
/// of it is not aligned.
template <class T>
std::vector<T> fft(Kind kind, size_t n, const std::vector<T>& in, bool inverse, bool scaled = false,
                   bool in_place = false) {
    const size_t count = kind == kComplex ? 2 * n : n / 2 * 2 + (inverse ? 0 : 2);
    // Place 0 is left out: the data are aligned to their element only.
    std::vector<T> out(1 + (in_place ? std::max(count, in.size()) : count), T{55}), from(1);
    from.insert(from.end(), in.begin(), in.end());
    if (in_place) std::copy(from.begin(), from.end(), out.begin());
    const std::vector<T> guards(8, out[0] = 77);
    out.insert(out.end(), guards.begin(), guards.end());
    const auto run = [&](auto* plan) {
        const auto tables = [plan] { return std::vector(plan->factors, (int32_t*)plan->buffer); };
        const auto before = tables();
        Fft<T>::run(&out[1], in_place ? &out[1] : from.data() + 1, plan, inverse, scaled);
        EXPECT_EQ(tables(), before);
        for (const void* area : {(void*)plan->factors, (void*)plan->twiddles, (void*)plan->buffer})
            EXPECT_EQ(reinterpret_cast<uintptr_t>(area) % 8, 0u);
        Fft<T>::destroy(plan);
    };
    const auto length = static_cast<int32_t>(n);
    kind == kComplex ? run(Fft<T>::alloc_c2c(length)) : run(Fft<T>::alloc_r2c(length));
    EXPECT_EQ(std::vector(out.end() - 8, out.end()), guards);
    EXPECT_EQ(out[0], guards[0]);
    return {out.begin() + 1, out.begin() + 1 + static_cast<int64_t>(count)};
}

/// Interleaved parts, or reals, as complex values.
template <class T>
Spectrum values(Kind kind, const std::vector<T>& x) {
    if (kind == kReal) return {x.begin(), x.end()};
    Spectrum out;
    for (size_t i = 0; i < x.size(); i += 2) out.emplace_back(x[i], x[i + 1]);
    return out;
}
