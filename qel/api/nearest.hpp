// The nearest of known names to one that is not known.
#pragma once

#include <string_view>

namespace qel {

/// Steps (a letter more, less, another, or two exchanged; upper case is lower case) from one name
/// to the other: the restricted distance of Damerau (CACM 7(3), 1964). 99 for names over 31 bytes.
int edit_distance(std::string_view a, std::string_view b);

/// Whether `known` is what someone who wrote `name` may have meant: a third of it may differ.
inline bool is_near(std::string_view name, std::string_view known, int distance) {
    const size_t longer = name.size() > known.size() ? name.size() : known.size();
    return static_cast<size_t>(3 * distance) <= longer;
}

}  // namespace qel
