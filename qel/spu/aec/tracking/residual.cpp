#include "qel/spu/aec/tracking/residual.hpp"

#include <algorithm>
#include <limits>
#include <numeric>

namespace qel::tracking {

namespace {

constexpr float kSmoothing = 0.08f;  // s
constexpr float kSlowTime = 2.0f;    // s
constexpr float kSounding = 0.3f;    // of the slow mean, from where a band of the reference counts
constexpr float kAudible = 1e-3f;    // power from where it is there at all
constexpr float kPausing = 0.01f;    // of the slow mean, below which a band pauses
constexpr float kWindow = 1.5f;      // s
constexpr float kUnknown = std::numeric_limits<float>::infinity();

constexpr float kRatioFactor = 2.0f;  // the ratios are minima, the echo is louder on average
constexpr float kDoubtFactor = 0.1f;  // of the weights' uncertainty
// A low vowel has few periods in a frame: the filter believes to know it and loses it when its
// pitch moves.
constexpr float kLowEnd = 200.0f;                    // Hz
constexpr float kLowDoubt = 2.0f;                    // of the weights' uncertainty at 0 Hz
constexpr float kFall = 0.7f, kFallInSpeech = 0.4f;  // of the residual echo, in 32 ms
constexpr float kOnsetTime = 0.08f, kOnsetRise = 10.0f;
constexpr float kSearchTime = 1.0f;    // s of reference for which an uncovered echo is expected
constexpr float kSearchFactor = 2.0f;  // of the error, meanwhile

}  // namespace

void ResidualFloor::start(const Sizes& s) {
    sizes_ = s;
    fast_rate_ = s.rate_of(kSmoothing);
    slow_rate_ = std::min(1.0f, s.frame_time / kSlowTime);
    sounded_ = onset_ = 0;
    for (int32_t k = 0; k < s.bins; ++k) {
        const float low = std::max(0.0f, 1.0f - static_cast<float>(k) * s.bin_width() / kLowEnd);
        doubt_factor_[k] = kDoubtFactor + (kLowDoubt - kDoubtFactor) * low;
    }
    forget();
}

void ResidualFloor::forget() {
    std::fill_n(least_, sizes_.bands, kUnknown);
    std::fill_n(least_before_, sizes_.bands, kUnknown);
    std::fill_n(time_, sizes_.bands, 0.0f);
}

/// Follows each band's least ratio of error to reference over one to two windows of sound.
void ResidualFloor::track(const float* error_bands, const float* ref_bands) {
    for (int32_t b = 0; b < sizes_.bands; ++b) {
        error_[b] += fast_rate_ * (error_bands[b] - error_[b]);
        ref_[b] += fast_rate_ * (ref_bands[b] - ref_[b]);
        slow_[b] += slow_rate_ * (ref_bands[b] - slow_[b]);
        if (ref_[b] > kSounding * slow_[b] && ref_[b] > kAudible) {
            least_[b] = std::min(least_[b], error_[b] / ref_[b]);
            time_[b] += sizes_.frame_time;
        }
        const float least = std::min(least_[b], least_before_[b]);
        ratio_[b] = least < kUnknown ? std::min(least, 1.0f) : 0.0f;
        if (time_[b] >= kWindow) {
            least_before_[b] = least_[b];
            least_[b] = kUnknown;
            time_[b] = 0;
        }
    }
}

/// Whether a frame may hold an echo that comes later than the filter reaches, which shows in no
/// ratio so far: a microphone that was quiet when the reference began is not any more. Only for a
/// limited time, and not where a talker was there first.
bool ResidualFloor::is_unexplained(const float* error_bands) {
    if (ref_[sizes_.bands / 2] > kAudible) sounded_ += sizes_.frame_time;
    const float error = std::accumulate(error_bands, error_bands + sizes_.bands, 0.0f);
    if (sounded_ < kOnsetTime) onset_ = std::max(onset_, error);
    return sounded_ >= kOnsetTime && sounded_ < kSearchTime && error > kOnsetRise * onset_;
}

void ResidualFloor::estimate(const float* ref_power, const ResidualFrame& f) {
    const int32_t bins = sizes_.bins;
    std::copy_n(ref_power, sizes_.filter_bins(), ref_power_ + sizes_.first);
    kernels::sum_bands(f.bank, f.error_power, ref_power_);
    track(f.error_power + bins, ref_power_ + bins);

    const bool unexplained = f.searching && is_unexplained(f.error_power + bins);
    const float fall = sizes_.per_frame(kFall - kFallInSpeech * f.speech);
    kernels::raise_residual({.ratio = ratio_,
                             .ref_power = ref_power_,
                             .doubt = f.doubt,
                             .doubt_factor = doubt_factor_,
                             .echo_power = f.echo_power,
                             .error_power = f.error_power,
                             .ratio_factor = kRatioFactor,
                             .leak = f.leak,
                             .error_factor = unexplained ? kSearchFactor : 0.0f,
                             .fall = fall,
                             .residual = f.residual,
                             .noise = f.noise},
                            f.bank);
}

bool ResidualFloor::pauses(int32_t band) const {
    return ref_[band] < kPausing * slow_[band] && ref_[band + 1] < kPausing * slow_[band + 1];
}

}  // namespace qel::tracking
