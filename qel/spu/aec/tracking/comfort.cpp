#include "qel/spu/aec/tracking/comfort.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace qel::tracking {

namespace {

constexpr float kSmoothing = 0.08f;    // s
constexpr float kBias = 3.0f;          // a mean over its minimum
constexpr float kLearning = 0.3f;      // s of pause before a band's noise is believed
constexpr float kPauseWindow = 1.5f;   // s
constexpr float kAlwaysWindow = 3.0f;  // s
constexpr float kRise = 6.0f;          // dB per second
constexpr uint32_t kSettling = 2;      // first frames, in which the filter knows nothing
constexpr float kUnknown = std::numeric_limits<float>::infinity();
// Frames of unrelated phases lose 3 dB where they overlap.
constexpr float kOverlapLoss = 2.0f;

}  // namespace

void Comfort::start(const Sizes& s) {
    sizes_ = s;
    rate_ = s.rate_of(kSmoothing);
    rise_ = std::pow(10.0f, kRise / 10.0f * s.frame_time);
    for (float* least : {pause_least_, pause_before_, always_least_, always_before_}) {
        std::fill_n(least, s.bins, kUnknown);
    }
    frames_ = window_frames_ = bypassed_ = 0;
    random_ = 1;
}

void Comfort::observe(const float* mic_power, const float* error_power) {
    count(&frames_);
    const int32_t first = sizes_.first;
    const bool settled = frames_ > kSettling;
    const auto count = static_cast<float>(settled ? frames_ - kSettling : 1);
    kernels::observe_noise({.mic_power = mic_power + first,
                            .error_power = error_power + first,
                            .power = power_ + first,
                            .mean = always_ + first,
                            .least = always_least_ + first,
                            .floor = floor_ + first,
                            .rate = std::max(rate_, 1.0f / count),
                            .bias = kBias,
                            .settled = settled},
                           sizes_.filter.bins);
    if (!settled || static_cast<float>(++window_frames_) * sizes_.frame_time < kAlwaysWindow)
        return;
    window_frames_ = 0;
    std::swap(always_before_, always_least_);
    std::copy_n(always_, sizes_.bins, always_least_);
}

void Comfort::observe_pause(const kernels::Bank& bank, int32_t band) {
    const int32_t from = bank.starts[band], n = bank.starts[band + 1] - from;
    seen_[band] += 1;
    kernels::observe_pause({.power = power_ + from,
                            .always_least = always_least_ + from,
                            .always_before = always_before_ + from,
                            .before = pause_before_ + from,
                            .mean = pause_ + from,
                            .least = pause_least_ + from,
                            .floor = floor_ + from,
                            .rate = std::max(rate_, 1.0f / seen_[band]),
                            .bias = kBias,
                            .rise = rise_,
                            .believed = seen_[band] * sizes_.frame_time > kLearning},
                           n);
    window_[band] += 1;
    if (window_[band] * sizes_.frame_time < kPauseWindow) return;
    window_[band] = 0;
    std::copy_n(pause_least_ + from, n, pause_before_ + from);
    std::copy_n(pause_ + from, n, pause_least_ + from);
}

void Comfort::observe_bypassed(const float* spec, const kernels::Bank& bank) {
    for (int32_t k = 0; k < sizes_.bins; ++k) {
        power_[k] = spec[2 * k] * spec[2 * k] + spec[2 * k + 1] * spec[2 * k + 1];
    }
    for (int32_t band = 0; band + 1 < bank.bands; ++band) observe_pause(bank, band);
}

void Comfort::fill(float factor, float speech, const float* share, const float* gain, float* spec) {
    random_ = 1664525u * random_ + 1013904223u;
    const int32_t first = std::max(1, sizes_.first);  // neither the constant nor the highest bin
    kernels::fill_noise({.floor = floor_ + first,
                         .share = share + first,
                         .gain = gain + first,
                         .spec = spec + 2 * first,
                         .factor = factor,
                         .level = kOverlapLoss * std::min(1.0f, 3.0f * (1.0f - speech)),
                         .random = random_},
                        std::max(0, sizes_.bins - 1 - first));
}

}  // namespace qel::tracking
