// Conversion of samples with NEON.
#include "qel/spu/aec/neon/samples.hpp"

#include <arm_neon.h>

namespace qel::neon {

int32_t from_samples(const int16_t* src, float* dst, int32_t n) {
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const int16x8_t x = vld1q_s16(src + i);
        vst1q_f32(dst + i, vcvtq_f32_s32(vmovl_s16(vget_low_s16(x))));
        vst1q_f32(dst + i + 4, vcvtq_f32_s32(vmovl_s16(vget_high_s16(x))));
    }
    return i;
}

int32_t from_wide_samples(const void* src, int32_t shift, float* dst, int32_t n) {
    const auto* bytes = static_cast<const uint8_t*>(src);
    const int32x4_t down = vdupq_n_s32(-shift);
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const int32x4_t x = vreinterpretq_s32_u8(vld1q_u8(bytes + 4 * i));
        vst1q_f32(dst + i, vcvtq_f32_s32(vshlq_s32(x, down)));
    }
    return i;
}

int32_t to_samples(const float* src, int16_t* dst, int32_t n) {
    // The instruction truncates, saturates and makes NaN 0.
    const auto low_half = [](const float* at) { return vmovn_s32(vcvtq_s32_f32(vld1q_f32(at))); };
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        vst1q_s16(dst + i, vcombine_s16(low_half(src + i), low_half(src + i + 4)));
    }
    return i;
}

}  // namespace qel::neon
