// Portable variants of the vector operations, all types.
#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/generic/operations.hpp"
#include "qel/math/vector/qel_vector.h"

namespace generic = qel::vector;
using qel::vector::Element;

#define QEL_LIFE(type, T)                                                                  \
    qel_vector_##type* qel_vector_##type##_new_c(uint32_t len) {                           \
        return generic::make_vector<T>(len);                                               \
    }                                                                                      \
    void qel_vector_##type##_delete_c(qel_vector_##type* vec) { std::free(vec); }          \
    uint32_t qel_vector_##type##_data_bytes_c(const qel_vector_##type* vec) {              \
        return generic::data_bytes<T>(vec);                                                \
    }                                                                                      \
    uint32_t qel_vector_##type##_bytes_c(const qel_vector_##type* vec) {                   \
        return generic::data_bytes<T>(vec) + QEL_VECTOR_HEADER_BYTES;                      \
    }                                                                                      \
    void qel_vector_##type##_cpy_c(qel_vector_##type* dst, const qel_vector_##type* src) { \
        generic::copy<T>(dst, src);                                                        \
    }                                                                                      \
    void qel_vector_##type##_zero_c(qel_vector_##type* vec) {                              \
        std::memset(vec->data, 0, generic::data_bytes<T>(vec));                            \
    }

#define QEL_PRINT(type, name, format, value_of, per_line)               \
    void qel_vector_##type##_##name##_c(const qel_vector_##type* vec) { \
        generic::print(vec, format, value_of, per_line);                \
    }

#define QEL_BINARY(type, T, operation)                                                             \
    int32_t qel_vector_##type##_##operation##_nval_c(T* dst, const T* a, const T* b, uint32_t n) { \
        return generic::operation(dst, a, b, n);                                                   \
    }                                                                                              \
    int32_t qel_vector_##type##_##operation##_c(                                                   \
        qel_vector_##type* dst, const qel_vector_##type* a, const qel_vector_##type* b) {          \
        return generic::binary(dst, a, b, qel_vector_##type##_##operation##_nval_c,                \
                               {Element<T>::kSource, __func__, Element<T>::kLines.operation});     \
    }

#define QEL_REDUCTION(type, T, operation, function)                           \
    T qel_vector_##type##_##operation##_nval_c(const T* data, uint32_t n) {   \
        return generic::function(data, n);                                    \
    }                                                                         \
    T qel_vector_##type##_##operation##_c(const qel_vector_##type* vec) {     \
        return qel_vector_##type##_##operation##_nval_c(vec->data, vec->len); \
    }

// A reduction that starts from element 0, where there is one.
#define QEL_EXTREME(type, T, operation, function)                                       \
    T qel_vector_##type##_##operation##_nval_c(const T* data, uint32_t n) {             \
        return generic::function(data, n);                                              \
    }                                                                                   \
    T qel_vector_##type##_##operation##_c(const qel_vector_##type* vec) {               \
        return generic::has_first(vec) ? generic::function(vec->data, vec->len) : T{0}; \
    }

#define QEL_IN_PLACE(type, T, operation, function)                          \
    int32_t qel_vector_##type##_##operation##_nval_c(T* data, uint32_t n) { \
        return generic::function(data, n);                                  \
    }                                                                       \
    void qel_vector_##type##_##operation##_c(qel_vector_##type* vec) {      \
        qel_vector_##type##_##operation##_nval_c(vec->data, vec->len);      \
    }

#define QEL_WITH_VALUE_NVAL(type, T, operation)                                      \
    int32_t qel_vector_##type##_##operation##_nval_c(T* data, uint32_t n, T value) { \
        return generic::operation(data, n, value);                                   \
    }
#define QEL_WITH_VALUE(type, T, operation)                                      \
    void qel_vector_##type##_##operation##_c(qel_vector_##type* vec, T value) { \
        qel_vector_##type##_##operation##_nval_c(vec->data, vec->len, value);   \
    }

// What follows the plan goes to the dispatched transform.
#define QEL_REALFT(type, T, ...)                                                              \
    int32_t qel_vector_##type##_realft_nval_c(T* out, const T* in, uint32_t n,                \
                                              const qel_fft_r2c_cfg_##type* plan) {           \
        if (static_cast<uint32_t>(plan->ncfft) != n) return -1;                               \
        qel_fft_r2c_1d_##type(reinterpret_cast<qel_fft_cpx_##type*>(out), in,                 \
                              plan __VA_OPT__(, ) __VA_ARGS__);                               \
        return 0;                                                                             \
    }                                                                                         \
    int32_t qel_vector_##type##_realft_c(qel_vector_##type* out, const qel_vector_##type* in, \
                                         const qel_fft_r2c_cfg_##type* plan) {                \
        return generic::spectrum(out, in, plan, qel_vector_##type##_realft_nval_c,            \
                                 {Element<T>::kSource, __func__, __LINE__});                  \
    }

#define QEL_ALL_TYPES_HAVE(type, T)         \
    QEL_LIFE(type, T)                       \
    QEL_BINARY(type, T, mul)                \
    QEL_BINARY(type, T, sub)                \
    QEL_BINARY(type, T, add)                \
    QEL_REDUCTION(type, T, sum, sum)        \
    QEL_REDUCTION(type, T, avg, average)    \
    QEL_EXTREME(type, T, max, maximum)      \
    QEL_EXTREME(type, T, min, minimum)      \
    QEL_IN_PLACE(type, T, exp, exponential) \
    QEL_IN_PLACE(type, T, log, logarithm)   \
    QEL_IN_PLACE(type, T, softmax, softmax) \
    QEL_IN_PLACE(type, T, sigmoid, sigmoid) \
    QEL_WITH_VALUE_NVAL(type, T, scale)     \
    QEL_WITH_VALUE(type, T, scale)          \
    QEL_WITH_VALUE_NVAL(type, T, set)

namespace {

constexpr auto as_it_is = [](auto x) { return x; };
template <class T>
constexpr auto as_real = [](T x) { return x / Element<T>::kOne; };

}  // namespace

QEL_ALL_TYPES_HAVE(float32, float)
QEL_ALL_TYPES_HAVE(int32, int32_t)
QEL_ALL_TYPES_HAVE(int16, int16_t)

QEL_WITH_VALUE(float32, float, set)  // the integer types set bare arrays only

QEL_REALFT(float32, float)
QEL_REALFT(int32, int32_t, 1)  // scaled
QEL_REALFT(int16, int16_t, 1)

// The last is how many stand in a line.
QEL_PRINT(float32, print, "%.6f ", as_it_is, 16)
QEL_PRINT(int32, print, "%4d ", as_it_is, 16)
QEL_PRINT(int16, print, "%4d ", as_it_is, 32)  // in numbers alone, not in the float form
QEL_PRINT(int32, print_float, "%.6f ", as_real<int32_t>, 16)
QEL_PRINT(int16, print_float, "%.6f ", as_real<int16_t>, 16)
