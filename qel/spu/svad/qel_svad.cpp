// Amplitude voice-activity detector: the judgement, and the stream entry on top of it.
#include "qel/spu/svad/qel_svad.h"

#include <cmath>
#include <cstdlib>
#include <span>

#include "qel/core/internal.hpp"
#include "qel/math/simd/sum.hpp"
#include "qel/spu/sigp/frames.hpp"
#include "qel/spu/sigp/qel_sigp.h"
#include "qel/spu/svad/keys.hpp"
#include "qel/spu/svad/qel_svad.hpp"

using qel::kSpeech;

namespace {

constexpr char kSource[] = "qel/spu/svad/qel_svad";
// Lines shown for a queue that lost its frames and for a frame that could not be judged. The names
// of the functions that log them are shown too: renaming one changes its message.
constexpr int32_t kResetLine = 98;
constexpr int32_t kFeedLine = 136;
constexpr int32_t kSilence = QEL_FRAMING_SILENCE;

/// The mean of numbers whose sums are exact: each order of additions gives the same.
float exact_mean(std::span<const float> x) {
    qel::simd::Sum sum;
    qel::simd::by_sixteen(
        static_cast<int32_t>(x.size()),
        [&](int32_t p, int32_t i) QEL_INLINED { sum.parts[p] += qel::simd::load<4>(x.data() + i); },
        [&](int32_t i) QEL_INLINED { sum.rest += x[static_cast<size_t>(i)]; });
    return sum.total() / static_cast<float>(x.size());
}

/// Mean absolute distance of `x` from its own mean, in the units of `x`.
float deviation(std::span<const float> x, float mean) {
    qel::simd::Sum sum;
    qel::simd::by_sixteen(
        static_cast<int32_t>(x.size()),
        [&](int32_t p, int32_t i) QEL_INLINED {
            sum.parts[p] += qel::simd::magnitude(qel::simd::load<4>(x.data() + i) - mean);
        },
        [&](int32_t i) QEL_INLINED { sum.rest += std::fabs(x[static_cast<size_t>(i)] - mean); });
    return sum.total() / static_cast<float>(x.size());
}

/// Extends or breaks a run; true, with the run over, when it reaches `limit`.
bool run_done(int32_t limit, bool extends, int32_t* run) {
    *run = extends ? *run + 1 : 0;
    if (!extends || *run < limit) return false;
    *run = 0;
    return true;
}

/// The state after a window of deviation `d`.
int32_t judge(qel_svad* det, float d) {
    const qel_svad_cfg& cfg = *det->cfg;
    // Two comparisons, not one negated: a NaN window neither ends speech nor starts it.
    if (det->state == kSpeech) {
        if (run_done(cfg.spe2sil_num, d <= cfg.amp_thresh, &det->quiet_run)) det->state = kSilence;
    } else {
        if (run_done(cfg.sil2spe_num, d > cfg.amp_thresh, &det->loud_run)) det->state = kSpeech;
    }
    return det->state;
}

/// Samples in the window; none for a length that makes no sense.
uint32_t window_len(const qel_svad_cfg& cfg) {
    return cfg.frame_len > 0 ? 2 * static_cast<uint32_t>(cfg.frame_len) : 0;
}

/// Makes window and framing on first use; false when either cannot be had.
bool open_stream(qel_svad* det) {
    if (det->framing) return true;
    const uint32_t n = window_len(*det->cfg);
    if (!det->window) det->window = qel_vector_float32_new(n);
    if (!det->window) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return false;
    }
    qel_vector_union window{det->window, QEL_VECTOR_FLOAT32};
    qel_sigp_hanning_window_with_sqrt(&window, n);
    det->framing = qel_framing_new(&det->cfg->framing);
    return det->framing != nullptr;
}

/// Attaches the windowed samples and judges them; -1 when memory runs out. Only the rising half of
/// the window is used, on one frame: thresholds are tuned to the level this gives.
int32_t window_and_judge(qel_svad* det, qel_framing_frame* frame) {
    const uint32_t n = window_len(*det->cfg) / 2;
    frame->windowed = qel_vector_float32_new(n);
    if (!frame->windowed) return -1;
    for (uint32_t i = 0; i < n; ++i) {
        const int16_t sample = i < frame->samples->len ? frame->samples->data[i] : 0;
        frame->windowed->data[i] = sample * det->window->data[i];
    }
    return qel_svad_judge_frame(det, frame);
}

}  // namespace

