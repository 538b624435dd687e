// What a running canceller does: counts of its frames, levels of its signals, its estimates.
#ifndef QEL_SPU_AEC_QEL_AEC_STATS_H
#define QEL_SPU_AEC_QEL_AEC_STATS_H

#include <stdint.h>

#include "qel/core/qel_export.h"
#include "qel/spu/aec/qel_aec.h"

QEL_BEGIN_DECLS

// Levels are dB relative to full scale: 0 dB is an rms of 32768, -120 dB the least, silence. With
// use_hdr they are those after the shift to 16 bits.
typedef struct qel_aec_measures {
    float mic_db;        // microphone frame that went in
    float ref_db;        // reference frame that went in
    float out_db;        // frame that came out; it belongs to the microphone frame before
    float leak;          // share of the echo estimate taken for residual echo, 0.01 to 1
    float speech;        // probability that the frame holds near-end speech, 0.1 to 0.999
    float reduction_db;  // level of the microphone frame that `out` belongs to, less that of `out`
} qel_aec_measures;

// A frame is counted once: bypassed, or muted, or processed. What it has no value for keeps its
// last: leak and speech in a bypassed frame, the reduction in a muted one too. Before the first
// value, and for ever without the suppressor, leak and speech are 0; so is the reduction at first.
typedef struct qel_aec_stats {
    uint64_t bypassed;          // frames that passed the microphone, as the reference was silent
    uint64_t muted;             // frames of comfort noise
    uint64_t processed;         // all others
    qel_aec_measures frame;     // of the last frame
    qel_aec_measures smoothed;  // powers and estimates smoothed over the frames that have them: by
                                // their average at first, then with a time constant of 0.5 s
} qel_aec_stats;

/// Tells what happened since `aec` was made or last reset; costs a few logarithms. Returns 0, or -1
/// for a null argument.
QEL_API int32_t qel_aec_get_stats(const qel_aec* aec, qel_aec_stats* stats);

QEL_END_DECLS

#endif
