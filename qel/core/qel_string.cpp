// A growable byte buffer that keeps spare zero bytes behind its content.
#include "qel/core/qel_string.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>

#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/qel_string";
constexpr uint64_t kMaxCapacity = 0x7FFFFFFC;  // of 31 bits, in steps of 4
constexpr size_t kFormatBytes = 16384;
constexpr uint32_t kMaxMergeCount = 256;
constexpr uint32_t kHexPerLine = 16;

uint64_t storage_for(uint64_t content) { return (content + 4) & ~uint64_t{3}; }

std::span<const char> content(const qel_string* s) { return {s->data, s->length}; }

void zero_tail(qel_string* s) {
    if (s->data) memset(s->data + s->length, 0, s->capacity - s->length);
}

bool reallocate(qel_string* s, uint64_t bytes) {
    if (bytes > kMaxCapacity) return false;
    void* data = realloc(s->data, bytes);
    if (!data) return false;
    s->data = static_cast<char*>(data);
    s->capacity = static_cast<uint32_t>(bytes);
    return true;
}

int32_t expand(qel_string* s, uint64_t wanted_content) {
    const uint64_t wanted = storage_for(wanted_content);
    if (wanted <= s->capacity) return 0;
    if (!reallocate(s, wanted)) {
        qel_debug_log(QEL_LOG_ERROR, kSource, "_string_expand", __LINE__,
                      "realloc failed. bytes: %d.", static_cast<int32_t>(wanted));
        return -1;
    }
    zero_tail(s);
    return 0;
}

/// Makes the `n` bytes the content from `at` on.
int32_t store(qel_string* s, uint32_t at, const void* bytes, uint32_t n) {
    const size_t offset = qel::offset_in(s->data, bytes);
    const bool inside = offset < s->capacity;
    if (expand(s, uint64_t{at} + n) != 0) return -1;
    if (n > 0) memmove(s->data + at, inside ? s->data + offset : bytes, n);
    s->length = at + n;
    return 0;
}

/// Length of the terminated text; the byte behind it is in the storage, if there is one.
uint32_t text_length(const qel_string* s) {
    return s->data ? static_cast<uint32_t>(strnlen(s->data, s->capacity - 1)) : 0;
}

/// The first `byte` of the terminated text, whose end counts as a byte 0; null if there is none.
char* find(const qel_string* s, char byte) {
    if (!s->data) return nullptr;
    return static_cast<char*>(memchr(s->data, byte, size_t{text_length(s)} + 1));
}

bool same(const char* a, const char* b, uint32_t n, int32_t ignore_case) {
    if (!ignore_case) return n == 0 || memcmp(a, b, n) == 0;
    return std::equal(a, a + n, b, [](unsigned char x, unsigned char y) {
        return std::tolower(x) == std::tolower(y);
    });
}

bool is_octal_digit(char c) { return c >= '0' && c <= '7'; }

int32_t detect_base(const qel_string* s) {
    if (qel_string_is_hex(s)) return 16;
    if (qel_string_is_oct(s)) return 8;
    return qel_string_is_bin(s) ? 2 : 10;
}

bool is_continuation(char c) { return (c & 0xC0) == 0x80; }

}  // namespace

int32_t qel_string_init(qel_string* s, const void* bytes, uint32_t n) {
    *s = {};
    const uint64_t wanted = storage_for(n);
    if (!reallocate(s, wanted)) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return -1;
    }
    zero_tail(s);
    return bytes ? store(s, 0, bytes, n) : 0;
}

qel_string* qel_string_new(const void* bytes, uint32_t n) {
    auto s = qel::make_zeroed<qel_string>();
    if (!s) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return nullptr;
    }
    if (qel_string_init(s.get(), bytes, n) != 0) return nullptr;
    s->owned = 1;
    return s.release();
}

qel_string* qel_string_duplicate(const qel_string* s) { return qel_string_new(s->data, s->length); }

int32_t qel_string_clean(qel_string* s) { return qel_string_reset(s, 1); }

int32_t qel_string_delete(qel_string* s) {
    if (!s) return 0;
    qel_string_clean(s);
    if (s->owned) free(s);
    return 0;
}

