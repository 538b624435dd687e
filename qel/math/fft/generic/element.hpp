// Arithmetic of the three element types: what a value becomes inside a butterfly, and how it is
// narrowed when it leaves one.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numbers>
#include <type_traits>

#include "qel/math/fft/qel_fft.h"
#include "qel/math/simd/widest.hpp"

namespace qel::fft {

/// A complex value inside a butterfly.
template <class W>
struct Complex {
    W r, i;
};

template <class W>
QEL_KERNEL Complex<W> operator+(Complex<W> a, Complex<W> b) {
    return {a.r + b.r, a.i + b.i};
}
template <class W>
QEL_KERNEL Complex<W> operator-(Complex<W> a, Complex<W> b) {
    return {a.r - b.r, a.i - b.i};
}
template <class W>
QEL_KERNEL Complex<W> operator-(Complex<W> a) {
    return {-a.r, -a.i};
}
template <class W>
QEL_KERNEL Complex<W> conj(Complex<W> a) {
    return {a.r, -a.i};
}
/// a + conj(b) and a - conj(b), without a negation.
template <class W>
QEL_KERNEL Complex<W> plus_conj(Complex<W> a, Complex<W> b) {
    return {a.r + b.r, a.i - b.i};
}
template <class W>
QEL_KERNEL Complex<W> minus_conj(Complex<W> a, Complex<W> b) {
    return {a.r - b.r, a.i + b.i};
}
/// a plus b turned by a quarter: times -i on the way forward, times i on the way back.
template <bool kInverse, class W>
QEL_KERNEL Complex<W> plus_turned(Complex<W> a, Complex<W> b) {
    if constexpr (kInverse) return {a.r - b.i, a.i + b.r};
    return {a.r + b.i, a.i - b.r};
}
template <bool kInverse, class W>
QEL_KERNEL Complex<W> minus_turned(Complex<W> a, Complex<W> b) {
    return plus_turned<!kInverse>(a, b);
}

/// How many values one step of a pass handles.
template <int kCount>
using Lanes = std::integral_constant<int, kCount>;

/// Loads and stores of one value; element types with vector forms add overloads for their kLanes.
/// The `_back` forms run from `at` to lower addresses, gather() and scatter() leave `step` from
/// lane to lane, spread() fills all lanes with one value.
template <class P, class W>
struct Storage {
    using Point = P;  // as stored
    using Wide = W;   // a part of one inside a butterfly
    static constexpr int kLanes = 1;

    static Complex<W> load(Lanes<1>, const P* at) { return {at->r, at->i}; }
    static Complex<W> load_back(Lanes<1>, const P* at) { return {at->r, at->i}; }

    template <class C>
    static void store(Lanes<1>, P* at, C a) {
        *at = {a.r, a.i};
    }
    template <class C>
    static void store_back(Lanes<1>, P* at, C a) {
        *at = {a.r, a.i};
    }
    template <class C>
    static void scatter(Lanes<1>, P* at, int32_t, C a) {
        *at = {a.r, a.i};
    }
};

/// Element<T> is the arithmetic of one type. guard() and the products of loaded values give the
/// scale that butterflies work in and that the `leave` functors undo. Tables hold the twiddles of
/// the forward direction; products on the way back take their conjugates. Scalar is the type that
/// handles what is too short for the lanes.
template <class T>
struct Element;

template <>
struct Element<float> : Storage<qel_fft_cpx_float32, float> {
    using Scalar = Element;
    using Sum = float;  // of any number of products

    static constexpr float kHalf = 0.5f, kSin60 = 0.8660254f;
    static constexpr float kCos72 = 0.309017f, kSin72 = 0.95105654f;
    static constexpr float kCos144 = -0.809017f, kSin144 = 0.58778524f;
    // The mixed-radix engine keeps its coarser cosine: callers compare results to the last bit.
    static constexpr float kCos45 = 0.70710677f, kMixedCos45 = 0.70711f;

