// Start-up mute: its configuration, and pink comfort noise by the frame.
#include "qel/spu/aec/qel_aec_mute.h"

#include <algorithm>
#include <cmath>

#include "qel/core/internal.hpp"
#include "qel/spu/aec/keys.hpp"
#include "qel/spu/aec/qel_aec.hpp"
#include "qel/spu/aec/qel_aec_nlp.h"

namespace {

constexpr char kSource[] = "qel/spu/aec/qel_aec_mute";
constexpr int32_t kNumStates = 7;

/// One sample through a bank of first-order lowpasses whose sum falls by 3 dB per octave.
float pink_sample(float w, float* b) {
    b[0] = static_cast<float>(0.99886 * b[0] + 0.0555179 * w);
    b[1] = static_cast<float>(0.99332 * b[1] + 0.0750759 * w);
    b[2] = static_cast<float>(0.969 * b[2] + 0.153852 * w);
    b[3] = static_cast<float>(0.8665 * b[3] + 0.3104856 * w);
    b[4] = static_cast<float>(0.55 * b[4] + 0.5329522 * w);
    b[5] = static_cast<float>(-0.7616 * b[5] - 0.016898 * w);
    // Only the slowest state counts, seven times: this noise is darker than pink, and devices are
    // tuned to its sound.
    const float sample = static_cast<float>(7.0 * b[0] + 0.5362 * w);
    b[6] = static_cast<float>(0.115926 * w);
    return sample;
}

}  // namespace

int32_t qel_aec_mute_cfg_init(qel_aec_mute_cfg* cfg) {
    cfg->num_states = kNumStates;
    cfg->mute_frames = 0;
    cfg->noise_gain = 2.0f;
    qel::set_defaults(qel::kMuteKeys, cfg);
    return 0;
}

int32_t qel_aec_mute_cfg_update_local(qel_aec_mute_cfg* cfg, qel_config_items* section) {
    qel::read_keys(section, qel::kMuteKeys, cfg);
    return 0;
}

int32_t qel_aec_mute_cfg_update(qel_aec_mute_cfg* cfg) {
    const float frames =
        static_cast<float>(cfg->freqs) * cfg->mute_time / static_cast<float>(cfg->frame_size);
    constexpr float kLimit = 4294967296.0f;
    cfg->mute_frames = frames >= kLimit ? UINT32_MAX
                       : frames > 0.0f  ? static_cast<uint32_t>(frames)
                                        : 0;
    return 0;
}

int32_t qel_aec_mute_cfg_clean(qel_aec_mute_cfg*) { return 0; }

qel_aec_mute* qel_aec_mute_new(const qel_aec_mute_cfg* cfg) {
    auto mute = qel::make_zeroed<qel_aec_mute>();
    const uint32_t n = static_cast<uint32_t>(cfg->frame_size);
    const uint32_t num_states = static_cast<uint32_t>(std::max(cfg->num_states, kNumStates));
    if (!mute || !qel::make_floats(&mute->white, n) || !qel::make_floats(&mute->noise, n) ||
        !qel::make_floats(&mute->states, num_states)) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        qel_aec_mute_delete(mute.release());
        return nullptr;
    }
    mute->cfg = cfg;
    qel_aec_mute_init(mute.get());
    return mute.release();
}

void qel_aec_mute_init(qel_aec_mute* mute) {
    mute->count = 0;
    qel::clear(mute->white);
}

void qel_aec_mute_delete(qel_aec_mute* mute) {
    if (!mute) return;
    for (qel_vector_union* u : {&mute->white, &mute->noise, &mute->states}) {
        qel_vector_union_clean(u);
    }
    std::free(mute);
}

namespace qel {

bool mute_frame(qel_aec_mute* mute, float* out) {
    // The counter has 16 bits; a longer mute ends where it would wrap.
    const uint32_t limit = std::min<uint32_t>(mute->cfg->mute_frames, UINT16_MAX);
    if (mute->count >= limit) return false;
    ++mute->count;

    const auto n = static_cast<uint32_t>(mute->cfg->frame_size);
    float* white = floats(mute->white);
    float* noise = floats(mute->noise);
    float* states = floats(mute->states);
    clear(mute->states);  // every frame starts anew: equal random numbers give equal frames
    RandFrame(white, static_cast<int32_t>(n));
    for (uint32_t i = 0; i < n; ++i) noise[i] = pink_sample(white[i], states);
    for (uint32_t i = 0; i < n; ++i) out[i] = noise[i] * mute->cfg->noise_gain;
    return true;
}

}  // namespace qel
