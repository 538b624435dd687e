// The int16 plans and transforms with NEON.
#include "qel/math/fft/generic/fixed.hpp"
#include "qel/math/fft/neon/element.hpp"
#include "qel/math/fft/qel_fft_neon.h"

using Fixed = qel::fft::NeonElement<int16_t>;

qel_fft_cfg_int16* qel_fft_alloc_c2c_int16_neon(int32_t nfft) {
    return qel_fft_alloc_c2c_int16_c(nfft);
}

void qel_fft_destroy_c2c_int16_neon(qel_fft_cfg_int16* plan) { qel_fft_destroy_c2c_int16_c(plan); }

void qel_fft_c2c_1d_int16_neon(qel_fft_cpx_int16* out, const qel_fft_cpx_int16* in,
                               const qel_fft_cfg_int16* plan, int32_t inverse, int32_t scaled) {
    qel::fft::fixed_c2c<Fixed>(out, in, *plan, inverse != 0, scaled != 0);
}

void qel_fft_r2c_1d_int16_neon(qel_fft_cpx_int16* out, const int16_t* in,
                               const qel_fft_r2c_cfg_int16* plan, int32_t scaled) {
    qel::fft::fixed_r2c<Fixed>(out, in, *plan, scaled != 0);
}

void qel_fft_c2r_1d_int16_neon(int16_t* out, const qel_fft_cpx_int16* in,
                               const qel_fft_r2c_cfg_int16* plan, int32_t scaled) {
    qel::fft::fixed_c2r<Fixed>(out, in, *plan, scaled != 0);
}
