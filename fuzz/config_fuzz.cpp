// The text format: whole and in pieces it means the same, every item is found again, and what is
// printed of a plain tree is that tree. A '\f' ends the main text; the texts behind it are the
// files "1", "2", ... for includes.
#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qel/core/config/qel_config_ryl.h"

namespace {

using Texts = std::vector<std::string>;
using Parser = std::unique_ptr<qel_config_ryl, decltype(&qel_config_ryl_delete)>;

int32_t load(void* data, const char* path, char** bytes, uint64_t* n) {
    const auto& texts = *static_cast<Texts*>(data);
    const size_t index = static_cast<size_t>(atoi(path));
    if (index == 0 || index >= texts.size()) return -1;
    *bytes = static_cast<char*>(malloc(texts[index].size() + 1));
    memcpy(*bytes, texts[index].data(), texts[index].size());
    *n = texts[index].size();
    return 0;
}

std::string text_of(const qel_string* s) { return {s->data ? s->data : "", s->length}; }

bool consists_of(const std::string& text, const char* set) {
    return !text.empty() && text.find('\0') == std::string::npos &&
           text.find_first_not_of(set) == std::string::npos;
}

#define WORD "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_"

/// A tree as one text, whatever the order in which its names came; and whether none needs quotes.
struct Dump {
    std::map<std::string, std::string> entries;
    bool plain = true;

    explicit Dump(qel_config_items* items) { qel_hash_tree_walk(items->hash, items, add, this); }
    std::string text() const {
        std::string all;
        for (const auto& [name, value] : entries) {
            all += std::to_string(name.size()) + ":" + name + value;
        }
        return "{" + all + "}";
    }

  private:
    static void add(void* user, void* value, void* arg) {
        if (!value) return;
        auto* items = static_cast<qel_config_items*>(user);
        auto* dump = static_cast<Dump*>(arg);
        const auto* item = static_cast<const qel_config_item*>(value);
        const auto* found = qel_config_items_find(items, item->name->data, item->name->length);
        require(found == item || item->name->length > 255);
        const std::string name = text_of(item->name);
        dump->plain &= consists_of(name, WORD "-./:@");
        dump->entries[name] = dump->value_of(items, *item);
    }
    std::string value_of(qel_config_items* items, const qel_config_item& item) {
        std::string all;
        if (item.type == QEL_CONFIG_SUBITEMS) {
            require(item.value.subitems->parent == items);
            const Dump inner(item.value.subitems);
            plain &= inner.plain;
            return inner.text();
        }
        if (item.type == QEL_CONFIG_STRING) {
            all = text_of(item.value.str);
            plain &= consists_of(all, WORD "-./:") && all[0] != '.' && all[0] != '/';
            return "=" + std::to_string(all.size()) + ":" + all;
        }
        for (uint32_t i = 0; i < item.value.array->count; ++i) {
            const auto* s = static_cast<const qel_string*>(qel_array_peek(item.value.array, i));
            plain &= consists_of(text_of(s), WORD "-./:@#{}[();=");
            all += std::to_string(s->length) + ":" + text_of(s);
        }
        return "[" + all + "]";
    }
};

Parser make_parser(Texts* texts) {
    Parser parser(qel_config_ryl_new(), qel_config_ryl_delete);
    parser->loader_data = texts;
    parser->loader = load;
    require(qel_config_ryl_add_var(parser.get(), nullptr, "pwd", 3, "here", 4) == 0);
    return parser;
}

/// Feeds pieces of these sizes in turn, up to the first that fails. -1 for no text, like the
/// parser.
int32_t feed(qel_config_ryl* parser, const std::string& text, std::array<uint32_t, 8> sizes) {
    int32_t result = -1;
    for (size_t at = 0, i = 0; at < text.size(); at += sizes[i++ % 8]) {
        const size_t n = std::min<size_t>(sizes[i % 8], text.size() - at);
        const std::string piece = text.substr(at, n);  // on the heap, for the sanitizer to watch
        result = qel_config_ryl_feed(parser, piece.data(), static_cast<uint32_t>(n));
        if (result != 0) break;
    }
    return result;
}

/// All that decides what the parser makes of the next byte.
std::string state_of(const qel_config_ryl* p) {
    const bool in_quotes = p->flags & QEL_CONFIG_RYL_IN_QUOTES;
    return std::to_string(p->state) + "," + std::to_string(p->depth) + "," +
           std::to_string(p->flags) + (in_quotes ? p->quote : '-') + text_of(p->name_tok) + "," +
           text_of(p->value_tok);
}

std::string printed(qel_config_ryl* parser) {
    char* text = nullptr;
    size_t n = 0;
    FILE* const before = stdout;
    stdout = open_memstream(&text, &n);
    qel_config_ryl_print(parser);
    fclose(stdout);
    stdout = before;
    const std::string all(text, n);
    free(text);
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    std::array<uint32_t, 8> sizes;
    for (uint32_t& n : sizes) n = input.ConsumeIntegral<uint8_t>() % 64u + 1;
    Texts texts(1);
    for (const char c : input.ConsumeRemainingBytesAsString()) {
        if (c == '\f')
            texts.emplace_back();
        else
            texts.back() += c;
    }

    const Parser whole = make_parser(&texts), pieces = make_parser(&texts);
    const int32_t result = feed(whole.get(), texts[0], {UINT32_MAX});
    require(feed(pieces.get(), texts[0], sizes) == result);
    require(state_of(pieces.get()) == state_of(whole.get()));
    const Dump tree(whole->root);
    require(Dump(pieces->root).text() == tree.text());
    const Parser again(
        qel_config_ryl_new_data(texts[0].data(), static_cast<uint32_t>(texts[0].size()), "here",
                                &texts, load),
        qel_config_ryl_delete);
    require((again != nullptr) == (result == 0));
    require(!again || Dump(again->root).text() == tree.text());

    const std::string text = printed(whole.get());
    if (tree.plain) {
        const Parser reread(qel_config_ryl_new(), qel_config_ryl_delete);
        require(feed(reread.get(), text, {UINT32_MAX}) == 0);
        require(Dump(reread->root).text() == tree.text());
    }
    qel_config_items_find_subitems(whole->root, texts[0].c_str());
    return 0;
}
