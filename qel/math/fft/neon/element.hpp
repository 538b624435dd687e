// The element types with NEON lanes, four or two, real and imaginary parts apart. What each does to
// a lane is what its base does to a single value.
#pragma once

#include <arm_neon.h>

#include <bit>
#include <type_traits>

#include "qel/math/fft/generic/element.hpp"

namespace qel::fft {

/// A register with the operators that butterflies use. GCC takes its own float operators to pieces,
/// since they may flush.
template <class V>
struct Simd {
    V v;
};

QEL_KERNEL Simd<float32x4_t> operator+(Simd<float32x4_t> a, Simd<float32x4_t> b) {
    return {vaddq_f32(a.v, b.v)};
}
QEL_KERNEL Simd<float32x4_t> operator-(Simd<float32x4_t> a, Simd<float32x4_t> b) {
    return {vsubq_f32(a.v, b.v)};
}
QEL_KERNEL Simd<float32x4_t> operator-(Simd<float32x4_t> a) {  // vnegq_f32 is taken to pieces too
    const uint32x4_t sign = vdupq_n_u32(1u << 31);
    return {vreinterpretq_f32_u32(veorq_u32(vreinterpretq_u32_f32(a.v), sign))};
}
/// vmulq_n_f32 would take `b` to its register anew in each round of a loop.
QEL_KERNEL Simd<float32x4_t> operator*(Simd<float32x4_t> a, float b) {
    return {vmulq_f32(a.v, vdupq_n_f32(b))};
}

template <class V>
inline Simd<V> operator+(Simd<V> a, Simd<V> b) {
    return {a.v + b.v};
}
template <class V>
inline Simd<V> operator-(Simd<V> a, Simd<V> b) {
    return {a.v - b.v};
}
template <class V>
inline Simd<V> operator-(Simd<V> a) {
    return {V{} - a.v};
}

template <class T>
struct NeonElement;

/// Float results equal the portable ones but for subnormals: products and sums are rounded apart.
template <>
struct NeonElement<float> : Element<float> {
    using Wide = Simd<float32x4_t>;
    using All = Lanes<4>;
    static constexpr int kLanes = All::value;
    static constexpr bool kQuick = true;

    using Element::load, Element::load_back, Element::mul;
    using Element::scatter, Element::store, Element::store_back;

    QEL_KERNEL static Complex<Wide> load(All, const Point* at) {
        const float32x4x2_t a = vld2q_f32(&at->r);
        return {a.val[0], a.val[1]};
    }
    QEL_KERNEL static void store(All, Point* at, Complex<Wide> a) {
        vst2q_f32(&at->r, {a.r.v, a.i.v});
    }
    QEL_KERNEL static Wide reverse(Wide a) {
        const float32x4_t swapped = vrev64q_f32(a.v);
        return {vextq_f32(swapped, swapped, 2)};
    }
    QEL_KERNEL static Complex<Wide> load_back(All lanes, const Point* at) {
        const Complex<Wide> a = load(lanes, at - 3);
        return {reverse(a.r), reverse(a.i)};
    }
    QEL_KERNEL static void store_back(All lanes, Point* at, Complex<Wide> a) {
        store(lanes, at - 3, {reverse(a.r), reverse(a.i)});
    }
    QEL_KERNEL static Complex<Wide> gather(All, const Point* at, int32_t step) {
        float32x4x2_t a = vld2q_f32(&at->r);  // its lane 0 stays
        a = vld2q_lane_f32(&at[step].r, a, 1);
        a = vld2q_lane_f32(&at[2 * step].r, a, 2);
        a = vld2q_lane_f32(&at[3 * step].r, a, 3);
        return {a.val[0], a.val[1]};
    }
    QEL_KERNEL static void scatter(All, Point* at, int32_t step, Complex<Wide> a) {
        asm("" : "+r"(step));  // a step in a register is added by the store itself
        const float32x4x2_t points = {a.r.v, a.i.v};
        vst2q_lane_f32(&at->r, points, 0);
        vst2q_lane_f32(&at[step].r, points, 1);
        vst2q_lane_f32(&at[2 * step].r, points, 2);
        vst2q_lane_f32(&at[3 * step].r, points, 3);
    }
    QEL_KERNEL static float32x2_t spread(All, const Point* at) { return vld1_f32(&at->r); }

