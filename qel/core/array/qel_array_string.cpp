// An array of string buffers and the splitting of a text into one.
#include "qel/core/array/qel_array_string.h"

#include <cstring>

#include "qel/core/array/array_storage.hpp"
#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/array/qel_array_string";
constexpr int32_t kPrintLine = 15, kNewLine = 26, kAppendLine = 45;

int32_t append_item(qel_array* a, const void* s) {
    return qel_array_string_append(a, static_cast<const qel_string*>(s));
}

void clean_item(void* s) { qel_string_clean(static_cast<qel_string*>(s)); }

void print_item(void* item, uint32_t index) {
    const auto* s = static_cast<const qel_string*>(item);
    qel_debug_log(QEL_LOG_ALWAYS, kSource, "_array_string_debug_print", kPrintLine, "%d: %.*s",
                  static_cast<int32_t>(index), static_cast<int32_t>(s->length),
                  s->data ? s->data : "");
}

/// Appends `token`, even an empty one, and empties it.
int32_t flush(qel_array* a, qel_string* token) {
    const int32_t result = qel_array_string_append(a, token);
    qel_string_reset(token, 0);
    return result;
}

int32_t split(qel_array* a, const char* text, const char* delim, qel_string* token) {
    const size_t delim_length = strlen(delim);
    char quote = 0;
    for (const char* p = text; *p;) {
        const char* const at = p++;
        int32_t result = 0;
        if (*at == '\'' || *at == '"') {
            // The other kind of quote inside a span is dropped like the quotes that bound it.
            if (!quote) {
                quote = *at;
            } else if (quote == *at) {
                quote = 0;
                result = flush(a, token);
            }
        } else if (!quote && delim_length > 0 && strncmp(at, delim, delim_length) == 0) {
            p = at + delim_length;
            result = flush(a, token);
        } else {
            result = qel_string_append_char(token, *at);
        }
        if (result != 0) return result;
    }
    return token->length > 0 ? flush(a, token) : 0;
}

}  // namespace

qel_array* qel_array_string_new(uint32_t capacity) {
    qel_array* a = qel::make_array(capacity, sizeof(qel_string));
    if (!a) {
        QEL_LOG_AT(QEL_LOG_ERROR, kNewLine, "out of memory.");
        return nullptr;
    }
    a->append_fn = append_item;
    a->clean_fn = clean_item;
    return a;
}

int32_t qel_array_string_append(qel_array* a, const qel_string* s) {
    if (!a || !s) return -1;
    const void* source = s;
    if (qel::make_room(a, &source) < 0) {
        QEL_LOG_AT(QEL_LOG_ERROR, kAppendLine, "qel_array_string resize failed. %d %d",
                   static_cast<int32_t>(a->capacity), static_cast<int32_t>(a->step));
        return -1;
    }
    s = static_cast<const qel_string*>(source);
    auto* slot = static_cast<qel_string*>(qel_array_peek(a, a->count));
    ++a->count;
    return qel_string_assign(slot, s->data, s->length);
}

int32_t qel_array_string_split(qel_array* a, const char* text, const char* delim) {
    if (!a || !text || !delim) return -1;
    qel_string token;
    qel_string_init(&token, nullptr, static_cast<uint32_t>(strlen(text)));
    const int32_t result = split(a, text, delim, &token);
    qel_string_clean(&token);
    return result;
}

int32_t qel_array_string_debug_print(const qel_array* a) {
    return qel_array_debug_print(a, print_item);
}

int32_t qel_array_string_print(const qel_array* a) { return qel_array_string_debug_print(a); }
