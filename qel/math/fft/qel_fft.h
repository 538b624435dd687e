// Fast Fourier transforms: complex, real to complex and complex to real, in three element types.
//
// A transform runs on a plan, made once per length. Callers go through the dispatch pointers; each
// holds the portable `_c` variant or a faster one of the same meaning. Forward is
// X[k] = sum x[n] e^(-2 pi i nk/N), inverse has the opposite sign. Complex arrays hold the real
// part first. Every length that an allocator accepts transforms correctly: powers of two by a fast
// radix-4 engine, all others by a mixed-radix one (a prime factor p above 5 costs N * p).
#ifndef QEL_MATH_FFT_QEL_FFT_H
#define QEL_MATH_FFT_QEL_FFT_H

#include <stdint.h>

#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

// Words of a factor table. Word 0: number of stages; word 1: length / radix of the last stage;
// words 2i and 2i+1: radix of stage i and the length that remains behind it, i = 1 .. stages. The
// word after the last stage: 0 if all radices are 2 or 4 (fast engine), 1 otherwise (mixed-radix
// engine).
enum { QEL_FFT_FACTOR_WORDS = 64 };

// Element types of a state union; vector unions use the same codes.
enum { QEL_FFT_FLOAT32 = 0, QEL_FFT_INT32 = 1, QEL_FFT_INT16 = 2 };

typedef struct qel_fft_cpx_float32 {
    float r, i;
} qel_fft_cpx_float32;

typedef struct qel_fft_cpx_int32 {
    int32_t r, i;
} qel_fft_cpx_int32;

typedef struct qel_fft_cpx_int16 {
    int16_t r, i;
} qel_fft_cpx_int16;

// Plans of complex transforms. All areas lie in the record's own heap block, 8-byte aligned.
typedef struct qel_fft_cfg_float32 {
    int32_t nfft;                         // complex points
    int32_t* factors;                     // QEL_FFT_FACTOR_WORDS words
    qel_fft_cpx_float32* twiddles;        // nfft
    qel_fft_cpx_float32* buffer;          // nfft, overwritten by every transform
    qel_fft_cpx_float32* extra_twiddles;  // for vector variants; null in a portable plan
    int32_t forward_scaled;               // 0: forward does not scale
    int32_t backward_scaled;              // 1: the fast engine's inverse divides by nfft
} qel_fft_cfg_float32;

typedef struct qel_fft_cfg_int32 {
    int32_t nfft;
    int32_t* factors;
    qel_fft_cpx_int32* twiddles;  // Q31
    qel_fft_cpx_int32* buffer;
    qel_fft_cpx_int32* extra_twiddles;
    int32_t forward_scaled;  // as the float plan; the `scaled` argument decides
    int32_t backward_scaled;
} qel_fft_cfg_int32;

typedef struct qel_fft_cfg_int16 {
    int32_t nfft;
    int32_t* factors;
    qel_fft_cpx_int16* twiddles;  // Q15
    qel_fft_cpx_int16* buffer;
    qel_fft_cpx_int16* extra_twiddles;
    int32_t forward_scaled;  // as the float plan; the `scaled` argument decides
    int32_t backward_scaled;
} qel_fft_cfg_int16;

// Plans of real transforms, shared by r2c and c2r of one length. They run a complex transform of
// half the length, ncfft = nfft / 2 rounded down: of an odd length they cover the first nfft - 1.
typedef struct qel_fft_r2c_cfg_float32 {
    qel_fft_cpx_float32* buffer;          // nfft, overwritten by every transform
    int32_t ncfft;                        // complex points of the inner transform
    int32_t* factors;                     // of ncfft
    qel_fft_cpx_float32* twiddles;        // ncfft, of the inner transform
    qel_fft_cpx_float32* super_twiddles;  // ncfft / 2, of the split between the two
} qel_fft_r2c_cfg_float32;

typedef struct qel_fft_r2c_cfg_int32 {
    qel_fft_cpx_int32* buffer;
    int32_t ncfft;
    int32_t* factors;
    qel_fft_cpx_int32* twiddles;        // Q31
    qel_fft_cpx_int32* super_twiddles;  // Q31
} qel_fft_r2c_cfg_int32;

