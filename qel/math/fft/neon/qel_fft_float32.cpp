// The float32 plans and transforms with NEON.
#include "qel/math/fft/generic/transform.hpp"
#include "qel/math/fft/neon/element.hpp"
#include "qel/math/fft/qel_fft_neon.h"

namespace {

using qel::fft::Engine;
using Float = qel::fft::NeonElement<float>;
using Point = qel_fft_cpx_float32;

constexpr int32_t kShortest = 15;  // points from which on a plan is more than the portable one

}  // namespace

qel_fft_cfg_float32* qel_fft_alloc_c2c_float32_neon(int32_t nfft) {
    if (nfft < kShortest || nfft % 4 != 0) return qel_fft_alloc_c2c_float32_c(nfft);
    const int32_t column = nfft / 4;
    auto* plan = qel::fft::new_c2c_plan<qel_fft_cfg_float32, Point>(nfft, Float::line, 3 * column);
    if (plan != nullptr) Float::line(plan->extra_twiddles, column, 1, 4, nfft);
    return plan;
}

void qel_fft_destroy_c2c_float32_neon(qel_fft_cfg_float32* plan) {
    qel_fft_destroy_c2c_float32_c(plan);
}

void qel_fft_c2c_1d_float32_neon(qel_fft_cpx_float32* out, const qel_fft_cpx_float32* in,
                                 const qel_fft_cfg_float32* plan, int32_t inverse) {
    const bool back = inverse != 0;
    decltype(&_mixed_radix_fft_forward_float32_neon) engine;
    switch (qel::fft::algorithm_flag(plan->factors)) {
        case 0:
            engine = back ? _mixed_radix_fft_backward_float32_neon
                          : _mixed_radix_fft_forward_float32_neon;
            break;
        case 1:
            engine = back ? _mixed_radix_generic_butterfly_inverse_float32_neon
                          : _mixed_radix_generic_butterfly_float32_neon;
            break;
        default: return;
    }
    engine(out, in, plan->factors, plan->twiddles, plan->buffer);
}

void qel_fft_r2c_1d_float32_neon(qel_fft_cpx_float32* out, const float* in,
                                 const qel_fft_r2c_cfg_float32* plan) {
    qel::fft::real_to_complex<Float, false>(out, reinterpret_cast<const Point*>(in), *plan);
}

void qel_fft_c2r_1d_float32_neon(float* out, const qel_fft_cpx_float32* in,
                                 const qel_fft_r2c_cfg_float32* plan) {
    qel::fft::complex_to_real<Float, true>(reinterpret_cast<Point*>(out), in, *plan);
}

void _mixed_radix_fft_forward_float32_neon(qel_fft_cpx_float32* out, const qel_fft_cpx_float32* in,
                                           const int32_t* factors,
                                           const qel_fft_cpx_float32* twiddles,
                                           qel_fft_cpx_float32* buffer) {
    Engine<Float, false, false>::run(out, in, factors, twiddles, buffer, true);
}

void _mixed_radix_fft_backward_float32_neon(qel_fft_cpx_float32* out, const qel_fft_cpx_float32* in,
                                            const int32_t* factors,
                                            const qel_fft_cpx_float32* twiddles,
                                            qel_fft_cpx_float32* buffer) {
    Engine<Float, true, true>::run(out, in, factors, twiddles, buffer, true);
}

void _mixed_radix_generic_butterfly_float32_neon(qel_fft_cpx_float32* out,
                                                 const qel_fft_cpx_float32* in,
                                                 const int32_t* factors,
                                                 const qel_fft_cpx_float32* twiddles,
                                                 qel_fft_cpx_float32* buffer) {
    Engine<Float, false, false>::run(out, in, factors, twiddles, buffer, false);
}

void _mixed_radix_generic_butterfly_inverse_float32_neon(qel_fft_cpx_float32* out,
                                                         const qel_fft_cpx_float32* in,
                                                         const int32_t* factors,
                                                         const qel_fft_cpx_float32* twiddles,
                                                         qel_fft_cpx_float32* buffer) {
    Engine<Float, true, false>::run(out, in, factors, twiddles, buffer, false);
}
