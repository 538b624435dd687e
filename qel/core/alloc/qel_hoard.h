// A pool that recycles objects of one kind, so that steady use allocates nothing.
#ifndef QEL_CORE_ALLOC_QEL_HOARD_H
#define QEL_CORE_ALLOC_QEL_HOARD_H

#include <stdint.h>

#include "qel/core/qel_export.h"
#include "qel/core/queue/qel_queue.h"

QEL_BEGIN_DECLS

typedef void* (*qel_hoard_new_fn)(void* user);
typedef int32_t (*qel_hoard_delete_fn)(void* user, void* object);
typedef uint32_t (*qel_hoard_size_fn)(void* user, void* object);

// In caller storage, from qel_hoard_init() to qel_hoard_clean(). Owns the objects of both queues.
typedef struct qel_hoard {
    qel_queue free_q;               // objects that wait for reuse
    qel_queue used_q;               // objects handed out
    void* user;                     // passed to the functions
    qel_hoard_new_fn new_fn;        // a new object, null when memory runs out; may be null
    qel_hoard_delete_fn delete_fn;  // destroys an object; null stands for free()
    uint32_t link_offset;           // of the qel_queue_node in an object, bytes
    uint32_t max_free;              // objects kept for reuse
} qel_hoard;

// Functions that return int32_t give 0, or -1 for null arguments.

QEL_API int32_t qel_hoard_init(qel_hoard* hoard, uint32_t link_offset, uint32_t max_free,
                               qel_hoard_new_fn new_fn, qel_hoard_delete_fn delete_fn, void* user);

/// Hands out the object that waited longest, or else a new one; null when memory runs out or
/// there is no `new_fn`.
QEL_API void* qel_hoard_pop(qel_hoard* hoard);

/// Takes an object back, to keep it or, with `max_free` kept, to destroy it. An object that was
/// not handed out is left alone (-1) if its link shows it: every one that is in no queue, or first
/// or last in the free queue.
QEL_API int32_t qel_hoard_push(qel_hoard* hoard, void* object);

/// Destroys free objects above `max_free`, the latest first.
QEL_API int32_t qel_hoard_pack(qel_hoard* hoard);

/// Takes back everything handed out, then packs.
QEL_API int32_t qel_hoard_reset(qel_hoard* hoard);

/// Destroys all objects, handed out or not. Null is ignored.
QEL_API int32_t qel_hoard_clean(qel_hoard* hoard);

/// Sum of `size_fn` over all objects, the free ones first.
QEL_API uint32_t qel_hoard_debug_bytes(const qel_hoard* hoard, qel_hoard_size_fn size_fn);

/// Logs both counts, without header.
QEL_API int32_t qel_hoard_print(const qel_hoard* hoard);

QEL_END_DECLS

#endif
