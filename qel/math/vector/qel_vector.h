// Vectors that know their length, in three element types, and the operations on them.
//
// int32 elements are Q20 numbers (1.0 is 1048576), int16 elements Q12 (1.0 is 4096). Integer
// results wrap and fixed-point products are shifted right arithmetically: nothing rounds, and only
// exp and log saturate.
//
// Callers go through the dispatch pointers, named by type and operation; each holds the portable
// `_c` variant or a faster one of the same meaning. A whole-vector form takes records, its `_nval`
// form bare arrays and a count; an `_nval` form that yields no value returns 0.
#ifndef QEL_MATH_VECTOR_QEL_VECTOR_H
#define QEL_MATH_VECTOR_QEL_VECTOR_H

#include <stdint.h>

#include "qel/core/qel_export.h"
#include "qel/math/fft/qel_fft.h"

QEL_BEGIN_DECLS

// Element types of a vector union; the FFT's state unions use the same codes.
enum { QEL_VECTOR_FLOAT32 = 0, QEL_VECTOR_INT32 = 1, QEL_VECTOR_INT16 = 2 };

// Bytes from the start of a vector's heap block to its first element.
enum { QEL_VECTOR_HEADER_BYTES = 16 };

// The records: one heap block each, the elements right behind a header of 16 bytes. C++ knows
// the open array at the end as an extension only.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"

typedef struct qel_vector_float32 {
    uint32_t len;       // elements in use
    uint32_t capacity;  // elements the block was made for
    uint32_t reserved[2];
    float data[];
} qel_vector_float32;

typedef struct qel_vector_int32 {
    uint32_t len;
    uint32_t capacity;
    uint32_t reserved[2];
    int32_t data[];  // Q20
} qel_vector_int32;

typedef struct qel_vector_int16 {
    uint32_t len;
    uint32_t capacity;
    uint32_t reserved[2];
    int16_t data[];  // Q12
} qel_vector_int16;

#pragma GCC diagnostic pop

// A vector whose element type is chosen at run time.
typedef struct qel_vector_union {
    void* vec;     // qel_vector_float32, _int32 or _int16, by `type`; may be null
    int32_t type;  // QEL_VECTOR_FLOAT32, QEL_VECTOR_INT32 or QEL_VECTOR_INT16
} qel_vector_union;

/// Fills the table, once: portable variants first, then the NEON variants a build has. The loader
/// calls it, after qel_fft_init_module(); a program that links the objects itself must do the same
/// before any other call here.
QEL_API void qel_vector_init_module(void);

/// Stores the `_c` variants in all pointers but the two integer `set`.
QEL_API void qel_vector_init_generic(void);

/// Stores the NEON variants; a build without them leaves the table alone.
QEL_API void qel_vector_init_neon(void);

/// Stores `type` and, if it is known, makes a vector of `len` elements (null on failure). Any other
/// type leaves `vec` as it was, so zero the record first.
QEL_API void qel_vector_union_init(qel_vector_union* holder, int32_t type, uint32_t len);

/// Deletes the vector of a known type; the fields keep their values.
QEL_API void qel_vector_union_clean(qel_vector_union* holder);

/// Makes a union on the heap and initialises it; null when memory for the union runs out.
QEL_API qel_vector_union* qel_vector_union_new(int32_t type, uint32_t len);

/// Cleans and frees; ignores null.
QEL_API void qel_vector_union_delete(qel_vector_union* holder);

