// The vectors of a record side by side in one block of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "qel/math/vector/qel_vector.h"

#ifdef QEL_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace qel {

constexpr size_t kCacheLine = 64;  // bytes

/// Asks for the memory to be brought near the core, and does not wait for it.
inline void fetch(const void* begin, const void* end) {
    const auto* at = static_cast<const char*>(begin);
    for (; at < end; at += kCacheLine) __builtin_prefetch(at);
}

/// Empty when zeroed.
class VectorBlock {
  public:
    /// Makes the float vectors that `each(fn)` lists by calling fn(union, elements), in that order.
    /// Their elements start lines of the cache: whole registers are loaded there. False when memory
    /// runs out.
    template <class Each>
    bool make(Each each) {
        uint64_t bytes = kCacheLine;  // room to reach the first line
        bool fit = true;              // sizes of vectors are told in 32 bits
        each([&](qel_vector_union*, uint32_t len) {
            bytes += bytes_of(len);
            fit = fit && bytes_of(len) <= UINT32_MAX;
        });
        if (!fit || bytes > PTRDIFF_MAX) return false;
        bytes_ = static_cast<size_t>(bytes);
        start_ = static_cast<char*>(std::malloc(bytes_));
        if (start_ == nullptr) return false;
        const auto elements = reinterpret_cast<uintptr_t>(start_) + QEL_VECTOR_HEADER_BYTES;
        char* at = start_ + -elements % kCacheLine;
        each([&at](qel_vector_union* u, uint32_t len) {
            auto* vec = reinterpret_cast<qel_vector_float32*>(at);
            vec->len = vec->capacity = len;
            vec->reserved[0] = vec->reserved[1] = 0;
            *u = {vec, QEL_VECTOR_FLOAT32};
            at += bytes_of(len);
            guard(reinterpret_cast<char*>(vec->data + len), at);
        });
        return true;
    }

    void clean() { std::free(start_); }

    /// Fetches one of `parts` equal parts.
    void fetch(int32_t part, int32_t parts) const {
        const size_t size = bytes_ / static_cast<size_t>(parts);
        const char* begin = start_ + static_cast<size_t>(part) * size;
        qel::fetch(begin, begin + size);
    }

  private:
#ifdef QEL_ADDRESS_SANITIZER
    static constexpr size_t kGuard = kCacheLine;
    static void guard(const char* from, const char* to) {
        ASAN_POISON_MEMORY_REGION(from, static_cast<size_t>(to - from));
    }
#else
    static constexpr size_t kGuard = 0;
    static void guard(const char*, const char*) {}
#endif

    /// Header, elements and what is left of their last line.
    static uint64_t bytes_of(uint32_t len) {
        const uint64_t bytes = QEL_VECTOR_HEADER_BYTES + uint64_t{len} * sizeof(float) + kGuard;
        return (bytes + kCacheLine - 1) / kCacheLine * kCacheLine;
    }

    char* start_;
    size_t bytes_;
};

}  // namespace qel
