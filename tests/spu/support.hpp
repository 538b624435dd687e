// What the tests of signal processing share.
#pragma once

#include <memory>
#include <string>

#include "qel/core/config/qel_config_ryl.h"

using Parsed = std::unique_ptr<qel_config_ryl, decltype([](auto* p) { qel_config_ryl_delete(p); })>;

/// A configuration's text; its keys stand in the root.
inline Parsed parse(const std::string& text) {
    return Parsed(qel_config_ryl_new_data(text.data(), static_cast<uint32_t>(text.size()), nullptr,
                                          nullptr, nullptr));
}
