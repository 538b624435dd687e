// What the canceller tells of itself, against the same measures in double.
#include <gtest/gtest.h>

#include <numeric>

#include "tests/support/canceller.hpp"

namespace {

double power(const Pcm& x) {
    return std::inner_product(x.begin(), x.end(), x.begin(), 0.0) / static_cast<double>(x.size());
}

TEST(AecStats, TellCountsLevelsAndEstimates) {
    const struct {
        const char* what;
        AecSettings settings;
        size_t muted;
    } cases[] = {{"defaults", {}, 31},
                 {"no multiple of eight samples", {.frame = 250}, 64},
                 {"no suppressor", {.nlp = false}, 0}};
    for (const auto& c : cases) {
        const auto n = static_cast<size_t>(c.settings.frame);
        const size_t silent = 80;  // frames at the end; the detector takes 15 to notice
        Signal ref = white_noise(1, 200 * n, 3000);
        std::fill_n(ref.begin(), 5 * n, 0.0);
        std::fill_n(ref.rbegin(), silent * n, 0.0);
        const Pcm far = to_pcm(ref),
                  mic = to_pcm(echo(ref, 1e9, {0.5}) + white_noise(2, 200 * n, 900));
        Canceller canceller(c.settings, with_mute);
        for (int round = 0; round < 2; ++round, canceller.reset()) {
            // Mic, ref, out, leak, speech, mic and out of processed frames: the last of each, and
            // an average that becomes an exponential one with a time constant of 0.5 s.
            double last[7] = {}, average[7] = {}, frames[7] = {};
            const auto take = [&](int i, double x) {
                const double decay = std::exp(-c.settings.frame / 16000.0 / 0.5);
                average[i] += std::max(1 - decay, 1 / ++frames[i]) * (x - average[i]);
                last[i] = x;
            };
            for (size_t f = 0, bypassed = 0; f < 200; ++f) {
                const Pcm x = part(mic, f * n, f * n + n), y = part(far, f * n, f * n + n);
                const Pcm out = canceller.feed(x, y);
                const double mic_before = last[0];
                const qel_aec_stats s = canceller.stats();
                take(0, power(x));
                take(1, power(y));
                take(2, power(out));
                const bool bypass = f < 5 || f >= 200 - silent + 14;
                bypassed += bypass;
                if (!bypass) {  // their values are the suppressor's tests' affair
                    take(3, s.frame.leak);
                    take(4, s.frame.speech);
                }
                if (!bypass && f >= 5 + c.muted) {
                    take(5, mic_before);
                    take(6, power(out));
                }
                ASSERT_EQ(s.bypassed, bypassed) << c.what << f;
                ASSERT_EQ(s.muted, std::min(f + 1 - bypassed, c.muted)) << c.what << f;
                ASSERT_EQ(s.processed, f + 1 - bypassed - s.muted) << c.what << f;
                const auto expect = [&](const qel_aec_measures& have, const double* v) {
                    const auto db = [&](int i) {
                        return std::max(-120.0, 10 * std::log10(v[i] / 1073741824.0));
                    };
                    const double want[] = {db(0), db(1), db(2), v[3], v[4], db(5) - db(6)};
                    const float list[] = {have.mic_db, have.ref_db, have.out_db,
                                          have.leak,   have.speech, have.reduction_db};
                    for (int i = 0; i < 6; ++i) ASSERT_NEAR(list[i], want[i], 1e-3) << c.what << i;
                };
                expect(s.frame, last);
                expect(s.smoothed, average);
            }
        }
        EXPECT_EQ(qel_aec_get_stats(canceller.get(), nullptr), -1);
    }
    qel_aec_stats none;
    EXPECT_EQ(qel_aec_get_stats(nullptr, &none), -1);
}

}  // namespace
