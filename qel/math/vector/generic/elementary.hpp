// Exponential, logarithm and logistic function: branch-free arithmetic for loops to vectorise.
//
// Nothing but IEEE 754 additions, multiplications, divisions and integer operations, in a fixed
// order: results are the same on every processor. float serves float32 and Q12, double serves Q20.
// The polynomials come from Remez's exchange algorithm (relative error, 200-bit arithmetic).
//
// Everything is written over a type R of real numbers. A vector variant may bring one of its own,
// which holds several floats in a register.
#pragma once

#include <bit>
#include <cstdint>
#include <limits>

#include "qel/math/simd/widest.hpp"

namespace qel::vector {

template <class R>
struct Real;

template <>
struct Real<float> {
    using Bits = uint32_t;
    static constexpr int kFraction = 23;  // bits behind the leading one
    static constexpr uint32_t kBias = 127;
    static constexpr float kExpLimit = 104.0f;  // e^-104 rounds to 0, e^104 to infinity
    QEL_KERNEL static float of_signed(uint32_t bits) {
        return static_cast<float>(static_cast<int32_t>(bits));
    }
};

template <>
struct Real<double> {
    using Bits = uint64_t;
    static constexpr int kFraction = 52;
    static constexpr uint64_t kBias = 1023;
    static constexpr double kExpLimit = 700.0;  // far outside Q20, and all powers stay normal
};

template <class R>
using Bits = typename Real<R>::Bits;

// `value` if `condition` holds, else 0: a mask, where a conditional could become a branch.
template <class R>
QEL_KERNEL R keep_if(bool condition, R value) {
    return std::bit_cast<R>(std::bit_cast<Bits<R>>(value) & (Bits<R>{0} - Bits<R>{condition}));
}

template <class R>
QEL_KERNEL R select(bool condition, R yes, R no) {
    return keep_if(condition, yes) + keep_if(!condition, no);
}

// The smaller and the larger; `b` if it is NaN. Single instructions on x86.
template <class R>
QEL_KERNEL R min_of(R a, R b) {
    return a < b ? a : b;
}
template <class R>
QEL_KERNEL R max_of(R a, R b) {
    return a > b ? a : b;
}

// The polynomial of `x` with these coefficients, highest power first.
template <class R, class... Rest>
QEL_KERNEL R polynomial(R x, double first, Rest... rest) {
    R value = static_cast<R>(first);
    ((value = value * x + static_cast<R>(rest)), ...);
    return value;
}

// ln 2 in two parts; multiples of the first by an exponent are exact.
inline constexpr double kLn2High = 0.693359375;
inline constexpr double kLn2Low = -2.1219444005469058e-4;

/// e^x and 1 / (1 + e^-x).
///
/// Cody and Waite, "Software Manual for the Elementary Functions", 1980: x = k ln 2 + r with whole
/// k and |r| <= ln 2 / 2, then e^x = 2^k (1 + r + r^2 Q(r)). Adding 1.5 * 2^23 (2^52 for double)
/// rounds x / ln 2 to k in the low bits of the sum. 2^k is applied as two powers of about k / 2,
/// which reach the subnormals, with a single rounding, and infinity.
template <class R>
class Exp {
  public:
    /// e^(x + rest); `rest` holds what rounding took from x.
    QEL_KERNEL R operator()(R x, R rest = 0) const {
        const Parts e = split(x, rest);
        const R half = std::bit_cast<R>(e.half << Real<R>::kFraction);
        const R other_half = std::bit_cast<R>(e.other_half << Real<R>::kFraction);
        return (e.fraction + 1) * half * other_half;
    }

    /// 1 / (1 + e^-x) as w / (w + w e^-x), where w = 2^-(k/2) keeps both tails in range. Powers of
    /// two are added first, which hardly ever rounds.
    QEL_KERNEL R sigmoid(R x) const {
        const Parts e = split(-x, 0);
        const R half = std::bit_cast<R>(e.half << Real<R>::kFraction);
        const R w = std::bit_cast<R>((2 * Real<R>::kBias - e.other_half) << Real<R>::kFraction);
        return w / ((w + half) + e.fraction * half);
    }

    /// e^(a - b) to full accuracy: the difference's rounding error (Knuth, "The Art of Computer
    /// Programming", vol. 2, 4.2.2) goes into the exponent too, unless the power is 0 anyway.
    QEL_KERNEL R of_difference(R a, R b) const {
        const R difference = a - b;
        const R shift = difference - a;
        const R error = (a - (difference - shift)) - (b + shift);
        return (*this)(difference, keep_if(difference > -limit_, error));
    }

