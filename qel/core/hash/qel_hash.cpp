// Hash functions over bytes: the MurmurHash family and two plain string hashes.
#include "qel/core/hash/qel_hash.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace {

/// The first `n` bytes at `p` as a little-endian word, zero-extended.
template <class Word>
Word load(const uint8_t* p, size_t n = sizeof(Word)) {
    Word word = 0;
    for (size_t i = 0; i < n; ++i) word |= static_cast<Word>(p[i]) << (8 * i);
    return word;
}

uint32_t avalanche(uint32_t h) {
    h = (h ^ h >> 16) * 0x85ebca6b;
    h = (h ^ h >> 13) * 0xc2b2ae35;
    return h ^ h >> 16;
}

uint64_t avalanche(uint64_t h) {
    h = (h ^ h >> 33) * 0xff51afd7ed558ccd;
    h = (h ^ h >> 33) * 0xc4ceb9fe1a85ec53;
    return h ^ h >> 33;
}

/// How MurmurHash3 takes one word of a block into one word of its state.
template <class Word>
struct Lane {
    Word mul_before;
    int rotate_block;
    Word mul_after;
    int rotate_state;
    Word add;
};

constexpr std::array<Lane<uint32_t>, 1> kX86_32 = {{
    {0xcc9e2d51, 15, 0x1b873593, 13, 0xe6546b64},
}};
constexpr std::array<Lane<uint32_t>, 4> kX86_128 = {{
    {0x239b961b, 15, 0xab0e9789, 19, 0x561ccd1b},
    {0xab0e9789, 16, 0x38b34ae5, 17, 0x0bcaa747},
    {0x38b34ae5, 17, 0xa1e38b93, 15, 0x96cd1c35},
    {0xa1e38b93, 18, 0x239b961b, 13, 0x32ac3b17},
}};
constexpr std::array<Lane<uint64_t>, 2> kX64_128 = {{
    {0x87c37b91114253d5, 31, 0x4cf5ad432745937f, 27, 0x52dce729},
    {0x4cf5ad432745937f, 33, 0x87c37b91114253d5, 31, 0x38495ab5},
}};

/// MurmurHash3 in any of its widths: the state's words, before the caller stores them.
template <class Word, size_t N>
std::array<Word, N> murmur3(const std::array<Lane<Word>, N>& lanes, const void* key, uint32_t len,
                            uint32_t seed) {
    const auto* p = static_cast<const uint8_t*>(key);
    const auto scramble = [&](size_t i, Word k) {
        return std::rotl(k * lanes[i].mul_before, lanes[i].rotate_block) * lanes[i].mul_after;
    };
    std::array<Word, N> h;
    h.fill(seed);

    uint32_t left = len;
    for (; left >= sizeof(h); left -= sizeof(h)) {
        for (size_t i = 0; i < N; ++i, p += sizeof(Word)) {
            h[i] = std::rotl(h[i] ^ scramble(i, load<Word>(p)), lanes[i].rotate_state);
            if constexpr (N > 1) h[i] += h[(i + 1) % N];
            h[i] = h[i] * 5 + lanes[i].add;
        }
    }
    for (size_t i = 0; left > 0; ++i) {
        const uint32_t n = left < sizeof(Word) ? left : sizeof(Word);
        h[i] ^= scramble(i, load<Word>(p, n));
        p += n;
        left -= n;
    }

    const auto mix_words = [&h] {
        for (size_t i = 1; i < N; ++i) h[0] += h[i];
        for (size_t i = 1; i < N; ++i) h[i] += h[0];
    };
    for (Word& word : h) word ^= len;
    mix_words();
    for (Word& word : h) word = avalanche(word);
    mix_words();
    return h;
}

}  // namespace

uint32_t qel_hash_x86_32(const void* key, uint32_t len, uint32_t seed) {
    return murmur3(kX86_32, key, len, seed)[0];
}

void qel_hash_x86_128(const void* key, uint32_t len, uint32_t seed, uint32_t* out) {
    for (const uint32_t word : murmur3(kX86_128, key, len, seed)) *out++ = word;
}

void qel_hash_x64_128(const void* key, uint32_t len, uint32_t seed, uint64_t* out) {
    for (const uint64_t word : murmur3(kX64_128, key, len, seed)) *out++ = word;
}

void qel_hash_hash(const void* key, uint32_t len, uint32_t seed, uint64_t* out) {
    const auto h = murmur3(kX86_128, key, len, seed);
    *out = static_cast<uint64_t>(h[2]) << 32 | h[0];
}

uint64_t qel_hash_murmur64(const void* key, uint32_t len, uint64_t seed) {
    constexpr uint64_t m = 0xc6a4a7935bd1e995;
    constexpr int r = 47;
    const auto* p = static_cast<const uint8_t*>(key);
    uint64_t h = seed ^ len * m;
    uint32_t left = len;
    for (; left >= 8; left -= 8, p += 8) {
        uint64_t k = load<uint64_t>(p) * m;
        k ^= k >> r;
        h = (h ^ k * m) * m;
    }
    if (left > 0) h = (h ^ load<uint64_t>(p, left)) * m;
    h = (h ^ h >> r) * m;
    return h ^ h >> r;
}

uint64_t qel_hash_murmur32(const void* key, uint32_t len, uint64_t seed) {
    constexpr uint64_t m = 0x5bd1e995;
    constexpr int r = 24;
    const auto* p = static_cast<const uint8_t*>(key);
    uint64_t h = seed ^ len;
    uint32_t left = len;
    for (; left >= 4; left -= 4, p += 4) {
        // Signed blocks and 64-bit products: stored hashes rely on this variant.
        const auto block = static_cast<int32_t>(load<uint32_t>(p));
        uint64_t k = static_cast<uint64_t>(int64_t{block}) * m;
        k ^= k >> r;
        h = h * m ^ k * m;
    }
    if (left > 0) h = (h ^ load<uint32_t>(p, left)) * m;
    h = (h ^ h >> 13) * m;
    return h ^ h >> 15;
}

uint64_t qel_hash_string_value(const void* key, uint32_t len, uint64_t seed) {
    if (!key) return seed;
    const auto* p = static_cast<const uint8_t*>(key);
    uint64_t h = seed;
    for (uint32_t i = 0; i < len; ++i) h = h * 16 + p[i] - 1;
    return h;
}

uint64_t qel_hash_string_value_parallel(const void* key, uint32_t len, uint64_t seed) {
    const auto* p = static_cast<const uint8_t*>(key);
    uint64_t h = seed;
    uint32_t left = len;
    for (; left >= 8; left -= 8, p += 8) h = (h << 16) + load<uint64_t>(p);
    for (; left > 0; --left) h ^= (h << 8) + *p++;
    return h;
}
