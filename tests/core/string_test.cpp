// The string buffer: storage, searches, number parsing, UTF-8.
#include "qel/core/qel_string.h"

#include <gtest/gtest.h>

#include "tests/support/each.hpp"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace std::string_view_literals;

struct Str : qel_string {
    explicit Str(std::string_view v) { qel_string_init(this, v.data(), v.size()); }
    Str(std::string_view v, char over) : Str(v) { qel_string_assign(this, &over, 1); }
    ~Str() { qel_string_clean(this); }
    operator qel_string*() { return this; }
};

/// Result, length and the whole storage after `op`, zeros shown as dots.
std::string after(Str&& s, auto op, auto... args) {
    std::string out = std::to_string(op(s, args...)) + " ";
    out += std::to_string(s.length) + " ";
    for (uint32_t i = 0; i < s.capacity; ++i) out += s.data[i] ? s.data[i] : '.';
    return out;
}

TEST(String, OperationsLeaveExactlyThisStorage) {
    LogCapture log;
    EXPECT_EQ(after(Str(""), qel_string_append, "", 0), "0 0 ....");
    EXPECT_EQ(after(Str("abc"), qel_string_append_char, 'd'), "0 4 abcd....");
    EXPECT_EQ(after(Str("abcdefg"), qel_string_assign, "xy", 2), "0 2 xycdefg.") << "old bytes";
    EXPECT_EQ(after(Str("abcdefgh"), qel_string_resize, 5), "0 5 abcde...");
    EXPECT_EQ(after(Str("abcdef", 'x'), qel_string_resize, 4), "0 1 x.......");
    EXPECT_EQ(after(Str("abcdef"), qel_string_remove_ahead, 2), "0 4 cdefef..") << "old bytes";
    EXPECT_EQ(after(Str("abc"), qel_string_remove_ahead, 3), "0 0 ....");
    EXPECT_EQ(after(Str("abc"), qel_string_remove_ahead, 1LL << 32), "-1 0 ....");
    EXPECT_EQ(after(Str("abc"), qel_string_remove_ahead, -1), "-1 3 abc.");
    EXPECT_EQ(after(Str("-a--b-"), qel_string_filter_out, '-'), "0 2 ab......");
    EXPECT_EQ(after(Str("a\0-b"sv), qel_string_filter_out, '-'), "0 4 a.-b....") << "stops at 0";
    EXPECT_EQ(after(Str("abc", 'x'), qel_string_filter_out, 'c'), "0 1 x...") << "zeroes old bytes";
    EXPECT_EQ(after(Str("ab"), qel_string_merge, 3, "c", "def", "gh"), "0 3 abc.........");
    EXPECT_TRUE(log.has("append string failed."));
    EXPECT_TRUE(log.has("bigger than data length, 3 < 0"));
    EXPECT_EQ(after(Str("ab"), qel_string_merge, 257, "c"), "0 3 abc.") << "counts wrap to 1";
    EXPECT_EQ(after(Str("abcd", 'x'), qel_string_merge, 0, ""), "0 1 x...");
    const auto own = [](qel_string* s) {
        return qel_string_concat(s, s->data) | qel_string_append(s, s->data, 2);
    };
    EXPECT_EQ(after(Str("abc"), own), "0 8 abcabcab....");
}