  private:
    struct Parts {
        R fraction;                // e^r - 1
        Bits<R> half, other_half;  // biased exponents, sum k + 2 bias; garbage above them
    };

    QEL_KERNEL Parts split(R x, R rest) const {
        const R kRound = static_cast<R>(uint64_t{3} << (Real<R>::kFraction - 1)) +
                         static_cast<R>(2 * Real<R>::kBias);
        x = max_of(-limit_, min_of(limit_, x));
        const R rounded = x * static_cast<R>(1.4426950408889634) + kRound;
        const R k = rounded - kRound;
        const R r = (x - k * static_cast<R>(kLn2High)) - (k * static_cast<R>(kLn2Low) - rest);
        const Bits<R> biased = std::bit_cast<Bits<R>>(rounded);
        return {r * r * quadratic_on(r) + r, biased >> 1, biased - (biased >> 1)};
    }

    /// Q(r) = (e^r - 1 - r) / r^2; e^r is then within 2^-28.3 (float), 2^-39.7 (double: Q20
    /// needs 31 bits).
    QEL_KERNEL static R quadratic_on(R r) {
        if constexpr (Real<R>::kFraction == Real<float>::kFraction) {
            return polynomial<R>(r, 0.0013814575851884318, 0.0083687270411331444,
                                 0.041668389060091252, 0.16666520548044611, 0.49999993442065514);
        } else {
            return polynomial<R>(r, 2.4708239435132610e-5, 1.9908971930426360e-4,
                                 0.0013889197440432432, 0.0083332817578933765, 0.041666664401698531,
                                 0.16666666784613763, 0.50000000004276568);
        }
    }

    // Read from memory once per loop: with the value known, the compiler makes a branch of x beyond
    // the limit, and the loop no longer vectorises.
    static inline const volatile auto kLimit = Real<R>::kExpLimit;
    R limit_ = kLimit;
};

/// ln x for a positive normal x; any other gives some finite value. `more_twos` is added to the
/// power of two found in x.
///
/// x = 2^k m with sqrt(1/2) <= m < sqrt(2), f = m - 1, s = f / (2 + f): ln m = 2 artanh s, with
/// artanh's odd series after 2s as s^3 R(s^2), within 2^-30. Summed as f - (f^2/2 - s (f^2/2 +
/// s^2 R)), whose largest term is exact.
template <class R>
QEL_KERNEL R log_of_normal(R x, R more_twos = 0) {
    using B = Bits<R>;
    constexpr int kFraction = Real<R>::kFraction;
    const B kSqrtHalf = std::bit_cast<B>(static_cast<R>(0.70710678118654752));
    const B bits = std::bit_cast<B>(x);
    const B k_bits = (bits - kSqrtHalf) >> kFraction << kFraction;
    R k;
    if constexpr (kFraction == Real<float>::kFraction) {
        k = Real<R>::of_signed(k_bits) * static_cast<R>(0x1p-23);
    } else {  // SSE2 converts no 64-bit integers: k + bias becomes the low bits of 2^52
        const B biased = (k_bits + (Real<R>::kBias << kFraction)) >> kFraction;
        k = std::bit_cast<R>(biased | std::bit_cast<B>(static_cast<R>(0x1p52))) -
            static_cast<R>(0x1p52 + Real<R>::kBias);
    }
    k = k + more_twos;
    const R f = std::bit_cast<R>(bits - k_bits) - 1;
    const R s = f / (2 + f);
    const R s2 = s * s;
    const R series =
        s2 * polynomial<R>(s2, 0.29870942221131775, 0.39977573855079815, 0.66666776086498857);
    const R half_f2 = static_cast<R>(0.5) * f * f;
    return (f - (half_f2 - (s * (half_f2 + series) + k * static_cast<R>(kLn2Low)))) +
           k * static_cast<R>(kLn2High);
}

/// ln x with C's answers outside the positive numbers: -infinity for 0, NaN below, infinity and NaN
/// as they are.
QEL_KERNEL float log_of_any(float x) {
    const float infinity = std::numeric_limits<float>::infinity();
    const bool subnormal = x < std::numeric_limits<float>::min();
    const float normal = x * (keep_if(subnormal, 0x1p23f - 1.0f) + 1.0f);
    return log_of_normal(normal, keep_if(subnormal, -23.0f)) + keep_if(!(x < infinity), x) +
           keep_if(x == 0.0f, -infinity) +
           keep_if(x < 0.0f, std::numeric_limits<float>::quiet_NaN());
}

}  // namespace qel::vector
