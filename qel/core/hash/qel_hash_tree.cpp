// A map from keys to pointers: a tree of prime fan-outs in which a 64-bit hash stands for its key.
#include "qel/core/hash/qel_hash_tree.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qel/core/hash/qel_hash.h"
#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/hash/qel_hash_tree";
constexpr uint32_t kStringSeed = 0x97322f83;
constexpr uint32_t kPointerSeed = 0xd973226e;

// Fan-out of each level. Two hashes share a path while they agree modulo every prime on it, and
// the product of the first 16 primes exceeds 2^64: the table is never exhausted.
constexpr std::array<uint32_t, 25> kPrimes = {2,  3,  5,  7,  11, 13, 17, 19, 23, 29, 31, 37, 41,
                                              43, 47, 53, 59, 61, 67, 71, 73, 79, 83, 89, 97};

uint64_t hash_of(const qel_hash_tree* tree, const void* key) {
    uint64_t hash = 0;
    tree->hash(key, &hash);
    return hash;
}

qel_hash_tree_node* find(const qel_hash_tree* tree, uint64_t hash) {
    const qel_hash_tree_node* node = tree->root;
    for (const uint32_t prime : kPrimes) {
        if (!node->children) return nullptr;
        qel_hash_tree_node* child = node->children[hash % prime];
        if (!child || child->hash_value == hash) return child;
        node = child;
    }
    return nullptr;
}

/// The first free slot on the path of a hash that is not in the tree; null when memory runs out.
qel_hash_tree_node** free_slot(qel_hash_tree* tree, uint64_t hash) {
    qel_hash_tree_node* node = tree->root;
    for (const uint32_t prime : kPrimes) {
        if (!node->children) {
            node->children = qel::make_zeroed<qel_hash_tree_node*>(prime).release();
            if (!node->children) return nullptr;
        }
        qel_hash_tree_node** slot = &node->children[hash % prime];
        if (!*slot) return slot;
        node = *slot;
    }
    return nullptr;
}

/// Calls `fn` for every node below `node`, which is at `level`: children before their parent.
template <class Fn>
void visit(const qel_hash_tree_node* node, size_t level, const Fn& fn) {
    if (!node->children) return;
    for (uint32_t i = 0; i < kPrimes[level]; ++i) {
        qel_hash_tree_node* child = node->children[i];
        if (!child) continue;
        visit(child, level + 1, fn);
        fn(child);
    }
}

void free_node(qel_hash_tree_node* node) {
    free(node->children);
    free(node);
}

}  // namespace

qel_hash_tree* qel_hash_tree_new(qel_hash_tree_hash_fn hash, qel_hash_tree_keycomp_fn keycomp) {
    auto tree = qel::make_zeroed<qel_hash_tree>();
    auto root = qel::make_zeroed<qel_hash_tree_node>();
    if (!tree || !root) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return nullptr;
    }
    tree->root = root.release();
    tree->hash = hash ? hash : qel_hash_tree_string_hash;
    tree->keycomp = keycomp ? keycomp : qel_hash_tree_string_keycomp;
    return tree.release();
}

void qel_hash_tree_delete(qel_hash_tree* tree) {
    if (!tree) return;
    visit(tree->root, 0, free_node);
    free_node(tree->root);
    free(tree);
}

int32_t qel_hash_tree_insert(qel_hash_tree* tree, const void* key, void* value) {
    const uint64_t hash = hash_of(tree, key);
    if (qel_hash_tree_node* node = find(tree, hash)) {
        node->value = value;
        return -1;
    }
    qel_hash_tree_node** slot = free_slot(tree, hash);
    auto node = qel::make_zeroed<qel_hash_tree_node>();
    if (!slot || !node) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return -1;
    }
    node->value = value;
    node->hash_value = hash;
    *slot = node.release();
    ++tree->count;
    return 0;
}

int32_t qel_hash_tree_search(const qel_hash_tree* tree, const void* key, void** out) {
    const qel_hash_tree_node* node = find(tree, hash_of(tree, key));
    if (!node || !node->value) return -1;
    if (out) *out = node->value;
    return 0;
}

int32_t qel_hash_tree_remove(qel_hash_tree* tree, const void* key, void** out) {
    qel_hash_tree_node* node = find(tree, hash_of(tree, key));
    if (!node || !node->value) return -1;
    if (out) *out = node->value;
    node->value = nullptr;
    return 0;
}

void qel_hash_tree_walk(qel_hash_tree* tree, void* user, qel_hash_tree_walk_fn fn, void* arg) {
    visit(tree->root, 0, [=](qel_hash_tree_node* node) { fn(user, node->value, arg); });
}

void qel_hash_tree_cleanup(qel_hash_tree* tree, void* user, qel_hash_tree_cleanup_fn fn) {
    visit(tree->root, 0, [=](qel_hash_tree_node* node) { fn(user, node->value); });
}

void qel_hash_tree_string_hash(const void* key, uint64_t* out) {
    const auto len = static_cast<uint32_t>(strlen(static_cast<const char*>(key)));
    qel_hash_hash(key, len, kStringSeed, out);
    *out = static_cast<uint32_t>(*out);
}

int32_t qel_hash_tree_string_keycomp(const void* a, const void* b) {
    return strcmp(static_cast<const char*>(a), static_cast<const char*>(b)) == 0 ? 0 : -1;
}

void qel_hash_tree_pointer_hash(const void* key, uint64_t* out) {
    const auto low = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key));
    qel_hash_hash(&low, sizeof(low), kPointerSeed, out);
    *out = static_cast<uint32_t>(*out);
}

int32_t qel_hash_tree_pointer_keycomp(const void* a, const void* b) { return a == b ? 0 : -1; }
