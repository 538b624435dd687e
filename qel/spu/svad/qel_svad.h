// Voice-activity detector: mean absolute deviation of a window, with a run length for each way.
#ifndef QEL_SPU_SVAD_QEL_SVAD_H
#define QEL_SPU_SVAD_QEL_SVAD_H

#include <stdint.h>

#include "qel/core/config/qel_config_base.h"
#include "qel/core/qel_export.h"
#include "qel/core/queue/qel_queue.h"
#include "qel/core/source/qel_source.h"
#include "qel/math/vector/qel_vector.h"
#include "qel/spu/frame/qel_framing.h"

QEL_BEGIN_DECLS

typedef struct qel_svad_cfg {
    qel_framing_cfg framing;  // first member: one "vad" section configures both
    int32_t frame_len;        // samples per frame; key "frame_len", default 512
    int32_t spe2sil_num;      // quiet windows in a row to end speech; key "spe2sil_num", default 15
    int32_t sil2spe_num;      // loud windows in a row to start it; key "sil2spe_num", default 1
    float amp_thresh;         // deviation, in 16-bit sample units; key "amp_thresh", default 5.0
} qel_svad_cfg;

typedef struct qel_svad {
    const qel_svad_cfg* cfg;     // borrowed
    qel_framing* framing;        // made by the first qel_svad_feed_data()
    qel_vector_float32* window;  // 2 * frame_len entries, made with `framing`
    qel_queue frames;            // judged frames, oldest first
    int32_t state;               // 0 silence, 1 speech
    int32_t quiet_run;           // quiet windows so far, while in speech
    int32_t loud_run;            // loud windows so far, while in silence
} qel_svad;

/// Sets the defaults, those of the framing included. Returns 0.
QEL_API int32_t qel_svad_cfg_init(qel_svad_cfg* cfg);

/// Reads the keys from `section`, which may be null. Returns 0.
QEL_API int32_t qel_svad_cfg_update_local(qel_svad_cfg* cfg, const qel_config_items* section);

/// Completes the framing's part. Returns 0.
QEL_API int32_t qel_svad_cfg_update(qel_svad_cfg* cfg, const qel_source_loader* loader);

/// Releases the framing's part. Returns 0.
QEL_API int32_t qel_svad_cfg_clean(qel_svad_cfg* cfg);

/// Makes a detector in silence; null when memory runs out. Borrows `cfg` until qel_svad_delete().
QEL_API qel_svad* qel_svad_new(const qel_svad_cfg* cfg);

/// Back to silence; judged frames go to the release callback they carry. Bytes that wait for the
/// rest of their frame stay. Null is accepted.
QEL_API void qel_svad_reset(qel_svad* det);

/// Releases the detector and its frames; null is accepted.
QEL_API void qel_svad_delete(qel_svad* det);

/// Judges one window of 2 * frame_len samples and returns the new state: 0 silence, 1 speech.
/// A deviation equal to `amp_thresh` is quiet.
QEL_API int32_t qel_svad_judge(qel_svad* det, const float* samples);

/// Judges a frame by its `windowed` samples, stores the new state in its tag and moves the samples
/// to `judged`; a frame without them stays as it is. Returns 0.
QEL_API int32_t qel_svad_judge_frame(qel_svad* det, qel_framing_frame* frame);

/// Adds PCM bytes as qel_framing_feed() does and judges each whole frame, under the rising half of
/// the detector's window, into the queue `frames`. Returns 0, or -1 when the call made no frame or
/// memory ran out.
QEL_API int32_t qel_svad_feed_data(qel_svad* det, const void* bytes, uint32_t len, int32_t flush);

/// The release callback of judged frames: deletes what the detector `det` attached and gives the
/// frame back to its framing.
QEL_API void qel_svad_frame_release(void* det, qel_framing_frame* frame);

QEL_END_DECLS

#endif
