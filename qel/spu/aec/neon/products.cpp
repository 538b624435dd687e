// Complex products of the adaptive filter with NEON.
#include "qel/spu/aec/neon/products.hpp"

#include <arm_neon.h>

namespace qel::neon {

// Multiplying and adding in one instruction still rounds twice, as the scalar code does.

int32_t add_products(float* dst, const float* a, const float* b, int32_t bins) {
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const float32x4x2_t x = vld2q_f32(a + 2 * k), y = vld2q_f32(b + 2 * k);
        float32x4x2_t sum = vld2q_f32(dst + 2 * k);
        const float32x4_t re = vmulq_f32(x.val[0], y.val[0]), im = vmulq_f32(x.val[0], y.val[1]);
        sum.val[0] = vaddq_f32(sum.val[0], vmlsq_f32(re, x.val[1], y.val[1]));
        sum.val[1] = vaddq_f32(sum.val[1], vmlaq_f32(im, x.val[1], y.val[0]));
        vst2q_f32(dst + 2 * k, sum);
    }
    return k;
}

int32_t add_conj_products(float* dst, float mu, const float* g, const float* x, int32_t bins) {
    int32_t k = 0;
    for (; k + 4 <= bins; k += 4) {
        const float32x4x2_t a = vld2q_f32(g + 2 * k), b = vld2q_f32(x + 2 * k);
        float32x4x2_t sum = vld2q_f32(dst + 2 * k);
        const float32x4_t re = vmulq_f32(a.val[0], b.val[0]), im = vmulq_f32(a.val[1], b.val[0]);
        sum.val[0] = vmlaq_n_f32(sum.val[0], vmlaq_f32(re, a.val[1], b.val[1]), mu);
        sum.val[1] = vmlaq_n_f32(sum.val[1], vmlsq_f32(im, a.val[0], b.val[1]), mu);
        vst2q_f32(dst + 2 * k, sum);
    }
    return k;
}

}  // namespace qel::neon
