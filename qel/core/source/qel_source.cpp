// Readers of text and binary values on top of a source of bytes.
#include "qel/core/source/qel_source.h"

#include <algorithm>
#include <cstdint>

#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/source/qel_source";
constexpr uint32_t kScratchBytes = 32;
constexpr int32_t kEnd = -1;

int32_t get(qel_source* source) { return source->get(source->data); }

void unget(qel_source* source, int32_t byte) { source->unget(source->data, byte); }

/// The next byte as a signed one, so that 0xFF is the end too.
int8_t get_signed(qel_source* source) { return static_cast<int8_t>(get(source)); }

bool is_digit(int32_t c) { return c >= '0' && c <= '9'; }
bool is_octal(int32_t c) { return c >= '0' && c <= '7'; }
bool starts_integer(int32_t c) { return c == '+' || c == '-' || is_digit(c); }
bool starts_float(int32_t c) { return c == '.' || starts_integer(c); }
bool continues_float(int32_t c) { return c != kEnd && !qel::is_blank(c); }

/// Collects a word in the scratch string; `after` becomes the byte behind it, not pushed back.
bool read_word(qel_source* source, bool (*starts)(int32_t), bool (*continues)(int32_t),
               int32_t* after) {
    qel_string_reset(source->scratch, 0);
    if (qel_source_skip_space(source) != 0) return false;
    int32_t c = get(source);
    if (!starts(c)) {
        unget(source, c);
        return false;
    }
    do {
        if (qel_string_append_char(source->scratch, static_cast<char>(c)) != 0) return false;
        c = get(source);
    } while (continues(c));
    *after = c;
    return true;
}

template <class T, class Value>
int32_t read_texts(qel_source* source, T* out, uint32_t n,
                   int32_t (*read)(qel_source* source, Value* value)) {
    for (uint32_t i = 0; i < n; ++i) {
        Value value;
        const int32_t result = read(source, &value);
        if (result != 0) return result;
        out[i] = static_cast<T>(value);
    }
    return 0;
}

/// Byte-reverses the values if the byte-order flag equals `reverse_when`.
template <class T>
int32_t read_binaries(qel_source* source, T* out, uint32_t n, bool reverse_when) {
    if (n > UINT32_MAX / sizeof(T)) return -1;
    uint32_t bytes = n * sizeof(T);
    const int32_t result = qel_source_fill(source, out, &bytes);
    if (result != 0) return result;
    const bool flag = source->flags & QEL_SOURCE_BYTE_ORDER;
    for (uint32_t i = 0; i < n && flag == reverse_when; ++i) {
        auto* value = reinterpret_cast<uint8_t*>(out + i);
        std::reverse(value, value + sizeof(T));
    }
    return 0;
}

}  // namespace

int32_t qel_source_init(qel_source* source) {
    if (!source) return -1;
    *source = {};
    source->flags = QEL_SOURCE_BYTE_ORDER;
    source->scratch = qel_string_new(nullptr, kScratchBytes);
    if (source->scratch) return 0;
    QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    return -1;
}

int32_t qel_source_clean(qel_source* source) {
    if (!source) return -1;
    qel_string_delete(source->scratch);
    source->scratch = nullptr;
    return 0;
}

int32_t qel_source_loader_load(const qel_source_loader* loader, void* user, qel_source_load_fn load,
                               const char* path) {
    return loader->load(loader->user_data, user, load, path);
}

int32_t qel_source_peek(qel_source* source) {
    const int32_t c = get(source);
    unget(source, static_cast<int8_t>(c));
    return c;
}

int32_t qel_source_skip_space(qel_source* source) {
    int32_t c = get(source);
    while (qel::is_blank(c)) c = get(source);
    if (c == kEnd) return -1;
    unget(source, c);
    return 0;
}

int32_t qel_source_count_lines(qel_source* source, uint32_t* out) {
    *out = 0;
    if (!source) return 0;
    int8_t last = '\n';
    for (int8_t c = get_signed(source); c != kEnd; c = get_signed(source)) {
        if (c != '\n' && last == '\n') ++*out;
        last = c;
    }
    return 0;
}

