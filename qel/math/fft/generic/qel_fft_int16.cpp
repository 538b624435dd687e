// The portable int16 plans and transforms.
#include "qel/math/fft/generic/fixed.hpp"

namespace {

using Fixed = qel::fft::Element<int16_t>;
using Point = qel_fft_cpx_int16;

}  // namespace

qel_fft_cfg_int16* qel_fft_alloc_c2c_int16_c(int32_t nfft) {
    return qel::fft::new_c2c_plan<qel_fft_cfg_int16, Point>(nfft, Fixed::line);
}

qel_fft_r2c_cfg_int16* qel_fft_alloc_r2c_int16_c(int32_t nfft) {
    return qel::fft::new_fixed_r2c_plan<Fixed, qel_fft_r2c_cfg_int16>(nfft);
}

void qel_fft_destroy_c2c_int16_c(qel_fft_cfg_int16* plan) { std::free(plan); }

void qel_fft_destroy_r2c_int16_c(qel_fft_r2c_cfg_int16* plan) { std::free(plan); }

void qel_fft_c2c_1d_int16_c(qel_fft_cpx_int16* out, const qel_fft_cpx_int16* in,
                            const qel_fft_cfg_int16* plan, int32_t inverse, int32_t scaled) {
    qel::fft::fixed_c2c<Fixed>(out, in, *plan, inverse != 0, scaled != 0);
}

void qel_fft_r2c_1d_int16_c(qel_fft_cpx_int16* out, const int16_t* in,
                            const qel_fft_r2c_cfg_int16* plan, int32_t scaled) {
    qel::fft::fixed_r2c<Fixed>(out, in, *plan, scaled != 0);
}

void qel_fft_c2r_1d_int16_c(int16_t* out, const qel_fft_cpx_int16* in,
                            const qel_fft_r2c_cfg_int16* plan, int32_t scaled) {
    qel::fft::fixed_c2r<Fixed>(out, in, *plan, scaled != 0);
}
