#include "qel/spu/frame/qel_framing.h"

#include <gtest/gtest.h>

#include "qel/spu/sigp/qel_sigp_frame_separator.h"
#include "tests/support/log_capture.hpp"

namespace {

using namespace std::string_literals;
using Ints = std::vector<int>;

/// Adds number and samples of each frame that is ready after `bytes`.
void cut(qel_framing* fr, const std::string& bytes, bool flush, Ints* out) {
    const std::vector<char> exact(bytes.begin(), bytes.end());  // nothing to read behind them
    qel_framing_feed(fr, exact.data(), static_cast<uint32_t>(exact.size()), flush);
    while (qel_framing_frame* frame = qel_framing_pop(fr)) {
        out->push_back(static_cast<int>(frame->sequence));
        out->insert(out->end(), frame->samples->data, frame->samples->data + frame->samples->len);
        frame->samples->data[1] = 9;
        EXPECT_EQ(frame->release, nullptr) << "of an earlier owner";
        frame->release = [](void*, qel_framing_frame*) {};
        qel_framing_push(fr, frame);
    }
}

TEST(Framing, CutsAndConverts) {
    const std::string a24 = "\x00\x01\x00"s, b24 = "\x40\x00\x80"s;  // 0x100 and 0x800040
    const std::string a32 = "\x40\x01\x00\x80"s;                     // 0x80000140
    const struct {
        const char* what;
        int width, shift, flush;  // flush with the last piece
        std::string first, last;
        Ints frames;
    } cases[] = {
        {"16 bits", 16, 6, 0, "\x01", "\x80\2\0\3\0\xff\xff\4"s, {1, -32767, 2, 2, 3, -1}},
        {"no width is 16 bits", 0, 6, 0, "\1\0\2\0"s, "\3\0\4"s, {1, 1, 2}},
        {"a flush pads", 16, 6, 1, "\1\0\2\0"s, "\3\0\4"s, {1, 1, 2, 2, 3, 4}},
        {"a flush makes one frame of many", 16, 6, 1, "\1", "\0\2\0\3\0\4\0\5"s, {1, 1, 2}},
        {"24 bits", 24, 8, 0, a24 + b24, b24 + a24, {1, 0x100, 0x40, 2, 0x40, 0x100}},
        {"of this call only", 24, 16, 0, a24, b24, {1, -32768, 0}},
        {"from its start", 24, 16, 0, "", a24 + b24 + b24 + b24, {1, 1, -32768, 2, 1, -32768}},
        {"a flush without bytes", 24, 16, 1, b24, "", {1, 0, 0}},
        {"32 bits fill half a frame", 32, 6, 0, a32, a32, {1, 5, 0, 2, 5, 0}},
        {"shift by 32: the sign", 32, 32, 0, "", a32, {1, -1, 0}},
        {"shift below 0: the sign", 32, -30, 0, "", a32, {1, -1, 0}}};
    for (const auto& c : cases) {
        const qel_framing_cfg cfg{
            0, 2, static_cast<int16_t>(c.shift), c.width == 16, c.width == 24, c.width == 32, 0};
        qel_framing* fr = qel_framing_new(&cfg);
        for (int round = 0; round < 2; ++round, qel_framing_reset(fr)) {
            Ints frames;
            cut(fr, c.first, false, &frames);
            cut(fr, c.last, c.flush, &frames);
            if (c.flush) cut(fr, "", true, &frames);
            EXPECT_EQ(frames, c.frames) << c.what << (round ? ", after a reset" : "");
            qel_framing_feed(fr, "left over", 9, 0);
        }
        EXPECT_EQ(fr->pool.used_q.count, 0u) << c.what;
        fr->counter = UINT32_MAX - 1;
        qel_framing_feed(fr, "abcdefghijklmnopqr", 18, 0);
        for (const uint32_t n : {UINT32_MAX, 0u, 1u})
            EXPECT_EQ(qel_framing_pop(fr)->sequence, n) << c.what;
        const LogCapture log;
        qel_framing_reset(fr);
        fr->ready.count = 1;
        EXPECT_EQ(qel_framing_pop(fr), nullptr);
        EXPECT_TRUE(log.has("[E] qel_frame:qel_framing_pop:184: never be here.")) << log.text();
        qel_framing_delete(fr);
    }
    const qel_framing_cfg empty{};
    EXPECT_EQ(qel_framing_new(&empty), nullptr);
    EXPECT_EQ(qel_sigp_frame_separator_new(0), nullptr);
}

}  // namespace
