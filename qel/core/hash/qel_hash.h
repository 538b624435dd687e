// Hash functions over bytes: the MurmurHash family and two plain string hashes.
#ifndef QEL_CORE_HASH_QEL_HASH_H
#define QEL_CORE_HASH_QEL_HASH_H

#include <stdint.h>

#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

// Austin Appleby's MurmurHash3, MurmurHash2 and MurmurHash64A, public domain. Blocks are read
// little-endian whatever the processor, so a hash may be stored and compared elsewhere. `key` may
// be null when `len`, in bytes, is 0, and needs no alignment.

/// MurmurHash3_x86_32.
QEL_API uint32_t qel_hash_x86_32(const void* key, uint32_t len, uint32_t seed);

/// MurmurHash3_x86_128 into four words.
QEL_API void qel_hash_x86_128(const void* key, uint32_t len, uint32_t seed, uint32_t* out);

/// MurmurHash3_x64_128 into two words.
QEL_API void qel_hash_x64_128(const void* key, uint32_t len, uint32_t seed, uint64_t* out);

/// Words 0 (low half) and 2 (high half) of qel_hash_x86_128().
QEL_API void qel_hash_hash(const void* key, uint32_t len, uint32_t seed, uint64_t* out);

/// MurmurHash64A.
QEL_API uint64_t qel_hash_murmur64(const void* key, uint32_t len, uint64_t seed);

/// MurmurHash2's steps carried out in 64 bits, each block sign-extended: not the published 32-bit
/// hash, not even in its low half.
QEL_API uint64_t qel_hash_murmur32(const void* key, uint32_t len, uint64_t seed);

/// h = 16 h + c - 1 over the bytes, from h = seed.
QEL_API uint64_t qel_hash_string_value(const void* key, uint32_t len, uint64_t seed);

/// h = (h << 16) + w over little-endian 8-byte words, then h ^= (h << 8) + c over the 0 to 7 bytes
/// left, from h = seed.
QEL_API uint64_t qel_hash_string_value_parallel(const void* key, uint32_t len, uint64_t seed);

QEL_END_DECLS

#endif
