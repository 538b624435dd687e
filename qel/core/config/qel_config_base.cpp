// Configuration in memory: a tree of named items, each a string, an array of strings or a section.
#include "qel/core/config/qel_config_base.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "qel/core/config/items.hpp"
#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/config/qel_config_base";
constexpr size_t kMaxPath = 511;

qel::ItemTree* held_tree(const qel_config_item* item) {
    return item->type == QEL_CONFIG_SUBITEMS ? qel::tree_of(item->value.subitems) : nullptr;
}

/// Counts an item that begins (1) or ceases (-1) to hold its value.
void count_holder(const qel_config_item* item, int32_t change) {
    if (qel::ItemTree* tree = held_tree(item)) tree->holders += static_cast<uint32_t>(change);
}

void delete_value(int32_t type, qel::ConfigValue value) {
    switch (type) {
        case QEL_CONFIG_STRING: qel_string_delete(value.str); break;
        case QEL_CONFIG_SUBITEMS: qel_config_items_delete(value.subitems); break;
        case QEL_CONFIG_ARRAY: qel_array_delete(value.array); break;
        default: break;
    }
}

/// Releases an item of a tree.
void release(qel_config_item* item) {
    count_holder(item, -1);
    qel::config_delete_item(item);
}

void release_item(void* /*user*/, void* item) {
    if (item) release(static_cast<qel_config_item*>(item));
}

void* stored(const qel_config_items* items, const char* name) {
    void* item = nullptr;
    qel_hash_tree_search(items->hash, name, &item);
    return item;
}

uint32_t length_of(const char* text) { return static_cast<uint32_t>(strlen(text)); }

bool out_of_memory() {
    QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    return false;
}

/// Takes an item out of the list of replaced ones, if it is there.
qel::heap_ptr<qel::ReplacedItem> unlist(qel::ItemTree* tree, const qel_config_item* item) {
    for (qel::ReplacedItem** at = &tree->replaced; *at; at = &(*at)->next) {
        if ((*at)->item != item) continue;
        return qel::heap_ptr<qel::ReplacedItem>(std::exchange(*at, (*at)->next));
    }
    return nullptr;
}

void enlist(qel::ItemTree* tree, qel::heap_ptr<qel::ReplacedItem> entry, qel_config_item* item) {
    *entry = {item, tree->replaced};
    tree->replaced = entry.release();
}

/// Stores `item` and keeps the one it replaces; false, with nothing changed, when memory runs out.
/// `result` is the hash tree's. An item that is not `fresh` may be a replaced one that comes back.
bool store(qel_config_items* items, const char* name, qel_config_item* item, bool fresh,
           int32_t* result) {
    qel::ItemTree* tree = qel::tree_of(items);
    auto* before = static_cast<qel_config_item*>(stored(items, name));
    *result = -1;
    if (before == item) return true;
    auto entry = fresh ? nullptr : unlist(tree, item);
    const bool held = entry != nullptr;
    if (before && !entry) entry = qel::make_zeroed<qel::ReplacedItem>();
    if (before && !entry) return out_of_memory();
    *result = qel_hash_tree_insert(items->hash, name, item);
    if (stored(items, name) != item) {
        if (held) enlist(tree, std::move(entry), item);
        return false;
    }
    if (before) enlist(tree, std::move(entry), before);
    if (!held) count_holder(item, 1);
    return true;
}

/// Whether an item of the tree, found or replaced, holds `array`.
bool holds(const qel_config_items* items, const qel_array* array) {
    struct Search {
        const qel_array* array;
        bool found;
    } search = {array, false};
    const auto look = [](void* user, void* value) {
        const auto* item = static_cast<const qel_config_item*>(value);
        auto* s = static_cast<Search*>(user);
        s->found |= item && item->type == QEL_CONFIG_ARRAY && item->value.array == s->array;
    };
    qel_hash_tree_cleanup(items->hash, &search, look);
    const auto* tree = static_cast<const qel::ItemTree*>(items);
    for (const auto* at = tree->replaced; at; at = at->next) look(&search, at->item);
    return search.found;
}

}  // namespace