int32_t qel_string_reset(qel_string* s, int32_t release) {
    s->length = 0;
    if (release) {
        free(s->data);
        s->data = nullptr;
        s->capacity = 0;
    }
    zero_tail(s);
    return 0;
}

int32_t qel_string_assign(qel_string* s, const void* bytes, uint32_t n) {
    return store(s, 0, bytes, n);
}

int32_t qel_string_append(qel_string* s, const void* bytes, uint32_t n) {
    return store(s, s->length, bytes, n);
}

int32_t qel_string_append_char(qel_string* s, char byte) { return qel_string_append(s, &byte, 1); }

int32_t qel_string_append_fmt(qel_string* s, const char* format, ...) {
    char text[kFormatBytes];
    text[0] = 0;
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return qel_string_append(s, text, static_cast<uint32_t>(strlen(text)));
}

int32_t qel_string_resize(qel_string* s, uint32_t n) {
    const uint64_t wanted = storage_for(n);
    if (wanted != s->capacity && !reallocate(s, wanted)) {
        QEL_LOG(QEL_LOG_ERROR, "realloc failed. bytes %d.", static_cast<int32_t>(wanted));
        return -1;
    }
    s->length = std::min(n, s->length);
    zero_tail(s);
    return 0;
}

int32_t qel_string_merge(qel_string* s, uint32_t count, const char* first, ...) {
    if (count == 0) return qel_string_resize(s, s->length);
    count = (count - 1) % kMaxMergeCount + 1;

    const size_t first_length = strlen(first);
    uint64_t total = uint64_t{s->length} + first_length;
    va_list more;
    va_start(more, first);
    for (uint32_t i = 1; i < count; ++i) total += strlen(va_arg(more, const char*));
    va_end(more);

    const size_t offset = qel::offset_in(s->data, first);
    const bool inside = offset < s->capacity;
    if (qel_string_resize(s, static_cast<uint32_t>(std::min<uint64_t>(total, UINT32_MAX))) != 0) {
        QEL_LOG(QEL_LOG_WARNING, "input string is too large to merge with original string, %d.",
                static_cast<int32_t>(total));
        return -1;
    }
    const int32_t result = qel_string_append(s, inside ? s->data + offset : first,
                                             static_cast<uint32_t>(first_length));
    // Only the first string is appended, and always with this warning: callers count on both.
    QEL_LOG(QEL_LOG_WARNING, "append string failed.");
    return result;
}

int32_t qel_string_concat(qel_string* s, const char* text) { return qel_string_merge(s, 1, text); }

int32_t qel_string_remove_ahead(qel_string* s, int64_t n) {
    if (n < 0) return -1;
    if (n >= s->length) {
        const bool too_many = n > s->length;
        if (too_many) {
            QEL_LOG(QEL_LOG_WARNING, "try to remove bytes is bigger than data length, %d < %d",
                    static_cast<int32_t>(s->length), static_cast<int32_t>(n));
        }
        qel_string_reset(s, 0);
        return too_many ? -1 : 0;
    }
    s->length -= static_cast<uint32_t>(n);
    // The vacated tail keeps its bytes: this runs for every frame.
    memmove(s->data, s->data + n, s->length);
    return 0;
}

int32_t qel_string_filter_out(qel_string* s, char byte) {
    if (s->length == 0 || !s->data) return -1;
    char* hit = find(s, byte);
    if (!hit) return 0;
    char* const end = s->data + s->length;
    if (hit < end) s->length = static_cast<uint32_t>(std::remove(hit, end, byte) - s->data);
    zero_tail(s);
    return 0;
}

int32_t qel_string_has_char(const qel_string* s, char byte) {
    const char* hit = find(s, byte);
    if (!hit || hit >= s->data + s->length) return 0;
    QEL_LOG(QEL_LOG_DEBUG3, "ptr in string: %s, %d %d", hit, static_cast<int32_t>(hit - s->data),
            static_cast<int32_t>(s->length));
    return 1;
}

int32_t qel_string_count_char(const qel_string* s, char byte) {
    const auto bytes = content(s);
    return static_cast<int32_t>(std::count(bytes.begin(), bytes.end(), byte));
}

