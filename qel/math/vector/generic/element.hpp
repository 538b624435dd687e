// The three element types: their vectors, their arithmetic and where they report from.
#pragma once

#include <cstdint>
#include <type_traits>

#include "qel/math/simd/widest.hpp"
#include "qel/math/vector/qel_vector.h"

namespace qel::vector {

/// The lines that differing lengths are reported from, whichever variant finds them.
struct MismatchLines {
    int32_t mul, sub, add;
};

template <class T>
struct Element;

template <>
struct Element<float> {
    using Vector = qel_vector_float32;
    using Real = float;  // in which exp, log, softmax and sigmoid compute
    using Sum = float;
    static constexpr char kSource[] = "qel/math/vector/generic/qel_vector_float32";
    static constexpr MismatchLines kLines = {.mul = 69, .sub = 83, .add = 97};

    QEL_KERNEL static float add(float a, float b) { return a + b; }
    QEL_KERNEL static float sub(float a, float b) { return a - b; }
    QEL_KERNEL static float mul(float a, float b) { return a * b; }
    static float average(float sum, uint32_t n) { return sum / static_cast<float>(n); }
    QEL_KERNEL static float to_real(float x) { return x; }
    template <class R>
    QEL_KERNEL static float from_real(R x) {
        return static_cast<float>(x);
    }
};

/// Two's complement with `fraction` bits behind the point; Wide holds any product.
template <class T, class Wide, class R, int fraction>
struct FixedPoint {
    using Real = R;
    using Sum = std::make_unsigned_t<T>;
    static constexpr double kOne = Wide{1} << fraction;
    static constexpr MismatchLines kLines = {.mul = 82, .sub = 96, .add = 110};

    QEL_KERNEL static T add(T a, T b) { return static_cast<T>(Sum(a) + Sum(b)); }
    QEL_KERNEL static T sub(T a, T b) { return static_cast<T>(Sum(a) - Sum(b)); }
    QEL_KERNEL static T mul(T a, T b) { return static_cast<T>((Wide{a} * b) >> fraction); }
    QEL_KERNEL static R to_real(T x) { return static_cast<R>(x) * static_cast<R>(1 / kOne); }
    /// Truncates; the value must fit.
    template <class Any>
    QEL_KERNEL static T from_real(Any x) {
        return static_cast<T>(static_cast<int32_t>(x * static_cast<Any>(kOne)));
    }
};

template <>
struct Element<int32_t> : FixedPoint<int32_t, int64_t, double, 20> {
    using Vector = qel_vector_int32;
    static constexpr char kSource[] = "qel/math/vector/generic/qel_vector_int32";

    /// The count is in Q20 too, in 32 bits: it wraps from 2048 on.
    static int32_t average(int32_t sum, uint32_t n) {
        const auto divisor = static_cast<int32_t>(n << 20);
        return divisor == 0 ? 0 : static_cast<int32_t>(sum * (int64_t{1} << 20) / divisor);
    }
};

template <>
struct Element<int16_t> : FixedPoint<int16_t, int32_t, float, 12> {
    using Vector = qel_vector_int16;
    static constexpr char kSource[] = "qel/math/vector/generic/qel_vector_int16";

    /// The count is no Q12 number, unlike the sum: 4096 times the mean.
    static int16_t average(int16_t sum, uint32_t n) {
        const auto divisor = static_cast<int16_t>(n);
        return divisor == 0 ? int16_t{0} : static_cast<int16_t>(sum * 4096 / divisor);
    }
};

}  // namespace qel::vector
