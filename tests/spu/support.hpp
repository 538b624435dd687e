// What the tests of signal processing share.
#pragma once

#include <map>
#include <memory>

#include "qel/core/config/qel_config_base.h"

using Section = std::unique_ptr<qel_config_items, decltype(&qel_config_items_delete)>;

/// A configuration section of plain strings.
inline Section make_section(const std::map<std::string, std::string>& keys) {
    Section section(qel_config_items_new(nullptr), qel_config_items_delete);
    for (const auto& [name, value] : keys)
        qel_config_items_add_string(section.get(), name.c_str(), value.c_str());
    return section;
}