    template <bool kInverse>
    QEL_KERNEL static Complex<Wide> mul(Complex<Wide> a, Complex<Wide> w) {
        const float32x4_t r = vmulq_f32(a.r.v, w.r.v), i = vmulq_f32(a.i.v, w.r.v);
        if constexpr (kInverse) return {vmlaq_f32(r, a.i.v, w.i.v), vmlsq_f32(i, a.r.v, w.i.v)};
        return {vmlsq_f32(r, a.i.v, w.i.v), vmlaq_f32(i, a.r.v, w.i.v)};
    }
    template <bool kInverse>
    QEL_KERNEL static Complex<Wide> mul(Complex<Wide> a, float32x2_t w) {
        const float32x4_t r = vmulq_lane_f32(a.r.v, w, 0), i = vmulq_lane_f32(a.i.v, w, 0);
        if constexpr (kInverse) {
            return {vmlaq_lane_f32(r, a.i.v, w, 1), vmlsq_lane_f32(i, a.r.v, w, 1)};
        }
        return {vmlsq_lane_f32(r, a.i.v, w, 1), vmlaq_lane_f32(i, a.r.v, w, 1)};
    }
    template <bool kInverse, class C>
    QEL_KERNEL static C mul_mirrored(C a, C b, C w) {
        return mul<kInverse>(minus_conj(a, b), w);
    }
};

/// Registers of four 16-bit values, 32 bits wide inside a butterfly.
struct Int16Lanes {
    using Narrow = int16x4_t;
    using Wide = int32x4_t;

    static int16x4x2_t load(const int16_t* at) { return vld2_s16(at); }
    static void store(int16_t* at, int16x4x2_t a) { vst2_s16(at, a); }
    static int16x4x2_t gather(const int16_t* at, int32_t step) {
        int16x4x2_t a = vld2_s16(at);  // its lane 0 stays
        a = vld2_lane_s16(at + step, a, 1);
        a = vld2_lane_s16(at + 2 * step, a, 2);
        return vld2_lane_s16(at + 3 * step, a, 3);
    }
    static void scatter(int16_t* at, int32_t step, int16x4x2_t a) {
        vst2_lane_s16(at, a, 0);
        vst2_lane_s16(at + step, a, 1);
        vst2_lane_s16(at + 2 * step, a, 2);
        vst2_lane_s16(at + 3 * step, a, 3);
    }
    static Narrow spread(int16_t a) { return vdup_n_s16(a); }
    static Narrow reverse(Narrow a) { return vrev64_s16(a); }

    template <int kBits>
    static Wide shift_up(Narrow a) {
        return vshll_n_s16(a, kBits);
    }
    template <int kBits>
    static Wide shift_down(Wide a) {
        return vshrq_n_s32(a, kBits);
    }
    static Wide mul(Narrow a, Narrow b) { return vmull_s16(a, b); }
    static Wide mul_add(Wide sum, Narrow a, Narrow b) { return vmlal_s16(sum, a, b); }
    static Wide mul_sub(Wide sum, Narrow a, Narrow b) { return vmlsl_s16(sum, a, b); }
    static Wide scale(Wide a, int32_t factor) {  // vqdmulh gives bits 31 and up of a product
        const Wide low = vdupq_n_s32(0xFFFF);
        return vqdmulhq_n_s32(vbicq_s32(a, low), factor) +
               vqdmulhq_n_s32(vandq_s32(a, low), factor);
    }

    static Wide shift_down(Wide a, int bits) { return vshlq_s32(a, vdupq_n_s32(-bits)); }
    static Wide round_shift(Wide a, int bits) { return vrshlq_s32(a, vdupq_n_s32(-bits)); }
    static Wide spread_wide(int32_t a) { return vdupq_n_s32(a); }
    static Wide sign(Wide a) { return vshrq_n_s32(a, 31); }
    template <int kDivisor>
    static Wide divide(Wide a) {
        constexpr int kShift = std::bit_width(kDivisor * 1u) - 1;
        constexpr int32_t kReciprocal = (int64_t{1} << (31 + kShift)) / kDivisor + 1;
        return vshrq_n_s32(vqdmulhq_n_s32(a, kReciprocal), kShift);
    }
    static Narrow narrow(Wide a) { return vmovn_s32(a); }
    static Narrow saturate(Wide a) { return vqmovn_s32(a); }
};

/// Registers of two 32-bit values, 64 bits wide inside a butterfly.
struct Int32Lanes {
    using Narrow = int32x2_t;
    using Wide = int64x2_t;