namespace qel {

bool config_key(const char* name, uint32_t n, ConfigKey* key) {
    const size_t length = n > 0 ? strnlen(name, n) : 0;
    if (length >= key->size()) return false;
    if (length > 0) memcpy(key->data(), name, length);
    (*key)[length] = '\0';
    return true;
}

bool config_add(qel_config_items* items, const char* name, int32_t type, ConfigValue value) {
    auto item = make_zeroed<qel_config_item>();
    qel_string* copy = qel_string_new(name, length_of(name));
    if (!item || !copy) {
        qel_string_delete(copy);
        delete_value(type, value);
        return false;
    }
    *item = {type, copy, value};
    int32_t result;
    const bool added = store(items, name, item.get(), true, &result);
    if (!added) config_delete_item(item.get());
    (void)item.release();
    return added;
}

bool config_add_string(qel_config_items* items, const char* name, const char* value) {
    qel_string* copy = qel_string_new(value, length_of(value));
    return copy && config_add(items, name, QEL_CONFIG_STRING, {.str = copy});
}

void config_delete_item(qel_config_item* item) {
    delete_value(item->type, item->value);
    qel_string_delete(item->name);
    free(item);
}

bool config_hide(qel_config_items* items, const char* name) {
    auto entry = make_zeroed<ReplacedItem>();
    if (!entry) return out_of_memory();
    void* item = nullptr;
    if (qel_hash_tree_remove(items->hash, name, &item) == 0) {
        enlist(tree_of(items), std::move(entry), static_cast<qel_config_item*>(item));
    }
    return true;
}

}  // namespace qel

qel_config_items* qel_config_items_new(qel_config_items* parent) {
    auto items = qel::make_zeroed<qel::ItemTree>();
    if (!items) return nullptr;
    items->parent = parent;
    items->hash = qel_hash_tree_new(nullptr, nullptr);
    return items->hash ? items.release() : nullptr;
}

void qel_config_items_delete(qel_config_items* items) {
    if (!items) return;
    qel::ItemTree* tree = qel::tree_of(items);
    if (tree->holders > 0) return;
    qel_hash_tree_cleanup(tree->hash, nullptr, release_item);
    while (qel::ReplacedItem* entry = tree->replaced) {
        tree->replaced = entry->next;
        release(entry->item);
        free(entry);
    }
    if (tree->parser) qel::config_forget(tree);
    qel_hash_tree_delete(tree->hash);
    free(tree);
}

qel_config_item* qel_config_items_find(const qel_config_items* items, const char* name,
                                       uint32_t n) {
    qel::ConfigKey key;
    if (!qel::config_key(name, n, &key)) return nullptr;
    return static_cast<qel_config_item*>(stored(items, key.data()));
}

qel_config_items* qel_config_items_find_subitems(qel_config_items* items, const char* path) {
    if (strlen(path) > kMaxPath) return nullptr;
    char part[kMaxPath];
    uint32_t n = 0;
    for (const char* p = path;; ++p) {
        if (*p != '>' && *p != '\0') {
            if (*p != ' ') part[n++] = *p;
            continue;
        }
        if (n > 0) {
            const qel_config_item* item = qel_config_items_find(items, part, n);
            items = item && item->type == QEL_CONFIG_SUBITEMS ? item->value.subitems : nullptr;
            if (!items) return nullptr;
            n = 0;
        }
        if (*p == '\0') return items;
    }
}

int32_t qel_config_items_add(qel_config_items* items, const char* name, qel_config_item* item) {
    int32_t result;
    store(items, name, item, false, &result);
    return result;
}

int32_t qel_config_items_remove(qel_config_items* items, const char* name) {
    void* item = nullptr;
    const int32_t result = qel_hash_tree_remove(items->hash, name, &item);
    if (item) count_holder(static_cast<qel_config_item*>(item), -1);
    return result;
}

// The functions' names stand in their log lines: renaming one changes a message.

void qel_config_items_add_string(qel_config_items* items, const char* name, const char* value) {
    if (!qel::config_add_string(items, name, value)) QEL_LOG(QEL_LOG_ERROR, "out of memory.");
}

void qel_config_items_add_subitems(qel_config_items* items, const char* name,
                                   qel_config_items* sub) {
    if (!qel::config_add(items, name, QEL_CONFIG_SUBITEMS, {.subitems = sub})) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    }
}

void qel_config_items_add_array(qel_config_items* items, const char* name, qel_array* array) {
    if (array && holds(items, array)) {
        QEL_LOG(QEL_LOG_ERROR, "array is held by an item already.");
    } else if (!qel::config_add(items, name, QEL_CONFIG_ARRAY, {.array = array})) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    }
}
