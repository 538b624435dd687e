// The residual echo suppressor: estimates the echo that the adaptive filter left behind, groups it
// into Bark bands, and turns it into a spectral gain and a time-domain output frame.
#ifndef QEL_SPU_AEC_QEL_AEC_NLP_H
#define QEL_SPU_AEC_QEL_AEC_NLP_H

#include <stdint.h>

#include "qel/core/config/qel_config_base.h"
#include "qel/core/qel_export.h"
#include "qel/math/vector/qel_vector.h"

QEL_BEGIN_DECLS

struct qel_aec;

typedef struct qel_aec_nlp_cfg {
    uint32_t md_type;     // element type, copied from the canceller's default
    int16_t freqs;        // sample rate in Hz; key "freqs", default 16000
    int16_t frame_size;   // samples per frame and hop; key "frame_size", default 512
    int16_t nb_banks;     // Bark bands, at least 12; key "nb_banks", default 24
    int16_t offset_bins;  // stored and not consulted; key "offset_bins", default 0
    uint32_t fft_size;    // derived: 2 * frame_size
    int16_t fft_bins;     // derived: frame_size + 1
    int16_t num_bank;     // derived: frame_size + 1
} qel_aec_nlp_cfg;

// Vectors of "bins + bands" hold one value per bin, then one per Bark band.
typedef struct qel_aec_nlp {
    const qel_aec_nlp_cfg* cfg;     // borrowed
    int16_t leak_mult;              // 2: factor of a small leak
    int16_t echo_suppress;          // -40 dB: gain floor while no speech is likely
    int16_t echo_suppress_active;   // -15 dB: gain floor while speech is likely
    int16_t adapt_count;            // frames since the start, up to 20000
    float min_leak;                 // 0.005: lower bound of the leak
    float over_sub_base;            // 1.8: base of the over-subtraction
    float over_sub_scale;           // 0.8: its scale
    float pey;                      // smoothed cross-correlation of error and echo; 1 at first
    float pyy;                      // smoothed echo power; 1 at first
    qel_vector_int16* band_left;    // bins: lower band of each bin
    qel_vector_int16* band_right;   // bins: upper band
    qel_vector_union weight_left;   // bins: weight of the lower band
    qel_vector_union weight_right;  // bins: weight of the upper band
    qel_vector_union gain2;         // bins + bands: gain that is applied; speech presence in bands
    qel_vector_union time;          // fft_size: output of the inverse transform
    qel_vector_union gain_floor;    // bins + bands: least gain
    qel_vector_union spec;          // 2 * fft_size: complex spectrum on its way out
    qel_vector_union post;          // bins + bands: a-posteriori SNR minus 1
    qel_vector_union prior;         // bins + bands: a-priori SNR
    qel_vector_union gain;          // bins + bands: estimator gain
    qel_vector_union residual;      // bins + bands: residual echo power of this frame
    qel_vector_union ps;            // bins + bands: error power
    qel_vector_union out;           // frame_size: output frame, in sample units
    qel_vector_union error_avg;     // bins: smoothed error power
    qel_vector_union echo_avg;      // bins: smoothed echo power
    qel_vector_union echo_noise;    // bins + bands: residual echo with its decay
    qel_vector_union old_ps;        // bins + bands: smoothed speech power of earlier frames
    qel_vector_union zeta;          // bins + bands: smoothed a-priori SNR, bands only
    qel_vector_union overlap;       // frame_size: overlap memory of the synthesis
    float* scratch;                 // bands, not used; null when it could not be had
} qel_aec_nlp;

/// Sets the defaults above; returns 0.
QEL_API int32_t qel_aec_nlp_cfg_init(qel_aec_nlp_cfg* cfg);

/// Reads the keys of an "nlp" section (null allowed); a missing one keeps its value. Returns 0.
QEL_API int32_t qel_aec_nlp_cfg_update_local(qel_aec_nlp_cfg* cfg, qel_config_items* section);

/// Derives fft_size, fft_bins and num_bank from frame_size; returns 0.
QEL_API int32_t qel_aec_nlp_cfg_update(qel_aec_nlp_cfg* cfg);

/// Holds nothing to release; returns 0.
QEL_API int32_t qel_aec_nlp_cfg_clean(qel_aec_nlp_cfg* cfg);

/// Makes a suppressor in its initial state; null when memory runs out. Borrows `cfg` until
/// qel_aec_nlp_delete(). Its sizes must be sound; qel_aec_new() checks them.
QEL_API qel_aec_nlp* qel_aec_nlp_new(const qel_aec_nlp_cfg* cfg);

/// Builds the filter bank anew and forgets all frames.
QEL_API void qel_aec_nlp_init(qel_aec_nlp* nlp);

/// Releases the suppressor; null allowed.
QEL_API void qel_aec_nlp_delete(qel_aec_nlp* nlp);

/// Runs one frame: reads the spectra that qel_aec_process() left in `aec` and fills aec->nlp->out.
/// A spectral amplitude estimator of order 1/2 (see HypergeomGain) with decision-directed a-priori
/// SNR and speech-presence probability (Ephraim and Malah, IEEE Trans. ASSP 32(6), 1984; Cohen and
/// Berdugo, Signal Processing 81, 2001); the leak is the regression of the changes in error power
/// on the changes in echo power. Returns 0.
QEL_API int32_t qel_aec_nlp_process(struct qel_aec* aec);

/// Spreads the power of `bins` bins over `num_bands` bands, each bin over two with its weights.
QEL_API void FilterbankComputeBank32(const float* ps, float* bands, const int16_t* left,
                                     const int16_t* right, const float* weight_left,
                                     const float* weight_right, int32_t bins, int32_t num_bands);

/// Interpolates band values back to `bins` bins with the same weights.
QEL_API void FilterbankComputePsd16(const float* bands, float* out, const int16_t* left,
                                    const int16_t* right, const float* weight_left,
                                    const float* weight_right, int32_t bins);

/// Gain of the amplitude estimator over its Wiener gain, the same as qel_sigp_hypergeom_gain().
QEL_API float HypergeomGain(float x);

/// Fills `buf` with `n` samples of white noise from rand(), -0.5 to 0.499 in steps of 0.001.
QEL_API void RandFrame(float* buf, int32_t n);

QEL_END_DECLS

#endif
