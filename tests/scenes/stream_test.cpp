// The canceller as a stream: echo taken out and near end kept in simulated rooms; what comes out
// does not depend on how it is fed, what ran before or what runs beside it, bit for bit.
#include <gtest/gtest.h>

#include "tests/support/canceller.hpp"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/states.hpp"

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
    Canceller direct({}, [](qel_aec_cfg& cfg) { cfg.use_bypass = 0; });
    direct.feed(c.mic, silence);
    EXPECT_EQ(direct.stats().bypassed, 0u);

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
    Canceller uncounted;
    const void* out = qel_aec_feed_data(uncounted.get(), c.mic.data(), 24 * 1024, c.ref.data(),
                                        24 * 1024, 0, nullptr);
    EXPECT_EQ(std::memcmp(out, whole.data(), 24 * 1024), 0);
    for (const size_t bytes : {3u, 1022u, 1024u, 1026u, 7000u})
        EXPECT_EQ(Canceller().feed(c.mic, c.ref, bytes), whole) << bytes << " bytes";
    EXPECT_EQ(Canceller({.tracking = "KRAN"}).feed(c.mic, c.ref, 999),
              Canceller({.tracking = "KRAN"}).feed(c.mic, c.ref));
    Call padded = c;  // as the end does, with zeros
    padded.mic.resize(25 * kFrame);
    padded.ref.resize(25 * kFrame);
    EXPECT_EQ(Canceller().feed(c.mic, c.ref, 999, true), Canceller().feed(padded.mic, padded.ref));
    padded.mic.resize(24 * kFrame);  // an end that nothing waits for
    padded.ref.resize(24 * kFrame);
    EXPECT_EQ(Canceller().feed(padded.mic, padded.ref, 1024, true), whole);

    constexpr size_t lead = 10 * kFrame + 100;
    const auto rest = [](const Pcm& x) { return part(x, lead, x.size()); };
    Canceller mic_first, ref_first;  // which do not meet either
    EXPECT_TRUE(mic_first.feed(part(c.mic, 0, lead), {}).empty()) << "a lone signal waits";
    EXPECT_TRUE(ref_first.feed({}, part(c.ref, 0, lead)).empty());
    EXPECT_EQ(mic_first.feed(rest(c.mic), c.ref), whole);
    EXPECT_EQ(ref_first.feed(c.mic, rest(c.ref)), whole);
}

TEST(Stream, ResetGivesAFreshCanceller) {
    const Call before = call(7, 50, 77), c = call(10, 60);
    // So quiet that a detector of windowed frames still hears it, but would not begin to.
    const Call faint{c.mic, to_pcm(white_noise(5, c.ref.size(), 10.6))};
    // An echo that comes late, of a reference that begins twice, in a room with noise.
    Call late = call(10, 150);
    for (const size_t from : {0u, 80u})
        std::fill_n(late.ref.begin() + from * kFrame, 40 * kFrame, 0);
    const Signal mic(late.mic.begin(), late.mic.end());
    late.mic = delayed(to_pcm(mic + white_noise(12, mic.size(), 60)), 5000);
    for (const Call& then : {c, faint, late}) {
        for (const AecSettings& s :
             {AecSettings{}, {.nlp = false}, {.vad = false}, {.tracking = "KRAN"}}) {
            Canceller used(s);
            used.feed(delayed(before.mic, 5000), before.ref);
            EXPECT_EQ(used.tracking().delay_frames > 0, s.tracking != nullptr);
            used.feed(before.mic, {});  // waits for its reference in vain
            used.reset();
            Canceller fresh(s);
            EXPECT_EQ(used.feed(then.mic, then.ref), fresh.feed(then.mic, then.ref));
            EXPECT_EQ(used.tracking().path_changes, fresh.tracking().path_changes);
            EXPECT_EQ(used.tracking().delay_changes, fresh.tracking().delay_changes);
        }
    }
}

/// In whole numbers of 32 bits, `factor` times as large, and a bit more.
std::vector<int32_t> widened(const Signal& x, double factor, double more = 0) {
    std::vector<int32_t> wide;
    for (const double v : x)
        wide.push_back(static_cast<int32_t>(std::clamp(v * factor + more, -0x1p31, 0x1p31 - 1)));
    return wide;
}

TEST(Stream, SamplesOf32BitsAreScaledTo16) {
    const Call c = call(19, 30);
    Canceller wide({}, [](qel_aec_cfg& cfg) { cfg.use_hdr = 1; });
    const Signal mic(c.mic.begin(), c.mic.end()), ref(c.ref.begin(), c.ref.end());
    // 6 bits go, rounding down.
    EXPECT_EQ(wide.feed(widened(mic, 64, 63), widened(ref, 64), 1000),
              Canceller().feed(c.mic, c.ref));
}