// The operations, the same for each type. The pointers are null until qel_vector_init_module()
// runs.
//
// new(len): a vector of `len` elements of any value; null when memory runs out or the block would
// pass 4 GiB. The caller owns it until delete(vec), which ignores null.
// data_bytes(vec): bytes of the elements; bytes(vec): the header's 16 bytes more.
// cpy(dst, src): copies elements and length; `dst` must have room, which is not checked.
// zero(vec): sets all elements to 0.
// print(vec): on standard output, "%.6f " or "%4d " for an element, in lines of 16 (int16: 32) that
// begin with a newline, and a newline at the end. print_float_c(vec) prints the Q20 or Q12 values,
// 16 a line in both types.
//
// mul, sub, add(dst, a, b): 0, or -1 and a WARNING, `dst` untouched, if `a` and `b` differ in
// length. Otherwise all of `dst` is computed; what it has beyond their length stays as it is. The
// three may be the same vector.
// sum(vec): in index order, in one accumulator of the element type.
// avg(vec): float32: sum / n, NaN if empty. int32: sum / n truncated while n < 2048; in general the
// 64-bit (sum << 20) / (n << 20) with a divisor that wraps to 32 bits. int16: (sum << 12) / (n
// wrapped to 16 bits), truncated to 16 bits: 4096 times the mean. Integer divisors of 0 give 0.
// max, min(vec): by < from element 0 on, so a NaN counts only there. Element 0 is the answer for
// n = 0 too; a vector made with no element at all gives 0.
// scale(vec, factor), set(vec, value): in place. The integer types set by `set_nval` only.
//
// exp, log, softmax, sigmoid(vec): in place. Nothing of the C library is called, so results are the
// same on every processor.
// float32: within 2 ULP of the correctly rounded value wherever that is finite, subnormals
// included; NaN, infinities, zeros and negative numbers as the C library's expf and logf treat
// them (1 / (1 + e^-x) for sigmoid).
// int32 and int16: the true value in the format, truncated toward 0, at most 1 unit off. The one
// place where these types saturate: exp that is too large gives the largest value of the format;
// log of 0 or less, or below the format, gives the smallest.
// softmax(vec) is e^(x[i] - max) / sum of all e^(x[j] - max), which never overflows; an entry of
// -infinity gives 0, one of NaN or +infinity makes all of them NaN.
//
// realft(out, in, plan): the spectrum of the first 2 * ncfft elements of `in`, by the dispatched
// r2c (integers scaled: divided by 2 * ncfft): ncfft + 1 bins of two elements each. The length of
// `out` counts bins but the last, ncfft, or it counts all their elements, 2 * ncfft + 2. In both
// cases `out` must have been made for 2 * ncfft + 2 elements. 0, or -1 and a WARNING, `out`
// untouched, when a length does not fit. realft_nval(out, in, n, plan) wants n = ncfft and trusts
// the room behind its pointers; -1 and nothing done for another n.

// float32

extern QEL_API qel_vector_float32* (*qel_vector_float32_new)(uint32_t len);
extern QEL_API void (*qel_vector_float32_delete)(qel_vector_float32* vec);
extern QEL_API uint32_t (*qel_vector_float32_data_bytes)(const qel_vector_float32* vec);
extern QEL_API uint32_t (*qel_vector_float32_bytes)(const qel_vector_float32* vec);
extern QEL_API void (*qel_vector_float32_cpy)(qel_vector_float32* dst,
                                              const qel_vector_float32* src);
extern QEL_API void (*qel_vector_float32_zero)(qel_vector_float32* vec);
extern QEL_API void (*qel_vector_float32_print)(const qel_vector_float32* vec);
extern QEL_API int32_t (*qel_vector_float32_mul)(qel_vector_float32* dst,
                                                 const qel_vector_float32* a,
                                                 const qel_vector_float32* b);
extern QEL_API int32_t (*qel_vector_float32_sub)(qel_vector_float32* dst,
                                                 const qel_vector_float32* a,
                                                 const qel_vector_float32* b);
extern QEL_API int32_t (*qel_vector_float32_add)(qel_vector_float32* dst,
                                                 const qel_vector_float32* a,
                                                 const qel_vector_float32* b);
