// The text format in two pieces, then every item found again. A '\f' ends the main text; the
// texts behind it are the files "1", "2", ... for includes.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qel/core/config/qel_config_ryl.h"

namespace {

using Texts = std::vector<std::string>;

int32_t load(void* data, const char* path, char** bytes, uint64_t* n) {
    const auto& texts = *static_cast<Texts*>(data);
    const size_t index = static_cast<size_t>(atoi(path));
    if (index == 0 || index >= texts.size()) return -1;
    *bytes = static_cast<char*>(malloc(texts[index].size() + 1));
    memcpy(*bytes, texts[index].data(), texts[index].size());
    *n = texts[index].size();
    return 0;
}

void check(void* user, void* value, void*) {
    if (!value) return;
    auto* items = static_cast<qel_config_items*>(user);
    const auto* item = static_cast<const qel_config_item*>(value);
    const auto* found = qel_config_items_find(items, item->name->data, item->name->length);
    require(found == item || item->name->length > 255);
    if (item->type != QEL_CONFIG_SUBITEMS) return;
    require(item->value.subitems->parent == items);
    qel_hash_tree_walk(item->value.subitems->hash, item->value.subitems, check, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const auto first = input.ConsumeIntegral<uint8_t>();
    Texts texts(1);
    for (const char c : input.ConsumeRemainingBytesAsString()) {
        if (c == '\f')
            texts.emplace_back();
        else
            texts.back() += c;
    }
    // Variables and includes multiply: keep what a short input can grow to small.
    size_t variables = 0, includes = 0;
    for (const std::string& text : texts) {
        variables += static_cast<size_t>(std::count(text.begin(), text.end(), '$'));
        includes += static_cast<size_t>(std::count(text.begin(), text.end(), '#'));
    }
    if (variables > 24 || includes > 6) return -1;

    qel_config_ryl* parser = qel_config_ryl_new_data(" ", 1, nullptr, &texts, load);
    const auto n = static_cast<uint32_t>(texts[0].size()), cut = std::min<uint32_t>(first, n);
    qel_config_ryl_feed(parser, texts[0].data(), cut);
    qel_config_ryl_feed(parser, texts[0].data() + cut, n - cut);
    require(!parser->includes);
    qel_hash_tree_walk(parser->root->hash, parser->root, check, nullptr);
    qel_config_items_find_subitems(parser->root, texts[0].c_str());
    qel_config_ryl_delete(parser);
    return 0;
}
