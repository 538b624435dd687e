// The float32 transforms over an element type, as one record.
#pragma once

#include "qel/math/fft/generic/transform.hpp"

namespace qel::fft {

using FloatPoint = qel_fft_cpx_float32;

struct FloatTransforms {
    void (*c2c)(FloatPoint* out, const FloatPoint* in, const qel_fft_cfg_float32& plan,
                bool inverse);
    void (*r2c)(FloatPoint* out, const float* in, const qel_fft_r2c_cfg_float32& plan);
    void (*c2r)(float* out, const FloatPoint* in, const qel_fft_r2c_cfg_float32& plan);
};

// The fast engine scales its inverse, the mixed-radix one never does: callers rely on either.
template <class E>
void float_c2c(FloatPoint* out, const FloatPoint* in, const qel_fft_cfg_float32& plan,
               bool inverse) {
    const int32_t flag = algorithm_flag(plan.factors);
    if (flag != 0 && flag != 1) return;
    const auto run = !inverse    ? Engine<E, false, false>::run
                     : flag == 0 ? Engine<E, true, true>::run
                                 : Engine<E, true, false>::run;
    run(out, in, plan.factors, plan.twiddles, plan.buffer, flag == 0);
}

template <class E>
void float_r2c(FloatPoint* out, const float* in, const qel_fft_r2c_cfg_float32& plan) {
    real_to_complex<E, false>(out, reinterpret_cast<const FloatPoint*>(in), plan);
}

template <class E>
void float_c2r(float* out, const FloatPoint* in, const qel_fft_r2c_cfg_float32& plan) {
    complex_to_real<E, true>(reinterpret_cast<FloatPoint*>(out), in, plan);
}

template <class E>
constexpr FloatTransforms kFloatTransforms = {float_c2c<E>, float_r2c<E>, float_c2r<E>};

}  // namespace qel::fft
