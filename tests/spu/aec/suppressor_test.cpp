// The suppressor's state, and the start-up mute's length.
#include <gmock/gmock.h>

#include <cfenv>
#include <cmath>

#include "qel/spu/aec/qel_aec.hpp"
#include "tests/support/canceller.hpp"
#include "tests/support/each.hpp"
#include "tests/support/states.hpp"

namespace {

using qel::floats;

/// A second of echo and near end.
void feed_call(Canceller& canceller) {
    const Signal ref = speech(1, 16384, 16000, 2000);
    canceller.feed(to_pcm(echo(ref, 1e9, {0.5}) + speech(2, ref.size(), 16000, 900)), to_pcm(ref));
}

TEST(AecNlp, KeepsItsEstimatesWhereTheyAreRead) {
    Canceller canceller;
    feed_call(canceller);
    const qel_aec& aec = *canceller.get();
    const qel_aec_measures now = canceller.stats().frame;
    EXPECT_FLOAT_EQ(floats(aec.nlp->residual)[9], now.leak * floats(aec.echo_power)[9]);
    // Of each band: what the probability of speech asks for, less where there is hardly an echo.
    const float *floor = floats(aec.nlp->gain_floor), *echo = floats(aec.nlp->echo_noise) + 513;
    const double most = std::pow(10, (-40 + 25 * now.speech) / 20);
    for (int b = 0; b < 24; ++b)
        EXPECT_NEAR(floor[513 + b], most / std::sqrt(1 + 1 / echo[b]), 1e-6) << b;
    EXPECT_EQ(floor[0], floor[513]) << "the first bin lies in the first band";
    for (const float power : {1e12f, 1e15f}) {  // of which at least a hundredth leaks
        floats(aec.echo_power)[0] = power;
        qel_aec_nlp_process(canceller.get());
        const float residual = qel::leak_share(*aec.nlp) * power;
        EXPECT_EQ(floats(aec.nlp->residual)[0], residual < 513e9f ? residual : 0) << power;
    }
}

TEST(AecNlp, AFrameThatIsNotFiniteTeachesNothing) {
    const float huge = 1e25f;  // its square is not finite
    for (const float power : {NAN, INFINITY, huge}) {
        Canceller canceller;
        feed_call(canceller);
        qel_aec_nlp& nlp = *canceller.get()->nlp;
        const float pey = nlp.pey, pyy = nlp.pyy, average = floats(nlp.echo_avg)[0];
        std::vector<float> noise(floats(nlp.echo_noise), floats(nlp.echo_noise) + 513);
        for (float& v : noise) v *= 0.6f;
        floats(canceller.get()->echo_power)[0] = power;
        qel_aec_nlp_process(canceller.get());
        EXPECT_EQ(nlp.pey, pey) << power;
        EXPECT_EQ(nlp.pyy, pyy) << power;
        EXPECT_EQ(floats(nlp.echo_avg)[0], power == huge ? 0.032f * huge : average);
        EXPECT_THAT(noise, testing::ElementsAreArray(floats(nlp.echo_noise), 513)) << power;
    }
}

TEST(AecNlp, NoStateStaysSubnormal) {
    Canceller canceller({.vad = false});
    feed_call(canceller);
    const Pcm silence(20 * 16000);
    std::feclearexcept(FE_ALL_EXCEPT);
    canceller.feed(silence, silence, 1024);
    EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), 0) << "the caller's flags";
    const volatile float tiny = 1e-40f;
    EXPECT_GT(tiny * 0.5f, 0) << "the caller's mode";
    EXPECT_TRUE(
        all_states(*canceller.get(), [](float v) { return std::fpclassify(v) != FP_SUBNORMAL; }));
}

TEST(AecNlp, CountersStop) {
    Canceller canceller({}, [](qel_aec_cfg& cfg) { cfg.mute.mute_time = 1e9f; });
    canceller.get()->nlp->adapt_count = 19990;
    canceller.get()->mute->count = 65533;
    feed_call(canceller);
    EXPECT_EQ(canceller.get()->nlp->adapt_count, 20000);
    EXPECT_EQ(canceller.stats().muted, 2u) << "its counter holds 65535";
}

TEST(AecMute, CountsWholeFramesOfItsTime) {
    const auto frames = [](int16_t rate, int16_t frame, float seconds) {
        qel_aec_mute_cfg cfg{};
        cfg.freqs = rate;
        cfg.frame_size = frame;
        cfg.mute_time = seconds;
        qel_aec_mute_cfg_update(&cfg);
        return cfg.mute_frames;
    };
    EXPECT_EQ(each(frames(16000, 512, 1), frames(16000, 512, 0), frames(8000, 160, 3),
                   frames(16000, 512, -1), frames(16000, 1, 1e9f)),
              "31 0 150 0 4294967295");
}

}  // namespace
