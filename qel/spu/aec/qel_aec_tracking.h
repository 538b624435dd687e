// The tracking mode: four switches, off by default, that keep the canceller working when the room,
// the delay or the loudspeaker misbehaves.
#ifndef QEL_SPU_AEC_QEL_AEC_TRACKING_H
#define QEL_SPU_AEC_QEL_AEC_TRACKING_H

#include <stdint.h>

#include "qel/core/config/qel_config_base.h"
#include "qel/core/qel_export.h"
#include "qel/spu/aec/qel_aec.h"

QEL_BEGIN_DECLS

// A switch without the one that it needs has no effect; nor have use_residual and use_comfort
// without the suppressor. With none in effect every sample is what qel_aec_new() gives.
typedef struct qel_aec_tracking_cfg {
    uint32_t use_kalman : 1;    // step of the filter by a Kalman filter; key "use_kalman", off
    uint32_t use_residual : 1;  // residual echo from tracked ratios; needs use_kalman
    uint32_t use_align : 1;     // the reference waits for its echo, up to 0.5 s; key "use_align"
    uint32_t use_comfort : 1;   // the room's noise is filled in; needs use_residual
    uint32_t flags_spare : 28;  // kept as they are
} qel_aec_tracking_cfg;

// What the mode found out; what belongs to a switch that is off is 0.
typedef struct qel_aec_tracking_stats {
    int32_t delay_frames;    // by which the reference waits
    float delay_ms;          // the same in milliseconds
    float delay_clearness;   // score of the likeliest delay over that of any other, 1 and more
    uint32_t delay_changes;  // since the start or the last reset
    uint32_t path_changes;   // seen in the echo path, likewise
    float uncertainty;       // share of the error that the last step took for echo, 0 to 1: near 0
                             // where the filter is sure of itself
} qel_aec_tracking_stats;

/// Sets the defaults; returns 0.
QEL_API int32_t qel_aec_tracking_cfg_init(qel_aec_tracking_cfg* cfg);

/// Reads the keys of an "aec" section (null allowed); a missing one keeps its value. Returns 0.
QEL_API int32_t qel_aec_tracking_cfg_update_local(qel_aec_tracking_cfg* cfg,
                                                  qel_config_items* section);

/// qel_aec_new() with the tracking mode, which needs some 130 KB more by default. `tracking` is
/// copied; null switches nothing on.
QEL_API qel_aec* qel_aec_new_tracking(const qel_aec_cfg* cfg, const qel_aec_tracking_cfg* tracking);

/// Tells what the mode found out. Returns 0, or -1 for a null argument.
QEL_API int32_t qel_aec_get_tracking_stats(const qel_aec* aec, qel_aec_tracking_stats* stats);

QEL_END_DECLS

#endif
