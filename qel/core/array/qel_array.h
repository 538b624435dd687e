// A growable array of fixed-size items with optional functions to append and clean an item.
#ifndef QEL_CORE_ARRAY_QEL_ARRAY_H
#define QEL_CORE_ARRAY_QEL_ARRAY_H

#include <stdint.h>

#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

typedef struct qel_array qel_array;

struct qel_array {
    void* data;          // null when memory ran out and after qel_array_clean(); appending recovers
    uint32_t count;      // items in use
    uint32_t step;       // items to grow by: the capacity of the last resize
    uint32_t item_size;  // bytes
    uint32_t capacity;   // items allocated
    int32_t (*append_fn)(qel_array* a, const void* source);  // may be null; fills slot `count`
    void (*clean_fn)(void* item);                            // may be null; frees what it owns
};

typedef void (*qel_array_print_fn)(void* item, uint32_t index);
typedef int (*qel_array_cmp_fn)(const void* a, const void* b);

// Functions that return int32_t give 0, or -1 on failure and for null arguments.

/// Makes an empty array without functions in caller storage; `data` is null when memory runs out.
QEL_API int32_t qel_array_init(qel_array* a, uint32_t capacity, uint32_t item_size);

/// Like qel_array_init() on the heap; null when memory runs out.
QEL_API qel_array* qel_array_new(uint32_t capacity, uint32_t item_size);

/// Reallocates to `n` items, new ones zeroed, and makes `n` the growth step. Unless it grows it
/// also sets `count` to `n`; items that are cut off are cleaned first.
QEL_API int32_t qel_array_resize(qel_array* a, uint32_t n);

/// Appends a copy of `item`, or what `append_fn` makes of it; a full array grows by `step`, which
/// doubles it. Returns the result of `append_fn`; without one, 0 if the array grew and -1 if it
/// did not need to, appended in both cases. Counts one item even behind an `append_fn` that has
/// counted its own.
QEL_API int32_t qel_array_append(qel_array* a, const void* item);

/// Appends `n` consecutive items up to the first result that is not 0, which it logs and returns.
/// -1 for `n` 0.
QEL_API int32_t qel_array_append_n(qel_array* a, uint32_t n, const void* items);

/// Address of item `i`, which is not checked; null without storage.
QEL_API void* qel_array_peek(const qel_array* a, uint32_t i);

/// Sorts the items by qsort().
QEL_API int32_t qel_array_sort(qel_array* a, qel_array_cmp_fn cmp);

/// Cleans and zeroes all items and empties the array; its capacity becomes `step`.
QEL_API int32_t qel_array_reset(qel_array* a);

/// Cleans the items in order and frees the storage.
QEL_API int32_t qel_array_clean(qel_array* a);

/// Cleans the array and frees the record. Null is ignored.
QEL_API int32_t qel_array_delete(qel_array* a);

/// Calls `fn` for each item.
QEL_API int32_t qel_array_debug_print(const qel_array* a, qel_array_print_fn fn);

/// The same as qel_array_debug_print().
QEL_API int32_t qel_array_print(const qel_array* a, qel_array_print_fn fn);

QEL_END_DECLS

#endif