int32_t qel_string_strrchr(const qel_string* s, char byte) {
    if (s->length == 0 || !s->data) return 0;
    for (uint32_t i = text_length(s) + 1; i > 0; --i) {
        if (s->data[i - 1] == byte) return static_cast<int32_t>(i);
    }
    return 0;
}

int32_t qel_string_is_start_with(const qel_string* s, const char* bytes, uint32_t n,
                                 int32_t ignore_case) {
    const size_t length = n ? n : strlen(bytes);
    if (length > s->length) return 0;
    return same(s->data, bytes, static_cast<uint32_t>(length), ignore_case);
}

int32_t qel_string_is_end_with(const qel_string* s, const char* bytes, uint32_t n,
                               int32_t ignore_case) {
    const size_t length = n ? n : strlen(bytes);
    if (length > s->length) return 0;
    return same(s->data + (s->length - length), bytes, static_cast<uint32_t>(length), ignore_case);
}

int32_t qel_string_equal(const qel_string* a, const qel_string* b, int32_t ignore_case) {
    return qel_string_compare(a, b->data, b->length, ignore_case);
}

int32_t qel_string_compare(const qel_string* s, const void* bytes, uint32_t n,
                           int32_t ignore_case) {
    return s->length == n && same(s->data, static_cast<const char*>(bytes), n, ignore_case);
}

int32_t qel_string_is_hex(const qel_string* s) {
    auto digits = content(s);
    if (digits.size() >= 3 && digits[0] == '0' && digits[1] == 'x') digits = digits.subspan(2);
    return std::all_of(digits.begin(), digits.end(),
                       [](unsigned char c) { return std::isxdigit(c) != 0; });
}

int32_t qel_string_is_oct(const qel_string* s) {
    if (!s->data || s->data[0] != '0') return 0;
    // The last byte is not examined: "09" has always counted as octal.
    return s->length < 2 || std::all_of(s->data + 1, s->data + s->length - 1, is_octal_digit);
}

int32_t qel_string_is_bin(const qel_string*) { return 0; }

int32_t qel_string_to_integer(const qel_string* s, int64_t* out, int32_t base, char** end) {
    if (!s->data || !out) return -1;
    base = base ? base & 0xFF : detect_base(s);
    char* stop = s->data;
    // The long long form, as a long is not 64 bits wide on every processor. A base that it does not
    // know need not set `stop`.
    *out = base == 1 || base > 36 ? 0 : static_cast<int32_t>(strtoll(s->data, &stop, base));
    if (end) *end = stop;
    return 0;
}

int32_t qel_string_to_double(const qel_string* s, double* out, char** end) {
    if (!s->data || !out) return -1;
    *out = strtod(s->data, end);
    return 0;
}

int32_t qel_string_to_float(const qel_string* s, float* out, char** end) {
    double value;
    if (!out || qel_string_to_double(s, &value, end) != 0) return -1;
    *out = static_cast<float>(value);
    return 0;
}

int32_t qel_string_utf8_bytes(int32_t first) {
    if (first >= 0) return 1;
    return 2 + std::countl_one(static_cast<uint8_t>(first << 2));
}

int32_t qel_string_get_achar(const char* src, char* out) {
    int32_t n = 0;
    if ((src[0] & 0x80) == 0) {
        n = src[0] ? 1 : 0;
    } else if ((src[0] & 0xF0) == 0xE0 && is_continuation(src[1]) && is_continuation(src[2])) {
        n = 3;  // the only longer form: texts here are ASCII or three-byte scripts
    } else {
        QEL_LOG(QEL_LOG_WARNING, "skip an invalid char '0x%X'",
                static_cast<uint32_t>(static_cast<signed char>(src[0])));
    }
    memcpy(out, src, static_cast<size_t>(n));
    out[n] = 0;
    return n;
}

int32_t qel_string_debug_hex(const qel_string* s) {
    for (uint32_t i = 0; i < s->length; ++i) {
        printf("\\x%02x, ", static_cast<unsigned char>(s->data[i]));
        if (i % kHexPerLine == kHexPerLine - 1) printf("\n");
    }
    printf("\n");
    return 0;
}
