// The portable float32 plans and transforms.
#include <cmath>

#include "qel/math/fft/generic/float32.hpp"
#ifdef QEL_X86
#include "qel/math/fft/x86/float32.hpp"
#endif

namespace {

using qel::fft::Engine;
using Float = qel::fft::Element<float>;
using Point = qel_fft_cpx_float32;

constexpr float kPi = 3.1415927f, kTwoPi = 6.2831855f;

/// (cos, sin) of an angle that was rounded to float, taken in double and rounded once.
Point unit_point(float angle) {
    const double phi = angle;
    return {static_cast<float>(std::cos(phi)), static_cast<float>(std::sin(phi))};
}

/// Twiddles of a real plan's power-of-two engine: those of the general scheme, with angles taken in
/// single precision.
void fill_fast_twiddles(Point* twiddles, const int32_t* factors, int32_t ncfft) {
    int32_t fstride = factors[1];
    for (int32_t stage = factors[0] - 1; stage > 0; --stage) {
        fstride >>= 2;
        const int32_t m = factors[2 * stage + 1];
        for (int32_t q = 1; q <= 3; ++q) {
            const float step = static_cast<float>(q * fstride) * -kTwoPi;
            for (int32_t j = 0; j < m; ++j) {
                *twiddles++ = unit_point(static_cast<float>(j) * step / static_cast<float>(ncfft));
            }
        }
    }
}

void fill_super_twiddles(Point* twiddles, int32_t ncfft) {
    for (int32_t i = 0; i < ncfft / 2; ++i) {
        const float turns = static_cast<float>(i + 1) / static_cast<float>(ncfft) + 0.5f;
        twiddles[i] = unit_point(-kPi * turns);
    }
}

const qel::fft::FloatTransforms& transforms() {
#ifdef QEL_X86  // all widths give the portable results
    return qel::fft::widest_transforms();
#else
    return qel::fft::kFloatTransforms<Float>;
#endif
}

}  // namespace

void* qel_fft_generate_twiddles_line_float32(void* twiddles, int32_t m, int32_t fstride, int32_t p,
                                             int32_t nfft) {
    constexpr double kStep = -6.283185307179586;
    auto* point = static_cast<Point*>(twiddles);
    for (int32_t k = 1; k < p; ++k) {
        for (int32_t j = 0; j < m; ++j) {
            *point++ = unit_point(static_cast<float>(k * (fstride * kStep) * j / nfft));
        }
    }
    return point;
}

void qel_fft_generate_twiddles_float32(qel_fft_cpx_float32* twiddles, const int32_t* factors,
                                       int32_t nfft) {
    qel_fft_generate_twiddles_impl_float32(twiddles, factors, nfft,
                                           qel_fft_generate_twiddles_line_float32);
}

qel_fft_cfg_float32* qel_fft_alloc_c2c_float32_c(int32_t nfft) {
    return qel::fft::new_c2c_plan<qel_fft_cfg_float32, Point>(
        nfft, qel_fft_generate_twiddles_line_float32);
}

qel_fft_r2c_cfg_float32* qel_fft_alloc_r2c_float32_c(int32_t nfft) {
    auto* plan = qel::fft::new_r2c_plan<qel_fft_r2c_cfg_float32, Point>(nfft);
    if (plan == nullptr) return nullptr;
    if (qel::fft::is_fast(plan->factors)) {
        fill_fast_twiddles(plan->twiddles, plan->factors, plan->ncfft);
    } else {
        qel_fft_generate_twiddles_float32(plan->twiddles, plan->factors, plan->ncfft);
    }
    fill_super_twiddles(plan->super_twiddles, plan->ncfft);
    return plan;
}

void qel_fft_destroy_c2c_float32_c(qel_fft_cfg_float32* plan) { std::free(plan); }

void qel_fft_destroy_r2c_float32_c(qel_fft_r2c_cfg_float32* plan) { std::free(plan); }

void qel_fft_c2c_1d_float32_c(qel_fft_cpx_float32* out, const qel_fft_cpx_float32* in,
                              const qel_fft_cfg_float32* plan, int32_t inverse) {
    transforms().c2c(out, in, *plan, inverse != 0);
}

void qel_fft_r2c_1d_float32_c(qel_fft_cpx_float32* out, const float* in,
                              const qel_fft_r2c_cfg_float32* plan) {
    transforms().r2c(out, in, *plan);
}

void qel_fft_c2r_1d_float32_c(float* out, const qel_fft_cpx_float32* in,
                              const qel_fft_r2c_cfg_float32* plan) {
    transforms().c2r(out, in, *plan);
}

void _mixed_radix_generic_butterfly_float32_c(qel_fft_cpx_float32* out,
                                              const qel_fft_cpx_float32* in, const int32_t* factors,
                                              const qel_fft_cpx_float32* twiddles,
                                              qel_fft_cpx_float32* buffer) {
    Engine<Float, false, false>::run(out, in, factors, twiddles, buffer, false);
}

void _mixed_radix_generic_butterfly_inverse_float32_c(qel_fft_cpx_float32* out,
                                                      const qel_fft_cpx_float32* in,
                                                      const int32_t* factors,
                                                      const qel_fft_cpx_float32* twiddles,
                                                      qel_fft_cpx_float32* buffer) {
    Engine<Float, true, false>::run(out, in, factors, twiddles, buffer, false);
}
