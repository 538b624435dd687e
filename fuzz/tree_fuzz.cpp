// A tree that its parser and a caller change in turn: items added, replaced, taken out and
// released, open sections among them, while statements of any form come in pieces.
#include <cstdlib>
#include <string>

#include "fuzz/fuzz.hpp"
#include "qel/core/array/qel_array_string.h"
#include "qel/core/config/qel_config_ryl.h"

namespace {

const char* const kNames[] = {"a", "b", "c", "d"};
const char* const kPieces[] = {"a", "b", "c",  "d",  " = ", " = {", "{", "}",  "[",
                               "]", ";", "\"", "${", "x,",  " ",    "=", "\n", "#"};

/// Releases what a caller took out of a tree, as its owner does.
void release(qel_config_item* item) {
    qel_string_delete(item->name);
    switch (item->type) {
        case QEL_CONFIG_STRING: qel_string_delete(item->value.str); break;
        case QEL_CONFIG_SUBITEMS: qel_config_items_delete(item->value.subitems); break;
        default: qel_array_delete(item->value.array); break;
    }
    free(item);
}

/// A section at most two levels down, or the root.
qel_config_items* section_of(qel_config_items* root, uint8_t choice) {
    const std::string path = std::string(kNames[choice & 3]) + ">" + kNames[choice >> 2 & 3];
    auto* const section = qel_config_items_find_subitems(root, path.c_str());
    auto* const outer = qel_config_items_find_subitems(root, kNames[choice & 3]);
    return choice & 16 ? root : section ? section : outer ? outer : root;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    qel_config_ryl* const parser = qel_config_ryl_new();
    while (input.remaining_bytes() > 0) {
        const auto step = input.ConsumeIntegral<uint8_t>();
        if (step < 128) {
            const std::string piece = input.PickValueInArray(kPieces);
            qel_config_ryl_feed(parser, piece.data(), static_cast<uint32_t>(piece.size()));
            continue;
        }
        auto* const items = section_of(parser->root, input.ConsumeIntegral<uint8_t>());
        const char* const name = kNames[step & 3];
        switch (step >> 2 & 7) {
            case 0: qel_config_items_add_string(items, name, "s"); break;
            case 1: qel_config_items_add_subitems(items, name, qel_config_items_new(items)); break;
            case 2: qel_config_items_add_array(items, name, qel_array_string_new(1)); break;
            case 3: qel_config_ryl_remove_var(parser, items, name, 1); break;
            case 4: {  // put back what was found, or found and replaced
                qel_config_item* const item = qel_config_items_find(items, name, 1);
                if (!item) break;
                if (step & 32) qel_config_items_add_string(items, name, "new");
                qel_config_items_add(items, name, item);
                break;
            }
            default: {
                qel_config_item* const item = qel_config_items_find(items, name, 1);
                require(qel_config_items_remove(items, name) == (item ? 0 : -1));
                require(!qel_config_items_find(items, name, 1));
                if (item) release(item);
                break;
            }
        }
    }
    qel_config_ryl_print(parser);
    qel_config_ryl_delete(parser);
    return 0;
}
