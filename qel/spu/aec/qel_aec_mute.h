// The start-up mute: quiet pink noise in place of the output while the filter still converges.
#ifndef QEL_SPU_AEC_QEL_AEC_MUTE_H
#define QEL_SPU_AEC_QEL_AEC_MUTE_H

#include <stdint.h>

#include "qel/core/config/qel_config_base.h"
#include "qel/core/qel_export.h"
#include "qel/math/vector/qel_vector.h"

QEL_BEGIN_DECLS

typedef struct qel_aec_mute_cfg {
    uint32_t md_type;      // element type, copied from the canceller's default
    int16_t freqs;         // sample rate in Hz, 16000
    int16_t frame_size;    // samples per frame, 512
    int32_t num_states;    // state values of the pink-noise filter, 7
    uint32_t mute_frames;  // derived: frames to mute after a reset, 31 by default
    float noise_gain;      // scale of the comfort noise in sample units, 2.0
    float mute_time;       // seconds; key "mute_time" (a whole number), default 1
} qel_aec_mute_cfg;

typedef struct qel_aec_mute {
    const qel_aec_mute_cfg* cfg;  // borrowed
    uint16_t count;               // frames muted since the last reset
    qel_vector_union white;       // frame_size: white noise
    qel_vector_union noise;       // frame_size: comfort noise before its gain
    qel_vector_union states;      // b0 to b6 of the pink-noise filter
} qel_aec_mute;

/// Sets num_states, mute_frames (0), noise_gain and mute_time; the canceller's configuration sets
/// the three fields before them. Returns 0.
QEL_API int32_t qel_aec_mute_cfg_init(qel_aec_mute_cfg* cfg);

/// Reads "mute_time" from a "mute" section (null allowed); returns 0.
QEL_API int32_t qel_aec_mute_cfg_update_local(qel_aec_mute_cfg* cfg, qel_config_items* section);

/// Derives mute_frames, rounded down; returns 0.
QEL_API int32_t qel_aec_mute_cfg_update(qel_aec_mute_cfg* cfg);

/// Holds nothing to release; returns 0.
QEL_API int32_t qel_aec_mute_cfg_clean(qel_aec_mute_cfg* cfg);

/// Makes a mute that has muted nothing yet; null when memory runs out. Borrows `cfg` until
/// qel_aec_mute_delete().
QEL_API qel_aec_mute* qel_aec_mute_new(const qel_aec_mute_cfg* cfg);

/// Starts over: the next mute_frames frames are muted.
QEL_API void qel_aec_mute_init(qel_aec_mute* mute);

/// Releases the mute; null allowed.
QEL_API void qel_aec_mute_delete(qel_aec_mute* mute);

QEL_END_DECLS

#endif
