#include "qel/spu/aec/tracking/kalman.hpp"

#include <algorithm>
#include <numeric>

namespace qel::tracking {

namespace {

constexpr float kStep = 0.5f;          // share of the full Kalman step
constexpr float kForgetting = 0.998f;  // of a variance, in 32 ms
// The lowest bins hear few periods in a frame: their path depends on the phase, and is never known
// for long.
constexpr float kLowEnd = 300.0f;          // Hz
constexpr float kLowFeed = 4.0f;           // times as much forgotten at 0 Hz, in addition
constexpr float kNoiseSmoothing = 0.8f;    // in 32 ms
constexpr float kVarianceFloor = 0.05f;    // of the prior
constexpr float kVarianceCeiling = 12.0f;  // of the prior

constexpr double kPriorTime = 2.0;      // s: memory of the means
constexpr float kPriorUseTime = 20.0f;  // s: how slowly the prior in use follows
constexpr float kPriorFallTime = 1.0f;  // s: and how slowly when it stands far too high
constexpr double kPriorMost = 1e4;
constexpr double kSilent = 1e-3;  // of the reference's mean
// Before a fifth of a second is over the means are those of a few frames, of which the first may
// have a reference that barely begins: more than an echo as loud as its reference is not believed.
constexpr double kPriorEarlyTime = 0.2, kPriorEarlyMost = 1.0;
constexpr double kSettledTime = 0.5, kPeakMost = 8.0;  // then a peak counts as so many means

constexpr float kHeardFrom = 300.0f;      // Hz: lower bins tell little of a change
constexpr float kChangeSmoothing = 0.7f;  // in 32 ms
constexpr float kChangeRatio = 1.1f;      // error to microphone
constexpr float kExcessSmoothing = 0.5f;  // in 32 ms
constexpr float kExcessMost = 0.3f;
constexpr float kFaint = 0.05f;         // of its mean: a microphone that tells no excess
constexpr float kCalmTime = 0.3f;       // s from a change to the next of the second kind
constexpr float kHarmfulScale = 0.5f;   // what stays of weights that do harm
constexpr float kWrongVariance = 0.3f;  // of the prior, where weights are wrong

}  // namespace

void Kalman::start(const Sizes& s) {
    sizes_ = s;
    heard_ = std::clamp(static_cast<int32_t>(std::ceil(kHeardFrom / s.bin_width())) - s.first, 0,
                        s.filter.bins);
    noise_decay_ = s.per_frame(kNoiseSmoothing);
    change_decay_ = s.per_frame(kChangeSmoothing);
    excess_decay_ = s.per_frame(kExcessSmoothing);
    std::fill_n(noise_, s.filter_bins(), 1.0f / static_cast<float>(s.bins - 1));
    for (int32_t k = 0; k < s.filter.bins; ++k) {
        // High bins count more, as speech is faint there.
        const float place = static_cast<float>(s.first + k) / static_cast<float>(s.bins);
        stress_[k] = 0.001f + place * place;
        const float low = 1.0f - static_cast<float>(s.first + k) * s.bin_width() / kLowEnd;
        feed_[k] = (1.0f - s.per_frame(kForgetting)) * (1.0f + kLowFeed * std::max(0.0f, low));
    }
    frames_ = calm_frames_ = changes_ = 0;
    prior_ = prior_in_use_ = 0;
    worse_ = false;
    restart();
}

void Kalman::restart() {
    prior_frames_ = 0;
    mic_mean_ = ref_mean_ = covariance_ = ref_variance_ = 0;
    error_sum_ = mic_sum_ = excess_sum_ = excess_bins_ = 0;
    std::fill_n(variance_, static_cast<size_t>(sizes_.filter.taps) * sizes_.filter_bins(), prior_);
}

void Kalman::raise_variance(float to) {
    const size_t count = static_cast<size_t>(sizes_.filter.taps) * sizes_.filter_bins();
    std::for_each_n(variance_, count, [to](float& p) { p = std::max(p, to); });
}

/// Follows how much power the echo path passes, by the regression of the microphone's power on the
/// reference's, kept between a tenth of their ratio and the ratio.
void Kalman::update_prior(float mic, float ref) {
    // A reference as good as silent tells nothing of the path.
    if (!(ref > kSilent * ref_mean_)) return;
    const double h = sizes_.frame_time, m = mic;
    double z = ref;
    count_up(&prior_frames_);
    const bool early = prior_frames_ * h <= kPriorEarlyTime;
    if (prior_frames_ * h > kSettledTime) z = std::min(z, kPeakMost * ref_mean_);
    const double rate = std::max(h / kPriorTime, 1.0 / prior_frames_);
    mic_mean_ += rate * (m - mic_mean_);
    ref_mean_ += rate * (z - ref_mean_);
    const double mic_part = m - mic_mean_, ref_part = z - ref_mean_;
    covariance_ += rate * (mic_part * ref_part - covariance_);
    ref_variance_ += rate * (ref_part * ref_part - ref_variance_);

    const double ratio = mic_mean_ / (ref_mean_ + 1e-3);
    const double slope = covariance_ / (ref_variance_ + 1e-6);
    prior_ = static_cast<float>(
        std::min(early ? kPriorEarlyMost : kPriorMost, 3 * std::clamp(slope, 0.1 * ratio, ratio)));
    const bool too_low = prior_ > 2 * prior_in_use_, too_high = 2 * prior_ < prior_in_use_;
    if (frames_ == 1 || too_low) {
        prior_in_use_ = prior_;
        raise_variance(prior_);
    } else {
        const float time = too_high ? kPriorFallTime : kPriorUseTime;
        prior_in_use_ += std::min(1.0f, sizes_.frame_time / time) * (prior_ - prior_in_use_);
    }
}

/// Two signs of a change, over the bins that are heard. An error louder than the microphone: the
/// filter does harm. And the echo estimate standing in the error, in bin after bin, where a talker
/// or noise would have any sign: that shows a wrong filter within a frame or two and is blind to
/// double talk. Where the microphone is faint, as between syllables in a still room, all that is
/// left is the estimate of a filter that is right but for its end.
Kalman::Change Kalman::look_for_change(const kernels::FilterSums& sums) {
    worse_ = sums.error > sums.mic;
    error_sum_ = change_decay_ * error_sum_ + sums.error;
    mic_sum_ = change_decay_ * mic_sum_ + sums.mic;
    const bool faint = sums.stressed_mic < kFaint * static_cast<float>(mic_mean_);
    if (!faint) {
        const auto bins = static_cast<float>(sizes_.filter.bins - heard_);
        excess_sum_ = excess_decay_ * excess_sum_ + sums.excess;
        excess_bins_ = excess_decay_ * excess_bins_ + bins;
    }
    if (calm_frames_ > 0) --calm_frames_;
    const bool harmful = error_sum_ > kChangeRatio * mic_sum_;
    const bool wrong =
        !faint && calm_frames_ == 0 && std::abs(excess_sum_) > kExcessMost * excess_bins_;
    if (frames_ <= 3 || !(harmful || wrong)) return Change::kNone;
    ++changes_;
    error_sum_ = mic_sum_ = excess_sum_ = excess_bins_ = 0;
    calm_frames_ = static_cast<uint32_t>(kCalmTime / sizes_.frame_time);
    return wrong ? Change::kWrong : Change::kHarmful;
}

bool Kalman::step(const FilterFrame& f) {
    const kernels::Partitions& size = sizes_.filter;
    const int32_t first = sizes_.first, n = size.bins;
    float *error_power = error_power_ + first, *doubt = doubt_ + first;
    count_up(&frames_);
    kernels::measure_filter({.mic = f.mic,
                             .error = f.error,
                             .echo = f.echo,
                             .mic_power = f.mic_power,
                             .error_power = error_power,
                             .excess = excess_},
                            n);
    const kernels::FilterSums sums = kernels::sum_filter({.stress = stress_,
                                                          .mic_power = f.mic_power,
                                                          .ref_power = f.ref_power_sum,
                                                          .error_power = error_power,
                                                          .excess = excess_},
                                                         heard_, n);
    update_prior(sums.stressed_mic, sums.stressed_ref);

    kernels::predict({.variance = variance_,
                      .weights = f.weights,
                      .power = f.ref_power_hist,
                      .feed = feed_,
                      .doubt = doubt,
                      .floor = kVarianceFloor * prior_in_use_,
                      .ceiling = kVarianceCeiling * prior_in_use_},
                     size);
    kernels::weigh({.error = f.error,
                    .error_power = error_power,
                    .doubt = doubt,
                    .noise = noise_,
                    .gain = gain_,
                    .share = share_ + first,
                    .step = f.step,
                    .post = f.post_error,
                    .mu = kStep,
                    .decay = noise_decay_,
                    .least = 1.0f / static_cast<float>(sizes_.bins - 1)},
                   n);
    kernels::correct({.step = f.step,
                      .gain = gain_,
                      .history = f.ref_spec_hist,
                      .weights = f.weights,
                      .variance = variance_,
                      .mu = kStep},
                     size);

    const Change change = look_for_change(sums);
    if (change == Change::kHarmful) {
        kernels::scale_weights(kHarmfulScale, f.weights, size);
        raise_variance(prior_);
    } else if (change == Change::kWrong) {
        raise_variance(kWrongVariance * prior_);
    }
    return change != Change::kNone;
}

float Kalman::uncertainty() const {
    const float* share = share_ + sizes_.first;
    const int32_t n = sizes_.filter.bins;
    return std::accumulate(share, share + n, 0.0f) / static_cast<float>(std::max(1, n));
}

}  // namespace qel::tracking