    static void* line(void* twiddles, int32_t m, int32_t fstride, int32_t p, int32_t nfft) {
        return qel_fft_generate_twiddles_line_float32(twiddles, m, fstride, p, nfft);
    }

    template <class W>
    QEL_KERNEL static Complex<W> guard(Complex<W> a) {
        return a;
    }
    template <bool kInverse, class W>
    QEL_KERNEL static Complex<W> mul(Complex<W> a, Complex<W> w) {
        if constexpr (kInverse) w = conj(w);
        return {a.r * w.r - a.i * w.i, a.r * w.i + a.i * w.r};
    }
    /// (a - conj(b)) * w
    template <bool kInverse, class C>
    QEL_KERNEL static C mul_mirrored(C a, C b, C w) {
        return mul<kInverse>(minus_conj(a, b), w);
    }
    template <class W>
    QEL_KERNEL static Complex<W> scale(Complex<W> a, float factor) {
        return {a.r * factor, a.i * factor};
    }

    struct Keep {
        template <class W>
        QEL_KERNEL Complex<W> operator()(Complex<W> a) const {
            return a;
        }
    };
    struct Times {
        float factor;
        template <class W>
        QEL_KERNEL Complex<W> operator()(Complex<W> a) const {
            return scale(a, factor);
        }
    };

    /// The first stage of an n-point transform carries the whole 1/n.
    template <bool kScaled, int kRadix>
    QEL_KERNEL static auto leave_first(int32_t n, int32_t) {
        if constexpr (kScaled) {
            return Times{1.0f / static_cast<float>(n)};
        } else {
            return Keep{};
        }
    }
    template <bool kScaled, int kRadix>
    static Keep leave_later(bool) {
        return {};
    }
    /// The split of a real transform.
    template <bool kScaled, int kHalvings>
    static Times leave_split() {
        return {1.0f / (1 << kHalvings)};
    }
};

/// What the two fixed-point types share. Inside a butterfly a value carries kGuardBits fraction
/// bits, so that it is rounded once, on its way out. W holds any butterfly: 8 inputs of at most
/// sqrt(2) full scale take 3.5 bits above T's and the guard.
///
/// Scaled stages divide by their radix. The first also halves and the last doubles again: what is
/// in between can reach sqrt(2) times full scale even where the result fits.
template <class T, class W, class P, int kGuard>
struct FixedPoint : Storage<P, W> {
    using Scalar = Element<T>;
    using Sum = int64_t;

    static constexpr int kGuardBits = kGuard;
    static constexpr int kTwiddleBits = std::numeric_limits<T>::digits;

    static constexpr int32_t q31(double x) { return static_cast<int32_t>(x * 2147483648.0); }
    static constexpr int32_t kHalf = q31(0.5), kSin60 = q31(0.86602540378443865);
    static constexpr int32_t kCos72 = q31(0.30901699437494742), kSin72 = q31(0.95105651629515357);
    static constexpr int32_t kCos144 = q31(-0.80901699437494742);
    static constexpr int32_t kSin144 = q31(0.58778525229247313);
    static constexpr int32_t kCos45 = q31(0.70710678118654752), kMixedCos45 = kCos45;

    static Complex<W> guard(Complex<W> a) {
        return {a.r * (W{1} << kGuardBits), a.i * (W{1} << kGuardBits)};
    }
    template <bool kInverse>
    static Complex<W> mul(Complex<W> a, Complex<W> w) {
        if constexpr (kInverse) w = conj(w);
        return {(a.r * w.r - a.i * w.i) >> (kTwiddleBits - kGuardBits),
                (a.r * w.i + a.i * w.r) >> (kTwiddleBits - kGuardBits)};
    }
    /// (a - conj(b)) * w; the difference alone would leave no room for the product.
    template <bool kInverse>
    static Complex<W> mul_mirrored(Complex<W> a, Complex<W> b, Complex<W> w) {
        return mul<kInverse>(a, w) - mul<kInverse>(conj(b), w);
    }
    /// Times a Q31 constant, in two halves: the product may take 74 bits.
    static W scale(W a, int32_t factor) {
        const int64_t high = a >> 16, low = a & 0xFFFF;
        return static_cast<W>(((high * factor) >> 15) + ((low * factor) >> 31));
    }
    static Complex<W> scale(Complex<W> a, int32_t factor) {
        return {scale(a.r, factor), scale(a.i, factor)};
    }