TEST(Stream, LoudSamplesOf32BitsDoNotDeafenItForEver) {
    // A filter that learned a loud echo of a soft reference meets a loud one.
    Signal ref = speech(1, 8 * kSecond, kSecond, 3000);
    for (size_t i = 0; i < 2 * kSecond; ++i) ref[i] *= i < kSecond ? 10 : 11000;
    Signal mic = echo(ref, 1e18, room_response(2, 0.01, 0.05, kSecond));
    for (size_t i = 0; i < kSecond; ++i) mic[i] *= 1100;
    for (const int16_t gain : {12, 24}) {
        for (const char* tracking : {"", "KRAN"}) {
            Canceller canceller({.tracking = tracking}, [gain](qel_aec_cfg& cfg) {
                cfg.use_hdr = 1;
                cfg.hdr_gain_db = gain;
            });
            canceller.feed(widened(mic, 16), widened(ref, 16));
            EXPECT_GT(canceller.stats().smoothed.reduction_db, 25) << gain << ' ' << tracking;
        }
    }
}

TEST(Stream, ComfortNoiseFillsExactlyTheFirst31ProcessedFrames) {
    const size_t bypassed = 5, muted = 31;
    // Twice the frame, in the main section alone: as many frames, each filled.
    for (const size_t scale : {1u, 2u}) {
        Canceller canceller({}, [scale](qel_aec_cfg& cfg) {
            with_mute(cfg);
            cfg.frame_size = static_cast<int16_t>(scale * kFrame);
        });
        Call c = call(22, scale * 45);
        std::fill_n(c.ref.begin(), scale * bypassed * kFrame, int16_t{0});
        c.mic = to_pcm(white_noise(23, c.mic.size(), 3000));  // what the mute must not let through
        for (const char* what : {"fresh", "reset"}) {
            const Pcm out = canceller.feed(c.mic, c.ref);
            for (size_t at = scale; at < 45 * scale; ++at) {
                const Pcm x = part(out, at * kFrame, (at + 1) * kFrame);
                const auto [low, high] = std::minmax_element(x.begin(), x.end());
                const size_t frame = at / scale;
                const bool noise = frame >= bypassed && frame < bypassed + muted;
                EXPECT_GT(*high - *low, noise ? 0 : 100) << what << ", frame " << frame;
                EXPECT_LT(*high - *low, noise ? 60 : 65535) << what << ", frame " << frame;
            }
            canceller.reset();
        }
    }
}

TEST(Stream, ComfortNoiseForgetsTheFrameBefore) {
    Canceller canceller({}, with_mute);
    const Pcm loud = to_pcm(white_noise(24, kFrame, 9000));
    Signal white(kFrame);
    srand(1);
    for (double& w : white) w = rand() % 1000 / 1000.0 - 0.5;
    for (int round = 0; round < 2; ++round) {
        srand(1);
        const Pcm out = canceller.feed(loud, loud);
        double slow = 0;  // darker than pink: the slowest state alone, seven times
        for (size_t i = 0; i < kFrame; ++i) {
            slow = 0.99886 * slow + 0.0555179 * white[i];
            EXPECT_NEAR(out[i], 2 * (7 * slow + 0.5362 * white[i]), 1) << i;
        }
    }
}

TEST(Stream, ALostFrameTakesItsPartnerAlong) {
    const Call c = call(31, 12);
    // A call of three frames needs memory for two of each signal, a record and its samples each.
    const struct {
        int allowed, refused;
        size_t lost, count;  // pairs of that call
    } cases[] = {{0, 1, 1, 1}, {3, 1, 2, 1}, {4, 1, 1, 1}, {7, 1, 2, 1}, {2, 2, 1, 2}};
    for (const auto& l : cases) {
        const auto without = [&l](Pcm x) {
            const auto from = x.begin() + static_cast<ptrdiff_t>(l.lost * kFrame);
            x.erase(from, from + static_cast<ptrdiff_t>(l.count * kFrame));
            return x;
        };
        const Pcm want = Canceller().feed(without(c.mic), without(c.ref));
        for (const uint32_t counted : {0u, UINT32_MAX - 2}) {
            const LogCapture log;
            Canceller canceller;
            canceller.get()->mic_sep->counter = canceller.get()->ref_sep->counter = counted;
            FailingAlloc refuse(l.allowed, l.refused);
            EXPECT_EQ(canceller.feed(c.mic, c.ref, 3 * 1024), want) << l.allowed << ' ' << counted;
        }
    }
}

