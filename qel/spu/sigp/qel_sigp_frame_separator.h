// Cuts a stream of PCM bytes into frames of fixed length; the frames are recycled, never freed.
#ifndef QEL_SPU_SIGP_QEL_SIGP_FRAME_SEPARATOR_H
#define QEL_SPU_SIGP_QEL_SIGP_FRAME_SEPARATOR_H

#include <stdint.h>

#include "qel/core/alloc/qel_hoard.h"
#include "qel/core/qel_export.h"
#include "qel/core/qel_string.h"
#include "qel/core/queue/qel_queue.h"

QEL_BEGIN_DECLS

// Bits of the flags of qel_sigp_frame_separator_feed().
enum { QEL_SIGP_FEED_END = 0x01 };  // the stream ends here: pad what is left to a whole frame

typedef struct qel_sigp_frame {
    qel_queue_node hoard_link;  // first member: the pool knows the frame by this address
    qel_queue_node queue_link;
    int16_t* samples;   // room for 4 * frame_len bytes, enough for 32-bit samples too
    uint32_t sequence;  // private: counts the frames of the stream, the lost ones too
} qel_sigp_frame;

typedef struct qel_sigp_frame_separator {
    qel_hoard pool;
    qel_string buffer;     // the bytes of the frame that is not yet whole
    qel_queue ready;       // whole frames, oldest first
    uint32_t frame_len;    // 16-bit samples per frame
    uint32_t frame_bytes;  // private: 2 * frame_len, or 4 * frame_len for 32-bit samples
    uint32_t counter;      // private: frames cut since the last reset, modulo 2^32
} qel_sigp_frame_separator;

/// Makes a separator for frames of `frame_len` samples, 1 to 2^28; null for another length and
/// when memory runs out.
QEL_API qel_sigp_frame_separator* qel_sigp_frame_separator_new(uint32_t frame_len);

/// Releases the separator and every frame it made, popped ones included; null is accepted.
QEL_API void qel_sigp_frame_separator_delete(qel_sigp_frame_separator* sep);

/// Forgets all bytes and takes every frame back, queued and popped ones alike; null is accepted.
QEL_API void qel_sigp_frame_separator_reset(qel_sigp_frame_separator* sep);

/// Adds `len` bytes, any number, and queues each frame they complete. With QEL_SIGP_FEED_END in
/// `flags` what is left becomes one more frame, padded with zeros. When memory for a frame runs out
/// its bytes are dropped (the pool logs it) and the stream goes on; the numbering shows the gap.
QEL_API void qel_sigp_frame_separator_feed(qel_sigp_frame_separator* sep, const void* bytes,
                                           uint32_t len, uint32_t flags);

/// The oldest whole frame, to be given back by qel_sigp_frame_separator_push(); null if none.
QEL_API qel_sigp_frame* qel_sigp_frame_separator_pop(qel_sigp_frame_separator* sep);

/// Gives a popped frame back; null is accepted.
QEL_API void qel_sigp_frame_separator_push(qel_sigp_frame_separator* sep, qel_sigp_frame* frame);

/// The pool's constructor; `sep` is the separator. Null when memory runs out.
QEL_API void* qel_sigp_frame_new(void* sep);

/// The pool's destructor; a null frame is accepted, `user` is not consulted. Returns 0.
QEL_API int32_t qel_sigp_frame_delete(void* user, void* frame);

QEL_END_DECLS

#endif
