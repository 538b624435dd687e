// Frame separator: bytes go straight from the caller into pooled frames; only a remainder waits.
#include "qel/spu/sigp/qel_sigp_frame_separator.h"

#include "qel/core/internal.hpp"
#include "qel/spu/sigp/frames.hpp"

namespace {

constexpr char kSource[] = "qel/spu/sigp/qel_sigp_frame_separator";
constexpr uint32_t kMaxFrameLen = 1u << 28;  // the byte buffer's capacity has 31 bits

/// The next frame of the stream into the queue, padded with zeros at the stream's end.
void queue_frame(qel_sigp_frame_separator* sep, qel::ByteStream* stream) {
    const uint32_t sequence = ++sep->counter;
    auto* frame = static_cast<qel_sigp_frame*>(qel_hoard_pop(&sep->pool));
    stream->take(frame ? frame->samples : nullptr, sep->frame_bytes);
    if (!frame) return;
    frame->sequence = sequence;
    qel_queue_push_back(&sep->ready, &frame->queue_link);
}

}  // namespace

void* qel_sigp_frame_new(void* sep) {
    auto frame = qel::make_zeroed<qel_sigp_frame>();
    if (!frame) return nullptr;
    const uint32_t frame_len = static_cast<qel_sigp_frame_separator*>(sep)->frame_len;
    frame->samples = qel::make_zeroed<int16_t>(size_t{2} * frame_len).release();
    return frame->samples ? frame.release() : nullptr;
}

int32_t qel_sigp_frame_delete(void*, void* frame) {
    if (!frame) return 0;
    std::free(static_cast<qel_sigp_frame*>(frame)->samples);
    std::free(frame);
    return 0;
}

qel_sigp_frame_separator* qel_sigp_frame_separator_new(uint32_t frame_len) {
    if (frame_len == 0 || frame_len > kMaxFrameLen) {
        QEL_LOG(QEL_LOG_ERROR, "frame length out of range: %u.", frame_len);
        return nullptr;
    }
    auto sep = qel::make_zeroed<qel_sigp_frame_separator>();
    if (!sep || qel_string_init(&sep->buffer, nullptr, 4 * frame_len) != 0) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return nullptr;
    }
    qel_hoard_init(&sep->pool, 0, qel::kKeptFrames, qel_sigp_frame_new, qel_sigp_frame_delete,
                   sep.get());
    sep->frame_len = frame_len;
    sep->frame_bytes = 2 * frame_len;
    return sep.release();
}

void qel_sigp_frame_separator_delete(qel_sigp_frame_separator* sep) {
    if (!sep) return;
    qel_string_clean(&sep->buffer);
    qel_hoard_clean(&sep->pool);
    std::free(sep);
}

void qel_sigp_frame_separator_reset(qel_sigp_frame_separator* sep) {
    if (!sep) return;
    qel_string_reset(&sep->buffer, 0);
    sep->ready = {};
    sep->counter = 0;
    qel_hoard_reset(&sep->pool);
}

void qel_sigp_frame_separator_feed(qel_sigp_frame_separator* sep, const void* bytes, uint32_t len,
                                   uint32_t flags) {
    qel::ByteStream stream{&sep->buffer, qel::call_bytes(bytes, len)};
    while (stream.size() >= sep->frame_bytes) queue_frame(sep, &stream);
    if ((flags & QEL_SIGP_FEED_END) && stream.size() > 0) queue_frame(sep, &stream);
    stream.hold();
}

qel_sigp_frame* qel_sigp_frame_separator_pop(qel_sigp_frame_separator* sep) {
    qel_queue_node* link = qel_queue_pop_head(&sep->ready);
    return link ? qel::frame_of<qel_sigp_frame>(link) : nullptr;
}

void qel_sigp_frame_separator_push(qel_sigp_frame_separator* sep, qel_sigp_frame* frame) {
    if (frame) qel_hoard_push(&sep->pool, frame);
}
