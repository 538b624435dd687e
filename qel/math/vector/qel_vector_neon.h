// The NEON variants of the vector operations. A build for a processor without NEON has none of
// them.
//
// They do what the operations of "qel/math/vector/qel_vector.h" do, with the same results bit for
// bit, but for three things in float32:
// - sum and avg add in another order;
// - mul, sub, add, scale, sum and avg take subnormal numbers for 0 and give 0 for subnormal results
//   on 32-bit ARM, where NEON has none. exp, log, softmax and sigmoid keep them.
// - which of the NaNs a NaN is.
#ifndef QEL_MATH_VECTOR_QEL_VECTOR_NEON_H
#define QEL_MATH_VECTOR_QEL_VECTOR_NEON_H

#include "qel/math/vector/qel_vector.h"

QEL_BEGIN_DECLS

QEL_API int32_t qel_vector_float32_mul_neon(qel_vector_float32* dst, const qel_vector_float32* a,
                                            const qel_vector_float32* b);
QEL_API int32_t qel_vector_float32_sub_neon(qel_vector_float32* dst, const qel_vector_float32* a,
                                            const qel_vector_float32* b);
QEL_API int32_t qel_vector_float32_add_neon(qel_vector_float32* dst, const qel_vector_float32* a,
                                            const qel_vector_float32* b);
QEL_API float qel_vector_float32_sum_neon(const qel_vector_float32* vec);
QEL_API float qel_vector_float32_avg_neon(const qel_vector_float32* vec);
QEL_API void qel_vector_float32_exp_neon(qel_vector_float32* vec);
QEL_API void qel_vector_float32_log_neon(qel_vector_float32* vec);
QEL_API void qel_vector_float32_scale_neon(qel_vector_float32* vec, float factor);
QEL_API void qel_vector_float32_softmax_neon(qel_vector_float32* vec);
QEL_API void qel_vector_float32_sigmoid_neon(qel_vector_float32* vec);
QEL_API int32_t qel_vector_float32_realft_neon(qel_vector_float32* out,
                                               const qel_vector_float32* in,
                                               const qel_fft_r2c_cfg_float32* plan);

QEL_API int32_t qel_vector_float32_mul_nval_neon(float* dst, const float* a, const float* b,
                                                 uint32_t n);
QEL_API int32_t qel_vector_float32_sub_nval_neon(float* dst, const float* a, const float* b,
                                                 uint32_t n);
QEL_API int32_t qel_vector_float32_add_nval_neon(float* dst, const float* a, const float* b,
                                                 uint32_t n);
