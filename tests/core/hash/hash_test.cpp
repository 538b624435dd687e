// The hash functions against published and independently computed values; the hash tree.
#include "qel/core/hash/qel_hash.h"

#include <gtest/gtest.h>

#include <array>
#include <sstream>

#include "qel/core/hash/qel_hash_tree.h"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"

namespace {

/// The well-known verification procedure: hashes the keys {}, {0}, {0, 1}, ... {0, ... 254} with
/// the seeds 256, 255, ... 1, then the hashes so obtained; the first four bytes of that count.
template <class Words, class Hash>
uint32_t verification_value(Hash hash) {
    std::string key = "at an odd address", hashes;
    const size_t start = key.size();
    Words words;
    for (uint32_t i = 0; i < 256; ++i) {
        hash(&key[start], i, 256 - i, words.data());
        hashes.append(reinterpret_cast<const char*>(words.data()), sizeof(words));
        key += static_cast<char>(i);
    }
    hash(hashes.data(), static_cast<uint32_t>(hashes.size()), 0, words.data());
    return static_cast<uint32_t>(words[0]);
}

void identity(const void* key, uint64_t* out) { memcpy(out, key, sizeof(*out)); }

/// A tree of 64-bit keys that are their own hashes and point to themselves as values.
struct Numbers {
    explicit Numbers(std::vector<uint64_t> numbers) : keys(std::move(numbers)) {
        for (uint64_t& key : keys) EXPECT_EQ(qel_hash_tree_insert(tree, &key, &key), 0);
    }
    ~Numbers() { qel_hash_tree_delete(tree); }
    std::string walk() const {  // 99 is a removed one
        std::ostringstream order;
        qel_hash_tree_cleanup(tree, &order, [](void* to, void* value) {
            *static_cast<std::ostream*>(to) << (value ? *static_cast<uint64_t*>(value) : 99) << ' ';
        });
        return order.str();
    }
    std::vector<uint64_t> keys;
    qel_hash_tree* tree = qel_hash_tree_new(identity, nullptr);
};

TEST(Hash, MatchesPublishedVerificationValues) {
    const auto x86_32 = [](auto key, auto n, auto s, auto out) {
        *out = qel_hash_x86_32(key, n, s);
    };
    const auto murmur64 = [](auto key, auto n, auto s, auto out) {
        *out = qel_hash_murmur64(key, n, s);
    };
    EXPECT_EQ((verification_value<std::array<uint32_t, 1>>(x86_32)), 0xB0F57EE3);
    EXPECT_EQ((verification_value<std::array<uint32_t, 4>>(qel_hash_x86_128)), 0xB3ECE62A);
    EXPECT_EQ((verification_value<std::array<uint64_t, 2>>(qel_hash_x64_128)), 0x6384BA69);
    EXPECT_EQ((verification_value<std::array<uint64_t, 1>>(murmur64)), 0x1F0D3804);
}

TEST(Hash, OwnVariantsMatchArbitraryPrecisionArithmetic) {  // values from Python integers
    const uint64_t seed = 0x1111222233334444, murmur_seed = 0x123456789abcdef0;
    const struct {
        uint64_t (*hash)(const void* key, uint32_t len, uint64_t seed);
        uint64_t seed, expected;
        std::string key;
    } cases[] = {{qel_hash_murmur32, murmur_seed, 0x5877d84492bffe18, ""},
                 {qel_hash_murmur32, murmur_seed, 0xbea335b258c0b22e, "a"},
                 {qel_hash_murmur32, murmur_seed, 0x2f82ac0491a74578, "abc"},
                 {qel_hash_murmur32, murmur_seed, 0xde08d9905b70a19b, "\xff\xfe\xfd\xfc\x80"},
                 {qel_hash_string_value, seed, seed, ""},
                 {qel_hash_string_value, seed, 0x33444a6789abcf10, "abcdefgh\x80!"},
                 {qel_hash_string_value_parallel, seed, 0x8a899998a8a76261, "abcdefgh"},
                 {qel_hash_string_value_parallel, seed, 0x1311313fcac6e2c0, "abcdefgh\x80!"}};
    for (const auto& [hash, start, expected, key] : cases)
        EXPECT_EQ(hash(key.data(), static_cast<uint32_t>(key.size()), start), expected) << key;
}

TEST(HashTree, WalksChildrenFirstInSlotOrder) {
    EXPECT_EQ(Numbers({0, 2, 4, 6, 12, 1}).walk(), "12 6 4 2 0 1 ");
    EXPECT_EQ(Numbers({0, 12, 4, 2, 6, 1}).walk(), "6 12 4 2 0 1 ") << "6 now lies below 12";
}

TEST(HashTree, SeparatesHashesThatAgreeModuloFifteenPrimes) {
    constexpr uint64_t product = 614889782588491410;  // 2 * 3 * ... * 47
    std::vector<uint64_t> keys;
    for (uint64_t i = 0; i < 30; ++i) keys.push_back(i * product);
    for (uint64_t i = 1; i < 2000; ++i) keys.push_back(i * i * 0x9e3779b97f4a7c15);
    Numbers numbers(keys);
    for (uint64_t& key : numbers.keys) {
        void* value = nullptr;
        EXPECT_EQ(qel_hash_tree_search(numbers.tree, &key, &value), 0);
        EXPECT_EQ(value, &key);
    }
    EXPECT_EQ(numbers.tree->count, keys.size());
}

TEST(HashTree, RemovedEntriesStayAsPathsAndComeBack) {
    Numbers numbers({0, 2, 4});
    uint64_t &top = numbers.keys[0], &below = numbers.keys[1];
    EXPECT_EQ(qel_hash_tree_remove(numbers.tree, &top, nullptr), 0);
    EXPECT_EQ(qel_hash_tree_remove(numbers.tree, &top, nullptr), -1);
    EXPECT_EQ(qel_hash_tree_search(numbers.tree, &top, nullptr), -1);
    EXPECT_EQ(numbers.walk(), "4 2 99 ");
    EXPECT_EQ(qel_hash_tree_insert(numbers.tree, &top, &below), -1);
    EXPECT_EQ(numbers.walk(), "4 2 2 ");
}

TEST(HashTree, RefusedMemoryStoresNothing) {
    const LogCapture log;
    Numbers numbers({0});
    uint64_t key = 2;
    for (const int64_t allowed : {0, 1}) {
        const auto refused = std::make_unique<FailingAlloc>(allowed);
        EXPECT_EQ(qel_hash_tree_insert(numbers.tree, &key, &key), -1);
    }
    EXPECT_EQ(numbers.walk(), "0 ");
    EXPECT_EQ(qel_hash_tree_insert(numbers.tree, &key, &key), 0);
    const FailingAlloc second(1);
    EXPECT_EQ(qel_hash_tree_new(nullptr, nullptr), nullptr);
}

TEST(HashTree, KeysAreTextOrTheLowHalfOfAPointer) {
    uint64_t hash, pair;
    qel_hash_tree_string_hash("taps", &hash);
    qel_hash_hash("taps", 4, 0x97322f83, &pair);
    EXPECT_EQ(hash, pair & UINT32_MAX);
    qel_hash_tree_pointer_hash(reinterpret_cast<void*>(~uintptr_t{0} - 0xff), &hash);
    qel_hash_hash("\x00\xff\xff\xff", 4, 0xd973226e, &pair);
    EXPECT_EQ(hash, pair & UINT32_MAX);
    EXPECT_EQ(qel_hash_tree_string_keycomp("taps", std::string("taps").c_str()), 0);
    EXPECT_EQ(qel_hash_tree_pointer_keycomp(&hash, &pair), -1);
}

}  // namespace
