// What the canceller achieves in simulated rooms: echo taken out, near end kept.
#include <gtest/gtest.h>

#include "tests/support/canceller.hpp"

namespace {

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
