// The intrusive queue.
#include "qel/core/queue/qel_queue.h"

#include <gtest/gtest.h>

#include "tests/support/each.hpp"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"

namespace {

qel_queue_node nodes[26];  // their names are a to z
qel_queue_node *const a = &nodes[0], *const b = &nodes[1], *const c = &nodes[2];
qel_queue_node *const d = &nodes[3], *const x = &nodes[23];

qel_queue queue(const char* names) {
    qel_queue q = {};
    for (; *names; ++names) qel_queue_push_back(&q, &nodes[*names - 'a']);
    return q;
}

/// Names from head to tail, and the count; "?" marks a wrong way back.
std::string text(const qel_queue& q) {
    std::string out;
    const qel_queue_node* last = nullptr;
    for (const auto* l = q.head; l; last = l, l = l->next)
        out += l->prev == last ? static_cast<char>('a' + (l - nodes)) : '?';
    return out + (q.tail == last ? "" : "?") + std::to_string(q.count);
}

/// Orders a and b alike, before c and d alike, ...
int32_t by_pair(const qel_queue_node* l, const qel_queue_node* r) {
    return (l - nodes) / 2 - (r - nodes) / 2;
}

TEST(Queue, OperationsLeaveThisOrderAndCount) {
    const auto after = [](const char* start, auto op, auto... args) {
        *x = {};
        qel_queue q = queue(start);
        op(&q, args...);
        return text(q);
    };
    EXPECT_EQ(after("ab", qel_queue_push_front, x), "xab3");
    EXPECT_EQ(after("a", qel_queue_pop_back), "0");
    EXPECT_EQ(after("abc", qel_queue_remove, b), "ac2");
    EXPECT_EQ(after("ab", qel_queue_insert_after, a, x), "axb3");
    EXPECT_EQ(after("ab", qel_queue_insert_after, b, x), "abx2") << "a new tail is not counted";
    EXPECT_EQ(after("ab", qel_queue_insert_before, a, x), "xab3");
    EXPECT_EQ(after("abcd", qel_queue_swap, a, d), "dbca4");
    EXPECT_EQ(after("abcd", qel_queue_swap, b, c), "acbd4");
    EXPECT_EQ(after("ab", qel_queue_swap, b, a), "ba2");
    EXPECT_EQ(after("ab", qel_queue_swap, b, b), "ab2");
    EXPECT_EQ(after("edcbfa", qel_queue_sort, by_pair), "badcef6");
    EXPECT_EQ(after("cae", qel_queue_sort, by_pair), "ace2") << "a last link that stays likewise";
    qel_queue q = queue("a");
    qel_queue_insert_after(&q, a, b);
    EXPECT_EQ(qel_queue_pop_head(&q)->next, nullptr);
    EXPECT_EQ(qel_queue_pop_head(&q), b) << "links that are not counted can leave";
    EXPECT_EQ(text(q), "0");
}

TEST(Queue, LinksPeeksAndVisits) {
    qel_queue q = queue("ab");
    const qel_queue more = queue("c"), none = {};
    EXPECT_EQ(each(qel_queue_link(&q, &more), qel_queue_link(&q, &none), qel_queue_link(&q, &q)),
              "0 0 0");
    EXPECT_EQ(text(q), "abc3");
    for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(qel_queue_peek(&q, i), i < 3 ? &nodes[i] : nullptr);
    const auto take_up_to_b = [](void* from, void* object) -> int32_t {
        auto* link = static_cast<qel_queue_node*>(object) + 1;  // objects start a node earlier
        return qel_queue_remove(static_cast<qel_queue*>(from), link) + (link == b ? 5 : 0);
    };
    EXPECT_EQ(qel_queue_find(&q, sizeof(qel_queue_node), take_up_to_b, &q), a);
    EXPECT_EQ(qel_queue_walk(&q, sizeof(qel_queue_node), take_up_to_b, &q), 0);
    EXPECT_EQ(text(q), "0");
    q = queue("abc");
    EXPECT_EQ(qel_queue_walk(&q, sizeof(qel_queue_node), take_up_to_b, &q), 5);
    EXPECT_EQ(text(q), "c1") << "the first that is not 0 ends the walk";
    q = queue("abc");
    EXPECT_EQ(qel_queue_debug_print(&q, sizeof(qel_queue_node), take_up_to_b, &q), 0);
    EXPECT_EQ(text(q), "0") << "every object, whatever the result";
}

TEST(Queue, RefusesStrangersAndMemory) {
    const LogCapture log;
    *x = {};
    qel_queue q = queue("ab"), empty = {};
    EXPECT_EQ(each(qel_queue_remove(&q, x), qel_queue_swap(&q, a, x), qel_queue_swap(&q, x, a)),
              "-1 -1 -1");
    EXPECT_EQ(text(q), "ab2");
    EXPECT_EQ(each(qel_queue_remove(&empty, a), qel_queue_sort(&empty, by_pair),
                   qel_queue_sort(nullptr, by_pair)),
              "0 0 -1");
    const qel_queue_fn any = [](void*, void*) { return 1; };
    EXPECT_EQ(qel_queue_find(nullptr, 0, any, nullptr), nullptr);
    EXPECT_EQ(qel_queue_walk(nullptr, 0, any, nullptr), -1);
    const FailingAlloc none(0);
    EXPECT_EQ(qel_queue_new(), nullptr);
    EXPECT_TRUE(log.has("[E] qel_queue:qel_queue_new:"));
}

}  // namespace
