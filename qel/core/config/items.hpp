// What the parser needs of the item tree beyond its API.
#pragma once

#include <array>
#include <cstdint>

#include "qel/core/config/qel_config_base.h"

namespace qel {

struct Parser;

using ConfigKey = std::array<char, 256>;
using ConfigValue = decltype(qel_config_item::value);

/// An item that a later one of the same name hides.
struct ReplacedItem {
    qel_config_item* item;
    ReplacedItem* next;
};

/// What is behind every qel_config_items: the public record and the tree's own state.
struct ItemTree : qel_config_items {
    ReplacedItem* replaced;
    uint32_t holders;  // items that have this tree as their value
    Parser* parser;    // that made this section and still knows it, or null
};

inline ItemTree* tree_of(qel_config_items* items) { return static_cast<ItemTree*>(items); }

/// The first `n` bytes of `name`, up to a NUL, terminated; false if they do not fit.
bool config_key(const char* name, uint32_t n, ConfigKey* key);

/// Adds an item that takes over `value`; false, with `value` released, when memory runs out.
bool config_add(qel_config_items* items, const char* name, int32_t type, ConfigValue value);

/// config_add() of a copy of the NUL-terminated `value`.
bool config_add_string(qel_config_items* items, const char* name, const char* value);

/// Releases an item that is in no tree.
void config_delete_item(qel_config_item* item);

/// Hides the item of this name, which lives on until its tree is deleted; false when memory runs
/// out.
bool config_hide(qel_config_items* items, const char* name);

/// Lets the parser of a section that is being deleted forget it.
void config_forget(ItemTree* section);

}  // namespace qel