    template <class V>
    static V round_shift(V a, int bits) {
        return (a + (V{1} << bits >> 1)) >> bits;
    }
    template <class V>
    static T saturate(V a) {
        constexpr V kMin = std::numeric_limits<T>::min(), kMax = std::numeric_limits<T>::max();
        const V floored = a < kMin ? kMin : a;  // values, not std::clamp's references: no branches
        return static_cast<T>(floored > kMax ? kMax : floored);
    }

    struct Wrap {
        int bits;
        template <class V>
        Complex<T> operator()(Complex<V> a) const {
            return {static_cast<T>(round_shift(a.r, bits)), static_cast<T>(round_shift(a.i, bits))};
        }
    };
    /// Divides by radix * 2^bits; kRadix is 0 when only `radix` knows it.
    template <int kRadix>
    struct Divide {
        int32_t radix;
        int bits;
        template <class V>
        T divide(V a) const {
            const V divisor = kRadix != 0 ? kRadix : radix;
            const V floored = (a + (divisor << bits >> 1)) >> bits;
            if constexpr (kRadix != 0 && (kRadix & (kRadix - 1)) == 0) {
                return saturate(floored >> std::countr_zero(static_cast<unsigned>(kRadix)));
            }
            const V sign = floored >> std::numeric_limits<V>::digits;  // 0 or all ones
            return saturate(((floored ^ sign) / divisor) ^ sign);
        }
        template <class V>
        Complex<T> operator()(Complex<V> a) const {
            return {divide(a.r), divide(a.i)};
        }
    };
    template <bool kScaled, int kRadix>
    static auto leave(int32_t radix, int bits) {
        if constexpr (kScaled) {
            return Divide<kRadix>{radix, bits};
        } else {
            return Wrap{kGuardBits};
        }
    }

    template <bool kScaled, int kRadix>
    static auto leave_first(int32_t n, int32_t radix) {
        return leave<kScaled, kRadix>(radix, n == radix ? kGuardBits : kGuardBits + 1);
    }
    template <bool kScaled, int kRadix>
    static auto leave_later(bool last) {
        return leave<kScaled, kRadix>(kRadix, last ? kGuardBits - 1 : kGuardBits);
    }
    template <bool kScaled, int kHalvings>
    static auto leave_split() {
        if constexpr (kScaled) {
            return Divide<1>{1, kGuardBits + kHalvings};
        } else {
            return Wrap{kGuardBits + kHalvings};
        }
    }

    /// e^(-2 pi i turns), rounded to nearest; 1.0 becomes the largest value.
    static P unit_point(double turns) {
        const double angle = -2.0 * std::numbers::pi * turns,
                     one = -1.0 * std::numeric_limits<T>::min();
        return {saturate(std::llround(std::cos(angle) * one)),
                saturate(std::llround(std::sin(angle) * one))};
    }
    static void* line(void* twiddles, int32_t m, int32_t fstride, int32_t p, int32_t nfft) {
        auto* point = static_cast<P*>(twiddles);
        for (int32_t k = 1; k < p; ++k) {
            for (int32_t j = 0; j < m; ++j) {
                *point++ = unit_point(static_cast<double>(k) * j * fstride / nfft);
            }
        }
        return point;
    }
};

template <>
struct Element<int32_t> : FixedPoint<int32_t, int64_t, qel_fft_cpx_int32, 8> {};

template <>
struct Element<int16_t> : FixedPoint<int16_t, int32_t, qel_fft_cpx_int16, 12> {};

}  // namespace qel::fft
