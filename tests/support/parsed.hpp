// Configurations from a text.
#pragma once

#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "qel/core/config/qel_config_ryl.h"

using Parser = std::unique_ptr<qel_config_ryl, decltype([](auto* p) { qel_config_ryl_delete(p); })>;
using Texts = std::map<std::string, std::string>;

/// Parses with "etc" as ${pwd} and with included files from `files`.
inline Parser parse(const std::string& text, Texts* files = nullptr) {
    const auto load = [](void* data, const char* path, char** bytes, uint64_t* n) -> int32_t {
        const auto& texts = *static_cast<Texts*>(data);
        if (!texts.count(path)) return -1;
        *bytes = strdup(texts.at(path).c_str());
        *n = texts.at(path).size();
        return path[0] == 'b' ? -1 : 0;  // what is handed out counts
    };
    return Parser(qel_config_ryl_new_data(text.data(), static_cast<uint32_t>(text.size()), "etc",
                                          files, load));
}