TEST(String, SearchesAndComparisons) {
    Str abc("abc"), zero("a\0a"sv), stale("abcdef", 'x'), gone("");
    qel_string_clean(gone);
    constexpr auto has = qel_string_has_char, last = qel_string_strrchr;
    EXPECT_EQ(each(has(abc, 'c'), has(zero, 0), has(abc, 0), has(abc, 'z'), has(stale, 'f'),
                   has(gone, 0), qel_string_count_char(zero, 'a')),
              "1 1 0 0 0 0 2");
    EXPECT_EQ(each(last(abc, 'c'), last(zero, 'a'), last(stale, 'f'), last(abc, 'z'), last(abc, 0),
                   last(Str(""), 0), last(gone, 0)),
              "3 1 6 0 4 0 0");
    constexpr auto starts = qel_string_is_start_with, ends = qel_string_is_end_with;
    EXPECT_EQ(each(starts(abc, "abX", 2, 0), starts(abc, "AB", 0, 1), starts(gone, "", 0, 1),
                   starts(abc, "abcd", 0, 1), starts(abc, "aB", 0, 0), starts(abc, "b", 0, 0)),
              "1 1 1 0 0 0");
    EXPECT_EQ(each(ends(abc, "Cx", 1, 1), ends(abc, "abc", 0, 0), ends(abc, "ab", 0, 0)), "1 1 0");
    constexpr auto same = qel_string_compare;
    EXPECT_EQ(each(same(abc, "abcd", 3, 0), qel_string_equal(abc, Str("ABC"), 1),
                   same(abc, "abcd", 4, 0), same(abc, "abd", 3, 1), same(abc, "ABC", 3, 0)),
              "1 1 0 0 0");
    constexpr auto hex = qel_string_is_hex, oct = qel_string_is_oct;
    EXPECT_EQ(each(hex(gone), hex(Str("0x0aF")), hex(Str("0x")), hex(Str("0X1"))), "1 1 0 0");
    EXPECT_EQ(each(oct(Str("0")), oct(Str("019")), oct(Str("0190")), oct(gone)), "1 1 0 0");
}

TEST(String, ParsesNumbersLikeTheCLibrary) {
    const auto parse = [](const char* text, int32_t base) {
        int64_t value = 0;
        char* rest = nullptr;
        Str s(text);
        EXPECT_EQ(qel_string_to_integer(s, &value, base, &rest), 0);
        return std::to_string(value) + "|" + rest;
    };
    EXPECT_EQ(parse("fF", 0) + parse("0x1A", 0) + parse("10", 0), "255|26|16|");
    EXPECT_EQ(parse("0777z", 0) + parse("12z", 0) + parse("-12x", 10), "511|z12|z-12|x");
    EXPECT_EQ(parse("4294967295", 0x10A) + parse("12", 1), "-1|0|12") << "wraps; impossible base";
    EXPECT_EQ(parse("zZ!", 36), "1295|!");
    float value = 0;
    EXPECT_EQ(qel_string_to_float(Str("0.1e1x"), &value, nullptr), 0);
    EXPECT_EQ(value, 1.0f);
}

TEST(String, TakesOneAndThreeByteCharacters) {
    LogCapture log;
    const auto take = [](const char* text) {
        char out[] = "???";
        return std::to_string(qel_string_get_achar(text, out)).append(out);
    };
    EXPECT_EQ(take("ab") + take("\xE4\xBD\xA0z"), "1a3\xE4\xBD\xA0");
    EXPECT_EQ(take("") + take("\xE4\xBD") + take("\xC3\xA9"), "000");
    EXPECT_TRUE(log.has("skip an invalid char '0xFFFFFFC3'"));
    constexpr auto bytes = qel_string_utf8_bytes;
    EXPECT_EQ(each(bytes(0x7F), bytes(-0x80), bytes(-0x10), bytes(-1)), "1 2 4 8");
}

TEST(String, FormatsUpToItsBufferAndDumps) {
    Str s("");
    qel_string_append_fmt(s, "%0*d", 20000, 0);
    qel_string_remove_ahead(s, 16383 - 17);
    testing::internal::CaptureStdout();
    qel_string_debug_hex(s);
    EXPECT_EQ(testing::internal::GetCapturedStdout().substr(15 * 6), "\\x30, \n\\x30, \n");
}

TEST(String, RefusedMemoryChangesNothing) {
    LogCapture log;
    Str s("abc");
    for (const int64_t allowed : {0, 1}) {
        const FailingAlloc refused(allowed, 9);
        EXPECT_EQ(qel_string_duplicate(s), nullptr);
        EXPECT_EQ(each(qel_string_append(s, "defg", 4), qel_string_resize(s, 9)), "-1 -1");
    }
    EXPECT_EQ(each(qel_string_append(s, "x", UINT32_MAX), qel_string_resize(s, INT32_MAX)),
              "-1 -1");
    EXPECT_STREQ(s.data, "abc");
    for (const char* line : {"[E] qel_string:_string_expand:", "realloc failed. bytes: 8.",
                             "realloc failed. bytes 12.", "out of memory."})
        EXPECT_TRUE(log.has(line)) << line;
}

}  // namespace
