// What the kernels are made of.
#pragma once

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "qel/spu/aec/kernels/kernels.hpp"

namespace qel::kernels {

/// Where partition `j` starts, of bins of `parts` floats.
QEL_KERNEL size_t partition_at(const Partitions& size, int32_t j, size_t parts) {
    return parts * static_cast<size_t>(j) * static_cast<size_t>(size.block);
}

QEL_KERNEL float power_of(const float* spec, int32_t k) {
    return spec[2 * k] * spec[2 * k] + spec[2 * k + 1] * spec[2 * k + 1];
}

/// Calls step(count, first, last, j) for partitions j and on, `count` of them, at most four: a
/// constant, as is whether they are the first ones and whether they are the last.
template <class Step>
QEL_KERNEL void by_four(int32_t taps, Step step) {
    int32_t j = 0;
    const auto some = [&](auto count, auto last) QEL_INLINED {
        if (j == 0) {
            step(count, std::true_type{}, last, j);
        } else {
            step(count, std::false_type{}, last, j);
        }
        j += count;
    };
    while (taps - j > 4) some(std::integral_constant<int, 4>{}, std::false_type{});
    switch (taps - j) {
        case 1: return some(std::integral_constant<int, 1>{}, std::true_type{});
        case 2: return some(std::integral_constant<int, 2>{}, std::true_type{});
        case 3: return some(std::integral_constant<int, 3>{}, std::true_type{});
        case 4: return some(std::integral_constant<int, 4>{}, std::true_type{});
    }
}

#if defined(__arm__) && !defined(QEL_SCALAR)
/// One over the square root of x >= 0, within 8e-7 of it, by Newton's method: a root instruction
/// takes one number at a time, and dozens of cycles. The constants, searched for, spread the errors
/// of guess and steps evenly; those of the method itself take a third step to come as near.
QEL_KERNEL float inverse_root(float x) {
    const float half = 0.5f * x;
    float y = std::bit_cast<float>(0x5f376ee0 - (std::bit_cast<int32_t>(x) >> 1));
    y *= 1.50088763f - half * y * y;
    return y * (1.5000006f - half * y * y);
}
QEL_KERNEL float root(float x) { return x * inverse_root(x); }
QEL_KERNEL float over_root(float a, float x) { return a * inverse_root(x); }
#else
QEL_KERNEL float root(float x) { return std::sqrt(x); }
QEL_KERNEL float over_root(float a, float x) { return a / std::sqrt(x); }
#endif

}  // namespace qel::kernels
