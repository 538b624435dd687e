// A doubly linked queue whose links live inside the queued objects; it never allocates or frees
// them. Where objects are named, an object lies `offset` bytes before its link.
#ifndef QEL_CORE_QUEUE_QEL_QUEUE_H
#define QEL_CORE_QUEUE_QEL_QUEUE_H

#include <stdint.h>

#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

typedef struct qel_queue_node {
    struct qel_queue_node* prev;
    struct qel_queue_node* next;
} qel_queue_node;

// A zeroed record is an empty queue. `count` can fall short of the links, see
// qel_queue_insert_after(); whether a queue is empty is then told by its links.
typedef struct qel_queue {
    qel_queue_node* head;
    qel_queue_node* tail;
    uint32_t count;
} qel_queue;

typedef int32_t (*qel_queue_fn)(void* user, void* object);

/// Orders links: 1 or more if `a` belongs behind `b`.
typedef int32_t (*qel_queue_cmp_fn)(const qel_queue_node* a, const qel_queue_node* b);

// Functions that return int32_t give 0, or -1 for a null queue, link or function.

/// Makes an empty queue on the heap; null when memory runs out.
QEL_API qel_queue* qel_queue_new(void);

/// Frees the record, not the objects. Null is ignored.
QEL_API int32_t qel_queue_delete(qel_queue* q);

QEL_API int32_t qel_queue_push_back(qel_queue* q, qel_queue_node* link);
QEL_API int32_t qel_queue_push_front(qel_queue* q, qel_queue_node* link);

/// Takes the first link out; null from an empty queue.
QEL_API qel_queue_node* qel_queue_pop_head(qel_queue* q);

/// Takes the last link out; null from an empty queue.
QEL_API qel_queue_node* qel_queue_pop_back(qel_queue* q);

/// Takes `link` out and clears its pointers. An empty queue stays as it is (0). So does one that
/// `link` with its neighbours shows not to belong to (-1); a link in the midst of another queue
/// is not detected.
QEL_API int32_t qel_queue_remove(qel_queue* q, qel_queue_node* link);

/// Puts `link` behind `ref`. Behind the tail it is not counted.
QEL_API int32_t qel_queue_insert_after(qel_queue* q, qel_queue_node* ref, qel_queue_node* link);

/// Puts `link` before `ref`; always counted.
QEL_API int32_t qel_queue_insert_before(qel_queue* q, qel_queue_node* ref, qel_queue_node* link);

/// Appends the links of `src` to `dst` and adds the counts. `src` keeps naming the links it gave
/// away: zero it before it is used again.
QEL_API int32_t qel_queue_link(qel_queue* dst, const qel_queue* src);

/// Exchanges the positions of two links; -1, unchanged, if one is seen not to be in the queue.
QEL_API int32_t qel_queue_swap(qel_queue* q, qel_queue_node* a, qel_queue_node* b);

/// Stable insertion sort. A last link that stays last loses its count, as it is put back with
/// qel_queue_insert_after().
QEL_API int32_t qel_queue_sort(qel_queue* q, qel_queue_cmp_fn cmp);

/// The first object for which `fn` is not 0, or null. `fn` may take its object out.
QEL_API void* qel_queue_find(const qel_queue* q, uint32_t offset, qel_queue_fn fn, void* user);

/// The first result of `fn` that is not 0, or 0. `fn` may take its object out.
QEL_API int32_t qel_queue_walk(const qel_queue* q, uint32_t offset, qel_queue_fn fn, void* user);

/// Calls `fn` for every object, whatever it returns. `fn` may take its object out.
QEL_API int32_t qel_queue_debug_print(const qel_queue* q, uint32_t offset, qel_queue_fn fn,
                                      void* user);

/// The link at `index`, 0 the head; null from `count` on. Walks from the nearer end, so positions
/// in the back half are counted from the tail.
QEL_API qel_queue_node* qel_queue_peek(const qel_queue* q, uint32_t index);

QEL_END_DECLS

#endif
