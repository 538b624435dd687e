// Configuration in memory: a tree of named items, each a string, an array of strings or a section.
#ifndef QEL_CORE_CONFIG_QEL_CONFIG_BASE_H
#define QEL_CORE_CONFIG_QEL_CONFIG_BASE_H

#include <stdint.h>

#include "qel/core/array/qel_array.h"
#include "qel/core/hash/qel_hash_tree.h"
#include "qel/core/qel_export.h"
#include "qel/core/qel_string.h"
#include "qel/core/queue/qel_queue.h"

QEL_BEGIN_DECLS

// Values of qel_config_item.type.
enum { QEL_CONFIG_STRING = 0, QEL_CONFIG_SUBITEMS = 1, QEL_CONFIG_ARRAY = 2 };

struct qel_config_items;

// Owns its name and its value.
typedef struct qel_config_item {
    int32_t type;
    qel_string* name;
    union {
        qel_string* str;                    // QEL_CONFIG_STRING
        struct qel_config_items* subitems;  // QEL_CONFIG_SUBITEMS
        qel_array* array;                   // QEL_CONFIG_ARRAY: of qel_string
    } value;
} qel_config_item;

// A section, or the root. Owns its items. A name counts up to its first NUL; two names with the
// same 32-bit hash are the same name.
typedef struct qel_config_items {
    qel_queue_node link;              // the parser's: chains the sections it made
    struct qel_config_items* parent;  // the enclosing section; null for the root
    qel_hash_tree* hash;              // name to qel_config_item
} qel_config_items;

/// Makes an empty tree; null when memory runs out.
QEL_API qel_config_items* qel_config_items_new(qel_config_items* parent);

/// Releases the tree with all its items, sections within it included; null is accepted. A tree that
/// an item still holds is left to that item, so nothing is released twice:
/// qel_config_items_remove() the item first.
QEL_API void qel_config_items_delete(qel_config_items* items);

/// Looks up the first `n` bytes of `name`, with or without a terminating NUL, in this section
/// alone; null if it is missing or longer than 255 bytes.
QEL_API qel_config_item* qel_config_items_find(const qel_config_items* items, const char* name,
                                               uint32_t n);

/// Follows a path such as "aec > nlp" from `items` inward. Spaces and empty parts are skipped, so
/// an empty path gives `items` itself; null if a part is missing or no section, or the path is
/// longer than 511 bytes.
QEL_API qel_config_items* qel_config_items_find_subitems(qel_config_items* items, const char* path);

/// Adds `item`, which must come from malloc(), under `name` and takes ownership of it; 0 for a new
/// name, else -1. An item replaced by a later one cannot be found any more, but lives on until its
/// tree is deleted, since callers may still hold it; adding it again brings it back. Also -1, with
/// an ERROR line and the item still the caller's, when memory runs out.
QEL_API int32_t qel_config_items_add(qel_config_items* items, const char* name,
                                     qel_config_item* item);

/// Takes an item out; it then belongs to the caller. 0, or -1 if there is none of this name.
QEL_API int32_t qel_config_items_remove(qel_config_items* items, const char* name);

// Add an item with copies of the NUL-terminated strings. `sub` and `array`, either may be null,
// pass to the tree, which releases them at once if memory runs out; an ERROR line tells. Several
// items may hold one `sub`; an `array` that an item of the tree holds already is not added again.
QEL_API void qel_config_items_add_string(qel_config_items* items, const char* name,
                                         const char* value);
QEL_API void qel_config_items_add_subitems(qel_config_items* items, const char* name,
                                           qel_config_items* sub);
QEL_API void qel_config_items_add_array(qel_config_items* items, const char* name,
                                        qel_array* array);

QEL_END_DECLS

#endif
