// Configuration in memory: a tree of named items, each a string, an array of strings or a section.
#include "qel/core/config/qel_config_base.h"

#include <cstdint>
#include <cstring>

#include "qel/core/config/items.hpp"
#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/config/qel_config_base";
constexpr size_t kMaxPath = 511;

void delete_value(int32_t type, qel::ConfigValue value) {
    switch (type) {
        case QEL_CONFIG_STRING: qel_string_delete(value.str); break;
        case QEL_CONFIG_SUBITEMS: qel_config_items_delete(value.subitems); break;
        case QEL_CONFIG_ARRAY: qel_array_delete(value.array); break;
        default: break;
    }
}

void release_item(void* /*user*/, void* item) {
    if (item) qel::config_delete_item(static_cast<qel_config_item*>(item));
}

void* stored(const qel_config_items* items, const char* name) {
    void* item = nullptr;
    qel_hash_tree_search(items->hash, name, &item);
    return item;
}

uint32_t length_of(const char* text) { return static_cast<uint32_t>(strlen(text)); }

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
    if (!item || !copy || !value.str) {
        qel_string_delete(copy);
        if (value.str) delete_value(type, value);
        return false;
    }
    item->type = type;
    item->name = copy;
    item->value = value;
    qel_config_items_add(items, name, item.get());
    return stored(items, name) == item.release();
}

bool config_add_string(qel_config_items* items, const char* name, const char* value) {
    return config_add(items, name, QEL_CONFIG_STRING,
                      {.str = qel_string_new(value, length_of(value))});
}

void config_delete_item(qel_config_item* item) {
    delete_value(item->type, item->value);
    qel_string_delete(item->name);
    free(item);
}

void config_keep_replaced(qel_config_items* items, qel_config_item* item) {
    item->next_replaced = items->replaced;
    items->replaced = item;
}

}  // namespace qel

qel_config_items* qel_config_items_new(qel_config_items* parent) {
    auto items = qel::make_zeroed<qel_config_items>();
    if (!items) return nullptr;
    items->parent = parent;
    items->hash = qel_hash_tree_new(nullptr, nullptr);
    return items->hash ? items.release() : nullptr;
}

void qel_config_items_delete(qel_config_items* items) {
    if (!items) return;
    qel_hash_tree_cleanup(items->hash, nullptr, release_item);
    while (qel_config_item* item = items->replaced) {
        items->replaced = item->next_replaced;
        qel::config_delete_item(item);
    }
    qel_hash_tree_delete(items->hash);
    free(items);
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
            if (!item || item->type != QEL_CONFIG_SUBITEMS) return nullptr;
            items = item->value.subitems;
            n = 0;
        }
        if (*p == '\0') return items;
    }
}

int32_t qel_config_items_add(qel_config_items* items, const char* name, qel_config_item* item) {
    auto* before = static_cast<qel_config_item*>(stored(items, name));
    const int32_t result = qel_hash_tree_insert(items->hash, name, item);
    if (stored(items, name) != item) {
        qel::config_keep_replaced(items, item);
    } else if (before && before != item) {
        qel::config_keep_replaced(items, before);
    }
    return result;
}

int32_t qel_config_items_remove(qel_config_items* items, const char* name) {
    return qel_hash_tree_remove(items->hash, name, nullptr);
}

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
    if (!qel::config_add(items, name, QEL_CONFIG_ARRAY, {.array = array})) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    }
}
