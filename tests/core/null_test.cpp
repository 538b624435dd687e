// What the containers answer to null.
#include <gtest/gtest.h>

#include "qel/core/alloc/qel_hoard.h"
#include "qel/core/array/qel_array_string.h"
#include "tests/support/each.hpp"

namespace {

void expect(int expected, auto... functions) {
    EXPECT_EQ(each(of_nothing(functions)...), each(((void)functions, expected)...));
}

TEST(Null, IsRefusedOrIgnored) {
    expect(-1, qel_array_init, qel_array_resize, qel_array_append, qel_array_append_n,
           qel_array_sort, qel_array_reset, qel_array_clean, qel_array_print,
           qel_array_string_append, qel_array_string_split, qel_array_string_print);
    expect(0, qel_array_peek, qel_array_delete);
    expect(-1, qel_queue_push_back, qel_queue_push_front, qel_queue_remove, qel_queue_sort,
           qel_queue_insert_after, qel_queue_insert_before, qel_queue_link, qel_queue_swap,
           qel_queue_walk, qel_queue_debug_print);
    expect(0, qel_queue_pop_head, qel_queue_pop_back, qel_queue_peek, qel_queue_find,
           qel_queue_delete);
    expect(-1, qel_hoard_init, qel_hoard_push, qel_hoard_pack, qel_hoard_reset, qel_hoard_print);
    expect(0, qel_hoard_pop, qel_hoard_clean, qel_hoard_debug_bytes);
}

}  // namespace