QEL_API float qel_vector_float32_sum_nval_neon(const float* data, uint32_t n);
QEL_API float qel_vector_float32_avg_nval_neon(const float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_exp_nval_neon(float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_log_nval_neon(float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_scale_nval_neon(float* data, uint32_t n, float factor);
QEL_API int32_t qel_vector_float32_softmax_nval_neon(float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_sigmoid_nval_neon(float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_realft_nval_neon(float* out, const float* in, uint32_t n,
                                                    const qel_fft_r2c_cfg_float32* plan);

QEL_API int32_t qel_vector_int32_mul_neon(qel_vector_int32* dst, const qel_vector_int32* a,
                                          const qel_vector_int32* b);
QEL_API int32_t qel_vector_int32_sub_neon(qel_vector_int32* dst, const qel_vector_int32* a,
                                          const qel_vector_int32* b);
QEL_API int32_t qel_vector_int32_add_neon(qel_vector_int32* dst, const qel_vector_int32* a,
                                          const qel_vector_int32* b);
QEL_API int32_t qel_vector_int32_sum_neon(const qel_vector_int32* vec);
QEL_API int32_t qel_vector_int32_avg_neon(const qel_vector_int32* vec);
QEL_API void qel_vector_int32_exp_neon(qel_vector_int32* vec);
QEL_API void qel_vector_int32_log_neon(qel_vector_int32* vec);
QEL_API void qel_vector_int32_scale_neon(qel_vector_int32* vec, int32_t factor);
QEL_API void qel_vector_int32_softmax_neon(qel_vector_int32* vec);
QEL_API void qel_vector_int32_sigmoid_neon(qel_vector_int32* vec);
QEL_API int32_t qel_vector_int32_realft_neon(qel_vector_int32* out, const qel_vector_int32* in,
                                             const qel_fft_r2c_cfg_int32* plan);

QEL_API int32_t qel_vector_int32_mul_nval_neon(int32_t* dst, const int32_t* a, const int32_t* b,
                                               uint32_t n);
QEL_API int32_t qel_vector_int32_sub_nval_neon(int32_t* dst, const int32_t* a, const int32_t* b,
                                               uint32_t n);
QEL_API int32_t qel_vector_int32_add_nval_neon(int32_t* dst, const int32_t* a, const int32_t* b,
                                               uint32_t n);
QEL_API int32_t qel_vector_int32_sum_nval_neon(const int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_avg_nval_neon(const int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_exp_nval_neon(int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_log_nval_neon(int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_scale_nval_neon(int32_t* data, uint32_t n, int32_t factor);
QEL_API int32_t qel_vector_int32_softmax_nval_neon(int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_sigmoid_nval_neon(int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_realft_nval_neon(int32_t* out, const int32_t* in, uint32_t n,
                                                  const qel_fft_r2c_cfg_int32* plan);

QEL_API int32_t qel_vector_int16_mul_neon(qel_vector_int16* dst, const qel_vector_int16* a,
                                          const qel_vector_int16* b);
QEL_API int32_t qel_vector_int16_sub_neon(qel_vector_int16* dst, const qel_vector_int16* a,
                                          const qel_vector_int16* b);
QEL_API int32_t qel_vector_int16_add_neon(qel_vector_int16* dst, const qel_vector_int16* a,
                                          const qel_vector_int16* b);
QEL_API int16_t qel_vector_int16_sum_neon(const qel_vector_int16* vec);
QEL_API int16_t qel_vector_int16_avg_neon(const qel_vector_int16* vec);
QEL_API void qel_vector_int16_exp_neon(qel_vector_int16* vec);
QEL_API void qel_vector_int16_log_neon(qel_vector_int16* vec);
QEL_API void qel_vector_int16_scale_neon(qel_vector_int16* vec, int16_t factor);
QEL_API void qel_vector_int16_softmax_neon(qel_vector_int16* vec);
QEL_API void qel_vector_int16_sigmoid_neon(qel_vector_int16* vec);
QEL_API int32_t qel_vector_int16_realft_neon(qel_vector_int16* out, const qel_vector_int16* in,
                                             const qel_fft_r2c_cfg_int16* plan);

QEL_API int32_t qel_vector_int16_mul_nval_neon(int16_t* dst, const int16_t* a, const int16_t* b,
                                               uint32_t n);
QEL_API int32_t qel_vector_int16_sub_nval_neon(int16_t* dst, const int16_t* a, const int16_t* b,
                                               uint32_t n);
QEL_API int32_t qel_vector_int16_add_nval_neon(int16_t* dst, const int16_t* a, const int16_t* b,
                                               uint32_t n);
QEL_API int16_t qel_vector_int16_sum_nval_neon(const int16_t* data, uint32_t n);
QEL_API int16_t qel_vector_int16_avg_nval_neon(const int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_exp_nval_neon(int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_log_nval_neon(int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_scale_nval_neon(int16_t* data, uint32_t n, int16_t factor);
QEL_API int32_t qel_vector_int16_softmax_nval_neon(int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_sigmoid_nval_neon(int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_realft_nval_neon(int16_t* out, const int16_t* in, uint32_t n,
                                                  const qel_fft_r2c_cfg_int16* plan);

QEL_END_DECLS

#endif
