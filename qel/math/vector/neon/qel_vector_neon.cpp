// NEON variants of the vector operations, all types.
#include "qel/math/vector/qel_vector_neon.h"

#include "qel/math/vector/neon/operations.hpp"

namespace neon = qel::vector::neon;
using qel::vector::Element;

// Length mismatches are reported from where the portable forms report them.
#define QEL_BINARY(type, T, operation)                                                             \
    int32_t qel_vector_##type##_##operation##_nval_neon(T* dst, const T* a, const T* b,            \
                                                        uint32_t n) {                              \
        return neon::operation(dst, a, b, n, qel_vector_##type##_##operation##_nval_c);            \
    }                                                                                              \
    int32_t qel_vector_##type##_##operation##_neon(                                                \
        qel_vector_##type* dst, const qel_vector_##type* a, const qel_vector_##type* b) {          \
        return qel::vector::binary(dst, a, b, qel_vector_##type##_##operation##_nval_neon,         \
                                   {Element<T>::kSource, __func__, Element<T>::kLines.operation}); \
    }

#define QEL_REDUCTION(type, T, operation, function)                              \
    T qel_vector_##type##_##operation##_nval_neon(const T* data, uint32_t n) {   \
        return neon::function(data, n, qel_vector_##type##_sum_nval_c);          \
    }                                                                            \
    T qel_vector_##type##_##operation##_neon(const qel_vector_##type* vec) {     \
        return qel_vector_##type##_##operation##_nval_neon(vec->data, vec->len); \
    }

#define QEL_IN_PLACE(type, T, operation, function)                                \
    int32_t qel_vector_##type##_##operation##_nval_neon(T* data, uint32_t n) {    \
        return neon::function(data, n, qel_vector_##type##_##operation##_nval_c); \
    }                                                                             \
    void qel_vector_##type##_##operation##_neon(qel_vector_##type* vec) {         \
        qel_vector_##type##_##operation##_nval_neon(vec->data, vec->len);         \
    }

// The portable realft runs the dispatched transform.
#define QEL_SCALE_AND_REALFT(type, T)                                                            \
    int32_t qel_vector_##type##_scale_nval_neon(T* data, uint32_t n, T factor) {                 \
        return neon::scale(data, n, factor, qel_vector_##type##_scale_nval_c);                   \
    }                                                                                            \
    void qel_vector_##type##_scale_neon(qel_vector_##type* vec, T factor) {                      \
        qel_vector_##type##_scale_nval_neon(vec->data, vec->len, factor);                        \
    }                                                                                            \
    int32_t qel_vector_##type##_realft_nval_neon(T* out, const T* in, uint32_t n,                \
                                                 const qel_fft_r2c_cfg_##type* plan) {           \
        return qel_vector_##type##_realft_nval_c(out, in, n, plan);                              \
    }                                                                                            \
    int32_t qel_vector_##type##_realft_neon(qel_vector_##type* out, const qel_vector_##type* in, \
                                            const qel_fft_r2c_cfg_##type* plan) {                \
        return qel::vector::spectrum(out, in, plan, qel_vector_##type##_realft_nval_neon,        \
                                     {Element<T>::kSource, __func__, __LINE__});                 \
    }

#define QEL_ARITHMETIC(type, T)          \
    QEL_BINARY(type, T, mul)             \
    QEL_BINARY(type, T, sub)             \
    QEL_BINARY(type, T, add)             \
    QEL_REDUCTION(type, T, sum, sum)     \
    QEL_REDUCTION(type, T, avg, average) \
    QEL_SCALE_AND_REALFT(type, T)

#define QEL_TRANSCENDENTAL(type, T, exponential, logarithm, softmax_function, sigmoid_function) \
    QEL_IN_PLACE(type, T, exp, exponential)                                                     \
    QEL_IN_PLACE(type, T, log, logarithm)                                                       \
    QEL_IN_PLACE(type, T, softmax, softmax_function)                                            \
    QEL_IN_PLACE(type, T, sigmoid, sigmoid_function)

QEL_ARITHMETIC(float32, float)
QEL_ARITHMETIC(int32, int32_t)
QEL_ARITHMETIC(int16, int16_t)
QEL_TRANSCENDENTAL(float32, float, exponential, logarithm, softmax, sigmoid)
QEL_TRANSCENDENTAL(int32, int32_t, portable, portable, portable, portable)
QEL_TRANSCENDENTAL(int16, int16_t, exponential, logarithm, softmax, sigmoid)
