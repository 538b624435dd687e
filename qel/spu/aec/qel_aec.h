// One running echo canceller: microphone and reference bytes in, microphone without echo out.
#ifndef QEL_SPU_AEC_QEL_AEC_H
#define QEL_SPU_AEC_QEL_AEC_H

#include <stdint.h>

#include "qel/core/qel_export.h"
#include "qel/core/qel_string.h"
#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/qel_vector.h"
#include "qel/spu/aec/qel_aec_cfg.h"
#include "qel/spu/aec/qel_aec_mute.h"
#include "qel/spu/aec/qel_aec_nlp.h"
#include "qel/spu/sigp/qel_sigp.h"
#include "qel/spu/svad/qel_svad.h"

QEL_BEGIN_DECLS

// Sizes: N = frame_size samples, F = fft_size = 2N, B = fft_bins = N + 1 bins, K = num_bank = B
// filter bins, T = taps partitions. Complex vectors hold real and imaginary parts in turn. Filter
// bin k of every partition is spectrum bin offset_bins + k; partition 0 is the oldest.
typedef struct qel_aec {
    const qel_aec_cfg* cfg;             // borrowed
    qel_aec_nlp* nlp;                   // exists when use_nlp
    qel_aec_mute* mute;                 // exists when use_mute
    qel_svad* ref_vad;                  // judges the windowed reference; exists when use_vad
    qel_svad* frame_vad;                // judges the raw reference frame; exists when use_vad
    int16_t norm_gain;                  // 2: multiplier of the normaliser
    float delta_floor_level;            // 7.5157342: level of the delta floor
    float norm_ceiling;                 // 2147352.5: upper clamp of the normaliser
    float post_error_gain;              // 0.5: factor of the a-posteriori error
    float step_size;                    // 0.4: adaptation step
    qel_vector_union mic;               // N: microphone frame
    qel_vector_union ref;               // N: reference frame
    qel_vector_int16* out;              // N: output frame
    qel_vector_union mic_pass;          // F: previous and current microphone frame, for the bypass
    qel_fft_r2c_state_union fft;        // plan for real length F
    qel_vector_union window;            // F: square-root Hann window
    qel_vector_union delta_floor;       // K: lower bound of the normaliser
    qel_vector_union norm;              // K: normaliser
    qel_vector_union ref_power_sum;     // K: reference power over all partitions
    qel_vector_union error_spec;        // B complex: error E = Y - echo estimate
    qel_vector_union step_spec;         // K complex: error over reference power
    qel_vector_union mic_power;         // B: |Y|^2
    qel_vector_union echo_power;        // B: |echo estimate|^2
    qel_vector_union mic_frame_win;     // F: windowed microphone, divided by F
    qel_vector_union ref_frame_win;     // F: windowed reference
    qel_vector_union mic_spec;          // B complex: microphone Y
    qel_vector_union ref_spec;          // B complex: reference X
    qel_vector_union mic_hist;          // N: previous microphone frame
    qel_vector_union ref_hist;          // N: previous reference frame
    qel_vector_union overlap;           // N: overlap memory of the linear mode (use_nlp off)
    qel_vector_union ref_spec_hist;     // K x T complex: the last reference spectra
    qel_vector_union post_power;        // B: power of the a-posteriori error, of the last frame
    qel_vector_union ref_power_smooth;  // K: smoothed reference power
    qel_vector_union ref_power_hist;    // T x K: reference power by partition
    qel_vector_union echo_spec;         // B complex: echo estimate
    qel_vector_union weights;           // K x T complex: filter weights
    qel_vector_union post_error;        // B complex: a-posteriori error
    qel_sigp_frame_separator* mic_sep;  // cuts the microphone bytes into frames
    qel_sigp_frame_separator* ref_sep;  // the same for the reference
    qel_string* output;                 // output bytes of one qel_aec_feed_data() call
    qel_aec_nlp_cfg nlp_cfg;            // the suppressor's configuration, fitted to N
    qel_aec_mute_cfg mute_cfg;          // the mute's, fitted to N
} qel_aec;

/// Makes a canceller in its initial state. Borrows `cfg`, which qel_aec_cfg_update() has completed,
/// until qel_aec_delete(). Null when memory runs out, or when a setting cannot work: an ERROR line
/// names its key and value (the ranges stand with the fields of qel_aec_cfg). The suppressor and
/// the mute are fitted to the canceller's frame size; a WARNING tells when section "nlp" names
/// another. An element type other than float32 is kept in the records, warned of, and computed in
/// float32.
QEL_API qel_aec* qel_aec_new(const qel_aec_cfg* cfg);

/// Sets the constants, forgets all signals and makes the plan and the windows.
QEL_API void qel_aec_init(qel_aec* aec);

/// Returns to the state after qel_aec_new(): all signals, adaptation, pending bytes and queued
/// frames are forgotten, and the mute starts over.
QEL_API void qel_aec_reset(qel_aec* aec);

/// Releases the canceller; null allowed. Leaves the configuration alone.
QEL_API void qel_aec_delete(qel_aec* aec);

/// Takes any number of bytes of both signals, runs every whole frame pair, and returns the output:
/// one frame for each, one frame behind the input. The bytes belong to the canceller and last until
/// the next feed or reset; their number goes to `out_bytes` (null allowed). Bytes of an unfinished
/// frame, or of the longer of two unequal signals, wait for the next call; a non-zero `is_end` pads
/// the last frame with zeros instead. Samples are little-endian signed 16-bit (32-bit with
/// use_hdr).
QEL_API const char* qel_aec_feed_data(qel_aec* aec, const void* mic, uint32_t mic_bytes,
                                      const void* ref, uint32_t ref_bytes, uintptr_t is_end,
                                      uint32_t* out_bytes);

/// Runs one frame pair, frames[0] the microphone and frames[1] the reference, and appends N samples
/// to `output`. Returns 0, or -1 when `output` cannot grow.
QEL_API int32_t qel_aec_feed(qel_aec* aec, qel_sigp_frame* const* frames);

/// Runs the adaptive filter and the suppressor on `mic` and `ref`; leaves N samples in `out`.
/// A multi-delay frequency-domain filter (Soo and Pang, IEEE Trans. ASSP 38(2), 1990) without
/// gradient constraint, normalised by bin, its residual bounded by the microphone. Returns 0.
QEL_API int32_t qel_aec_process(qel_aec* aec);

/// "spu/aec v1.0.8".
QEL_API const char* qel_aec_get_version(void);
QEL_API const char* qel_aec_version(void);

QEL_END_DECLS

#endif
