// PCM bytes of 16, 24 or 32 bits per sample into numbered frames of 16-bit samples.
#ifndef QEL_SPU_FRAME_QEL_FRAMING_H
#define QEL_SPU_FRAME_QEL_FRAMING_H

#include <stdint.h>

#include "qel/core/alloc/qel_hoard.h"
#include "qel/core/config/qel_config_base.h"
#include "qel/core/qel_export.h"
#include "qel/core/qel_string.h"
#include "qel/core/queue/qel_queue.h"
#include "qel/core/source/qel_source.h"
#include "qel/math/vector/qel_vector.h"

QEL_BEGIN_DECLS

// What a detector decided about a frame.
enum { QEL_FRAMING_SILENCE = 0, QEL_FRAMING_SPEECH = 1, QEL_FRAMING_UNJUDGED = 3 };

typedef struct qel_framing_cfg {
    uint32_t mtype;          // stored only; key "mtype", default 0
    uint32_t frame_len;      // samples per frame; key "frame_len", default 512
    int16_t bit_extends;     // right shift of 24- and 32-bit samples; key "bit_extends", default 6
    uint32_t use_16bit : 1;  // not consulted: 16 bits is what the others leave; "use_16bit", on
    uint32_t use_24bit : 1;  // bytes per sample: 3; key "use_24bit", off
    uint32_t use_32bit : 1;  // bytes per sample: 4; key "use_32bit", off
    uint32_t flags_spare : 5;  // kept as they are; the flags fill one byte
} qel_framing_cfg;

typedef struct qel_framing_frame {
    qel_queue_node hoard_link;  // first member: the pool knows the frame by this address
    qel_queue_node queue_link;
    qel_vector_int16* samples;     // frame_len of them
    qel_vector_float32* windowed;  // null, or attached by a detector, which also deletes it
    qel_vector_float32* judged;    // the same
    void* owner;                   // first argument of `release`
    void (*release)(void* owner, struct qel_framing_frame* frame);
    uint32_t sequence;  // 1 for the first frame of a stream
    uint16_t reserved;  // 0
    uint32_t tag : 2;   // QEL_FRAMING_SILENCE, _SPEECH or _UNJUDGED
} qel_framing_frame;

typedef struct qel_framing {
    const qel_framing_cfg* cfg;  // borrowed
    qel_hoard pool;
    qel_string buffer;  // the bytes of the frame that is not yet whole
    qel_queue ready;    // whole frames, oldest first
    uint32_t counter;   // frames numbered so far
} qel_framing;

/// Sets the defaults; the spare flags are kept. Returns 0.
QEL_API int32_t qel_framing_cfg_init(qel_framing_cfg* cfg);

/// Reads the keys from `section`, which may be null. Returns 0.
QEL_API int32_t qel_framing_cfg_update_local(qel_framing_cfg* cfg, const qel_config_items* section);

/// Leaves the widest of the widths asked for; `loader` is not consulted. Returns 0.
QEL_API int32_t qel_framing_cfg_update(qel_framing_cfg* cfg, const qel_source_loader* loader);

/// Nothing to release. Returns 0.
QEL_API int32_t qel_framing_cfg_clean(qel_framing_cfg* cfg);

/// Makes a framing object; null when memory runs out or `frame_len` is not 1 to 2^27. Borrows
/// `cfg`, which must stay as it is until qel_framing_delete().
QEL_API qel_framing* qel_framing_new(const qel_framing_cfg* cfg);

/// Releases the object and every frame it made; null is accepted.
QEL_API void qel_framing_delete(qel_framing* fr);

/// Forgets all bytes, takes every frame back, popped ones included, and numbers from 1 again; null
/// is accepted.
QEL_API void qel_framing_reset(qel_framing* fr);

/// Adds `len` bytes and queues each frame they complete. A non-zero `flush` ends the stream: at
/// most one frame, padded with zeros, and the rest is discarded. When memory for a frame runs out
/// its bytes are dropped (the pool logs it); the numbering then shows a gap.
///
/// Samples of 24 and 32 bits are taken from the start of this call's own bytes, zeros behind them,
/// so feed these widths one whole frame per call. A 32-bit frame consumes 2 * frame_len bytes: its
/// second half is zeros.
QEL_API void qel_framing_feed(qel_framing* fr, const void* bytes, uint32_t len, int32_t flush);

/// The oldest whole frame, to be given back by qel_framing_push(); null if none.
QEL_API qel_framing_frame* qel_framing_pop(qel_framing* fr);

/// Makes a popped frame fresh and gives it back; null is accepted. Whoever attached vectors to it
/// deletes them first.
QEL_API void qel_framing_push(qel_framing* fr, qel_framing_frame* frame);

/// The pool's constructor; `cfg` is the configuration. Null when memory runs out.
QEL_API void* qel_framing_frame_new(void* cfg);

/// The pool's destructor; a null frame is accepted, `user` is not consulted. Returns 0.
QEL_API int32_t qel_framing_frame_delete(void* user, void* frame);

QEL_END_DECLS

#endif
