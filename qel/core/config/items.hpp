// What the parser needs of the item tree beyond its API.
#pragma once

#include <array>
#include <cstdint>

#include "qel/core/config/qel_config_base.h"

namespace qel {

using ConfigKey = std::array<char, 256>;
using ConfigValue = decltype(qel_config_item::value);

/// The first `n` bytes of `name`, up to a NUL, terminated; false if they do not fit.
bool config_key(const char* name, uint32_t n, ConfigKey* key);

/// Adds an item that takes over `value`; false, with `value` released or kept for the tree's own
/// release, when memory runs out. A null pointer in `value` counts as memory run out.
bool config_add(qel_config_items* items, const char* name, int32_t type, ConfigValue value);

/// config_add() of a copy of the NUL-terminated `value`.
bool config_add_string(qel_config_items* items, const char* name, const char* value);

/// Releases an item that is in no tree.
void config_delete_item(qel_config_item* item);

/// Makes an item that cannot be found any more part of what `items` releases.
void config_keep_replaced(qel_config_items* items, qel_config_item* item);

}  // namespace qel