extern QEL_API float (*qel_vector_float32_sum)(const qel_vector_float32* vec);
extern QEL_API float (*qel_vector_float32_avg)(const qel_vector_float32* vec);
extern QEL_API float (*qel_vector_float32_max)(const qel_vector_float32* vec);
extern QEL_API float (*qel_vector_float32_min)(const qel_vector_float32* vec);
extern QEL_API void (*qel_vector_float32_exp)(qel_vector_float32* vec);
extern QEL_API void (*qel_vector_float32_log)(qel_vector_float32* vec);
extern QEL_API void (*qel_vector_float32_scale)(qel_vector_float32* vec, float factor);
extern QEL_API void (*qel_vector_float32_softmax)(qel_vector_float32* vec);
extern QEL_API void (*qel_vector_float32_sigmoid)(qel_vector_float32* vec);
extern QEL_API int32_t (*qel_vector_float32_realft)(qel_vector_float32* out,
                                                    const qel_vector_float32* in,
                                                    const qel_fft_r2c_cfg_float32* plan);
extern QEL_API void (*qel_vector_float32_set)(qel_vector_float32* vec, float value);

QEL_API qel_vector_float32* qel_vector_float32_new_c(uint32_t len);
QEL_API void qel_vector_float32_delete_c(qel_vector_float32* vec);
QEL_API uint32_t qel_vector_float32_data_bytes_c(const qel_vector_float32* vec);
QEL_API uint32_t qel_vector_float32_bytes_c(const qel_vector_float32* vec);
QEL_API void qel_vector_float32_cpy_c(qel_vector_float32* dst, const qel_vector_float32* src);
QEL_API void qel_vector_float32_zero_c(qel_vector_float32* vec);
QEL_API void qel_vector_float32_print_c(const qel_vector_float32* vec);
QEL_API int32_t qel_vector_float32_mul_c(qel_vector_float32* dst, const qel_vector_float32* a,
                                         const qel_vector_float32* b);
QEL_API int32_t qel_vector_float32_sub_c(qel_vector_float32* dst, const qel_vector_float32* a,
                                         const qel_vector_float32* b);
QEL_API int32_t qel_vector_float32_add_c(qel_vector_float32* dst, const qel_vector_float32* a,
                                         const qel_vector_float32* b);
QEL_API float qel_vector_float32_sum_c(const qel_vector_float32* vec);
QEL_API float qel_vector_float32_avg_c(const qel_vector_float32* vec);
QEL_API float qel_vector_float32_max_c(const qel_vector_float32* vec);
QEL_API float qel_vector_float32_min_c(const qel_vector_float32* vec);
QEL_API void qel_vector_float32_exp_c(qel_vector_float32* vec);
QEL_API void qel_vector_float32_log_c(qel_vector_float32* vec);
QEL_API void qel_vector_float32_scale_c(qel_vector_float32* vec, float factor);
QEL_API void qel_vector_float32_softmax_c(qel_vector_float32* vec);
QEL_API void qel_vector_float32_sigmoid_c(qel_vector_float32* vec);
QEL_API int32_t qel_vector_float32_realft_c(qel_vector_float32* out, const qel_vector_float32* in,
                                            const qel_fft_r2c_cfg_float32* plan);
QEL_API void qel_vector_float32_set_c(qel_vector_float32* vec, float value);

QEL_API int32_t qel_vector_float32_mul_nval_c(float* dst, const float* a, const float* b,
                                              uint32_t n);
QEL_API int32_t qel_vector_float32_sub_nval_c(float* dst, const float* a, const float* b,
                                              uint32_t n);
QEL_API int32_t qel_vector_float32_add_nval_c(float* dst, const float* a, const float* b,
                                              uint32_t n);
