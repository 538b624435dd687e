// The int32 plans and transforms with NEON.
#include "qel/math/fft/generic/fixed.hpp"
#include "qel/math/fft/neon/element.hpp"
#include "qel/math/fft/qel_fft_neon.h"

using Fixed = qel::fft::NeonElement<int32_t>;

qel_fft_cfg_int32* qel_fft_alloc_c2c_int32_neon(int32_t nfft) {
    return qel_fft_alloc_c2c_int32_c(nfft);
}

void qel_fft_destroy_c2c_int32_neon(qel_fft_cfg_int32* plan) { qel_fft_destroy_c2c_int32_c(plan); }

void qel_fft_c2c_1d_int32_neon(qel_fft_cpx_int32* out, const qel_fft_cpx_int32* in,
                               const qel_fft_cfg_int32* plan, int32_t inverse, int32_t scaled) {
    qel::fft::fixed_c2c<Fixed>(out, in, *plan, inverse != 0, scaled != 0);
}

void qel_fft_r2c_1d_int32_neon(qel_fft_cpx_int32* out, const int32_t* in,
                               const qel_fft_r2c_cfg_int32* plan, int32_t scaled) {
    qel::fft::fixed_r2c<Fixed>(out, in, *plan, scaled != 0);
}

void qel_fft_c2r_1d_int32_neon(int32_t* out, const qel_fft_cpx_int32* in,
                               const qel_fft_r2c_cfg_int32* plan, int32_t scaled) {
    qel::fft::fixed_c2r<Fixed>(out, in, *plan, scaled != 0);
}
