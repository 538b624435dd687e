// Reads configuration keys by the one rule all of signal processing shares: only a plain string
// counts, and whatever it lacks leaves the field alone.
#pragma once

#include <strings.h>

#include <cstdint>
#include <cstring>

#include "qel/core/config/qel_config_base.h"
#include "qel/core/qel_string.h"

namespace qel {

/// The text of `key`, owned by the tree; null if `section` is null or holds no such string.
inline const qel_string* key_text(const qel_config_items* section, const char* key) {
    if (!section) return nullptr;
    const uint32_t with_nul = static_cast<uint32_t>(std::strlen(key)) + 1;
    const qel_config_item* item = qel_config_items_find(section, key, with_nul);
    if (!item || item->type != QEL_CONFIG_STRING) return nullptr;
    return item->value.str;
}

/// A base-10 integer, cut to the width of `T`; a text without digits gives 0.
template <class T>
void read_integer(const qel_config_items* section, const char* key, T* field) {
    const qel_string* text = key_text(section, key);
    int64_t value = 0;
    if (text && qel_string_to_integer(text, &value, 10, nullptr) == 0) {
        *field = static_cast<T>(value);
    }
}

/// A decimal number; a text without one gives 0.
inline void read_float(const qel_config_items* section, const char* key, float* field) {
    const qel_string* text = key_text(section, key);
    float value = 0.0f;
    if (text && qel_string_to_float(text, &value, nullptr) == 0) *field = value;
}

/// Whether `n` bytes say yes: one of 1 t T y Y, or yes or true in any case.
inline bool says_yes(const char* text, uint32_t n) {
    if (n == 1) return std::memchr("1tTyY", *text, 5) != nullptr;
    return (n == 3 && strncasecmp(text, "yes", n) == 0) ||
           (n == 4 && strncasecmp(text, "true", n) == 0);
}

/// A boolean; `current` if it is missing. Of the text's length the bits of `length_mask` count.
inline bool read_flag(const qel_config_items* section, const char* key, bool current,
                      uint32_t length_mask = UINT32_MAX) {
    const qel_string* text = key_text(section, key);
    return text ? says_yes(text->data, text->length & length_mask) : current;
}

}  // namespace qel
