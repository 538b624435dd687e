// The canceller as a stream: what comes out does not depend on how it is fed, what ran before or
// what runs beside it, bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "tests/support/canceller.hpp"
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

int peak(const Pcm& x) {
    int most = 0;
    for (const int16_t v : x) most = std::max(most, std::abs(static_cast<int>(v)));
    return most;
}

TEST(Stream, SilentReferencePassesTheMicrophoneOneFrameLate) {
    const Call c = call(1, 40);
    const Pcm silence(c.mic.size());
    EXPECT_EQ(Canceller().feed(c.mic, silence), delayed(c.mic, kFrame));
    Canceller suppressed({}, 1);  // the mute waits for a reference too
    EXPECT_EQ(suppressed.feed(c.mic, silence), delayed(c.mic, kFrame));

    Canceller after_echo;
    after_echo.feed(c.mic, c.ref);
    after_echo.feed(c.mic, silence);
    const Pcm again = after_echo.feed(c.mic, silence);
    const Pcm head = part(c.mic, c.mic.size() - kFrame, c.mic.size());
    EXPECT_EQ(part(again, 0, kFrame), head);
    EXPECT_EQ(part(again, kFrame, again.size()), part(c.mic, 0, c.mic.size() - kFrame));
}

TEST(Stream, PiecesGiveWhatTheWholeGives) {
    const Call c = call(4, 24, 300);
    const Pcm whole = Canceller().feed(c.mic, c.ref);
    EXPECT_EQ(whole.size(), 24 * kFrame);
    for (const size_t bytes : {3u, 1022u, 1024u, 1026u, 7000u}) {
        EXPECT_EQ(Canceller().feed(c.mic, c.ref, bytes), whole) << bytes << " bytes";
    }
    Pcm mic = c.mic, ref = c.ref;
    mic.resize(25 * kFrame);
    ref.resize(25 * kFrame);
    const Pcm padded = Canceller().feed(mic, ref);
    EXPECT_EQ(Canceller().feed(c.mic, c.ref, 999, true), padded) << "the end pads with zeros";

    Canceller uneven;
    const size_t lead = 10 * kFrame + 100;
    Pcm out = uneven.feed(part(c.mic, 0, lead), Pcm{});
    EXPECT_TRUE(out.empty()) << "a lone microphone waits";
    out = uneven.feed(part(c.mic, lead, c.mic.size()), c.ref);
    EXPECT_EQ(out, whole);
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
    const Pcm alone_a = Canceller().feed(a.mic, a.ref), alone_b = Canceller().feed(b.mic, b.ref);
    Canceller first, second;
    Pcm out_a, out_b;
    for (size_t at = 0; at < a.mic.size(); at += kFrame) {
        const auto turn = [at](Canceller& canceller, const Call& c, Pcm& out) {
            const Pcm y =
                canceller.feed(part(c.mic, at, at + kFrame), part(c.ref, at, at + kFrame));
            out.insert(out.end(), y.begin(), y.end());
        };
        turn(first, a, out_a);
        turn(second, b, out_b);
    }
    EXPECT_EQ(out_a, alone_a);
    EXPECT_EQ(out_b, alone_b);
}

TEST(Stream, SamplesOf32BitsAreScaledTo16) {
    const Call c = call(19, 30);
    std::vector<int32_t> mic, ref;
    for (const int16_t v : c.mic) mic.push_back(v * 64 + 63);  // 6 bits go, rounding down
    for (const int16_t v : c.ref) ref.push_back(v * 64);
    EXPECT_EQ(Canceller({}, 0, true).feed(mic, ref, 1000), Canceller().feed(c.mic, c.ref));
}

TEST(Stream, ComfortNoiseFillsExactlyTheFirst31ProcessedFrames) {
    const size_t bypassed = 5, muted = 31;
    Call c = call(22, 45);
    std::fill_n(c.ref.begin(), bypassed * kFrame, int16_t{0});
    c.mic = to_pcm(white_noise(23, c.mic.size(), 3000));  // what the mute must not let through
    Canceller canceller({}, 1);
    for (const char* what : {"fresh", "reset"}) {
        const Pcm out = canceller.feed(c.mic, c.ref);
        for (size_t f = 1; f < out.size() / kFrame; ++f) {
            const int loudest = peak(part(out, f * kFrame, (f + 1) * kFrame));
            const bool noise = f >= bypassed && f < bypassed + muted;
            EXPECT_GT(loudest, noise ? 0 : 100) << what << ", frame " << f;
            if (noise) {
                EXPECT_LT(loudest, 30) << what << ", frame " << f;
            }
        }
        canceller.reset();
    }
}

TEST(Stream, RecoversFromWhateverItHeard) {
    const Call c = call(25, 120);
    const size_t second = kSecond / kFrame * kFrame;
    const Pcm zeros(second), stuck(second, int16_t{-32768});
    const Signal noise = white_noise(26, second, 32768);
    const Pcm talk = to_pcm(speech(27, second, kSecond, 2000));
    // A full-scale reference holds the adaptation back for minutes, since its smoothed power falls
    // slowly. A NaN that lodged would silence the output: an endless reduction.
    const struct {
        const char* what;
        Pcm mic, ref;
        double lost;  // dB of reduction at most
    } cases[] = {
        {"digital silence", zeros, zeros, 0.1},
        {"digitally silent microphone beside speech", zeros, talk, 1},
        {"digitally silent microphone beside full scale", zeros, to_pcm(noise), 15},
        {"full scale in both", to_pcm(noise), to_pcm(noise), 15},
        {"a stuck microphone", stuck, to_pcm(noise), 15},
        {"a stuck reference", to_pcm(noise), stuck, 0.1},
    };
    // The last second, when the filter has found the echo again.
    const auto tail = [&](const Pcm& x) { return part(x, x.size() - second, x.size()); };
    const double fresh = erle_db(tail(c.mic), tail(Canceller().feed(c.mic, c.ref)));
    for (const auto& before : cases) {
        Canceller canceller;
        canceller.feed(before.mic, before.ref);
        const double now = erle_db(tail(c.mic), tail(canceller.feed(c.mic, c.ref)));
        EXPECT_GT(now, fresh - before.lost) << before.what;
        EXPECT_LT(now, fresh + 1) << before.what;
    }
}

}  // namespace