typedef struct qel_fft_r2c_cfg_int16 {
    qel_fft_cpx_int16* buffer;
    int32_t ncfft;
    int32_t* factors;
    qel_fft_cpx_int16* twiddles;        // Q15
    qel_fft_cpx_int16* super_twiddles;  // Q15
} qel_fft_r2c_cfg_int16;

// A real plan whose element type is chosen at run time.
typedef struct qel_fft_r2c_state_union {
    void* plan;    // qel_fft_r2c_cfg_float32, _int32 or _int16, by `type`; may be null
    int32_t type;  // QEL_FFT_FLOAT32, QEL_FFT_INT32 or QEL_FFT_INT16
} qel_fft_r2c_state_union;

/// Fills the table, once: portable variants first, then the NEON variants a build has. The loader
/// calls it; a program that links the objects itself must call it before any other function here.
QEL_API void qel_fft_init_module(void);

/// Stores the `_c` variant in all 21 pointers.
QEL_API void qel_fft_init_generic(void);

/// Stores the NEON variants; a build without them leaves the table alone.
QEL_API void qel_fft_init_neon(void);

/// Stores `type` and, if it is known, makes its plan for `nfft` real points (null on failure). Any
/// other type leaves `plan` as it was, so zero the union first.
QEL_API void qel_fft_r2c_state_union_init(qel_fft_r2c_state_union* state, int32_t type,
                                          int32_t nfft);

/// Destroys the plan of a known type; the fields keep their values.
QEL_API void qel_fft_r2c_state_union_clean(qel_fft_r2c_state_union* state);

// The table. Null until qel_fft_init_module() runs.
//
// alloc_c2c(nfft) makes a plan of nfft complex points, alloc_r2c(nfft) one of nfft real points.
// Null when memory runs out, when nfft is not positive, and when the plan would need 2^31 bytes or
// more. Nothing is logged. The destroy functions ignore null.
//
// The transforms check nothing and allocate nothing. Plans may serve any number of transforms in
// sequence, on one thread at a time. `out` and `in` of c2c must not overlap; r2c and c2r may work
// in place, `out` on `in`.
//
// c2c_1d(out, in, plan, inverse): `inverse` is 0 for forward, anything else for inverse.
// r2c_1d(out, in, plan): 2 * ncfft reals to ncfft + 1 bins, of which the first and the last get an
// imaginary part of exactly 0. c2r_1d(out, in, plan): the way back; it reads neither of these two.
// Both leave the last point of an odd nfft alone. With nfft = 1 there is one bin, which r2c sets to
// 0, and nothing for c2r to write.
//
// float32 scaling: forward c2c and r2c do not scale, c2r divides by 2 * ncfft, so c2r(r2c(x)) is x.
// An inverse c2c divides by nfft only if nfft is a power of two: the mixed-radix engine never
// scales.
//
// int32 and int16 scaling: `scaled` non-zero divides by the radix at each stage, so that a
// transform of N points, c2c, r2c or c2r, either way, is divided by N in all. Zero scales nothing.
// What goes forward scaled comes back unscaled, and the reverse. Twiddles are Q31 and Q15; each
// stage computes in twice the width of the data and rounds to nearest, once.
//
// Scaled, nothing wraps. Stages have headroom for any input, and only a result that itself exceeds
// full scale saturates: complex values with both parts near full scale, turning in step with a bin,
// can reach 4/pi of it. Unscaled, every stage wraps what does not fit; the way back to a signal
// fits in all stages if its magnitudes sqrt(r^2 + i^2) do. In a real transform both rules hold for
// the complex one inside, whose values are the pairs x[2n], x[2n + 1]: |x| <= 0.7 full scale is
// safe.
extern QEL_API qel_fft_cfg_float32* (*qel_fft_alloc_c2c_float32)(int32_t nfft);
extern QEL_API qel_fft_cfg_int32* (*qel_fft_alloc_c2c_int32)(int32_t nfft);
extern QEL_API qel_fft_cfg_int16* (*qel_fft_alloc_c2c_int16)(int32_t nfft);
extern QEL_API qel_fft_r2c_cfg_float32* (*qel_fft_alloc_r2c_float32)(int32_t nfft);
extern QEL_API qel_fft_r2c_cfg_int32* (*qel_fft_alloc_r2c_int32)(int32_t nfft);
extern QEL_API qel_fft_r2c_cfg_int16* (*qel_fft_alloc_r2c_int16)(int32_t nfft);

