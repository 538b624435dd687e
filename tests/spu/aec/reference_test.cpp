// The frame pipeline against the same pipeline in double precision, sample by sample.
#include "tests/support/reference_aec.hpp"

#include <gtest/gtest.h>

#include "tests/support/canceller.hpp"

namespace {

struct Scene {
    Pcm mic, ref;
};

/// Every state of a call: silent reference, echo alone, both talking, both digitally silent, echo
/// again. Each echo starts with a digitally silent microphone. `level` is the reference's rms.
Scene call(const AecSettings& s, double level) {
    const int pause = 20 * s.frame;  // the detectors take 15 frames to notice one
    const int near_from = pause + 3 * s.rate / 2, gap = near_from + s.rate;
    const auto total = static_cast<size_t>(gap + pause + s.rate);
    Signal ref = speech(32, total, s.rate, level), near_end = speech(2, total, s.rate, 0.8 * level);
    std::fill_n(ref.begin(), pause, 0.0);
    std::fill_n(ref.begin() + gap, pause, 0.0);
    std::fill(near_end.begin() + pause, near_end.begin() + near_from, 0.0);
    Signal mic = echo(ref, 1e9, room_response(3, 0.01, 0.05, s.rate)) + near_end +
                 white_noise(4, total, level / 200);
    std::fill_n(mic.begin() + pause, 3 * s.frame, 0.0);
    std::fill_n(mic.begin() + gap, 23 * s.frame, 0.0);
    return {to_pcm(mic), to_pcm(ref)};
}

/// A reference so quiet that the detector of raw frames hears it and that of windowed ones soon
/// does not: near-end speech then passes through the synthesis window alone.
Scene faint_reference(const AecSettings& s, double level) {
    const size_t total = 2 * static_cast<size_t>(s.rate);
    Signal ref = white_noise(5, total, level);
    std::fill(ref.begin() + s.rate, ref.end(), 400.0);
    return {to_pcm(speech(6, total, s.rate, 1000)), to_pcm(ref)};
}

TEST(Aec, AgreesWithTheReferenceInDouble) {
    const struct {
        const char* what;
        AecSettings settings;
        Scene (*scene)(const AecSettings&, double);
        double level = 1000;
    } cases[] = {{"defaults", {}, call},
                 {"faint", {}, call, 20},
                 {"loud, clipped now and then", {}, call, 8000},
                 {"frame 160: transform of no power of two", {.frame = 160}, call},
                 {"frame 256", {.frame = 256}, call},
                 {"frame 320", {.frame = 320}, call},
                 {"frame 480", {.frame = 480}, call},
                 {"frame 1024", {.frame = 1024}, call},
                 {"8 kHz", {.frame = 256, .rate = 8000}, call},
                 {"1 tap", {.taps = 1}, call},
                 {"6 taps", {.taps = 6}, call},
                 {"16 bands", {.banks = 16}, call},
                 {"the filter skips 8 bins", {.offset = 8}, call},
                 {"no detectors: no bypass", {.vad = false}, call},
                 {"no suppressor", {.nlp = false}, call},
                 {"faint reference", {}, faint_reference, 10.6}};
    for (const auto& c : cases) {
        const Scene scene = c.scene(c.settings, c.level);
        const Pcm want = ReferenceAec(c.settings).feed(scene.mic, scene.ref);
        const Pcm have = Canceller(c.settings).feed(scene.mic, scene.ref);
        ASSERT_EQ(have.size(), want.size()) << c.what;
        int worst = 0;
        size_t differing = 0;
        for (size_t i = 0; i < want.size(); ++i) {
            const auto distance = static_cast<int16_t>(have[i] - want[i]);  // modulo 65536
            worst = std::max(worst, std::abs(static_cast<int>(distance)));
            differing += distance != 0;
        }
        EXPECT_LE(worst, 1) << c.what;
        // Where the microphone just passes the exact result is a whole number, so that the last bit
        // decides which way the truncation goes.
        const double most = c.scene == faint_reference ? 0.5 : 0.01;
        EXPECT_LE(1.0 * differing, most * want.size()) << c.what;
    }
}

}  // namespace