    static int32x2x2_t load(const int32_t* at) { return vld2_s32(at); }
    static void store(int32_t* at, int32x2x2_t a) { vst2_s32(at, a); }
    static int32x2x2_t gather(const int32_t* at, int32_t step) {
        return vld2_lane_s32(at + step, vld2_s32(at), 1);
    }
    static void scatter(int32_t* at, int32_t step, int32x2x2_t a) {
        vst2_lane_s32(at, a, 0);
        vst2_lane_s32(at + step, a, 1);
    }
    static Narrow spread(int32_t a) { return vdup_n_s32(a); }
    static Narrow reverse(Narrow a) { return vrev64_s32(a); }

    template <int kBits>
    static Wide shift_up(Narrow a) {
        return vshll_n_s32(a, kBits);
    }
    template <int kBits>
    static Wide shift_down(Wide a) {
        return vshrq_n_s64(a, kBits);
    }
    static Wide mul(Narrow a, Narrow b) { return vmull_s32(a, b); }
    static Wide mul_add(Wide sum, Narrow a, Narrow b) { return vmlal_s32(sum, a, b); }
    static Wide mul_sub(Wide sum, Narrow a, Narrow b) { return vmlsl_s32(sum, a, b); }
    static Wide scale(Wide a, int32_t factor) {
        const Narrow high = vshrn_n_s64(a, 16), low = vand_s32(vmovn_s64(a), vdup_n_s32(0xFFFF));
        return vshrq_n_s64(vmull_n_s32(high, factor), 15) +
               vshrq_n_s64(vmull_n_s32(low, factor), 31);
    }

    static Wide shift_down(Wide a, int bits) { return vshlq_s64(a, vdupq_n_s64(-bits)); }
    static Wide round_shift(Wide a, int bits) { return vrshlq_s64(a, vdupq_n_s64(-bits)); }
    static Wide spread_wide(int64_t a) { return vdupq_n_s64(a); }
    static Wide sign(Wide a) { return vshrq_n_s64(a, 63); }
    template <uint32_t kDivisor>
    static uint32x2_t divide(uint32x2_t a) {
        constexpr int kShift = std::bit_width(kDivisor) - 1;
        constexpr uint32_t kReciprocal = (uint64_t{1} << (32 + kShift)) / kDivisor + 1;
        return vshr_n_u32(vshrn_n_u64(vmull_n_u32(a, kReciprocal), 32), kShift);
    }
    /// In two digits: what a radix-5 butterfly leaves stays below 2^36.
    template <int kDivisor>
    static Wide divide(Wide a) {
        const uint64x2_t whole = vreinterpretq_u64_s64(a);
        const uint32x2_t high = divide<kDivisor * 1u>(vshrn_n_u64(whole, 4));
        const uint32x2_t rest = vmls_n_u32(vmovn_u64(whole), high, 16 * kDivisor);
        return vreinterpretq_s64_u64(vaddw_u32(vshll_n_u32(high, 4), divide<kDivisor * 1u>(rest)));
    }
    static Narrow narrow(Wide a) { return vmovn_s64(a); }
    static Narrow saturate(Wide a) { return vqmovn_s64(a); }
};

/// The two fixed-point types. L names the registers and does what differs: Narrow holds stored
/// values, Wide those inside a butterfly.
template <class T, class L>
struct NeonFixed : Element<T> {
    using Base = Element<T>;
    using Point = typename Base::Point;
    using Narrow = Simd<typename L::Narrow>;
    using Wide = Simd<typename L::Wide>;
    using All = Lanes<sizeof(Narrow) / sizeof(T)>;
    static constexpr int kLanes = All::value;

    using Base::load, Base::load_back, Base::guard, Base::mul, Base::mul_mirrored, Base::scale;
    using Base::scatter, Base::store, Base::store_back;

    static Complex<Narrow> load(All, const Point* at) {
        const auto a = L::load(&at->r);
        return {{a.val[0]}, {a.val[1]}};
    }
    static void store(All, Point* at, Complex<Narrow> a) { L::store(&at->r, {a.r.v, a.i.v}); }
    static Complex<Narrow> load_back(All lanes, const Point* at) {
        const auto a = load(lanes, at - (kLanes - 1));
        return {{L::reverse(a.r.v)}, {L::reverse(a.i.v)}};
    }
    static void store_back(All lanes, Point* at, Complex<Narrow> a) {
        store(lanes, at - (kLanes - 1), {{L::reverse(a.r.v)}, {L::reverse(a.i.v)}});
    }
    static Complex<Narrow> gather(All, const Point* at, int32_t step) {
        const auto a = L::gather(&at->r, 2 * step);
        return {{a.val[0]}, {a.val[1]}};
    }
    static void scatter(All, Point* at, int32_t step, Complex<Narrow> a) {
        asm("" : "+r"(step));  // as in the float form
        L::scatter(&at->r, 2 * step, {a.r.v, a.i.v});
    }
    static Complex<Narrow> spread(All, const Point* at) {
        return {{L::spread(at->r)}, {L::spread(at->i)}};
    }

