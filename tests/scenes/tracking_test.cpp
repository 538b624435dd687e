// The tracking mode in simulated rooms: each switch gains where it is meant to and costs next to
// nothing elsewhere; the delay is found and not mistaken, and the room's noise stays.
#include <gtest/gtest.h>

#include <bit>

#include "tests/support/canceller.hpp"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/reference_dft.hpp"
#include "tests/support/states.hpp"

namespace {

// Scenes that are many are all played where that is quick; emulated or sanitized, only some.
#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__)
constexpr bool kQuick = true;
#else
constexpr bool kQuick = false;
#endif

/// A far end, alone for five seconds and then for three with a near end; after two seconds the
/// delay or the room changes.
struct Scene {
    double delay = 0.01, rt60 = 0.1, clip = 1e9;  // s, s, sample units
    double then_delay = delay;
    uint32_t room = 13, then_room = room;
};

struct Recording {
    Pcm mic, ref, near_end;
};

Recording record(const Scene& s, int rate) {
    const auto second = static_cast<size_t>(rate), total = 8 * second;
    const auto change = static_cast<ptrdiff_t>(2 * second);
    const Signal ref = speech(11, total, rate, 1000);
    Signal near_end = speech(12, total, rate, 1000);
    std::fill_n(near_end.begin(), 5 * second, 0.0);
    Signal heard = echo(ref, s.clip, room_response(s.room, s.delay, s.rt60, rate));
    if (s.then_delay != s.delay || s.then_room != s.room) {
        const Signal h = room_response(s.then_room, s.then_delay, s.rt60, rate);
        const Signal then = echo(ref, s.clip, h);
        std::copy(then.begin() + change, then.end(), heard.begin() + change);
    }
    return {to_pcm(heard + near_end + white_noise(14, total, 2)), to_pcm(ref), to_pcm(near_end)};
}

struct Figures {         // dB
    double first, late;  // echo reduction in the first second, and from 4 s to 5 s
    NearEnd kept;        // while both talk
};

Figures cancel(const Recording& r, AecSettings settings, const char* tracking) {
    settings.tracking = tracking;
    const auto second = static_cast<size_t>(settings.rate);
    const auto frame = static_cast<size_t>(settings.frame);
    Canceller canceller(settings);
    const Pcm out = canceller.feed(r.mic, r.ref);
    EXPECT_TRUE(all_states(*canceller.get(), is_finite));
    const Pcm mic = delayed(r.mic, frame), target = delayed(r.near_end, frame);
    const auto reduction = [&](size_t from, size_t to) {
        return erle_db(part(mic, from, to), part(out, from, to));
    };
    const size_t talk = 5 * second + second / 2, end = out.size();
    return {reduction(frame, second), reduction(4 * second, 5 * second),
            measure_near_end(part(out, talk, end), part(target, talk, end))};
}

TEST(Tracking, GainsWhereItIsMeantToAndKeepsTheNearEnd) {
    const struct {
        const char *what, *switches;
        Scene scene;
        double first, late;  // dB at least, over the default
        double lost = 0.5;   // dB at most, of the near end and of its ratio to all else
        AecSettings settings = {};
    } cases[] = {
        {"nothing happens", "K", {}, 0, 8},
        {"nothing happens", "A", {}, 0, 0},
        {"nothing happens", "KRAN", {}, 25, 8},
        {"another room", "K", {.delay = 0.02, .room = 20, .then_room = 31}, -4, 12},
        {"another room", "KR", {.delay = 0.02, .room = 20, .then_room = 31}, 2, 15},
        {"another room", "KRA", {.delay = 0.02, .room = 23, .then_room = 34}, -1, 20},
        {"a clipping loudspeaker, where R costs", "KR", {.clip = 3000}, 3, 12, 1.5},
        {"RT60 0.8 s", "KR", {.rt60 = 0.8}, 20, 1},
        {"100 ms: within the filter's reach", "KRA", {.delay = 0.1}, 30, -25},
        {"200 ms", "A", {.delay = 0.2}, 4, 45},
        {"300 ms", "KRA", {.delay = 0.3}, 14, 45},
        {"450 ms", "KRA", {.delay = 0.45}, 25, 45},
        {"100 ms, then 300", "KRA", {.delay = 0.1, .then_delay = 0.3}, 30, 45, 1.5},
        {"450 ms, then 200", "KRA", {.delay = 0.45, .then_delay = 0.2}, 25, 40},
        {"frame 160", "KRA", {.delay = 0.2}, 35, 30, 0.5, {.frame = 160}},
        {"frame 1024", "KRA", {.delay = 0.2}, 14, 5, 0.5, {.frame = 1024}},
        {"8 kHz", "KRA", {.delay = 0.2}, 30, 45, 0.5, {.frame = 256, .rate = 8000}},
        // So long a frame costs near end.
        {"128 ms", "KRA", {.delay = 0.2}, 30, -5, 4, {.frame = 1024, .rate = 8000}},
        {"32 kHz", "KRA", {.delay = 0.2}, 30, 45, 0.5, {.frame = 1024, .rate = 32000}},
        {"5 ms a frame", "KRA", {.delay = 0.2}, 30, 20, 0.5, {.frame = 160, .rate = 32000}},
        {"skipped bins", "KRAN", {.delay = 0.2}, 35, 40, 0.5, {.offset = 20}},
        {"one tap", "KRA", {.delay = 0.2}, 10, 1, 0.5, {.taps = 1}},
        {"no suppressor", "KA", {.delay = 0.2}, 3, 12, 0.5, {.nlp = false}},
        {"no detector", "KRAN", {.delay = 0.2}, 35, 40, 0.5, {.vad = false}},
    };
    for (size_t i = 0; i < std::size(cases); i += kQuick ? 1 : 5) {
        const auto& c = cases[i];
        SCOPED_TRACE(testing::Message() << c.what << ", " << c.switches);
        const Recording r = record(c.scene, c.settings.rate);
        const Figures without = cancel(r, c.settings, nullptr);
        const Figures with = cancel(r, c.settings, c.switches);
        EXPECT_GE(with.first, without.first + c.first);
        EXPECT_GE(with.late, without.late + c.late);
        EXPECT_GE(with.kept.si_sdr_db, without.kept.si_sdr_db - c.lost);
        EXPECT_GE(with.kept.gain_db, without.kept.gain_db - c.lost);
    }
}

TEST(Tracking, ASwitchWithoutTheOneItNeedsChangesNothing) {
    const Recording r = record({.delay = 0.2}, 16000);
    const Pcm mic = part(r.mic, 4 * 16000, 6 * 16000);
    Pcm ref = part(r.ref, 4 * 16000, 6 * 16000);
    std::fill_n(ref.begin(), 16000, int16_t{0});  // time to learn noise
    const struct {
        const char *switches, *same;
        bool nlp;
    } cases[] = {{"", nullptr, true}, {"RN", nullptr, true}, {"KN", "K", true},
                 {"RNA", "A", true},  {"KRN", "K", false},   {"RN", nullptr, false}};
    for (const auto& c : cases) {
        EXPECT_EQ(Canceller({.nlp = c.nlp, .tracking = c.switches}).feed(mic, ref),
                  Canceller({.nlp = c.nlp, .tracking = c.same}).feed(mic, ref))
            << c.switches;
    }
    EXPECT_NE(Canceller({.tracking = "KRN"}).feed(mic, ref),
              Canceller({.tracking = "KR"}).feed(mic, ref));
}

TEST(Tracking, AFilterWithoutBinsIsSure) {
    const Pcm x = to_pcm(white_noise(1, 16000, 5000));
    Canceller canceller({.offset = 600, .tracking = "KRAN"});
    canceller.feed(x, x);
    EXPECT_EQ(canceller.tracking().uncertainty, 0);
    EXPECT_TRUE(all_states(*canceller.get(), is_finite));
}

TEST(Tracking, NeedsLittleMemory) {
    const auto bytes = [](const char* tracking) {
        const FailingAlloc count(INT64_MAX, 0);
        const Canceller canceller({.tracking = tracking});
        return FailingAlloc::bytes();
    };
    EXPECT_EQ(bytes(""), bytes(nullptr));
    EXPECT_LT(bytes("KRAN"), bytes(nullptr) + 150'000);
}

TEST(Tracking, InstancesFedInTurnAreAsAlone) {
    const Recording calls[] = {record({.delay = 0.3}, 16000), record({.room = 20}, 16000)};
    Canceller together[] = {Canceller({.tracking = "KRAN"}), Canceller({.tracking = "KRAN"})};
    Pcm outs[2];
    for (size_t at = 0; at < 8 * 16000; at += 700) {
        for (size_t i : {0u, 1u}) {
            const size_t to = std::min(at + 700, calls[i].mic.size());
            const Pcm out =
                together[i].feed(part(calls[i].mic, at, to), part(calls[i].ref, at, to));
            outs[i].insert(outs[i].end(), out.begin(), out.end());
        }
    }
    for (size_t i : {0u, 1u})
        EXPECT_EQ(outs[i], Canceller({.tracking = "KRAN"}).feed(calls[i].mic, calls[i].ref));
}

TEST(Tracking, TheLastEchoIsTakenToo) {
    constexpr size_t kFrame = 160, kStop = 4 * 16000, kLate = 7200;
    Recording r = record({.delay = 0.45}, 16000);
    std::fill(r.ref.begin() + kStop, r.ref.end(), int16_t{0});
    for (const bool bypass : {true, false}) {
        Canceller canceller({.frame = kFrame, .tracking = "KRA"},
                            [=](qel_aec_cfg& cfg) { cfg.use_bypass = bypass; });
        const Pcm out = canceller.feed(r.mic, r.ref), mic = delayed(r.mic, kFrame);
        const size_t end = kStop + kLate;
        EXPECT_GT(erle_db(part(mic, kStop, end), part(out, kStop, end)), 30) << bypass;
    }
}

TEST(Tracking, NoDelayIsMistaken) {
    constexpr size_t kFrame = 512, kSecond = 16000, kTotal = 4 * kSecond;
    constexpr int kEvery = kQuick ? 1 : 10;
    std::mt19937 random(1);
    int late = 0;
    for (uint32_t room = 0; room < 10; ++room) {
        const Signal ref = speech(40 + room, kTotal, kSecond, 1000);
        const Signal response = room_response(60 + room, 0, 0.02 * (1 + room % 3), kSecond);
        const Pcm far = to_pcm(ref), heard = to_pcm(echo(ref, 1e9, response));
        // In every second room somebody talks at half the echo's level.
        const Signal near_end = speech(80 + room, kTotal, kSecond, room % 2 ? 500 : 1);
        const Signal rest = near_end + white_noise(room, kTotal, 60);
        for (int i = 0; i < 20; ++i) {
            const size_t delay = random() % (kSecond / 2);
            if (i % kEvery != 0) continue;
            const Pcm echo = delayed(heard, delay);
            const Pcm mic = to_pcm(Signal(echo.begin(), echo.end()) + rest);
            Canceller canceller({.nlp = false, .tracking = "A"});
            size_t found_at = kTotal;
            for (size_t at = 0; at < kTotal; at += kFrame) {
                canceller.feed(part(mic, at, at + kFrame), part(far, at, at + kFrame));
                const qel_aec_tracking_stats found = canceller.tracking();
                const size_t from = kFrame * static_cast<size_t>(found.delay_frames);
                const bool covered = from <= delay && delay <= from + 3 * kFrame;
                ASSERT_TRUE(covered || found.delay_changes == 0) << room << ' ' << delay;
                if (covered) found_at = std::min(found_at, at);
            }
            ASSERT_LT(found_at, 2 * kSecond) << room << ' ' << delay;
            late += found_at > kSecond;
        }
    }
    EXPECT_LT(late, 40) << "of 200";
}

/// Median levels of the blocks from `from` to `to`, s, in five bands of an octave, dB.
Signal levels(const Pcm& x, double from, double to) {
    constexpr size_t kBlock = 256;
    Signal bands[5], medians;
    for (auto at = static_cast<size_t>(from * 16000); at < static_cast<size_t>(to * 16000) - kBlock;
         at += 3 * kBlock) {
        Spectrum block;
        for (size_t i = 0; i < kBlock; ++i)
            block.push_back(x[at + i] * std::sin(std::numbers::pi * i / kBlock));
        const Spectrum bins = reference_dft(block);
        for (size_t k = 4; k < 124; ++k) bands[std::bit_width(k) - 3].push_back(std::norm(bins[k]));
    }
    for (Signal& band : bands) {
        std::sort(band.begin(), band.end());
        medians.push_back(10 * std::log10(band[band.size() / 2]));
    }
    return medians;
}

TEST(Tracking, TheRoomsNoiseStays) {
    constexpr size_t kSecond = 16000, kTotal = 12 * kSecond;
    Signal ref = speech(11, kTotal, kSecond, 1000);
    const Signal hiss = white_noise(3, kTotal, 15);
    std::fill_n(ref.begin() + 3 * kSecond, 2 * kSecond, 0.0);  // bypassed
    std::copy_n(hiss.begin(), kSecond, ref.begin() + 8 * kSecond);
    const Signal heard = echo(ref, 1e9, room_response(13, 0.02, 0.1, kSecond));
    for (const double colour : {0.0, 0.9}) {
        Signal noise = white_noise(5, kTotal, 57 * std::sqrt(1 - colour * colour));  // -60 dBFS
        for (size_t i = 1; i < kTotal; ++i) noise[i] += colour * noise[i - 1];
        const Pcm mic = to_pcm(heard + noise), far = to_pcm(ref);
        const Pcm out = Canceller({.tracking = "KRAN"}).feed(mic, far);
        const Pcm gone = Canceller({.tracking = "KRA"}).feed(mic, far);
        const std::pair<double, double> times[] = {{3.5, 4.8}, {5.2, 8}, {8.1, 8.9}, {9, 12}};
        for (const auto& [from, to] : times) {
            const Signal expected = levels(delayed(to_pcm(noise), 512), from, to);
            const Signal kept = levels(out, from, to), lost = levels(gone, from, to);
            for (size_t band = 0; band < expected.size(); ++band) {
                EXPECT_NEAR(kept[band], expected[band], 2.5)
                    << colour << ' ' << from << ' ' << band;
                EXPECT_TRUE(from != 5.2 || lost[band] < expected[band] - 10) << "without it";
            }
        }
    }
}

}  // namespace