extern QEL_API void (*qel_fft_destroy_c2c_float32)(qel_fft_cfg_float32* plan);
extern QEL_API void (*qel_fft_destroy_c2c_int32)(qel_fft_cfg_int32* plan);
extern QEL_API void (*qel_fft_destroy_c2c_int16)(qel_fft_cfg_int16* plan);
extern QEL_API void (*qel_fft_destroy_r2c_float32)(qel_fft_r2c_cfg_float32* plan);
extern QEL_API void (*qel_fft_destroy_r2c_int32)(qel_fft_r2c_cfg_int32* plan);
extern QEL_API void (*qel_fft_destroy_r2c_int16)(qel_fft_r2c_cfg_int16* plan);

extern QEL_API void (*qel_fft_c2c_1d_float32)(qel_fft_cpx_float32* out,
                                              const qel_fft_cpx_float32* in,
                                              const qel_fft_cfg_float32* plan, int32_t inverse);
extern QEL_API void (*qel_fft_r2c_1d_float32)(qel_fft_cpx_float32* out, const float* in,
                                              const qel_fft_r2c_cfg_float32* plan);
extern QEL_API void (*qel_fft_c2r_1d_float32)(float* out, const qel_fft_cpx_float32* in,
                                              const qel_fft_r2c_cfg_float32* plan);
extern QEL_API void (*qel_fft_c2c_1d_int32)(qel_fft_cpx_int32* out, const qel_fft_cpx_int32* in,
                                            const qel_fft_cfg_int32* plan, int32_t inverse,
                                            int32_t scaled);
extern QEL_API void (*qel_fft_r2c_1d_int32)(qel_fft_cpx_int32* out, const int32_t* in,
                                            const qel_fft_r2c_cfg_int32* plan, int32_t scaled);
extern QEL_API void (*qel_fft_c2r_1d_int32)(int32_t* out, const qel_fft_cpx_int32* in,
                                            const qel_fft_r2c_cfg_int32* plan, int32_t scaled);
extern QEL_API void (*qel_fft_c2c_1d_int16)(qel_fft_cpx_int16* out, const qel_fft_cpx_int16* in,
                                            const qel_fft_cfg_int16* plan, int32_t inverse,
                                            int32_t scaled);
extern QEL_API void (*qel_fft_r2c_1d_int16)(qel_fft_cpx_int16* out, const int16_t* in,
                                            const qel_fft_r2c_cfg_int16* plan, int32_t scaled);
extern QEL_API void (*qel_fft_c2r_1d_int16)(int16_t* out, const qel_fft_cpx_int16* in,
                                            const qel_fft_r2c_cfg_int16* plan, int32_t scaled);

// The portable variants, by their own names.
QEL_API qel_fft_cfg_float32* qel_fft_alloc_c2c_float32_c(int32_t nfft);
QEL_API qel_fft_cfg_int32* qel_fft_alloc_c2c_int32_c(int32_t nfft);
QEL_API qel_fft_cfg_int16* qel_fft_alloc_c2c_int16_c(int32_t nfft);
QEL_API qel_fft_r2c_cfg_float32* qel_fft_alloc_r2c_float32_c(int32_t nfft);
QEL_API qel_fft_r2c_cfg_int32* qel_fft_alloc_r2c_int32_c(int32_t nfft);
QEL_API qel_fft_r2c_cfg_int16* qel_fft_alloc_r2c_int16_c(int32_t nfft);

QEL_API void qel_fft_destroy_c2c_float32_c(qel_fft_cfg_float32* plan);
QEL_API void qel_fft_destroy_c2c_int32_c(qel_fft_cfg_int32* plan);
QEL_API void qel_fft_destroy_c2c_int16_c(qel_fft_cfg_int16* plan);
QEL_API void qel_fft_destroy_r2c_float32_c(qel_fft_r2c_cfg_float32* plan);
QEL_API void qel_fft_destroy_r2c_int32_c(qel_fft_r2c_cfg_int32* plan);
QEL_API void qel_fft_destroy_r2c_int16_c(qel_fft_r2c_cfg_int16* plan);