int32_t qel_source_read_string(qel_source* source, qel_string* string, void* arg) {
    if (source->read_string) return source->read_string(source->data, string, arg);
    if (qel_source_skip_space(source) != 0) return -1;
    int32_t c = get(source);
    int32_t quote = kEnd;
    if (c == '\'' || c == '"') {
        quote = c;
        c = get(source);
    }
    for (; c != kEnd && c != quote; c = get(source)) {
        if (qel::is_blank(c)) {  // ends the token within quotes too
            unget(source, c);
            break;
        }
        if (c == '\\') {
            c = get(source);
            if (c == kEnd) break;
            if (is_octal(c)) {
                int32_t value = c - '0';
                for (int digit = 1; digit < 3; ++digit) {
                    c = get(source);
                    if (!is_octal(c)) return 0;
                    value = value * 8 + (c - '0');
                }
                c = value;
            }
        }
        if (qel_string_append_char(string, static_cast<char>(c)) != 0) return -1;
    }
    return 0;
}

int32_t qel_source_read_line(qel_source* source, qel_string* string, int32_t* eof_out) {
    int8_t c = get_signed(source);
    for (; c != kEnd && c != '\n'; c = get_signed(source)) {
        if (qel_string_append_char(string, c) != 0) return -1;
    }
    if (eof_out) *eof_out = c == kEnd;
    return 0;
}

int32_t qel_source_read_char(qel_source* source, char* buffer, int32_t* count) {
    if (!buffer || *count < 1) return -1;
    for (int32_t i = 0; i < *count; ++i) {
        const int32_t c = get(source);
        if (c == kEnd) {
            *count = i + 1;  // one too many: callers subtract it
            return 0;
        }
        buffer[i] = static_cast<char>(c);
    }
    return 0;
}

int32_t qel_source_read_utf8_char(qel_source* source, qel_string* string) {
    qel_string_reset(string, 0);
    int32_t left = 1;
    for (bool first = true; left > 0; --left, first = false) {
        const int32_t c = get(source);
        if (c == kEnd || qel_string_append_char(string, static_cast<char>(c)) != 0) return -1;
        if (first) left = qel_string_utf8_bytes(static_cast<int8_t>(c));
    }
    return 0;
}

int32_t qel_source_atoi(qel_source* source, int32_t* out) {
    int32_t after = kEnd;
    if (!read_word(source, starts_integer, is_digit, &after)) return -1;
    unget(source, after);  // the end as well: it then reads as 0xFF, the text readers' end
    if (qel::is_blank(after)) unget(source, after);
    int64_t value = 0;
    const int32_t result = qel_string_to_integer(source->scratch, &value, 10, nullptr);
    *out = static_cast<int32_t>(value);
    return result;
}

int32_t qel_source_atof(qel_source* source, double* out) {
    int32_t after = kEnd;
    if (!read_word(source, starts_float, continues_float, &after)) return -1;
    unget(source, after);
    return qel_string_to_double(source->scratch, out, nullptr);
}

int32_t qel_source_fill(qel_source* source, void* dst, uint32_t* count) {
    const uint32_t wanted = *count;
    if (source->read) {
        source->read(source->data, dst, count);
        return *count == wanted ? 0 : -1;
    }
    auto* bytes = static_cast<uint8_t*>(dst);
    uint32_t n = 0;
    for (int32_t c; n < wanted && (c = get(source)) != kEnd; ++n)
        bytes[n] = static_cast<uint8_t>(c);
    *count = n;
    return 0;
}

// A fresh source reverses 32-bit integers and nothing else: stored data relies on it.

int32_t qel_source_read_int(qel_source* source, int32_t* out, uint32_t n, int32_t binary) {
    return binary ? read_binaries(source, out, n, true)
                  : read_texts(source, out, n, qel_source_atoi);
}

int32_t qel_source_read_short(qel_source* source, int16_t* out, uint32_t n, int32_t binary) {
    return binary ? read_binaries(source, out, n, false)
                  : read_texts(source, out, n, qel_source_atoi);
}

int32_t qel_source_read_float(qel_source* source, float* out, uint32_t n, int32_t binary) {
    return binary ? read_binaries(source, out, n, false)
                  : read_texts(source, out, n, qel_source_atof);
}

int32_t qel_source_read_double(qel_source* source, double* out, uint32_t n, int32_t binary) {
    return binary ? read_binaries(source, out, n, false)
                  : read_texts(source, out, n, qel_source_atof);
}
