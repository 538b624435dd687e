// An array of string buffers, which can be filled by splitting a text.
#ifndef QEL_CORE_ARRAY_QEL_ARRAY_STRING_H
#define QEL_CORE_ARRAY_QEL_ARRAY_STRING_H

#include <stdint.h>

#include "qel/core/array/qel_array.h"
#include "qel/core/qel_export.h"
#include "qel/core/qel_string.h"

QEL_BEGIN_DECLS

// An array whose items are qel_string records.
typedef qel_array qel_array_string;

/// Makes an empty array of qel_string records, freed with qel_array_delete(); null when memory
/// runs out. Fill it with qel_array_string_append(): qel_array_append() would count twice.
QEL_API qel_array* qel_array_string_new(uint32_t capacity);

/// Appends a copy of the bytes of `s`. 0, or -1 when memory runs out.
QEL_API int32_t qel_array_string_append(qel_array* a, const qel_string* s);

/// Appends the tokens of `text` between occurrences of `delim` (an empty one never occurs). A
/// token in ' or " may hold the delimiter and ends at its closing quote; quotes are dropped, also
/// the other kind inside. Tokens may be empty, except for the one at the end of the text. 0, or -1
/// when memory runs out.
QEL_API int32_t qel_array_string_split(qel_array* a, const char* text, const char* delim);

/// Logs "index: text" for each item, without header.
QEL_API int32_t qel_array_string_debug_print(const qel_array* a);

/// The same as qel_array_string_debug_print().
QEL_API int32_t qel_array_string_print(const qel_array* a);

QEL_END_DECLS

#endif
