// The canceller's statistics: sums by the frame, decibels when somebody asks.
#include "qel/spu/aec/qel_aec_stats.h"

#include <algorithm>
#include <cmath>

#include "qel/spu/aec/kernels/kernels.hpp"
#include "qel/spu/aec/qel_aec.hpp"

using qel::floats, qel::Meter, qel::Measures, qel::Path;

namespace {

constexpr float kSmoothing = 0.5f;  // s
constexpr float kSilenceDb = -120.0f;
constexpr double kFullScale = 32768.0 * 32768.0;

float decibels(float mean_square) {
    const double db = 10.0 * std::log10(mean_square / kFullScale);  // -infinity for 0
    return std::max(kSilenceDb, static_cast<float>(db));
}

qel_aec_measures readable(const Measures& m) {
    return {decibels(m.mic), decibels(m.ref), decibels(m.out),
            m.leak,          m.speech,        decibels(m.heard) - decibels(m.left)};
}

}  // namespace

namespace qel {

void start_meter(qel_aec* aec) {
    const auto frame_time =
        static_cast<float>(aec->cfg->frame_size) / static_cast<float>(aec->cfg->freqs);
    Meter& meter = instance_of(aec)->meter;
    meter = {};
    meter.rate = 1.0f - std::exp(-frame_time / kSmoothing);
}

void measure_frame(qel_aec* aec, Path path) {
    Meter& meter = instance_of(aec)->meter;
    Measures& now = meter.frame;
    const auto smooth = [&meter](float Measures::*value, uint64_t frames) {
        const float rate = std::max(meter.rate, 1.0f / static_cast<float>(frames));
        meter.smoothed.*value += rate * (meter.frame.*value - meter.smoothed.*value);
    };
    const int32_t n = aec->cfg->frame_size;
    const float mic_before = now.mic;
    now.mic = kernels::mean_square(floats(aec->mic), n);
    now.ref = kernels::mean_square(floats(aec->ref), n);
    // A bypassed frame is the one before, unless that had more than 16 bits.
    now.out = path == Path::kBypassed && !aec->cfg->use_hdr
                  ? mic_before
                  : kernels::mean_square(aec->out->data, n);
    uint64_t& count = path == Path::kBypassed ? meter.bypassed
                      : path == Path::kMuted  ? meter.muted
                                              : meter.processed;
    ++count;
    const uint64_t suppressed = meter.muted + meter.processed;
    for (auto level : {&Measures::mic, &Measures::ref, &Measures::out}) {
        smooth(level, meter.bypassed + suppressed);
    }
    if (path == Path::kBypassed) return;
    if (aec->nlp) {
        now.leak = leak_share(*aec->nlp);
        now.speech = speech_probability(*aec->nlp);
    }
    for (auto estimate : {&Measures::leak, &Measures::speech}) smooth(estimate, suppressed);
    if (path == Path::kMuted) return;
    now.heard = mic_before;
    now.left = now.out;
    for (auto level : {&Measures::heard, &Measures::left}) smooth(level, meter.processed);
}

}  // namespace qel

int32_t qel_aec_get_stats(const qel_aec* aec, qel_aec_stats* stats) {
    if (!aec || !stats) return -1;
    const Meter& meter = static_cast<const qel::Instance*>(aec)->meter;
    *stats = {meter.bypassed, meter.muted, meter.processed, readable(meter.frame),
              readable(meter.smoothed)};
    return 0;
}
