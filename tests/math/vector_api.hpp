// The vector operations by element type, through the dispatch table, and values to run them on.
#pragma once

#include <bit>
#include <memory>

#include "qel/math/vector/qel_vector.h"
#include "tests/math/fft_api.hpp"

template <class T>
struct Api;

// clang-format off
#define OP(type, name, operation) static constexpr auto& name = qel_vector_##type##_##operation;
#define VECTOR_API(T, type)                                                                       \
    template <>                                                                                   \
    struct Api<T> {                                                                               \
        using Vector = qel_vector_##type;                                                         \
        static constexpr const char* kName = "qel_vector_" #type;                                 \
        OP(type, make, new) OP(type, free, delete) OP(type, bytes, bytes) OP(type, cpy, cpy)      \
        OP(type, data_bytes, data_bytes) OP(type, zero, zero) OP(type, realft, realft)            \
        OP(type, mul, mul) OP(type, sub, sub) OP(type, add, add) OP(type, scale, scale)           \
        OP(type, sum, sum) OP(type, avg, avg) OP(type, sum_c, sum_c) OP(type, avg_c, avg_c)       \
        OP(type, max, max) OP(type, min, min) OP(type, exp, exp) OP(type, log, log)               \
        OP(type, sigmoid, sigmoid) OP(type, softmax, softmax) OP(type, set_nval, set_nval_c)      \
    };
// clang-format on
VECTOR_API(float, float32)
VECTOR_API(int32_t, int32)
VECTOR_API(int16_t, int16)
#undef VECTOR_API
#undef OP

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

/// 1.0 in the format.
template <class T>
constexpr double kOne = std::is_floating_point_v<T> ? 1
                        : sizeof(T) == 4            ? 1 << 20
                                                    : 1 << 12;

/// Arguments of all magnitudes, every 16-bit value and the edges of the range among them.
template <class T>
std::vector<T> arguments() {
    constexpr uint32_t kStep = kFloat<T> ? 9973 : 65521;
    std::vector<T> x = {0, 1, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()};
    if constexpr (kFloat<T>) {
        for (const float edge : {0.0f, 1.0f, INFINITY, NAN, 0x1p-149f}) x.push_back(-edge);
        // Where e^x becomes infinite and where it becomes 0.
        x.insert(x.end(), {0x1.62e42ep+6f, 0x1.62e43p+6f, -0x1.9fe368p+6f, -0x1.9fe36ap+6f});
    }
    for (uint32_t i = 0, bits = 0; bits < ~kStep; bits += kStep, ++i) {
        const auto whole = static_cast<int32_t>(bits) >> i % 31;
        if constexpr (kFloat<T>)
            x.push_back(std::bit_cast<T>(bits));
        else
            x.insert(x.end(), {static_cast<T>(i), static_cast<T>(whole)});
    }
    return x;
}
