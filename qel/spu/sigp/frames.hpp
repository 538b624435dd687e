// What both frame cutters share: bytes that arrive in pieces of any size and leave by the frame.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "qel/core/qel_string.h"
#include "qel/core/queue/qel_queue.h"

namespace qel {

constexpr uint32_t kKeptFrames = 128;  // free frames that a pool keeps

/// The frame in whose queue the link stands.
template <class Frame>
Frame* frame_of(qel_queue_node* link) {
    return reinterpret_cast<Frame*>(reinterpret_cast<char*>(link) - offsetof(Frame, queue_link));
}

/// The bytes `held` from earlier calls, followed by the `fresh` ones of this call, which are only
/// copied once: into their frame, or into `held` when they end up waiting for the next call.
struct ByteStream {
    qel_string* held;
    std::span<const uint8_t> fresh;

    uint64_t size() const { return uint64_t{held->length} + fresh.size(); }

    /// Moves the next `n` bytes to `dst`, zeros where the stream is shorter; drops them if it is
    /// null.
    void take(void* dst, uint32_t n) {
        auto* to = static_cast<uint8_t*>(dst);
        const size_t old = std::min(n, held->length);
        const size_t now = std::min<size_t>(n - old, fresh.size());
        if (to) {
            if (old > 0) std::memcpy(to, held->data, old);
            if (now > 0) std::memcpy(to + old, fresh.data(), now);
            std::memset(to + old + now, 0, n - old - now);
        }
        if (old > 0) qel_string_remove_ahead(held, static_cast<int64_t>(old));
        fresh = fresh.subspan(now);
    }

    /// Keeps what is left for the next call.
    void hold() {
        if (fresh.empty()) return;
        qel_string_append(held, fresh.data(), static_cast<uint32_t>(fresh.size()));
    }
};

/// The bytes of one call: none if `bytes` is null, whatever the length says.
inline std::span<const uint8_t> call_bytes(const void* bytes, uint32_t len) {
    return {static_cast<const uint8_t*>(bytes), bytes ? len : 0};
}

}  // namespace qel