int32_t qel_svad_cfg_init(qel_svad_cfg* cfg) {
    qel::set_defaults(qel::kSvadKeys, cfg);
    return qel_framing_cfg_init(&cfg->framing);
}

int32_t qel_svad_cfg_update_local(qel_svad_cfg* cfg, const qel_config_items* section) {
    qel::read_keys(section, qel::kSvadKeys, cfg);
    return qel_framing_cfg_update_local(&cfg->framing, section);
}

int32_t qel_svad_cfg_update(qel_svad_cfg* cfg, const qel_source_loader* loader) {
    return qel_framing_cfg_update(&cfg->framing, loader);
}

int32_t qel_svad_cfg_clean(qel_svad_cfg* cfg) { return qel_framing_cfg_clean(&cfg->framing); }

qel_svad* qel_svad_new(const qel_svad_cfg* cfg) {
    auto det = qel::make_zeroed<qel_svad>();
    if (!det) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return nullptr;
    }
    det->cfg = cfg;
    return det.release();
}

void qel_svad_reset(qel_svad* det) {
    if (!det) return;
    det->state = kSilence;
    det->quiet_run = det->loud_run = 0;
    if (!det->framing) return;
    while (det->frames.count > 0) {
        qel_queue_node* link = qel_queue_pop_head(&det->frames);
        if (!link) {
            QEL_LOG_AT(QEL_LOG_ERROR, kResetLine, "never be here.");
            std::abort();
        }
        auto* frame = qel::frame_of<qel_framing_frame>(link);
        if (frame->release) frame->release(frame->owner, frame);
    }
    det->frames = {};
}

void qel_svad_delete(qel_svad* det) {
    if (!det) return;
    qel_svad_reset(det);
    qel_vector_float32_delete(det->window);
    qel_framing_delete(det->framing);
    std::free(det);
}

int32_t qel::svad_judge_count(qel_svad* det, const float* samples, uint32_t n) {
    return judge(det, deviation({samples, n}, qel_vector_float32_avg_nval_c(samples, n)));
}

int32_t qel::svad_judge_pcm(qel_svad* det, const float* samples, uint32_t n) {
    constexpr uint32_t kExact = 512;  // 16-bit samples add up to 2^24 at most, and no sum rounds
    if (n > kExact) return svad_judge_count(det, samples, n);
    return judge(det, deviation({samples, n}, exact_mean({samples, n})));
}

int32_t qel_svad_judge(qel_svad* det, const float* samples) {
    return qel::svad_judge_count(det, samples, window_len(*det->cfg));
}

int32_t qel_svad_judge_frame(qel_svad* det, qel_framing_frame* frame) {
    qel_vector_float32* x = frame->windowed;
    if (!x) return 0;
    frame->tag = static_cast<uint16_t>(qel::svad_judge_count(det, x->data, x->len));
    frame->judged = x;
    frame->windowed = nullptr;
    return 0;
}

int32_t qel_svad_feed_data(qel_svad* det, const void* bytes, uint32_t len, int32_t flush) {
    if (!open_stream(det)) return -1;
    qel_framing_feed(det->framing, bytes, len, flush);
    qel_framing_frame* frame = qel_framing_pop(det->framing);
    if (!frame) return -1;
    for (; frame; frame = qel_framing_pop(det->framing)) {
        const int32_t failed = window_and_judge(det, frame);
        if (failed) {
            QEL_LOG_AT(QEL_LOG_WARNING, kFeedLine, "feed svad failed.");
            qel_framing_push(det->framing, frame);
            return failed;
        }
        frame->owner = det;
        frame->release = qel_svad_frame_release;
        qel_queue_push_back(&det->frames, &frame->queue_link);
    }
    return 0;
}

void qel_svad_frame_release(void* det, qel_framing_frame* frame) {
    qel_framing* framing = static_cast<qel_svad*>(det)->framing;
    if (!framing) return;
    const bool judged = frame->tag != QEL_FRAMING_UNJUDGED;
    qel_vector_float32_delete(judged ? frame->judged : frame->windowed);
    qel_framing_push(framing, frame);
}
