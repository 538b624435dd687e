// The NEON variants of the transforms, by their own names; only a build for a processor with NEON
// has them. What qel_fft.h says of each operation holds here: arguments, layouts, scaling, plans.
//
// Fixed-point results equal the portable ones bit for bit. So do float32 ones, but that ARMv7's
// NEON takes subnormal values for zero.
#ifndef QEL_MATH_FFT_QEL_FFT_NEON_H
#define QEL_MATH_FFT_QEL_FFT_NEON_H

#include "qel/math/fft/qel_fft.h"

QEL_BEGIN_DECLS

/// A float32 plan serves both variants. From 15 points on, one whose length is a multiple of 4 also
/// has `extra_twiddles`, 3/4 nfft values: the line of a last radix-4 stage (fstride 1).
QEL_API qel_fft_cfg_float32* qel_fft_alloc_c2c_float32_neon(int32_t nfft);
QEL_API qel_fft_cfg_int32* qel_fft_alloc_c2c_int32_neon(int32_t nfft);
QEL_API qel_fft_cfg_int16* qel_fft_alloc_c2c_int16_neon(int32_t nfft);

QEL_API void qel_fft_destroy_c2c_float32_neon(qel_fft_cfg_float32* plan);
QEL_API void qel_fft_destroy_c2c_int32_neon(qel_fft_cfg_int32* plan);
QEL_API void qel_fft_destroy_c2c_int16_neon(qel_fft_cfg_int16* plan);

QEL_API void qel_fft_c2c_1d_float32_neon(qel_fft_cpx_float32* out, const qel_fft_cpx_float32* in,
                                         const qel_fft_cfg_float32* plan, int32_t inverse);
QEL_API void qel_fft_r2c_1d_float32_neon(qel_fft_cpx_float32* out, const float* in,
                                         const qel_fft_r2c_cfg_float32* plan);
QEL_API void qel_fft_c2r_1d_float32_neon(float* out, const qel_fft_cpx_float32* in,
                                         const qel_fft_r2c_cfg_float32* plan);
QEL_API void qel_fft_c2c_1d_int32_neon(qel_fft_cpx_int32* out, const qel_fft_cpx_int32* in,
                                       const qel_fft_cfg_int32* plan, int32_t inverse,
                                       int32_t scaled);
QEL_API void qel_fft_r2c_1d_int32_neon(qel_fft_cpx_int32* out, const int32_t* in,
                                       const qel_fft_r2c_cfg_int32* plan, int32_t scaled);
QEL_API void qel_fft_c2r_1d_int32_neon(int32_t* out, const qel_fft_cpx_int32* in,
                                       const qel_fft_r2c_cfg_int32* plan, int32_t scaled);
QEL_API void qel_fft_c2c_1d_int16_neon(qel_fft_cpx_int16* out, const qel_fft_cpx_int16* in,
                                       const qel_fft_cfg_int16* plan, int32_t inverse,
                                       int32_t scaled);
QEL_API void qel_fft_r2c_1d_int16_neon(qel_fft_cpx_int16* out, const int16_t* in,
                                       const qel_fft_r2c_cfg_int16* plan, int32_t scaled);
QEL_API void qel_fft_c2r_1d_int16_neon(int16_t* out, const qel_fft_cpx_int16* in,
                                       const qel_fft_r2c_cfg_int16* plan, int32_t scaled);

/// The engines alone. The fast one needs factors of 2 and 4; its backward form divides by the
/// length, the others do not scale. Arguments as those of
/// _mixed_radix_generic_butterfly_float32_c().
QEL_API void _mixed_radix_fft_forward_float32_neon(qel_fft_cpx_float32* out,
                                                   const qel_fft_cpx_float32* in,
                                                   const int32_t* factors,
                                                   const qel_fft_cpx_float32* twiddles,
                                                   qel_fft_cpx_float32* buffer);
QEL_API void _mixed_radix_fft_backward_float32_neon(qel_fft_cpx_float32* out,
                                                    const qel_fft_cpx_float32* in,
                                                    const int32_t* factors,
                                                    const qel_fft_cpx_float32* twiddles,
                                                    qel_fft_cpx_float32* buffer);
QEL_API void _mixed_radix_generic_butterfly_float32_neon(qel_fft_cpx_float32* out,
                                                         const qel_fft_cpx_float32* in,
                                                         const int32_t* factors,
                                                         const qel_fft_cpx_float32* twiddles,
                                                         qel_fft_cpx_float32* buffer);
QEL_API void _mixed_radix_generic_butterfly_inverse_float32_neon(
    qel_fft_cpx_float32* out, const qel_fft_cpx_float32* in, const int32_t* factors,
    const qel_fft_cpx_float32* twiddles, qel_fft_cpx_float32* buffer);

QEL_END_DECLS

#endif
