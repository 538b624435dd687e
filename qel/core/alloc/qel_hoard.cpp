// A pool of recycled objects on a free and a used queue.
#include "qel/core/alloc/qel_hoard.h"

#include <cstdlib>

#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/alloc/qel_hoard";
constexpr int32_t kNoAllocatorLine = 101, kOutOfMemoryLine = 106, kPrintLine = 171;

void* object_of(const qel_hoard* hoard, qel_queue_node* link) {
    return reinterpret_cast<char*>(link) - hoard->link_offset;
}

qel_queue_node* link_of(const qel_hoard* hoard, void* object) {
    return reinterpret_cast<qel_queue_node*>(static_cast<char*>(object) + hoard->link_offset);
}

void destroy(qel_hoard* hoard, void* object) {
    if (hoard->delete_fn) {
        hoard->delete_fn(hoard->user, object);
    } else {
        free(object);
    }
}

/// Keeps or destroys an object that was just taken out of the used queue.
void take_back(qel_hoard* hoard, qel_queue_node* link) {
    if (hoard->free_q.count < hoard->max_free) {
        qel_queue_push_back(&hoard->free_q, link);
    } else {
        destroy(hoard, object_of(hoard, link));
    }
}

void destroy_all(qel_hoard* hoard, qel_queue* q) {
    while (qel_queue_node* link = qel_queue_pop_head(q)) destroy(hoard, object_of(hoard, link));
    *q = {};
}

}  // namespace

int32_t qel_hoard_init(qel_hoard* hoard, uint32_t link_offset, uint32_t max_free,
                       qel_hoard_new_fn new_fn, qel_hoard_delete_fn delete_fn, void* user) {
    if (!hoard) return -1;
    *hoard = {{}, {}, user, new_fn, delete_fn, link_offset, max_free};
    return 0;
}

void* qel_hoard_pop(qel_hoard* hoard) {
    if (!hoard) return nullptr;
    qel_queue_node* link = qel_queue_pop_head(&hoard->free_q);
    if (!link) {
        if (!hoard->new_fn) {
            QEL_LOG_AT(QEL_LOG_WARNING, kNoAllocatorLine, "no allocator for hoard_pop");
            return nullptr;
        }
        void* object = hoard->new_fn(hoard->user);
        if (!object) {
            QEL_LOG_AT(QEL_LOG_ERROR, kOutOfMemoryLine, "out of memory.");
            return nullptr;
        }
        link = link_of(hoard, object);
    }
    qel_queue_push_back(&hoard->used_q, link);
    return object_of(hoard, link);
}

int32_t qel_hoard_push(qel_hoard* hoard, void* object) {
    if (!hoard || !object) return -1;
    qel_queue_node* link = link_of(hoard, object);
    // With nothing handed out qel_queue_remove() has nothing to refuse.
    if (!hoard->used_q.head || qel_queue_remove(&hoard->used_q, link) != 0) {
        QEL_LOG(QEL_LOG_WARNING, "object is not in use.");
        return -1;
    }
    take_back(hoard, link);
    return 0;
}

int32_t qel_hoard_pack(qel_hoard* hoard) {
    if (!hoard) return -1;
    while (hoard->free_q.count > hoard->max_free) {
        qel_queue_node* link = qel_queue_pop_back(&hoard->free_q);
        if (!link) break;
        destroy(hoard, object_of(hoard, link));
    }
    return 0;
}

int32_t qel_hoard_reset(qel_hoard* hoard) {
    if (!hoard) return -1;
    while (qel_queue_node* link = qel_queue_pop_head(&hoard->used_q)) take_back(hoard, link);
    return qel_hoard_pack(hoard);
}

int32_t qel_hoard_clean(qel_hoard* hoard) {
    if (!hoard) return 0;
    destroy_all(hoard, &hoard->free_q);
    destroy_all(hoard, &hoard->used_q);
    return 0;
}

uint32_t qel_hoard_debug_bytes(const qel_hoard* hoard, qel_hoard_size_fn size_fn) {
    if (!hoard || !size_fn) return 0;
    uint32_t bytes = 0;
    for (const qel_queue* q : {&hoard->free_q, &hoard->used_q}) {
        for (qel_queue_node* link = q->head; link; link = link->next) {
            bytes += size_fn(hoard->user, object_of(hoard, link));
        }
    }
    return bytes;
}

int32_t qel_hoard_print(const qel_hoard* hoard) {
    if (!hoard) return -1;
    QEL_LOG_AT(QEL_LOG_ALWAYS, kPrintLine,
               "======================== HOARD ========================");
    QEL_LOG_AT(QEL_LOG_ALWAYS, kPrintLine + 1, "free items: %d",
               static_cast<int32_t>(hoard->free_q.count));
    QEL_LOG_AT(QEL_LOG_ALWAYS, kPrintLine + 2, "used items: %d",
               static_cast<int32_t>(hoard->used_q.count));
    return 0;
}