    static Complex<Wide> guard(Complex<Narrow> a) {
        constexpr int kBits = Base::kGuardBits;
        return {{L::template shift_up<kBits>(a.r.v)}, {L::template shift_up<kBits>(a.i.v)}};
    }
    static Complex<Wide> narrower(Complex<Wide> product) {
        constexpr int kBits = Base::kTwiddleBits - Base::kGuardBits;
        return {{L::template shift_down<kBits>(product.r.v)},
                {L::template shift_down<kBits>(product.i.v)}};
    }
    /// a * w or a * conj(w), before the shift.
    template <bool kConj>
    static Complex<Wide> product(Complex<Narrow> a, Complex<Narrow> w) {
        const auto r = L::mul(a.r.v, w.r.v), i = L::mul(a.i.v, w.r.v);
        if constexpr (kConj) {
            return {{L::mul_add(r, a.i.v, w.i.v)}, {L::mul_sub(i, a.r.v, w.i.v)}};
        }
        return {{L::mul_sub(r, a.i.v, w.i.v)}, {L::mul_add(i, a.r.v, w.i.v)}};
    }
    template <bool kInverse>
    static Complex<Wide> mul(Complex<Narrow> a, Complex<Narrow> w) {
        return narrower(product<kInverse>(a, w));
    }
    template <bool kInverse>
    static Complex<Wide> mul_mirrored(Complex<Narrow> a, Complex<Narrow> b, Complex<Narrow> w) {
        // conj(b) w is the conjugate of b conj(w); a stored value has no room for its negative.
        return mul<kInverse>(a, w) - narrower(conj(product<!kInverse>(b, w)));
    }
    static Complex<Wide> scale(Complex<Wide> a, int32_t factor) {
        return {{L::scale(a.r.v, factor)}, {L::scale(a.i.v, factor)}};
    }

    /// A functor of the base, for lanes too.
    template <class Leave>
    struct Lanewise : Leave {
        using Leave::operator();
        Complex<Narrow> operator()(Complex<Wide> a) const {
            return {{part(*this, a.r.v)}, {part(*this, a.i.v)}};
        }
    };
    template <class Leave>
    static Lanewise<Leave> lanewise(Leave leave) {
        return {leave};
    }
    static auto part(const typename Base::Wrap& leave, typename L::Wide a) {
        return L::narrow(L::round_shift(a, leave.bits));
    }
    template <int kRadix>
    static auto part(const typename Base::template Divide<kRadix>& leave, typename L::Wide a) {
        constexpr auto kUnsigned = static_cast<unsigned>(kRadix);
        if constexpr (std::has_single_bit(kUnsigned)) {
            return L::saturate(L::round_shift(a, leave.bits + std::countr_zero(kUnsigned)));
        } else {
            const auto half = L::spread_wide(int64_t{kRadix} << leave.bits >> 1);
            const auto floored = L::shift_down(a + half, leave.bits);
            const auto sign = L::sign(floored);
            return L::saturate(L::template divide<kRadix>(floored ^ sign) ^ sign);
        }
    }
    template <bool kScaled, int kRadix>
    static auto leave_first(int32_t n, int32_t radix) {
        return lanewise(Base::template leave_first<kScaled, kRadix>(n, radix));
    }
    template <bool kScaled, int kRadix>
    static auto leave_later(bool last) {
        return lanewise(Base::template leave_later<kScaled, kRadix>(last));
    }
    template <bool kScaled, int kHalvings>
    static auto leave_split() {
        return lanewise(Base::template leave_split<kScaled, kHalvings>());
    }
};

template <>
struct NeonElement<int32_t> : NeonFixed<int32_t, Int32Lanes> {};

template <>
struct NeonElement<int16_t> : NeonFixed<int16_t, Int16Lanes> {};

}  // namespace qel::fft
