// Arrays of plain items and of strings.
#include <gtest/gtest.h>

#include "qel/core/array/qel_array_string.h"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"

namespace {

/// Capacity and items, all followed by bars; items of one byte are numbers, others strings.
std::string text(const qel_array* a) {
    std::string out = std::to_string(a->capacity) + "|";
    for (uint32_t i = 0; i < a->count; ++i) {
        const auto* s = static_cast<const qel_string*>(qel_array_peek(a, i));
        out += a->item_size == 1 ? std::to_string(static_cast<const char*>(a->data)[i])
                                 : std::string(s->data ? s->data : "", s->length);
        out += '|';
    }
    return out;
}

TEST(Array, GrowsAndResizes) {
    LogCapture log;
    qel_array* a = qel_array_new(0, 1);
    std::string grew;
    for (const char item : {5, 4, 3, 2}) grew += qel_array_append(a, &item) == 0 ? "y" : "n";
    EXPECT_EQ(grew, "yyyn") << "capacities 1, 2, 4, 4";
    EXPECT_EQ(qel_array_append_n(a, 3, a->data), -1) << "until an append does not grow";
    EXPECT_EQ(text(a), "8|5|4|3|2|5|4|");
    qel_array_sort(a, [](const void* x, const void* y) { return memcmp(x, y, 1); });
    qel_array_resize(a, 7);
    EXPECT_EQ(text(a), "7|2|3|4|4|5|5|0|") << "what does not grow sets the count";
    qel_array_resize(a, 1);
    const FailingAlloc second(1);
    qel_array_resize(a, 4);
    EXPECT_EQ(qel_array_resize(a, 9), -1);
    for (const char* line : {"append_n:166: append item failed.", "94: resize failed."})
        EXPECT_TRUE(log.has(line)) << line;
    memset(a->data, 9, 4);
    a->step = 2;
    qel_array_reset(a);
    EXPECT_EQ(text(a), "2|");
    qel_array_resize(a, 2);
    EXPECT_EQ(text(a), "2|0|0|") << "zeroed, uncounted items too";
    qel_array_clean(a);
    qel_array_append(a, "\1");
    EXPECT_EQ(text(a), "2|1|") << "grows from no storage";
    qel_array_delete(a);
}

TEST(Array, CleansWhatItDrops) {
    static std::string cleaned;
    qel_array* a = qel_array_new(4, 1);
    a->clean_fn = [](void* item) { cleaned += *static_cast<const char*>(item); };
    for (const char* item = "abcd"; *item; ++item) qel_array_append(a, item);
    const auto after = [](int32_t result) {
        return std::exchange(cleaned, "") += result ? '!' : '.';
    };
    EXPECT_EQ(after(qel_array_resize(a, 2)), "cd.");
    EXPECT_EQ(after(qel_array_resize(a, 3)), ".");
    EXPECT_EQ(after(qel_array_reset(a)), "ab.");
    qel_array_append(a, "e");
    EXPECT_EQ(after(qel_array_delete(a)), "e.");
}

TEST(ArrayString, OwnsCopies) {
    LogCapture log;
    qel_array* a = qel_array_string_new(1);
    // Functions of the array's own kind: an exported one is of another type.
    EXPECT_NE(reinterpret_cast<void*>(a->append_fn),
              reinterpret_cast<void*>(qel_array_string_append));
    EXPECT_NE(reinterpret_cast<void*>(a->clean_fn), reinterpret_cast<void*>(qel_string_clean));
    qel_array_string_split(a, "one", ",");
    EXPECT_EQ(qel_array_string_append(a, static_cast<qel_string*>(qel_array_peek(a, 0))), 0);
    qel_string* s = qel_string_new("two", 3);
    {
        const FailingAlloc none(0, 9);
        EXPECT_EQ(qel_array_string_append(a, s), -1);
        EXPECT_EQ(qel_array_string_new(1), nullptr);
        EXPECT_EQ(qel_array_new(1, 4), nullptr);
    }
    for (const char* line : {"qel_array_string_append:45: qel_array_string resize failed. 2 2",
                             "string_new:26: out of memory.", "array_new:25: out of memory."})
        EXPECT_TRUE(log.has(line)) << line;
    qel_array_resize(a, 1);  // frees the second
    EXPECT_EQ(qel_array_append(a, s), 0);
    EXPECT_EQ(text(a), "4|one|two||") << "the generic append counts twice and makes room twice";
    qel_array_string_print(a);
    EXPECT_TRUE(log.has("\n0: one\n1: two\n2: \n"));
    qel_array_reset(a);  // frees the rest
    qel_array_delete(a);
    qel_string_delete(s);
}

TEST(ArrayString, SplitsAtDelimitersOutsideQuotes) {
    qel_array* a = qel_array_string_new(32);
    for (const char* input : {"a,,b,", "'x,y',z", "''\"b'c\"'d,", ""})
        EXPECT_EQ(qel_array_string_split(a, input, ","), 0);
    qel_array_string_split(a, "e::f:", "::");
    qel_array_string_split(a, "gh", "");
    EXPECT_EQ(text(a), "32|a||b|x,y||z||bc|d,|e|f:|gh|");
    qel_array_delete(a);
}

}  // namespace