QEL_API float qel_vector_float32_sum_nval_c(const float* data, uint32_t n);
QEL_API float qel_vector_float32_avg_nval_c(const float* data, uint32_t n);
QEL_API float qel_vector_float32_max_nval_c(const float* data, uint32_t n);
QEL_API float qel_vector_float32_min_nval_c(const float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_exp_nval_c(float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_log_nval_c(float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_scale_nval_c(float* data, uint32_t n, float factor);
QEL_API int32_t qel_vector_float32_softmax_nval_c(float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_sigmoid_nval_c(float* data, uint32_t n);
QEL_API int32_t qel_vector_float32_realft_nval_c(float* out, const float* in, uint32_t n,
                                                 const qel_fft_r2c_cfg_float32* plan);
QEL_API int32_t qel_vector_float32_set_nval_c(float* data, uint32_t n, float value);

// int32, Q20

extern QEL_API qel_vector_int32* (*qel_vector_int32_new)(uint32_t len);
extern QEL_API void (*qel_vector_int32_delete)(qel_vector_int32* vec);
extern QEL_API uint32_t (*qel_vector_int32_data_bytes)(const qel_vector_int32* vec);
extern QEL_API uint32_t (*qel_vector_int32_bytes)(const qel_vector_int32* vec);
extern QEL_API void (*qel_vector_int32_cpy)(qel_vector_int32* dst, const qel_vector_int32* src);
extern QEL_API void (*qel_vector_int32_zero)(qel_vector_int32* vec);
extern QEL_API void (*qel_vector_int32_print)(const qel_vector_int32* vec);
extern QEL_API int32_t (*qel_vector_int32_mul)(qel_vector_int32* dst, const qel_vector_int32* a,
                                               const qel_vector_int32* b);
extern QEL_API int32_t (*qel_vector_int32_sub)(qel_vector_int32* dst, const qel_vector_int32* a,
                                               const qel_vector_int32* b);
extern QEL_API int32_t (*qel_vector_int32_add)(qel_vector_int32* dst, const qel_vector_int32* a,
                                               const qel_vector_int32* b);
extern QEL_API int32_t (*qel_vector_int32_sum)(const qel_vector_int32* vec);
extern QEL_API int32_t (*qel_vector_int32_avg)(const qel_vector_int32* vec);
extern QEL_API int32_t (*qel_vector_int32_max)(const qel_vector_int32* vec);
extern QEL_API int32_t (*qel_vector_int32_min)(const qel_vector_int32* vec);
extern QEL_API void (*qel_vector_int32_exp)(qel_vector_int32* vec);
extern QEL_API void (*qel_vector_int32_log)(qel_vector_int32* vec);
extern QEL_API void (*qel_vector_int32_scale)(qel_vector_int32* vec, int32_t factor);
extern QEL_API void (*qel_vector_int32_softmax)(qel_vector_int32* vec);
extern QEL_API void (*qel_vector_int32_sigmoid)(qel_vector_int32* vec);
extern QEL_API int32_t (*qel_vector_int32_realft)(qel_vector_int32* out, const qel_vector_int32* in,
                                                  const qel_fft_r2c_cfg_int32* plan);
extern QEL_API void (*qel_vector_int32_set)(qel_vector_int32* vec, int32_t value);  // stays null

QEL_API qel_vector_int32* qel_vector_int32_new_c(uint32_t len);
QEL_API void qel_vector_int32_delete_c(qel_vector_int32* vec);
QEL_API uint32_t qel_vector_int32_data_bytes_c(const qel_vector_int32* vec);
QEL_API uint32_t qel_vector_int32_bytes_c(const qel_vector_int32* vec);
QEL_API void qel_vector_int32_cpy_c(qel_vector_int32* dst, const qel_vector_int32* src);
QEL_API void qel_vector_int32_zero_c(qel_vector_int32* vec);
QEL_API void qel_vector_int32_print_c(const qel_vector_int32* vec);
QEL_API int32_t qel_vector_int32_mul_c(qel_vector_int32* dst, const qel_vector_int32* a,
                                       const qel_vector_int32* b);
QEL_API int32_t qel_vector_int32_sub_c(qel_vector_int32* dst, const qel_vector_int32* a,
                                       const qel_vector_int32* b);
QEL_API int32_t qel_vector_int32_add_c(qel_vector_int32* dst, const qel_vector_int32* a,
                                       const qel_vector_int32* b);
QEL_API int32_t qel_vector_int32_sum_c(const qel_vector_int32* vec);
QEL_API int32_t qel_vector_int32_avg_c(const qel_vector_int32* vec);
QEL_API int32_t qel_vector_int32_max_c(const qel_vector_int32* vec);
QEL_API int32_t qel_vector_int32_min_c(const qel_vector_int32* vec);
QEL_API void qel_vector_int32_exp_c(qel_vector_int32* vec);
QEL_API void qel_vector_int32_log_c(qel_vector_int32* vec);
QEL_API void qel_vector_int32_scale_c(qel_vector_int32* vec, int32_t factor);
QEL_API void qel_vector_int32_softmax_c(qel_vector_int32* vec);
QEL_API void qel_vector_int32_sigmoid_c(qel_vector_int32* vec);
QEL_API int32_t qel_vector_int32_realft_c(qel_vector_int32* out, const qel_vector_int32* in,
                                          const qel_fft_r2c_cfg_int32* plan);
QEL_API void qel_vector_int32_print_float_c(const qel_vector_int32* vec);

QEL_API int32_t qel_vector_int32_mul_nval_c(int32_t* dst, const int32_t* a, const int32_t* b,
                                            uint32_t n);
QEL_API int32_t qel_vector_int32_sub_nval_c(int32_t* dst, const int32_t* a, const int32_t* b,
                                            uint32_t n);
QEL_API int32_t qel_vector_int32_add_nval_c(int32_t* dst, const int32_t* a, const int32_t* b,
                                            uint32_t n);
QEL_API int32_t qel_vector_int32_sum_nval_c(const int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_avg_nval_c(const int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_max_nval_c(const int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_min_nval_c(const int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_exp_nval_c(int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_log_nval_c(int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_scale_nval_c(int32_t* data, uint32_t n, int32_t factor);
QEL_API int32_t qel_vector_int32_softmax_nval_c(int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_sigmoid_nval_c(int32_t* data, uint32_t n);
QEL_API int32_t qel_vector_int32_realft_nval_c(int32_t* out, const int32_t* in, uint32_t n,
                                               const qel_fft_r2c_cfg_int32* plan);
QEL_API int32_t qel_vector_int32_set_nval_c(int32_t* data, uint32_t n, int32_t value);

// int16, Q12; its avg_nval alone has a pointer of its own

extern QEL_API qel_vector_int16* (*qel_vector_int16_new)(uint32_t len);
extern QEL_API void (*qel_vector_int16_delete)(qel_vector_int16* vec);
extern QEL_API uint32_t (*qel_vector_int16_data_bytes)(const qel_vector_int16* vec);
extern QEL_API uint32_t (*qel_vector_int16_bytes)(const qel_vector_int16* vec);
extern QEL_API void (*qel_vector_int16_cpy)(qel_vector_int16* dst, const qel_vector_int16* src);
extern QEL_API void (*qel_vector_int16_zero)(qel_vector_int16* vec);
extern QEL_API void (*qel_vector_int16_print)(const qel_vector_int16* vec);
extern QEL_API int32_t (*qel_vector_int16_mul)(qel_vector_int16* dst, const qel_vector_int16* a,
                                               const qel_vector_int16* b);
extern QEL_API int32_t (*qel_vector_int16_sub)(qel_vector_int16* dst, const qel_vector_int16* a,
                                               const qel_vector_int16* b);
extern QEL_API int32_t (*qel_vector_int16_add)(qel_vector_int16* dst, const qel_vector_int16* a,
                                               const qel_vector_int16* b);
extern QEL_API int16_t (*qel_vector_int16_sum)(const qel_vector_int16* vec);
extern QEL_API int16_t (*qel_vector_int16_avg)(const qel_vector_int16* vec);
extern QEL_API int16_t (*qel_vector_int16_max)(const qel_vector_int16* vec);
extern QEL_API int16_t (*qel_vector_int16_min)(const qel_vector_int16* vec);
extern QEL_API void (*qel_vector_int16_exp)(qel_vector_int16* vec);
extern QEL_API void (*qel_vector_int16_log)(qel_vector_int16* vec);
extern QEL_API void (*qel_vector_int16_scale)(qel_vector_int16* vec, int16_t factor);
extern QEL_API void (*qel_vector_int16_softmax)(qel_vector_int16* vec);
extern QEL_API void (*qel_vector_int16_sigmoid)(qel_vector_int16* vec);
extern QEL_API int32_t (*qel_vector_int16_realft)(qel_vector_int16* out, const qel_vector_int16* in,
                                                  const qel_fft_r2c_cfg_int16* plan);
extern QEL_API void (*qel_vector_int16_set)(qel_vector_int16* vec, int16_t value);  // stays null
extern QEL_API int16_t (*qel_vector_int16_avg_nval)(const int16_t* data, uint32_t n);

QEL_API qel_vector_int16* qel_vector_int16_new_c(uint32_t len);
QEL_API void qel_vector_int16_delete_c(qel_vector_int16* vec);
QEL_API uint32_t qel_vector_int16_data_bytes_c(const qel_vector_int16* vec);
QEL_API uint32_t qel_vector_int16_bytes_c(const qel_vector_int16* vec);
QEL_API void qel_vector_int16_cpy_c(qel_vector_int16* dst, const qel_vector_int16* src);
QEL_API void qel_vector_int16_zero_c(qel_vector_int16* vec);
QEL_API void qel_vector_int16_print_c(const qel_vector_int16* vec);
QEL_API int32_t qel_vector_int16_mul_c(qel_vector_int16* dst, const qel_vector_int16* a,
                                       const qel_vector_int16* b);
QEL_API int32_t qel_vector_int16_sub_c(qel_vector_int16* dst, const qel_vector_int16* a,
                                       const qel_vector_int16* b);
QEL_API int32_t qel_vector_int16_add_c(qel_vector_int16* dst, const qel_vector_int16* a,
                                       const qel_vector_int16* b);
QEL_API int16_t qel_vector_int16_sum_c(const qel_vector_int16* vec);
QEL_API int16_t qel_vector_int16_avg_c(const qel_vector_int16* vec);
QEL_API int16_t qel_vector_int16_max_c(const qel_vector_int16* vec);
QEL_API int16_t qel_vector_int16_min_c(const qel_vector_int16* vec);
QEL_API void qel_vector_int16_exp_c(qel_vector_int16* vec);
QEL_API void qel_vector_int16_log_c(qel_vector_int16* vec);
QEL_API void qel_vector_int16_scale_c(qel_vector_int16* vec, int16_t factor);
QEL_API void qel_vector_int16_softmax_c(qel_vector_int16* vec);
QEL_API void qel_vector_int16_sigmoid_c(qel_vector_int16* vec);
QEL_API int32_t qel_vector_int16_realft_c(qel_vector_int16* out, const qel_vector_int16* in,
                                          const qel_fft_r2c_cfg_int16* plan);
QEL_API void qel_vector_int16_print_float_c(const qel_vector_int16* vec);

QEL_API int32_t qel_vector_int16_mul_nval_c(int16_t* dst, const int16_t* a, const int16_t* b,
                                            uint32_t n);
QEL_API int32_t qel_vector_int16_sub_nval_c(int16_t* dst, const int16_t* a, const int16_t* b,
                                            uint32_t n);
QEL_API int32_t qel_vector_int16_add_nval_c(int16_t* dst, const int16_t* a, const int16_t* b,
                                            uint32_t n);
QEL_API int16_t qel_vector_int16_sum_nval_c(const int16_t* data, uint32_t n);
QEL_API int16_t qel_vector_int16_avg_nval_c(const int16_t* data, uint32_t n);
QEL_API int16_t qel_vector_int16_max_nval_c(const int16_t* data, uint32_t n);
QEL_API int16_t qel_vector_int16_min_nval_c(const int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_exp_nval_c(int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_log_nval_c(int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_scale_nval_c(int16_t* data, uint32_t n, int16_t factor);
QEL_API int32_t qel_vector_int16_softmax_nval_c(int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_sigmoid_nval_c(int16_t* data, uint32_t n);
QEL_API int32_t qel_vector_int16_realft_nval_c(int16_t* out, const int16_t* in, uint32_t n,
                                               const qel_fft_r2c_cfg_int16* plan);
QEL_API int32_t qel_vector_int16_set_nval_c(int16_t* data, uint32_t n, int16_t value);

QEL_END_DECLS

#endif
