// Configuration keys as tables: a row is a key, and reading, defaults, ranges, the review of a file
// and the test of the documentation all come from it. By the one rule all of signal processing
// shares, only a plain string counts, and whatever it lacks leaves the field alone.
#pragma once

#include <strings.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <type_traits>

#include "qel/core/config/qel_config_base.h"
#include "qel/core/qel_string.h"

namespace qel {

enum class KeyKind : uint8_t { kInteger, kNumber, kFlag, kType };

/// What becomes of a value outside its key's range.
enum class Outside : uint8_t { kRefused, kTaken };

struct Key {
    const char* name;
    KeyKind kind;
    double fallback;     // the default
    double least, most;  // the range
    Outside outside;
    const char* effect;  // what it sets, in a line
    void (*set)(void* record, double value);
    double (*get)(const void* record);
};

constexpr double kLowest = -std::numeric_limits<double>::infinity();
constexpr double kHighest = std::numeric_limits<double>::infinity();
constexpr double kFrameSize =
    std::numeric_limits<double>::lowest();  // `least`: the main frame_size
constexpr double kMaxInt16 = std::numeric_limits<int16_t>::max();

/// A value in a field's type; integers keep their low bits.
template <class Field>
constexpr Field to_field(double value) {
    if constexpr (std::is_floating_point_v<Field>) return static_cast<Field>(value);
    return static_cast<Field>(static_cast<int64_t>(value));
}

/// A row whose key has the name of its field: QEL_KEY(qel_aec_cfg, taps, kInteger, 4, 1, kMaxInt16,
/// kRefused, "filter partitions").
#define QEL_KEY(record, field, kind, fallback, least, most, outside, effect)            \
    ::qel::Key {                                                                        \
#field, ::qel::KeyKind::kind, fallback, least, most, ::qel::Outside::outside, effect, \
            [](void* r, double value) {                                           \
                auto* cfg = static_cast<record*>(r);                              \
                cfg->field = ::qel::to_field<decltype(cfg->field)>(value);        \
            },                                                                    \
            [](const void* r) {                                                   \
                return static_cast<double>(static_cast<const record*>(r)->field); \
            } \
    }

/// A boolean, on or off, that is one bit of the record.
#define QEL_FLAG(record, field, fallback, effect) \
    QEL_KEY(record, field, kFlag, fallback, 0, 1, kTaken, effect)

/// The text of `key`, owned by the tree; null if `section` is null or holds no such string.
inline const qel_string* key_text(const qel_config_items* section, const char* key) {
    if (!section) return nullptr;
    const uint32_t with_nul = static_cast<uint32_t>(std::strlen(key)) + 1;
    const qel_config_item* item = qel_config_items_find(section, key, with_nul);
    if (!item || item->type != QEL_CONFIG_STRING) return nullptr;
    return item->value.str;
}

/// Whether `n` bytes say yes: one of 1 t T y Y, or yes or true in any case.
inline bool says_yes(const char* text, uint32_t n) {
    if (n == 1) return std::memchr("1tTyY", *text, 5) != nullptr;
    return (n == 3 && strncasecmp(text, "yes", n) == 0) ||
           (n == 4 && strncasecmp(text, "true", n) == 0);
}

inline void set_defaults(std::span<const Key> keys, void* record) {
    for (const Key& key : keys) key.set(record, key.fallback);
}

/// Reads the keys of a section (null allowed) into their record. A text without digits gives 0; of
/// a boolean's length the bits of `length_mask` count.
inline void read_keys(const qel_config_items* section, std::span<const Key> keys, void* record,
                      uint32_t length_mask = UINT32_MAX) {
    for (const Key& key : keys) {
        const qel_string* text = key_text(section, key.name);
        int64_t integer = 0;
        double number = 0;
        if (!text) continue;
        switch (key.kind) {
            case KeyKind::kInteger:
                if (qel_string_to_integer(text, &integer, 10, nullptr) != 0) continue;
                number = static_cast<double>(integer);
                break;
            case KeyKind::kNumber:
                if (qel_string_to_double(text, &number, nullptr) != 0) continue;
                break;
            case KeyKind::kFlag: number = says_yes(text->data, text->length & length_mask); break;
            case KeyKind::kType: continue;  // its record's own affair
        }
        key.set(record, number);
    }
}

}  // namespace qel
