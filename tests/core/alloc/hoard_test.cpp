// The object pool.
#include "qel/core/alloc/qel_hoard.h"

#include <gtest/gtest.h>

#include "tests/support/log_capture.hpp"

namespace {

static constexpr uint32_t kLinkAt = 8;
int made = 0;

void* make(void*) { return ++made, calloc(1, kLinkAt + sizeof(qel_queue_node)); }

int32_t destroy(void*, void* object) { return free(object), --made; }

/// Objects free, in use and in existence.
std::string text(const qel_hoard& h) {
    return std::to_string(h.free_q.count) + std::to_string(h.used_q.count) + std::to_string(made);
}

TEST(Hoard, KeepsAtMostMaxFree) {
    std::string states;  // with 3 out and 2 back, reset, packed to 1
    for (const uint32_t max_free : {0, 2, 9}) {
        qel_hoard h;
        qel_hoard_init(&h, kLinkAt, max_free, make, destroy, nullptr);
        void *first = qel_hoard_pop(&h), *second = qel_hoard_pop(&h);
        qel_hoard_pop(&h);
        qel_hoard_push(&h, second);
        qel_hoard_push(&h, first);
        states += text(h) + " ";
        EXPECT_TRUE(qel_hoard_pop(&h) == second || max_free == 0) << "it waited longest";
        qel_hoard_reset(&h);
        states += text(h) + " ";
        h.max_free = 1;
        qel_hoard_pack(&h);
        states += text(h) + "|";
        qel_hoard_clean(&h);
    }
    EXPECT_EQ(states, "011 000 000|213 202 101|213 303 101|");
}

TEST(Hoard, ReportsMisuseRefusalsAndSizes) {
    LogCapture log;
    qel_hoard h;
    qel_hoard_init(&h, kLinkAt, 2, make, nullptr, nullptr);
    void *a = qel_hoard_pop(&h), *b = qel_hoard_pop(&h);
    EXPECT_EQ(qel_hoard_push(&h, a), 0);
    EXPECT_EQ(qel_hoard_push(&h, a), -1) << "twice";
    EXPECT_EQ(qel_hoard_debug_bytes(&h, [](void*, void*) { return 7u; }), 14u);
    qel_hoard_print(&h);
    EXPECT_TRUE(log.has("= HOARD ========================\nfree items: 1\nused items: 1\n"));
    qel_hoard_push(&h, b);
    EXPECT_EQ(qel_hoard_push(&h, b), -1) << "twice, with nothing in use";
    qel_hoard_pop(&h);
    qel_hoard_clean(&h);  // one free, one in use
    h.new_fn = [](void*) -> void* { return nullptr; };
    EXPECT_EQ(qel_hoard_pop(&h), nullptr);
    h.new_fn = nullptr;
    EXPECT_EQ(qel_hoard_pop(&h), nullptr);
    for (const char* line :
         {"push:", "pop:106: out of memory.", "pop:101: no allocator for hoard_pop"})
        EXPECT_TRUE(log.has(line)) << line;
}

}  // namespace
