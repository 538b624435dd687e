// An intrusive doubly linked queue.
#include "qel/core/queue/qel_queue.h"

#include <utility>

#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/queue/qel_queue";

/// Whether both neighbours of `link`, or the queue's ends, point back at it.
bool belongs(const qel_queue* q, const qel_queue_node* link) {
    return (link->prev ? link->prev->next : q->head) == link &&
           (link->next ? link->next->prev : q->tail) == link;
}

/// Makes `a` and `b` neighbours; a null stands for the end of the queue on its side.
void join(qel_queue* q, qel_queue_node* a, qel_queue_node* b) {
    (a ? a->next : q->head) = b;
    (b ? b->prev : q->tail) = a;
}

void insert(qel_queue* q, qel_queue_node* prev, qel_queue_node* link, qel_queue_node* next) {
    join(q, prev, link);
    join(q, link, next);
}

qel_queue_node* take(qel_queue* q, qel_queue_node* link) {
    if (!link) return nullptr;
    join(q, link->prev, link->next);
    *link = {};
    if (q->count > 0) --q->count;  // there may be more links than counted
    return link;
}

/// Calls `fn` on the objects in order until `done` holds for its result; whether it did.
template <class Done>
bool visit(const qel_queue* q, uint32_t offset, qel_queue_fn fn, void* user, Done done) {
    for (qel_queue_node *link = q->head, *next; link; link = next) {
        next = link->next;
        void* object = reinterpret_cast<char*>(link) - offset;
        if (done(fn(user, object), object)) return true;
    }
    return false;
}

}  // namespace

qel_queue* qel_queue_new(void) {
    auto q = qel::make_zeroed<qel_queue>();
    if (!q) QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    return q.release();
}

int32_t qel_queue_delete(qel_queue* q) {
    free(q);
    return 0;
}

int32_t qel_queue_push_back(qel_queue* q, qel_queue_node* link) {
    if (!q || !link) return -1;
    insert(q, q->tail, link, nullptr);
    ++q->count;
    return 0;
}

int32_t qel_queue_push_front(qel_queue* q, qel_queue_node* link) {
    if (!q || !link) return -1;
    insert(q, nullptr, link, q->head);
    ++q->count;
    return 0;
}

qel_queue_node* qel_queue_pop_head(qel_queue* q) { return q ? take(q, q->head) : nullptr; }

qel_queue_node* qel_queue_pop_back(qel_queue* q) { return q ? take(q, q->tail) : nullptr; }

int32_t qel_queue_remove(qel_queue* q, qel_queue_node* link) {
    if (!q || !link) return -1;
    if (!q->head) return 0;
    if (!belongs(q, link)) return -1;
    take(q, link);
    return 0;
}

int32_t qel_queue_insert_after(qel_queue* q, qel_queue_node* ref, qel_queue_node* link) {
    if (!q || !ref || !link) return -1;
    // A new tail is not counted: callers of this function account for it themselves.
    if (ref != q->tail) ++q->count;
    insert(q, ref, link, ref->next);
    return 0;
}

int32_t qel_queue_insert_before(qel_queue* q, qel_queue_node* ref, qel_queue_node* link) {
    if (!q || !ref || !link) return -1;
    if (ref == q->head) return qel_queue_push_front(q, link);
    return qel_queue_insert_after(q, ref->prev, link);
}

int32_t qel_queue_link(qel_queue* dst, const qel_queue* src) {
    if (!dst || !src) return -1;
    if (!src->head || dst == src) return 0;
    join(dst, dst->tail, src->head);
    dst->tail = src->tail;
    dst->count += src->count;
    return 0;
}

int32_t qel_queue_swap(qel_queue* q, qel_queue_node* a, qel_queue_node* b) {
    if (!q || !a || !b || !belongs(q, a) || !belongs(q, b)) return -1;
    if (b->next == a) std::swap(a, b);
    qel_queue_node *const before_a = a->prev, *const after_b = b->next;
    if (a->next == b) {
        insert(q, before_a, b, a);
        join(q, a, after_b);
        return 0;
    }
    qel_queue_node *const after_a = a->next, *const before_b = b->prev;
    insert(q, before_a, b, after_a);
    insert(q, before_b, a, after_b);
    return 0;
}

int32_t qel_queue_sort(qel_queue* q, qel_queue_cmp_fn cmp) {
    if (!q || !cmp) return -1;
    if (!q->head) return 0;
    for (qel_queue_node *link = q->head->next, *next; link; link = next) {
        next = link->next;
        qel_queue_node* before = link->prev;
        take(q, link);
        while (before && cmp(before, link) >= 1) before = before->prev;
        if (before) {
            // Does not count a last link that stays last: that too is how counts come to fall
            // short.
            qel_queue_insert_after(q, before, link);
        } else {
            qel_queue_push_front(q, link);
        }
    }
    return 0;
}

void* qel_queue_find(const qel_queue* q, uint32_t offset, qel_queue_fn fn, void* user) {
    if (!q || !fn) return nullptr;
    void* found = nullptr;
    visit(q, offset, fn, user, [&](int32_t result, void* object) {
        if (result != 0) found = object;
        return result != 0;
    });
    return found;
}

int32_t qel_queue_walk(const qel_queue* q, uint32_t offset, qel_queue_fn fn, void* user) {
    if (!q || !fn) return -1;
    int32_t last = 0;
    visit(q, offset, fn, user, [&](int32_t result, void*) { return (last = result) != 0; });
    return last;
}

int32_t qel_queue_debug_print(const qel_queue* q, uint32_t offset, qel_queue_fn fn, void* user) {
    if (!q || !fn) return -1;
    visit(q, offset, fn, user, [](int32_t, void*) { return false; });
    return 0;
}

qel_queue_node* qel_queue_peek(const qel_queue* q, uint32_t index) {
    if (!q || index >= q->count) return nullptr;
    if (index < q->count / 2) {
        qel_queue_node* link = q->head;
        for (; link && index > 0; --index) link = link->next;
        return link;
    }
    qel_queue_node* link = q->tail;
    for (uint32_t steps = q->count - 1 - index; link && steps > 0; --steps) link = link->prev;
    return link;
}
