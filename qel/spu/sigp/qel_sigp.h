// Signal-processing helpers of the canceller: analysis window, delta floor, hypergeometric gain,
// and the frame separator of the header included here.
#ifndef QEL_SPU_SIGP_QEL_SIGP_H
#define QEL_SPU_SIGP_QEL_SIGP_H

#include <stdint.h>

#include "qel/core/qel_export.h"
#include "qel/math/vector/qel_vector.h"
#include "qel/spu/sigp/qel_sigp_frame_separator.h"

QEL_BEGIN_DECLS

/// Fills a float vector with the square root of a Hann window of `n` points, sampled at half
/// points: sqrt((1 - cos(2 pi (i + 0.5) / n)) / 2). Applied before and after a transform of even
/// `n`, its squares overlapped by n / 2 add up to 1. Other element types stay as they are; of a
/// vector shorter than `n` the head of the window is written.
QEL_API void qel_sigp_hanning_window_with_sqrt(qel_vector_union* vec, uint32_t n);

/// Fills a float vector with a floor for `n` bins of a filter of `m` partitions that falls linearly
/// with frequency and then stays: m * scale * max(2 / m, 1 - i / n). Other element types stay as
/// they are; of a vector shorter than `n` the head of the curve is written.
QEL_API void qel_sigp_gen_delta_floor(qel_vector_union* vec, uint32_t n, uint32_t m, float scale);

/// What the amplitude estimator of order 1/2 makes of the Wiener gain r = prior / (prior + 1), at
/// x = r * (posterior SNR): (Gamma(5/4) M(-1/4; 1; -x))^2 / sqrt(x) with the confluent
/// hypergeometric function M, from a table at steps of 0.5 with linear interpolation; from 10 on
/// its asymptote, below 0 and for NaN 1. (You, Koh and Rahardja, "Beta-order MMSE spectral
/// amplitude estimation for speech enhancement", 2005.)
QEL_API float qel_sigp_hypergeom_gain(float x);

QEL_END_DECLS

#endif
