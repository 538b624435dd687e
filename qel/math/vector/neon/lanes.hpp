// NEON registers: of the three element types, and of four floats as a type of real numbers for the
// elementary functions.
#pragma once

#include <arm_neon.h>

#include <bit>
#include <cstdint>

#include "qel/math/vector/generic/elementary.hpp"

namespace qel::vector {

/// Whether NEON keeps subnormal numbers, as all other arithmetic does; else it takes them for 0.
#ifdef __aarch64__
inline constexpr bool kKeepsSubnormals = true;
#else
inline constexpr bool kKeepsSubnormals = false;
#endif

/// Whole registers of an element type; the arithmetic is that of Element<T>. Elements lie at
/// addresses aligned to themselves only.
template <class T>
struct Lanes;

template <>
struct Lanes<float> {
    using Register = float32x4_t;
    static constexpr uint32_t kCount = 4;
    QEL_KERNEL static Register load(const float* x) { return vld1q_f32(x); }
    QEL_KERNEL static void store(float* x, Register r) { vst1q_f32(x, r); }
    QEL_KERNEL static Register all(float x) { return vdupq_n_f32(x); }
    QEL_KERNEL static Register add(Register a, Register b) { return vaddq_f32(a, b); }
    QEL_KERNEL static Register sub(Register a, Register b) { return vsubq_f32(a, b); }
    QEL_KERNEL static Register mul(Register a, Register b) { return vmulq_f32(a, b); }
};

template <>
struct Lanes<int32_t> {
    using Register = int32x4_t;
    static constexpr uint32_t kCount = 4;
    QEL_KERNEL static Register load(const int32_t* x) { return vld1q_s32(x); }
    QEL_KERNEL static void store(int32_t* x, Register r) { vst1q_s32(x, r); }
    QEL_KERNEL static Register all(int32_t x) { return vdupq_n_s32(x); }
    QEL_KERNEL static Register add(Register a, Register b) { return vaddq_s32(a, b); }
    QEL_KERNEL static Register sub(Register a, Register b) { return vsubq_s32(a, b); }
    QEL_KERNEL static Register mul(Register a, Register b) {
        const int64x2_t low = vmull_s32(vget_low_s32(a), vget_low_s32(b));
        const int64x2_t high = vmull_s32(vget_high_s32(a), vget_high_s32(b));
        return vcombine_s32(vshrn_n_s64(low, 20), vshrn_n_s64(high, 20));
    }
};

template <>
struct Lanes<int16_t> {
    using Register = int16x8_t;
    static constexpr uint32_t kCount = 8;
    QEL_KERNEL static Register load(const int16_t* x) { return vld1q_s16(x); }
    QEL_KERNEL static void store(int16_t* x, Register r) { vst1q_s16(x, r); }
    QEL_KERNEL static Register all(int16_t x) { return vdupq_n_s16(x); }
    QEL_KERNEL static Register add(Register a, Register b) { return vaddq_s16(a, b); }
    QEL_KERNEL static Register sub(Register a, Register b) { return vsubq_s16(a, b); }
    QEL_KERNEL static Register mul(Register a, Register b) {
        const int32x4_t low = vmull_s16(vget_low_s16(a), vget_low_s16(b));
        const int32x4_t high = vmull_s16(vget_high_s16(a), vget_high_s16(b));
        return vcombine_s16(vshrn_n_s32(low, 12), vshrn_n_s32(high, 12));
    }
};

/// Four floats; each lane rounds as a float does, unless it is a subnormal that NEON drops.
struct Float4 {
    float32x4_t lanes;

    Float4() = default;
    QEL_KERNEL Float4(float32x4_t x) : lanes(x) {}
    QEL_KERNEL Float4(float all) : lanes(vdupq_n_f32(all)) {}

    QEL_KERNEL friend Float4 operator+(Float4 a, Float4 b) { return vaddq_f32(a.lanes, b.lanes); }
    QEL_KERNEL friend Float4 operator-(Float4 a, Float4 b) { return vsubq_f32(a.lanes, b.lanes); }
    QEL_KERNEL friend Float4 operator*(Float4 a, Float4 b) { return vmulq_f32(a.lanes, b.lanes); }
    // One instruction on 64-bit ARM. On 32-bit ARM lane by lane, in scalar registers: its NEON only
    // estimates reciprocals, and no short refinement rounds every quotient as a division does.
    QEL_KERNEL friend Float4 operator/(Float4 a, Float4 b) { return a.lanes / b.lanes; }
    QEL_KERNEL friend Float4 operator-(Float4 a) { return vnegq_f32(a.lanes); }

    // By the sign of the difference: GCC 12 makes scalar code of the intrinsics that compare
    // floats.
    QEL_KERNEL friend uint32x4_t operator<(Float4 a, Float4 b) {
        return vcltq_s32(std::bit_cast<int32x4_t>((a - b).lanes), vdupq_n_s32(0));
    }
    QEL_KERNEL friend uint32x4_t operator>(Float4 a, Float4 b) { return b < a; }
    QEL_KERNEL friend Float4 min_of(Float4 a, Float4 b) { return vminq_f32(a.lanes, b.lanes); }
    QEL_KERNEL friend Float4 max_of(Float4 a, Float4 b) { return vmaxq_f32(a.lanes, b.lanes); }
    QEL_KERNEL friend Float4 keep_if(uint32x4_t condition, Float4 value) {
        return std::bit_cast<float32x4_t>(condition & std::bit_cast<uint32x4_t>(value.lanes));
    }
};

template <>
struct Real<Float4> : Real<float> {
    using Bits = uint32x4_t;
    QEL_KERNEL static Float4 of_signed(uint32x4_t bits) {
        return vcvtq_f32_s32(std::bit_cast<int32x4_t>(bits));
    }
};

/// Four elements as real numbers, and back, truncated.
QEL_KERNEL Float4 load_reals(const float* x) { return vld1q_f32(x); }
QEL_KERNEL Float4 load_reals(const int16_t* x) {
    return vcvtq_n_f32_s32(vmovl_s16(vld1_s16(x)), 12);
}
QEL_KERNEL void store_reals(float* x, Float4 reals) { vst1q_f32(x, reals.lanes); }
QEL_KERNEL void store_reals(int16_t* x, Float4 reals) {
    vst1_s16(x, vmovn_s32(vcvtq_n_s32_f32(reals.lanes, 12)));
}

}  // namespace qel::vector
