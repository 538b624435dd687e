// Sample framing: PCM bytes into pooled, numbered frames of 16-bit samples.
#include "qel/spu/frame/qel_framing.h"

#include <algorithm>
#include <span>

#include "qel/core/internal.hpp"
#include "qel/spu/frame/keys.hpp"
#include "qel/spu/sigp/frames.hpp"

namespace {

constexpr char kSource[] = "qel/spu/frame/qel_frame";
// Line shown for a queue that lost its frames, with the function's name: renaming qel_framing_pop()
// changes the message.
constexpr int32_t kPopLine = 184;
constexpr uint32_t kMaxFrameLen = 1u << 27;  // the byte buffer's capacity has 31 bits
constexpr uint32_t kTextLengthBits = 0xff;   // a boolean's length counts modulo 256, as ever

uint32_t sample_bytes(const qel_framing_cfg& cfg) {
    if (cfg.use_32bit) return 4;
    return cfg.use_24bit ? 3 : 2;
}

/// Bytes per frame. At 32 bits they fill half a frame only: such frames keep the 16-bit size.
uint32_t frame_bytes(const qel_framing_cfg& cfg) {
    return (sample_bytes(cfg) == 3 ? 3 : 2) * cfg.frame_len;
}

/// Converts little-endian samples of `width` bytes, each taken as the top of a 32-bit word and
/// shifted down. Behind the end of `bytes` lie zeros.
void convert_wide(std::span<const uint8_t> bytes, uint32_t width, int16_t shift,
                  std::span<int16_t> samples) {
    const uint32_t down = std::min<uint32_t>(static_cast<uint16_t>(shift), 31);  // 32 up: the sign
    size_t at = 0;
    for (int16_t& sample : samples) {
        uint32_t word = 0;
        for (uint32_t k = 4 - width; k < 4; ++k, ++at) {
            if (at < bytes.size()) word |= uint32_t{bytes[at]} << (8 * k);
        }
        sample = static_cast<int16_t>(static_cast<int32_t>(word) >> down);
    }
}

/// As the pool's constructor leaves it; attached vectors are their attacher's.
void make_fresh(qel_framing_frame* frame) {
    qel_vector_int16_zero(frame->samples);
    frame->windowed = frame->judged = nullptr;
    frame->owner = nullptr;
    frame->release = nullptr;
    frame->sequence = 0;
    frame->reserved = 0;
    frame->tag = QEL_FRAMING_UNJUDGED;
}

/// The next frame of the stream into the queue.
void queue_frame(qel_framing* fr, qel::ByteStream* stream, std::span<const uint8_t> call) {
    const uint32_t width = sample_bytes(*fr->cfg);
    const uint32_t bytes = frame_bytes(*fr->cfg);
    const uint32_t sequence = ++fr->counter;
    auto* frame = static_cast<qel_framing_frame*>(qel_hoard_pop(&fr->pool));
    if (!frame) {
        stream->take(nullptr, bytes);
        return;
    }
    make_fresh(frame);
    int16_t* samples = frame->samples->data;
    stream->take(width == 2 ? samples : nullptr, bytes);
    // The wide formats read this call's own bytes, not the stream: one whole frame per call.
    if (width != 2) convert_wide(call, width, fr->cfg->bit_extends, {samples, bytes / width});
    frame->sequence = sequence;
    qel_queue_push_back(&fr->ready, &frame->queue_link);
}

}  // namespace

int32_t qel_framing_cfg_init(qel_framing_cfg* cfg) {
    qel::set_defaults(qel::kFramingKeys, cfg);
    return 0;
}

int32_t qel_framing_cfg_update_local(qel_framing_cfg* cfg, const qel_config_items* section) {
    qel::read_keys(section, qel::kFramingKeys, cfg, kTextLengthBits);
    return 0;
}

int32_t qel_framing_cfg_update(qel_framing_cfg* cfg, const qel_source_loader*) {
    if (cfg->use_32bit) cfg->use_24bit = 0;
    if (cfg->use_32bit || cfg->use_24bit) cfg->use_16bit = 0;
    return 0;
}

int32_t qel_framing_cfg_clean(qel_framing_cfg*) { return 0; }

void* qel_framing_frame_new(void* cfg) {
    auto frame = qel::make_zeroed<qel_framing_frame>();
    if (!frame) return nullptr;
    frame->samples = qel_vector_int16_new(static_cast<const qel_framing_cfg*>(cfg)->frame_len);
    if (!frame->samples) return nullptr;
    make_fresh(frame.get());
    return frame.release();
}

int32_t qel_framing_frame_delete(void*, void* frame) {
    if (!frame) return 0;
    qel_vector_int16_delete(static_cast<qel_framing_frame*>(frame)->samples);
    std::free(frame);
    return 0;
}

qel_framing* qel_framing_new(const qel_framing_cfg* cfg) {
    if (cfg->frame_len == 0 || cfg->frame_len > kMaxFrameLen) {
        QEL_LOG(QEL_LOG_ERROR, "frame_len out of range: %u.", cfg->frame_len);
        return nullptr;
    }
    auto fr = qel::make_zeroed<qel_framing>();
    const uint32_t room = (sample_bytes(*cfg) == 3 ? 8 : 4) * cfg->frame_len;
    if (!fr || qel_string_init(&fr->buffer, nullptr, room) != 0) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return nullptr;
    }
    fr->cfg = cfg;
    qel_hoard_init(&fr->pool, 0, qel::kKeptFrames, qel_framing_frame_new, qel_framing_frame_delete,
                   const_cast<qel_framing_cfg*>(cfg));
    return fr.release();
}

void qel_framing_delete(qel_framing* fr) {
    if (!fr) return;
    qel_string_clean(&fr->buffer);
    qel_hoard_clean(&fr->pool);
    std::free(fr);
}

void qel_framing_reset(qel_framing* fr) {
    if (!fr) return;
    fr->ready = {};
    fr->counter = 0;
    qel_string_reset(&fr->buffer, 0);
    qel_hoard_reset(&fr->pool);
}

void qel_framing_feed(qel_framing* fr, const void* bytes, uint32_t len, int32_t flush) {
    const std::span<const uint8_t> call = qel::call_bytes(bytes, len);
    qel::ByteStream stream{&fr->buffer, call};
    if (flush) {
        if (stream.size() > 0) queue_frame(fr, &stream, call);
        return;  // what came behind that frame is not held
    }
    while (stream.size() >= frame_bytes(*fr->cfg)) queue_frame(fr, &stream, call);
    stream.hold();
}

qel_framing_frame* qel_framing_pop(qel_framing* fr) {
    if (fr->ready.count == 0) return nullptr;
    qel_queue_node* link = qel_queue_pop_head(&fr->ready);
    if (!link) {
        QEL_LOG_AT(QEL_LOG_ERROR, kPopLine, "never be here.");
        return nullptr;
    }
    return qel::frame_of<qel_framing_frame>(link);
}

void qel_framing_push(qel_framing* fr, qel_framing_frame* frame) {
    if (!frame) return;
    make_fresh(frame);
    qel_hoard_push(&fr->pool, frame);
}
