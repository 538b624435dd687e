// A growable byte buffer that keeps spare zero bytes behind its content.
#ifndef QEL_CORE_QEL_STRING_H
#define QEL_CORE_QEL_STRING_H

#include <stdint.h>

#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

// For a content of n bytes the storage is 4 * (n / 4) + 4 bytes: one to four stay spare. Growth
// goes to exactly that size and zeroes what it gains. Assigning and removing from the front leave
// old bytes behind the content, which the operations on a "terminated text" then see: those read
// `data` up to its first zero byte, `length` or not. The last byte of the storage is always zero.
// In caller storage from qel_string_init() to qel_string_clean(), on the heap from
// qel_string_new() to qel_string_delete(). A zeroed record is an empty buffer without storage.
// Unless a function says otherwise it returns 0, or -1 with a log line and the record unchanged.
// Source bytes may lie in the record's own storage.
typedef struct qel_string {
    char* data;              // null while there is no storage
    uint32_t length;         // bytes of content
    uint32_t owned : 1;      // bit 0: the record itself is freed by qel_string_delete()
    uint32_t capacity : 31;  // bits 1 to 31: bytes of storage, a multiple of 4
} qel_string;

/// Makes a buffer of `n` bytes copied from `bytes`; with null `bytes` an empty one with room for
/// `n`. When memory runs out the record is empty, without storage, and works.
QEL_API int32_t qel_string_init(qel_string* s, const void* bytes, uint32_t n);

/// Like qel_string_init() on the heap; null when memory runs out.
QEL_API qel_string* qel_string_new(const void* bytes, uint32_t n);

/// A new buffer with the content of `s`; null when memory runs out.
QEL_API qel_string* qel_string_duplicate(const qel_string* s);

/// Frees the storage. The record is then empty and can be used again.
QEL_API int32_t qel_string_clean(qel_string* s);

/// Frees the storage, and the record if it is on the heap. Null is ignored.
QEL_API int32_t qel_string_delete(qel_string* s);

/// Empties the buffer: frees its storage if `release` is not 0, else zeroes and keeps it.
QEL_API int32_t qel_string_reset(qel_string* s, int32_t release);

/// Replaces the content; grows but never shrinks the storage.
QEL_API int32_t qel_string_assign(qel_string* s, const void* bytes, uint32_t n);

/// Adds `n` bytes behind the content. The storage grows to the exact size, so give a buffer that
/// is filled bit by bit its final size first.
QEL_API int32_t qel_string_append(qel_string* s, const void* bytes, uint32_t n);

QEL_API int32_t qel_string_append_char(qel_string* s, char byte);

/// Appends printf-style text, cut after 16383 characters.
QEL_API int32_t qel_string_append_fmt(qel_string* s, const char* format, ...) QEL_PRINTF(2, 3);

/// Grows or shrinks the storage to the size for `n` bytes, cuts the content to `n` and zeroes all
/// that lies behind it.
QEL_API int32_t qel_string_resize(qel_string* s, uint32_t n);

/// Sizes the buffer for all `count` zero-terminated strings, then appends the first one alone and
/// logs a warning; returns the append's result. Counts above 256 wrap to 1. With `count` 0 it
/// resizes to the content.
QEL_API int32_t qel_string_merge(qel_string* s, uint32_t count, const char* first, ...);

/// qel_string_merge() of one string.
QEL_API int32_t qel_string_concat(qel_string* s, const char* text);

/// Removes the first `n` bytes. More than there are: warns, empties the buffer, returns -1. A
/// negative `n` changes nothing and returns -1.
QEL_API int32_t qel_string_remove_ahead(qel_string* s, int64_t n);

/// Removes every `byte`, if it occurs in the terminated text. -1 for an empty buffer.
QEL_API int32_t qel_string_filter_out(qel_string* s, char byte);

/// 1 if the first `byte` of the terminated text lies in the content, else 0.
QEL_API int32_t qel_string_has_char(const qel_string* s, char byte);

/// How often `byte` occurs in the content.
QEL_API int32_t qel_string_count_char(const qel_string* s, char byte);

/// One more than the index of the last `byte` in the terminated text; 0 if the content is empty
/// or the byte absent.
QEL_API int32_t qel_string_strrchr(const qel_string* s, char byte);

/// 1 if the content starts with the `n` bytes, else 0; `n` 0 stands for strlen(bytes).
QEL_API int32_t qel_string_is_start_with(const qel_string* s, const char* bytes, uint32_t n,
                                         int32_t ignore_case);

/// 1 if the content ends with the `n` bytes, else 0; `n` 0 stands for strlen(bytes).
QEL_API int32_t qel_string_is_end_with(const qel_string* s, const char* bytes, uint32_t n,
                                       int32_t ignore_case);

/// 1 if both contents are equal, else 0.
QEL_API int32_t qel_string_equal(const qel_string* a, const qel_string* b, int32_t ignore_case);

/// 1 if the content equals the `n` bytes, else 0: a test for equality, not an order.
QEL_API int32_t qel_string_compare(const qel_string* s, const void* bytes, uint32_t n,
                                   int32_t ignore_case);

/// 1 if the content is hexadecimal digits behind an optional "0x" (not "0X"), or empty; else 0.
QEL_API int32_t qel_string_is_hex(const qel_string* s);

/// 1 if the content starts with '0' and goes on with octal digits, the last byte not examined;
/// else 0. Of an empty buffer the first byte of the storage counts.
QEL_API int32_t qel_string_is_oct(const qel_string* s);

/// 0: binary literals are not recognised.
QEL_API int32_t qel_string_is_bin(const qel_string* s);

/// Converts the terminated text as strtoll() does and keeps the low 32 bits, sign-extended. `base`
/// counts modulo 256; 0 selects 16, 8 or 10, the first whose digits fit: so "10" is sixteen.
/// `end` (may be null) gets the first unused byte. 0 even when nothing was parsed; -1, nothing
/// stored, without storage or `out`.
QEL_API int32_t qel_string_to_integer(const qel_string* s, int64_t* out, int32_t base, char** end);

/// Converts the terminated text as strtod() does; `end` and results as above.
QEL_API int32_t qel_string_to_double(const qel_string* s, double* out, char** end);

/// qel_string_to_double(), narrowed.
QEL_API int32_t qel_string_to_float(const qel_string* s, float* out, char** end);

/// Length of a UTF-8 sequence from its first byte, given as a signed char: 1 for 0 and above,
/// else 2 plus the set bits from bit 5 downward. Continuation bytes follow the same rule.
QEL_API int32_t qel_string_utf8_bytes(int32_t first);

/// Copies the first character of `src` to `out` (4 bytes), terminates it and returns its length:
/// 1 or 3 bytes, 0 at the end. Other sequences are warned of and give 0.
QEL_API int32_t qel_string_get_achar(const char* src, char* out);

/// Prints the content to standard output as "\x%02x, ", 16 bytes a line.
QEL_API int32_t qel_string_debug_hex(const qel_string* s);

QEL_END_DECLS

#endif
