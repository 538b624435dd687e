// One instance: how bytes become frames, what a frame becomes, and the exact steps of the filter.
#include "qel/spu/aec/qel_aec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "tests/support/canceller.hpp"
#include "tests/support/failing_alloc.hpp"

namespace {

Pcm ramp(size_t samples, int step = 37) {
    Pcm x(samples);
    for (size_t i = 0; i < samples; ++i) x[i] = static_cast<int16_t>(static_cast<int>(i) * step);
    return x;
}

TEST(Aec, GivesAFrameForEachWholePair) {
    Canceller canceller;
    const Pcm frame = ramp(512), less(511), one(1), more = ramp(1024);
    EXPECT_EQ(canceller.feed(less, less).size(), 0u);
    EXPECT_EQ(canceller.feed(one, one).size(), 512u);
    EXPECT_EQ(canceller.feed(more, more).size(), 1024u);
    EXPECT_EQ(canceller.feed(one, one, SIZE_MAX, true).size(), 512u) << "the end pads";
    EXPECT_EQ(canceller.feed(more, frame).size(), 512u) << "the longer signal waits";
    EXPECT_EQ(canceller.feed(Pcm{}, frame).size(), 512u) << "for its pair";
    qel_aec_delete(nullptr);
}

TEST(Aec, CutsLoudFloatsToTheirLow16Bits) {
    // In the linear mode a silent window leaves the microphone alone, so scaling the overlap memory
    // by hand puts any value at the output.
    const struct {
        float value;
        int16_t sample;
    } cases[] = {{40000.0f, -25536},    {-1.9f, -1},        {1.9f, 1},
                 {-40000.0f, 25536},    {3e9f, -1},         {-3e9f, 0},
                 {INFINITY, -1},        {-INFINITY, 0},     {NAN, 0},
                 {2147483520.0f, -128}, {-2147483648.0f, 0}};
    qel_aec_cfg cfg{};
    qel_aec_cfg_init(&cfg);
    cfg.frame_size = 16;
    cfg.use_nlp = cfg.use_mute = cfg.use_bypass = 0;
    qel_aec_cfg_update(&cfg, nullptr);
    qel_aec* aec = qel_aec_new(&cfg);
    for (const auto& c : cases) {
        static_cast<qel_vector_float32*>(aec->overlap.vec)->data[3] = c.value / 32.0f;
        const Pcm silence(16);
        const char* out =
            qel_aec_feed_data(aec, silence.data(), 32, silence.data(), 32, 0, nullptr);
        int16_t sample;
        std::memcpy(&sample, out + 6, 2);
        EXPECT_EQ(sample, c.sample) << c.value;
    }
    qel_aec_delete(aec);
}

TEST(Aec, ShiftsWideSamplesDown) {
    const AecSettings settings{.frame = 64};
    Canceller wide(settings, 0, true);
    std::vector<int32_t> mic(192), silence(192);
    for (size_t i = 0; i < mic.size(); ++i) mic[i] = static_cast<int32_t>(i * 1000) - 96000;
    const Pcm out = wide.feed(mic, silence);  // a silent reference: one frame late
    ASSERT_EQ(out.size(), 192u);
    for (size_t i = 64; i < 192; ++i)
        EXPECT_EQ(out[i], static_cast<int16_t>(mic[i - 64] >> 6)) << i;
}

TEST(Aec, AllocatesNothingAfterTheFirstFrame) {
    for (const int frame : {160, 512, 2048}) {
        Canceller canceller({.frame = frame}, 1);
        const Pcm mic = ramp(static_cast<size_t>(frame), 41), ref = ramp(mic.size(), 977);
        const auto feed = [&] { canceller.feed(mic, ref); };
        feed();
        FailingAlloc count(INT64_MAX, 0);
        for (int i = 0; i < 40; ++i) feed();
        EXPECT_EQ(FailingAlloc::count(), 0) << frame;
    }
}

TEST(Aec, ComfortNoiseForgetsTheFrameBefore) {
    Canceller canceller({}, 1);
    const Pcm mic = ramp(512, 41), ref = ramp(512, 977);
    srand(1);
    const Pcm first = canceller.feed(mic, ref);
    srand(1);
    EXPECT_EQ(canceller.feed(mic, ref), first);
    EXPECT_NE(canceller.feed(mic, ref), first);
}

}  // namespace
