// Bytes in pieces of any size into frames, by the separator and by the framing, beside a plain
// model of what is to come out.
#include <deque>
#include <memory>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qel/spu/frame/qel_framing.h"
#include "qel/spu/sigp/qel_sigp_frame_separator.h"

namespace {

using Samples = std::vector<int16_t>;

struct Model {
    size_t frame_bytes;
    std::vector<uint8_t> held;
    std::deque<Samples> ready;

    void cut(size_t bytes) {
        std::vector<uint8_t> frame(held.begin(), held.begin() + static_cast<ptrdiff_t>(bytes));
        held.erase(held.begin(), held.begin() + static_cast<ptrdiff_t>(bytes));
        frame.resize(frame_bytes);
        Samples samples;
        for (size_t i = 0; i + 1 < frame_bytes; i += 2) {  // 24 bits can leave an odd byte
            samples.push_back(static_cast<int16_t>(frame[i] | frame[i + 1] << 8));
        }
        ready.push_back(samples);
    }
    void add(const std::vector<uint8_t>& bytes) {
        held.insert(held.end(), bytes.begin(), bytes.end());
    }
};

/// Pops from one of the two kinds and compares; whether there was a frame.
template <class Frame>
Frame* popped(Frame* frame, const int16_t* samples, Model* model) {
    require((frame != nullptr) == !model->ready.empty());
    if (!frame) return nullptr;
    const Samples& expected = model->ready.front();
    require(std::equal(expected.begin(), expected.end(), samples));
    model->ready.pop_front();
    return frame;
}

void separator(FuzzedDataProvider* input) {
    const auto n = input->ConsumeIntegralInRange<uint32_t>(1, 40);
    auto* const sep = qel_sigp_frame_separator_new(n);
    Model model{2 * n, {}, {}};
    std::deque<qel_sigp_frame*> out;
    while (input->remaining_bytes() > 0) {
        const auto step = input->ConsumeIntegral<uint8_t>();
        if (step % 8 < 4) {
            const auto bytes = input->ConsumeBytes<uint8_t>(input->ConsumeIntegral<uint8_t>());
            const uint32_t end = step & 8 ? QEL_SIGP_FEED_END : 0;
            qel_sigp_frame_separator_feed(sep, bytes.data(), static_cast<uint32_t>(bytes.size()),
                                          end);
            model.add(bytes);
            while (model.held.size() >= model.frame_bytes) model.cut(model.frame_bytes);
            if (end && !model.held.empty()) model.cut(model.held.size());
        } else if (step % 8 < 6) {
            auto* frame = qel_sigp_frame_separator_pop(sep);
            if (popped(frame, frame ? frame->samples : nullptr, &model)) out.push_back(frame);
        } else if (step % 8 == 6 && !out.empty()) {
            auto& chosen = out[step / 8 % out.size()];
            std::swap(chosen, out.back());
            qel_sigp_frame_separator_push(sep, out.back());
            out.pop_back();
        } else if (step == 0xff) {
            qel_sigp_frame_separator_reset(sep);
            model.held.clear(), model.ready.clear(), out.clear();
        }
        require(sep->buffer.length == model.held.size() && sep->ready.count == model.ready.size());
        require(sep->pool.used_q.count == model.ready.size() + out.size());
    }
    qel_sigp_frame_separator_delete(sep);
}

void framing(FuzzedDataProvider* input) {
    qel_framing_cfg cfg{};
    qel_framing_cfg_init(&cfg);
    cfg.frame_len = input->ConsumeIntegralInRange<uint32_t>(1, 40);
    cfg.bit_extends = input->ConsumeIntegral<int16_t>();
    cfg.use_24bit = input->ConsumeBool();
    cfg.use_32bit = input->ConsumeBool();
    qel_framing_cfg_update(&cfg, nullptr);
    const bool wide = cfg.use_24bit || cfg.use_32bit;  // their samples come from the call alone
    auto* const fr = qel_framing_new(&cfg);
    Model model{(cfg.use_24bit ? 3u : 2u) * cfg.frame_len, {}, {}};
    uint32_t sequence = 0;
    std::deque<uint32_t> numbers;
    while (input->remaining_bytes() > 0) {
        const auto step = input->ConsumeIntegral<uint8_t>();
        if (step % 4 < 2) {
            const auto bytes = input->ConsumeBytes<uint8_t>(input->ConsumeIntegral<uint8_t>());
            const int32_t flush = step & 4;
            qel_framing_feed(fr, bytes.data(), static_cast<uint32_t>(bytes.size()), flush);
            model.add(bytes);
            const size_t before = model.ready.size();
            if (flush && !model.held.empty()) {
                model.cut(std::min(model.held.size(), model.frame_bytes));
            }
            while (!flush && model.held.size() >= model.frame_bytes) model.cut(model.frame_bytes);
            for (size_t i = before; i < model.ready.size(); ++i) numbers.push_back(++sequence);
            if (flush) model.held.clear();
            for (auto& samples : model.ready) {
                if (wide) samples.clear();
            }
        } else if (step % 4 == 2) {
            auto* frame = qel_framing_pop(fr);
            if (popped(frame, frame ? frame->samples->data : nullptr, &model)) {
                require(frame->sequence == numbers.front() && frame->tag == QEL_FRAMING_UNJUDGED);
                numbers.pop_front();
                qel_framing_push(fr, frame);
            }
        } else if (step == 0xff) {
            qel_framing_reset(fr);
            model.held.clear(), model.ready.clear(), numbers.clear();
            sequence = 0;
        }
        require(fr->ready.count == model.ready.size() && fr->counter == sequence);
        require(fr->pool.used_q.count == model.ready.size());
    }
    qel_framing_delete(fr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    input.ConsumeBool() ? separator(&input) : framing(&input);
    return 0;
}
