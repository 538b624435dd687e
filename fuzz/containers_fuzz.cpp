// Queue, hoard, arrays and hash tree in any order of operations, each beside its standard twin.
#include <algorithm>
#include <cstring>
#include <list>
#include <map>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qel/core/alloc/qel_hoard.h"
#include "qel/core/array/qel_array_string.h"
#include "qel/core/hash/qel_hash_tree.h"

namespace {

struct Item {
    uint32_t id = 0;
    qel_queue_node link{};
};

int32_t by_id(const qel_queue_node* a, const qel_queue_node* b) {
    const auto id = [](const qel_queue_node* link) {
        return reinterpret_cast<const Item*>(reinterpret_cast<const char*>(link) -
                                             offsetof(Item, link))
            ->id;
    };
    return id(a) > id(b);
}

/// The count is compared while nothing ran that loses one: a new tail by insert_after, a sort.
void queue(FuzzedDataProvider* input) {
    std::vector<Item> items(16);
    for (uint32_t i = 0; i < 16; ++i) items[i].id = i / 2;
    std::list<qel_queue_node*> model;
    qel_queue q{};
    bool exact = true;
    const auto place = [&](const qel_queue_node* l) {
        return std::find(model.begin(), model.end(), l);
    };
    while (input->remaining_bytes() > 1) {
        const auto step = input->ConsumeIntegral<uint8_t>();
        auto* const x = &items[step & 15].link;
        auto* const y = &items[input->ConsumeIntegral<uint8_t>() & 15].link;
        const auto x_at = place(x), y_at = place(y);
        const bool in = x_at != model.end(), y_in = y_at != model.end();
        switch (step >> 4) {
            case 0:
            case 1:
                if (in) break;
                require(qel_queue_push_back(&q, x) == 0);
                model.push_back(x);
                break;
            case 2:
                if (in) break;
                require(qel_queue_push_front(&q, x) == 0);
                model.push_front(x);
                break;
            case 3:
                require(qel_queue_pop_head(&q) == (model.empty() ? nullptr : model.front()));
                if (!model.empty()) model.pop_front();
                break;
            case 4:
                require(qel_queue_pop_back(&q) == (model.empty() ? nullptr : model.back()));
                if (!model.empty()) model.pop_back();
                break;
            case 5:
                require(qel_queue_remove(&q, x) == (in || model.empty() ? 0 : -1));
                if (in) model.erase(x_at);
                break;
            case 6:
                if (in || !y_in) break;
                exact &= y != model.back();
                require(qel_queue_insert_after(&q, y, x) == 0);
                model.insert(std::next(y_at), x);
                break;
            case 7:
                if (in || !y_in) break;
                require(qel_queue_insert_before(&q, y, x) == 0);
                model.insert(y_at, x);
                break;
            case 8:
                require(qel_queue_swap(&q, x, y) == (in && y_in ? 0 : -1));
                if (in && y_in) std::swap(*x_at, *y_at);
                break;
            case 9:
                require(qel_queue_sort(&q, by_id) == 0);
                model.sort([](auto* a, auto* b) { return by_id(b, a) >= 1; });
                exact = false;
                break;
            default: break;
        }
        if (model.empty()) {
            exact = true;
            q.count = 0;
        }
        const qel_queue_node *link = q.head, *last = nullptr;
        for (const auto* expected : model) {
            require(link == expected && link->prev == last);
            last = link;
            link = link->next;
        }
        require(!link && q.tail == last && q.count <= model.size());
        require(!exact || q.count == model.size());
        if (exact && !model.empty()) {
            const auto index = static_cast<uint32_t>(step % model.size());
            require(qel_queue_peek(&q, index) == *std::next(model.begin(), index));
        }
    }
}

int32_t objects;

void* make_item(void*) {
    ++objects;
    return new Item;
}

int32_t delete_item(void*, void* item) {
    --objects;
    delete static_cast<Item*>(item);
    return 0;
}

void hoard(FuzzedDataProvider* input) {
    const auto kept = input->ConsumeIntegralInRange<uint32_t>(0, 5);
    qel_hoard pool;
    qel_hoard_init(&pool, offsetof(Item, link), kept, make_item, delete_item, nullptr);
    std::vector<void*> out;
    Item stranger;
    objects = 0;
    while (input->remaining_bytes() > 0) {
        const auto step = input->ConsumeIntegral<uint8_t>();
        switch (step & 7) {
            case 0:
            case 1:
            case 2: out.push_back(qel_hoard_pop(&pool)); break;
            case 3:
            case 4:
                if (out.empty()) break;
                std::swap(out[step / 8 % out.size()], out.back());
                require(qel_hoard_push(&pool, out.back()) == 0);
                out.pop_back();
                break;
            case 5: require(qel_hoard_push(&pool, &stranger) == -1); break;
            case 6: require(qel_hoard_pack(&pool) == 0); break;
            default:
                if (step < 0xf0) break;
                require(qel_hoard_reset(&pool) == 0);
                out.clear();
                break;
        }
        require(pool.used_q.count == out.size() && pool.free_q.count <= kept);
        require(static_cast<uint32_t>(objects) == pool.used_q.count + pool.free_q.count);
    }
    qel_hoard_clean(&pool);
    require(objects == 0);
}

/// Words, and string buffers, in arrays that grow, shrink and take items of their own.
void arrays(FuzzedDataProvider* input) {
    qel_array* const words = qel_array_new(input->ConsumeIntegralInRange(0u, 4u), sizeof(uint32_t));
    qel_array* const texts = qel_array_string_new(input->ConsumeIntegralInRange(0u, 4u));
    std::vector<uint32_t> word_model;
    std::vector<std::string> text_model;
    while (input->remaining_bytes() > 0) {
        const auto step = input->ConsumeIntegral<uint8_t>();
        const uint32_t arg = step / 8u;
        const std::string bytes = input->ConsumeRandomLengthString(9);
        qel_string s;
        switch (step % 8) {
            case 0:
                qel_array_append(words, &arg);
                word_model.push_back(arg);
                break;
            case 1:
                if (word_model.empty()) break;
                qel_array_append(words, qel_array_peek(words, arg % words->count));
                word_model.push_back(word_model[arg % word_model.size()]);
                break;
            case 2: {
                const bool shrinks = arg <= words->capacity;  // then it counts all it keeps
                require(qel_array_resize(words, arg) == 0);
                if (shrinks) word_model.resize(arg);
                break;
            }
            case 3:
                qel_string_init(&s, bytes.data(), static_cast<uint32_t>(bytes.size()));
                require(qel_array_string_append(texts, &s) == 0);
                qel_string_clean(&s);
                text_model.push_back(bytes);
                break;
            case 4:
                if (text_model.empty()) break;
                require(qel_array_string_append(texts, static_cast<qel_string*>(qel_array_peek(
                                                           texts, arg % texts->count))) == 0);
                text_model.push_back(text_model[arg % text_model.size()]);
                break;
            case 5: {
                const bool shrinks = arg <= texts->capacity;
                require(qel_array_resize(texts, arg) == 0);
                if (shrinks) text_model.resize(arg);
                break;
            }
            case 6:
                if (arg > 2) break;
                qel_array_reset(words);
                word_model.clear();
                break;
            default:
                if (arg > 2) break;
                qel_array_reset(texts);
                text_model.clear();
                break;
        }
        require(words->count == word_model.size() && words->count <= words->capacity);
        require(word_model.empty() ||
                memcmp(words->data, word_model.data(), 4 * word_model.size()) == 0);
        require(texts->count == text_model.size() && texts->count <= texts->capacity);
        for (uint32_t i = 0; i < texts->count; ++i) {
            const auto* text = static_cast<const qel_string*>(qel_array_peek(texts, i));
            require(std::string(text->data ? text->data : "", text->length) == text_model[i]);
        }
    }
    qel_array_delete(words);
    qel_array_delete(texts);
}

void hash_tree(FuzzedDataProvider* input) {
    qel_hash_tree* const tree = qel_hash_tree_new(nullptr, nullptr);
    std::map<std::string, uintptr_t> model;
    while (input->remaining_bytes() > 0) {
        const auto step = input->ConsumeIntegral<uint8_t>();
        const std::string key = input->ConsumeRandomLengthString(20).c_str();
        void* found = nullptr;
        const auto it = model.find(key);
        const bool is_there = it != model.end() && it->second;
        require(qel_hash_tree_search(tree, key.c_str(), &found) == (is_there ? 0 : -1));
        require(!is_there || found == reinterpret_cast<void*>(it->second));
        if (step & 1) {
            void* const value = reinterpret_cast<void*>(uintptr_t{step} + 1);
            const int32_t result = qel_hash_tree_insert(tree, key.c_str(), value);
            require(result == (it == model.end() ? 0 : -1));
            model[key] = uintptr_t{step} + 1;
        } else {
            require(qel_hash_tree_remove(tree, key.c_str(), nullptr) == (is_there ? 0 : -1));
            if (is_there) it->second = 0;
        }
        require(tree->count == model.size());
    }
    qel_hash_tree_delete(tree);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    switch (input.ConsumeIntegralInRange(0, 3)) {
        case 0: queue(&input); break;
        case 1: hoard(&input); break;
        case 2: arrays(&input); break;
        default: hash_tree(&input); break;
    }
    return 0;
}
