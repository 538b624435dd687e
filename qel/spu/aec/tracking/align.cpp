#include "qel/spu/aec/tracking/align.hpp"

#include <algorithm>

namespace qel::tracking {

namespace {

constexpr float kLongest = 0.5f;                       // s that an echo may be late
constexpr float kLowest = 200.0f, kHighest = 4000.0f;  // Hz of the probes
constexpr float kOfRate = 0.4f;                        // and below this share of the sample rate
constexpr int32_t kProbeBins = 40;                     // of kernels::kProbes, the others are silent
constexpr float kGate = 0.1f;                          // of its mean, from where a probe counts
constexpr float kMeanTime = 1.0f, kCrossTime = 1.0f;   // s
constexpr float kEarliest = 0.35f;                     // s before anything is sure
constexpr float kOverMean = 3.0f, kOverOthers = 2.5f;  // of the score, to be sure
constexpr float kEarlier = 0.7f;                       // of the score: as good as the best
constexpr float kFirstWait = 0.1f, kLaterWait = 0.2f;  // s for which a delay is wanted

}  // namespace

int32_t Aligner::lags_of(const Sizes& s) {
    return static_cast<int32_t>(std::ceil(kLongest / s.frame_time)) + 2;
}

void Aligner::start(const Sizes& s) {
    sizes_ = s;
    lags_ = lags_of(s);
    const int32_t top = s.bins - 1;
    const auto low = std::clamp(static_cast<int32_t>(std::lround(kLowest / s.bin_width())), 0, top);
    const float highest = std::min(kHighest, kOfRate * s.rate);
    const auto high = std::clamp(static_cast<int32_t>(highest / s.bin_width()), low, top);
    probes_ = std::min(kProbeBins, high - low + 1);
    for (int32_t i = 0; i < probes_; ++i) {
        bins_[i] = static_cast<float>(low + i * (high - low) / std::max(1, probes_ - 1));
    }
    newest_ = best_ = delay_ = wanted_ = wanted_frames_ = 0;
    frames_ = changes_ = 0;
    clearness_ = 0;
    sure_ = found_ = false;
}

const float* Aligner::before(int32_t age) const {
    const int32_t lag = delay_ + age;
    if (lag >= lags_) return nullptr;
    const int32_t place = (newest_ - lag + lags_) % lags_;
    return ring_ + 2 * sizes_.spectrum_bins() * static_cast<size_t>(place);
}

/// The lag with the best score, or a little earlier one that is as good; notes how sure it is.
int32_t Aligner::find_best() {
    const float* end = score_ + lags_;
    const float* top = std::max_element(static_cast<const float*>(score_), end);
    const auto apart = [&](const float* from, const float* to) {
        const float before =
            from > score_ ? *std::max_element(static_cast<const float*>(score_), from) : 0;
        const float behind = to < end ? *std::max_element(to, end) : 0;
        return std::max(before, behind);
    };
    const float others = apart(std::max<const float*>(score_, top - 2), std::min(end, top + 3));
    clearness_ = others > 0 ? *top / others : 0;

    const float* best = std::max<const float*>(score_, top - 2);
    while (*best <= kEarlier * *top && best < top) ++best;
    const float unlike = apart(std::max<const float*>(score_, best - 2), std::min(end, best + 5));
    float sum = 0;
    for (const float* s = score_; s < end; ++s) sum += *s;
    sure_ = static_cast<float>(frames_) * sizes_.frame_time >= kEarliest &&
            *top * static_cast<float>(lags_) > kOverMean * sum && *top > kOverOthers * unlike;
    return static_cast<int32_t>(best - score_);
}

/// Decides on the delay: one frame less than the echo's, so that its beginning is reached, once it
/// was wanted for a while. An echo up to two frames later is within the filter's reach.
bool Aligner::moves_to(int32_t best) {
    const bool reached = best > delay_ ? best <= delay_ + 2 : best == delay_ && delay_ == 0;
    if (!sure_ || reached) {
        found_ = found_ || sure_;
        wanted_frames_ = 0;
        return false;
    }
    const int32_t delay = std::max(best - 1, 0);
    if (delay != wanted_) wanted_frames_ = 0;
    wanted_ = delay;
    ++wanted_frames_;
    const float wait = found_ ? kLaterWait : kFirstWait;
    if (static_cast<float>(wanted_frames_) * sizes_.frame_time < wait) return false;
    wanted_frames_ = 0;
    found_ = true;
    delay_ = delay;
    ++changes_;
    return true;
}

bool Aligner::align(const float* mic, float* ref) {
    count(&frames_);
    newest_ = (newest_ + 1) % lags_;
    const size_t spectrum = 2 * sizes_.spectrum_bins();
    std::copy_n(ref, spectrum, ring_ + spectrum * static_cast<size_t>(newest_));

    const float share = 1.0f / static_cast<float>(frames_);
    float heard[2 * kernels::kProbes] = {}, played[2 * kernels::kProbes] = {};
    for (int32_t i = 0; i < probes_; ++i) {
        const auto k = static_cast<size_t>(bins_[i]);
        heard[i] = mic[2 * k];
        heard[kernels::kProbes + i] = mic[2 * k + 1];
        played[i] = ref[2 * k];
        played[kernels::kProbes + i] = ref[2 * k + 1];
    }
    kernels::correlate_probes({.mic = heard,
                               .ref = played,
                               .mean = mean_,
                               .past = past_,
                               .cross = cross_,
                               .score = score_,
                               .gate = kGate,
                               .mean_rate = std::max(sizes_.frame_time / kMeanTime, share),
                               .rate = std::max(sizes_.frame_time / kCrossTime, share),
                               .newest = newest_,
                               .lags = lags_});
    best_ = find_best();
    const bool moved = moves_to(best_);
    if (delay_ > 0) std::copy_n(before(0), spectrum, ref);
    return moved;
}

}  // namespace qel::tracking
