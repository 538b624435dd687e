// What every room shares inside the library: owned heap memory and the log's call sites.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "qel/core/qel_debug.h"

// A log line with the caller's function and line. The file names its own path, without ending, in
// a constant `kSource`: "qel/core/qel_string".
#define QEL_LOG(level, ...) qel_debug_log(level, kSource, __func__, __LINE__, __VA_ARGS__)

// A log line whose line number others match on, so that moving code changes no message.
#define QEL_LOG_AT(level, line, ...) qel_debug_log(level, kSource, __func__, line, __VA_ARGS__)

namespace qel {

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

/// Owns one block of the C allocator while an object is being built; release() on success.
template <class T>
using heap_ptr = std::unique_ptr<T, FreeDeleter>;

/// `count` zeroed records, or null when memory runs out.
template <class T>
heap_ptr<T> make_zeroed(size_t count = 1) {
    return heap_ptr<T>(static_cast<T*>(std::calloc(count, sizeof(T))));
}

/// Distance of `p` from the start of `block`, wrapped, so that one comparison with the block's size
/// tells whether `p` points into it.
inline size_t offset_in(const void* block, const void* p) {
    return reinterpret_cast<uintptr_t>(p) - reinterpret_cast<uintptr_t>(block);
}

/// Space, tab, newline, vertical tab, form feed or carriage return, whatever the locale.
constexpr bool is_blank(int byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

}  // namespace qel
