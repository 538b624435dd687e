// The suppressor's filter bank and its helpers, and the start-up mute.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "qel/spu/aec/qel_aec.h"

namespace {

const float* floats(const qel_vector_union& u) {
    return static_cast<const qel_vector_float32*>(u.vec)->data;
}

TEST(AecNlp, PutsBinsBetweenTwoBarkBands) {
    qel_aec_nlp_cfg cfg;
    qel_aec_nlp_cfg_init(&cfg);
    qel_aec_nlp* nlp = qel_aec_nlp_new(&cfg);
    const struct {
        int bin, left;
        double right_weight, tolerance;
    } cases[] = {{0, 0, 0, 0}, {100, 12, 0.509, 5e-4}, {511, 22, 0.989, 5e-4}, {512, 22, 1, 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(nlp->band_left->data[c.bin], c.left) << c.bin;
        EXPECT_EQ(nlp->band_right->data[c.bin], c.left + 1) << c.bin;
        EXPECT_NEAR(floats(nlp->weight_right)[c.bin], c.right_weight, c.tolerance) << c.bin;
        EXPECT_NEAR(floats(nlp->weight_left)[c.bin], 1 - c.right_weight, c.tolerance) << c.bin;
    }
    qel_aec_nlp_delete(nlp);
}

TEST(AecNlp, TopBinLandsOnTheLastBandAtEverySize) {
    for (const auto& [freqs, frame, bands] : {std::array<int, 3>{16000, 480, 24},
                                              {16000, 160, 24},
                                              {11025, 512, 20},
                                              {8000, 2048, 31},
                                              {32000, 320, 12}}) {
        qel_aec_nlp_cfg cfg;
        qel_aec_nlp_cfg_init(&cfg);
        cfg.freqs = static_cast<int16_t>(freqs);
        cfg.frame_size = static_cast<int16_t>(frame);
        cfg.nb_banks = static_cast<int16_t>(bands);
        qel_aec_nlp_cfg_update(&cfg);
        qel_aec_nlp* nlp = qel_aec_nlp_new(&cfg);
        EXPECT_EQ(nlp->band_right->data[frame], bands - 1) << frame;
        EXPECT_NEAR(floats(nlp->weight_right)[frame], 1.0f, 1e-5) << frame;
        qel_aec_nlp_delete(nlp);
    }
}

TEST(AecNlp, FilterBankSpreadsAndInterpolatesWithTheSameWeights) {
    const int16_t left[] = {0, 0, 1}, right[] = {1, 1, 2};
    const float weight_left[] = {1, 0.25f, 0.5f}, weight_right[] = {0, 0.75f, 0.5f};
    const float ps[] = {1, 4, 8};
    float bands[3] = {9, 9, 9}, back[3];
    FilterbankComputeBank32(ps, bands, left, right, weight_left, weight_right, 3, 3);
    EXPECT_EQ(std::vector<float>(bands, bands + 3), (std::vector<float>{2, 7, 4}));
    FilterbankComputePsd16(bands, back, left, right, weight_left, weight_right, 3);
    EXPECT_EQ(std::vector<float>(back, back + 3), (std::vector<float>{2, 5.75f, 5.5f}));
}

TEST(AecNlp, HypergeometricGainInterpolatesItsTable) {
    const struct {
        float x;
        double gain;
    } cases[] = {{-0.1f, 1},
                 {0, 82.157},
                 {0.25f, 0.92087 / std::sqrt(0.2501)},
                 {9.9f, (0.2 * 3.12431 + 0.8 * 3.20326) / std::sqrt(9.9001)},
                 {10.5f, 1 + 0.1296 / 10.5},
                 {1e30f, 1},
                 {NAN, 1}};
    for (const auto& c : cases) EXPECT_NEAR(HypergeomGain(c.x), c.gain, 2e-6 * c.gain) << c.x;
}

TEST(AecNlp, WhiteNoiseFillsItsRangeInThousandths) {
    std::vector<float> noise(20001, 7.0f);
    RandFrame(noise.data(), 20000);
    EXPECT_EQ(noise.back(), 7.0f);
    noise.pop_back();
    EXPECT_EQ(*std::min_element(noise.begin(), noise.end()), -0.5f);
    EXPECT_EQ(*std::max_element(noise.begin(), noise.end()), 0.499f);
}

TEST(AecMute, CountsWholeFramesOfItsTime) {
    const struct {
        int freqs, frame;
        float seconds;
        uint32_t frames;
    } cases[] = {{16000, 512, 1, 31},
                 {16000, 512, 0, 0},
                 {8000, 160, 3, 150},
                 {16000, 512, -1, 0},
                 {16000, 1, 1e9f, UINT32_MAX}};
    for (const auto& c : cases) {
        qel_aec_mute_cfg cfg{};
        qel_aec_mute_cfg_init(&cfg);
        cfg.freqs = static_cast<int16_t>(c.freqs);
        cfg.frame_size = static_cast<int16_t>(c.frame);
        cfg.mute_time = c.seconds;
        qel_aec_mute_cfg_update(&cfg);
        EXPECT_EQ(cfg.mute_frames, c.frames) << c.seconds;
    }
}

}  // namespace