TEST(Stream, RecoversFromWhateverItHeard) {
    const Call c = call(25, 480);
    const size_t second = kSecond / kFrame * kFrame;
    const Pcm zeros(second), stuck(second, int16_t{-32768}),
        noise = to_pcm(white_noise(26, second, 32768));
    const Signal voice = speech(27, second, kSecond, 2000);
    const Pcm talk = to_pcm(voice), offset(second, int16_t{9000});
    Signal inverse = voice, sine = voice;
    for (size_t i = 0; i < second; ++i) {
        inverse[i] = -voice[i];
        sine[i] = 9000 * std::sin(0.3 * static_cast<double>(i));
    }
    const Pcm against = to_pcm(inverse), tone = to_pcm(sine);
    // A full-scale reference holds the default adaptation back for minutes, since its smoothed
    // power falls slowly; the tracking mode is over it after ten seconds. A NaN that lodged would
    // silence the output: an endless reduction.
    const struct {
        const char* what;
        const Pcm &mic, &ref;
        double lost;  // dB of reduction at most, by default
    } cases[] = {{"digital silence", zeros, zeros, 0.1},
                 {"digitally silent microphone beside speech", zeros, talk, 1},
                 {"digitally silent microphone beside full scale", zeros, noise, 12},
                 {"full scale in both", noise, noise, 12},
                 {"a stuck microphone", stuck, noise, 12},
                 {"a stuck reference", noise, stuck, 0.1},
                 {"a constant in both", offset, offset, 0.1},
                 {"a constant microphone", offset, talk, 0.1},
                 {"a tone", tone, tone, 1},
                 {"the reference itself", talk, talk, 1},
                 {"the reference inverted", against, talk, 1}};
    // The last second, when the filter has found the echo again.
    const auto reduction = [&](Canceller& canceller) {
        const Pcm out = canceller.feed(c.mic, c.ref);
        const size_t from = out.size() - second;
        return erle_db(part(c.mic, from, out.size()), part(out, from, out.size()));
    };
    for (const char* tracking : {"", "KRA"}) {
        Canceller fresh({.tracking = tracking});
        const double best = reduction(fresh);
        for (const auto& before : cases) {
            Canceller canceller({.tracking = tracking});
            canceller.feed(before.mic, before.ref);
            EXPECT_TRUE(all_states(*canceller.get(), is_finite)) << before.what;
            const double gained = reduction(canceller) - best;
            EXPECT_GT(gained, *tracking ? -0.5 : -before.lost) << before.what;
            EXPECT_LT(gained, 8) << before.what;
        }
    }
}

TEST(Scene, EchoGoesAndNearEndStays) {
    constexpr double kLinear = 1e9, kHard = 1000;  // loudspeaker limits; the far end has rms 1000
    const struct {
        const char* what;
        AecSettings settings;
        double delay, rt60, clip;  // s, s, sample units
        double erle, late_erle;    // dB at least, at 1-3 s and 3-5 s of echo alone
        double si_sdr;             // dB at least, while both talk; about 0 goes in
        double gain;               // dB at least, of the near end while both talk
    } cases[] = {
        {"no delay", {}, 0, 0.1, kLinear, 40, 40, 14, -1},
        {"20 ms", {}, 0.02, 0.1, kLinear, 40, 32, 12.5, -1},
        {"100 ms: at the edge of the four taps", {}, 0.1, 0.1, kLinear, 40, 40, 12, -1.2},
        {"RT60 0.4 s: the tail outlasts the filter", {}, 0, 0.4, kLinear, 36, 27, 12.5, -1},
        {"clipping loudspeaker", {}, 0, 0.1, kHard, 12, 9, 11.5, -1},
        {"frame 160", {.frame = 160}, 0, 0.05, kLinear, 40, 40, 12.5, -1},
        {"frame 1024", {.frame = 1024}, 0.02, 0.1, kLinear, 40, 40, 11.5, -1.3},
        {"8 kHz", {.frame = 256, .rate = 8000}, 0.02, 0.1, kLinear, 40, 33, 10, -1.5},
        {"filter alone", {.nlp = false}, 0.02, 0.1, kLinear, 14.5, 14.5, 11.5, -1}};
    for (const auto& c : cases) {
        const size_t second = static_cast<size_t>(c.settings.rate), total = 8 * second;
        const Signal ref = speech(11, total, c.settings.rate, 1000);
        Signal near_end = speech(12, total, c.settings.rate, 1000);
        std::fill_n(near_end.begin(), 5 * second, 0.0);
        const Signal response = room_response(13, c.delay, c.rt60, c.settings.rate);
        const Pcm raw = to_pcm(echo(ref, c.clip, response) + near_end + white_noise(14, total, 2));

        const Pcm out = Canceller(c.settings).feed(raw, to_pcm(ref));
        const Pcm mic = delayed(raw, static_cast<size_t>(c.settings.frame));
        const Pcm target = delayed(to_pcm(near_end), static_cast<size_t>(c.settings.frame));
        const auto erle = [&](size_t from, size_t to) {
            return erle_db(part(mic, from, to), part(out, from, to));
        };
        const size_t talk = 5 * second + second / 2, end = out.size();
        const NearEnd kept = measure_near_end(part(out, talk, end), part(target, talk, end));
        EXPECT_GE(erle(second, 3 * second), c.erle) << c.what;
        EXPECT_GE(erle(3 * second, 5 * second), c.late_erle) << c.what;
        EXPECT_GE(kept.si_sdr_db, c.si_sdr) << c.what;
        EXPECT_TRUE(kept.gain_db >= c.gain && kept.gain_db <= 0.5) << c.what << kept.gain_db;
    }
}

}  // namespace