QEL_API void qel_fft_c2c_1d_float32_c(qel_fft_cpx_float32* out, const qel_fft_cpx_float32* in,
                                      const qel_fft_cfg_float32* plan, int32_t inverse);
QEL_API void qel_fft_r2c_1d_float32_c(qel_fft_cpx_float32* out, const float* in,
                                      const qel_fft_r2c_cfg_float32* plan);
QEL_API void qel_fft_c2r_1d_float32_c(float* out, const qel_fft_cpx_float32* in,
                                      const qel_fft_r2c_cfg_float32* plan);
QEL_API void qel_fft_c2c_1d_int32_c(qel_fft_cpx_int32* out, const qel_fft_cpx_int32* in,
                                    const qel_fft_cfg_int32* plan, int32_t inverse, int32_t scaled);
QEL_API void qel_fft_r2c_1d_int32_c(qel_fft_cpx_int32* out, const int32_t* in,
                                    const qel_fft_r2c_cfg_int32* plan, int32_t scaled);
QEL_API void qel_fft_c2r_1d_int32_c(int32_t* out, const qel_fft_cpx_int32* in,
                                    const qel_fft_r2c_cfg_int32* plan, int32_t scaled);
QEL_API void qel_fft_c2c_1d_int16_c(qel_fft_cpx_int16* out, const qel_fft_cpx_int16* in,
                                    const qel_fft_cfg_int16* plan, int32_t inverse, int32_t scaled);
QEL_API void qel_fft_r2c_1d_int16_c(qel_fft_cpx_int16* out, const int16_t* in,
                                    const qel_fft_r2c_cfg_int16* plan, int32_t scaled);
QEL_API void qel_fft_c2r_1d_int16_c(int16_t* out, const qel_fft_cpx_int16* in,
                                    const qel_fft_r2c_cfg_int16* plan, int32_t scaled);

/// The mixed-radix engine alone, unscaled. The length is the one that `factors` and `twiddles` were
/// made for; `buffer` is work space of that many values. The three arrays must not overlap.
QEL_API void _mixed_radix_generic_butterfly_float32_c(qel_fft_cpx_float32* out,
                                                      const qel_fft_cpx_float32* in,
                                                      const int32_t* factors,
                                                      const qel_fft_cpx_float32* twiddles,
                                                      qel_fft_cpx_float32* buffer);
QEL_API void _mixed_radix_generic_butterfly_inverse_float32_c(qel_fft_cpx_float32* out,
                                                              const qel_fft_cpx_float32* in,
                                                              const int32_t* factors,
                                                              const qel_fft_cpx_float32* twiddles,
                                                              qel_fft_cpx_float32* buffer);

/// Writes the m * (p - 1) twiddles of one stage of radix p, m points of each column, and returns
/// the place behind them: at (k - 1) * m + j stands e^(-2 pi i k j fstride / nfft).
typedef void* (*qel_fft_twiddles_line)(void* twiddles, int32_t m, int32_t fstride, int32_t p,
                                       int32_t nfft);

/// The line of float32 values; the angle is rounded to float32 before its cosine and sine are
/// taken.
QEL_API void* qel_fft_generate_twiddles_line_float32(void* twiddles, int32_t m, int32_t fstride,
                                                     int32_t p, int32_t nfft);
/// The line of Q31 values; 1.0 is stored as 2^31 - 1.
QEL_API void* qel_fft_generate_twiddles_line_int32(void* twiddles, int32_t m, int32_t fstride,
                                                   int32_t p, int32_t nfft);

/// Writes all twiddles of a complex transform of `nfft` points, at most nfft values, in the order
/// in which the engines use them: from the stage before the last factor to the first factor. `line`
/// decides the element type.
QEL_API void qel_fft_generate_twiddles_impl_float32(void* twiddles, const int32_t* factors,
                                                    int32_t nfft, qel_fft_twiddles_line line);
/// The same with the float32 line.
QEL_API void qel_fft_generate_twiddles_float32(qel_fft_cpx_float32* twiddles,
                                               const int32_t* factors, int32_t nfft);

QEL_END_DECLS

#endif
