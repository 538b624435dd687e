// The canceller as a stream: what comes out does not depend on how it is fed, what ran before or
// what runs beside it, bit for bit.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/canceller.hpp"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/signals.hpp"

namespace {

constexpr size_t kFrame = 512, kSecond = 16000;

struct Call {
    Pcm mic, ref;
};

/// A call of `frames` frames and `more` samples: echo and near end throughout.
Call call(uint32_t seed, size_t frames, size_t more = 0) {
    const size_t total = frames * kFrame + more;
    const Signal ref = speech(seed, total, kSecond, 2000);
    return {to_pcm(echo(ref, 1e9, room_response(seed + 1, 0.01, 0.05, kSecond)) +
                   speech(seed + 2, total, kSecond, 500)),
            to_pcm(ref)};
}

TEST(Stream, SilentReferencePassesTheMicrophoneOneFrameLate) {
    const Call c = call(1, 40);
    const Pcm silence(c.mic.size());
    EXPECT_EQ(Canceller().feed(c.mic, silence), delayed(c.mic, kFrame));
    Canceller suppressed({}, with_mute);  // the mute waits for a reference too
    EXPECT_EQ(suppressed.feed(c.mic, silence), delayed(c.mic, kFrame));

    Canceller after_echo;
    after_echo.feed(c.mic, c.ref);
    after_echo.feed(c.mic, silence);
    Pcm again = c.mic;  // its last frame comes first
    std::rotate(again.begin(), again.end() - kFrame, again.end());
    EXPECT_EQ(after_echo.feed(c.mic, silence), again);
}

TEST(Stream, PiecesGiveWhatTheWholeGives) {
    const Call c = call(4, 24, 300);
    const Pcm whole = Canceller().feed(c.mic, c.ref);
    EXPECT_EQ(whole.size(), 24 * kFrame);
    for (const size_t bytes : {3u, 1022u, 1024u, 1026u, 7000u})
        EXPECT_EQ(Canceller().feed(c.mic, c.ref, bytes), whole) << bytes << " bytes";
    Call padded = c;  // as the end does, with zeros
    padded.mic.resize(25 * kFrame);
    padded.ref.resize(25 * kFrame);
    EXPECT_EQ(Canceller().feed(c.mic, c.ref, 999, true), Canceller().feed(padded.mic, padded.ref));

    const size_t lead = 10 * kFrame + 100;
    for (const bool mic_first : {true, false}) {
        Canceller uneven;
        const Pcm mic = part(c.mic, 0, mic_first ? lead : 0),
                  ref = part(c.ref, 0, mic_first ? 0 : lead);
        EXPECT_TRUE(uneven.feed(mic, ref).empty()) << "a lone signal waits";
        EXPECT_EQ(uneven.feed(part(c.mic, mic.size(), c.mic.size()),
                              part(c.ref, ref.size(), c.ref.size())),
                  whole);
    }
}

TEST(Stream, ResetGivesAFreshCanceller) {
    const Call before = call(7, 50, 77), c = call(10, 60);
    for (const AecSettings& s : {AecSettings{}, {.nlp = false}, {.vad = false}}) {
        Canceller used(s);
        used.feed(before.mic, before.ref);
        used.reset();
        EXPECT_EQ(used.feed(c.mic, c.ref), Canceller(s).feed(c.mic, c.ref));
    }
}

TEST(Stream, CancellersFedInTurnDoNotMeet) {
    const Call a = call(13, 30), b = call(16, 30);
    const Pcm alone = Canceller().feed(a.mic, a.ref);
    const size_t half = alone.size() / 2, end = alone.size();
    Canceller first;
    EXPECT_EQ(first.feed(part(a.mic, 0, half), part(a.ref, 0, half)), part(alone, 0, half));
    Canceller().feed(b.mic, b.ref);
    EXPECT_EQ(first.feed(part(a.mic, half, end), part(a.ref, half, end)), part(alone, half, end));
}

TEST(Stream, SamplesOf32BitsAreScaledTo16) {
    const Call c = call(19, 30);
    std::vector<int32_t> mic, ref;
    for (const int16_t v : c.mic) mic.push_back(v * 64 + 63);  // 6 bits go, rounding down
    for (const int16_t v : c.ref) ref.push_back(v * 64);
    Canceller wide({}, [](qel_aec_cfg& cfg) { cfg.use_hdr = 1; });
    EXPECT_EQ(wide.feed(mic, ref, 1000), Canceller().feed(c.mic, c.ref));
}

TEST(Stream, ComfortNoiseFillsExactlyTheFirst31ProcessedFrames) {
    const size_t bypassed = 5, muted = 31;
    Call c = call(22, 45);
    std::fill_n(c.ref.begin(), bypassed * kFrame, int16_t{0});
    c.mic = to_pcm(white_noise(23, c.mic.size(), 3000));  // what the mute must not let through
    Canceller canceller({}, with_mute);
    for (const char* what : {"fresh", "reset"}) {
        const Pcm out = canceller.feed(c.mic, c.ref);
        for (size_t f = 1; f < out.size() / kFrame; ++f) {
            const Pcm frame = part(out, f * kFrame, (f + 1) * kFrame);
            const auto [low, high] = std::minmax_element(frame.begin(), frame.end());
            const bool noise = f >= bypassed && f < bypassed + muted;
            EXPECT_GT(*high - *low, noise ? 0 : 100) << what << ", frame " << f;
            EXPECT_LT(*high - *low, noise ? 60 : 65535) << what << ", frame " << f;
        }
        canceller.reset();
    }
}

TEST(Stream, ComfortNoiseForgetsTheFrameBefore) {
    Canceller canceller({}, with_mute);
    const Pcm loud = to_pcm(white_noise(24, kFrame, 9000));
    srand(1);
    const Pcm first = canceller.feed(loud, loud);
    srand(1);
    EXPECT_EQ(canceller.feed(loud, loud), first);
    EXPECT_NE(canceller.feed(loud, loud), first);
}

TEST(Stream, AllocatesNothingAfterTheFirstFrame) {
    const Pcm loud = to_pcm(white_noise(24, 40 * 2048, 9000));
    for (const int frame : {160, 512, 2048}) {
        Canceller canceller({.frame = frame}, with_mute);
        const Pcm first = part(loud, 0, static_cast<size_t>(frame));
        canceller.feed(first, first);
        FailingAlloc count(INT64_MAX, 0);
        canceller.feed(loud, loud, 2 * first.size());
        EXPECT_EQ(FailingAlloc::count(), 0) << frame;
    }
}

TEST(Stream, RecoversFromWhateverItHeard) {
    const Call c = call(25, 120);
    const size_t second = kSecond / kFrame * kFrame;
    const Pcm zeros(second), stuck(second, int16_t{-32768}),
        noise = to_pcm(white_noise(26, second, 32768));
    const Pcm talk = to_pcm(speech(27, second, kSecond, 2000));
    // A full-scale reference holds the adaptation back for minutes, since its smoothed power falls
    // slowly. A NaN that lodged would silence the output: an endless reduction.
    const struct {
        const char* what;
        const Pcm &mic, &ref;
        double lost;  // dB of reduction at most
    } cases[] = {{"digital silence", zeros, zeros, 0.1},
                 {"digitally silent microphone beside speech", zeros, talk, 1},
                 {"digitally silent microphone beside full scale", zeros, noise, 15},
                 {"full scale in both", noise, noise, 15},
                 {"a stuck microphone", stuck, noise, 15},
                 {"a stuck reference", noise, stuck, 0.1}};
    // The last second, when the filter has found the echo again.
    const auto reduction = [&](Canceller& canceller) {
        const Pcm out = canceller.feed(c.mic, c.ref);
        const size_t from = out.size() - second;
        return erle_db(part(c.mic, from, out.size()), part(out, from, out.size()));
    };
    Canceller fresh;
    const double best = reduction(fresh);
    for (const auto& before : cases) {
        Canceller canceller;
        canceller.feed(before.mic, before.ref);
        const double gained = reduction(canceller) - best;
        EXPECT_TRUE(gained > -before.lost && gained < 1) << before.what << gained;
    }
}

}  // namespace
