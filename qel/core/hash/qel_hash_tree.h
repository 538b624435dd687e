// A map from keys to pointers: a tree of prime fan-outs in which a 64-bit hash stands for its key.
#ifndef QEL_CORE_HASH_QEL_HASH_TREE_H
#define QEL_CORE_HASH_QEL_HASH_TREE_H

#include <stdint.h>

#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

// The children of a node at level i are an array of prime[i] slots; a hash goes to slot hash mod
// prime[i], and one level down if that slot holds another hash. Hashes of 64 bits separate within
// 16 levels, of 32 bits within 10. An entry never moves.
typedef struct qel_hash_tree_node {
    struct qel_hash_tree_node** children;  // null until an entry is placed below this node
    void* value;                           // null after removal: the node remains as a path
    uint64_t hash_value;
} qel_hash_tree_node;

/// Writes the 64-bit hash of `key`.
typedef void (*qel_hash_tree_hash_fn)(const void* key, uint64_t* out);
/// 0 if the keys are equal, else -1.
typedef int32_t (*qel_hash_tree_keycomp_fn)(const void* a, const void* b);
typedef void (*qel_hash_tree_walk_fn)(void* user, void* value, void* arg);
typedef void (*qel_hash_tree_cleanup_fn)(void* user, void* value);

typedef struct qel_hash_tree {
    qel_hash_tree_node* root;  // holds no entry
    uint32_t count;            // nodes made so far; removing an entry does not lower it
    qel_hash_tree_hash_fn hash;
    qel_hash_tree_keycomp_fn keycomp;  // kept for the caller: equal hashes are equal keys here
} qel_hash_tree;

/// Makes an empty tree; null, with an ERROR line, when memory runs out. A null function selects
/// the one for NUL-terminated strings.
QEL_API qel_hash_tree* qel_hash_tree_new(qel_hash_tree_hash_fn hash,
                                         qel_hash_tree_keycomp_fn keycomp);

/// Frees the tree but not its values; null is accepted.
QEL_API void qel_hash_tree_delete(qel_hash_tree* tree);

/// 0 for a new entry. -1 if the hash was there already: its value is overwritten, the old one
/// neither freed nor returned. Also -1, with an ERROR line and nothing stored, when memory runs
/// out.
QEL_API int32_t qel_hash_tree_insert(qel_hash_tree* tree, const void* key, void* value);

/// 0 and the value, through `out` unless that is null; -1 for no entry or a null value.
QEL_API int32_t qel_hash_tree_search(const qel_hash_tree* tree, const void* key, void** out);

/// As qel_hash_tree_search(), and sets the value to null.
QEL_API int32_t qel_hash_tree_remove(qel_hash_tree* tree, const void* key, void** out);

/// Calls `fn` for every node, those with a null value included: children before their parent, in
/// slot order. `fn` must not insert.
QEL_API void qel_hash_tree_walk(qel_hash_tree* tree, void* user, qel_hash_tree_walk_fn fn,
                                void* arg);

/// The same walk, to release the values before qel_hash_tree_delete().
QEL_API void qel_hash_tree_cleanup(qel_hash_tree* tree, void* user, qel_hash_tree_cleanup_fn fn);

/// Hashes a NUL-terminated string to 32 bits, zero-extended.
QEL_API void qel_hash_tree_string_hash(const void* key, uint64_t* out);

/// 0 if two NUL-terminated strings are equal, else -1.
QEL_API int32_t qel_hash_tree_string_keycomp(const void* a, const void* b);

/// Hashes the low 4 bytes of the pointer itself to 32 bits, on every processor. Where pointers are
/// wider, two that differ only above bit 31 are the same key.
QEL_API void qel_hash_tree_pointer_hash(const void* key, uint64_t* out);

/// 0 for the same pointer, else -1.
QEL_API int32_t qel_hash_tree_pointer_keycomp(const void* a, const void* b);

QEL_END_DECLS

#endif
