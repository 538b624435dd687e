// How much echo is left behind the filter: at least what the error never fell below, as a share of
// the reference, in each Bark band. That holds what no filter takes away: a loudspeaker's
// distortion, the end of a long room.
//
// Minimum tracking after R. Martin, "Noise power spectral density estimation based on optimal
// smoothing and minimum statistics", IEEE Transactions on Speech and Audio Processing 9(5), 2001.
#pragma once

#include <initializer_list>

#include "qel/spu/aec/tracking/sizes.hpp"

namespace qel::tracking {

/// What a frame's residual echo is estimated from. Bins of a spectrum; `error_power` and
/// `ref_power` have the bands' room behind them.
struct ResidualFrame {
    kernels::Bank bank;
    float* error_power;       // its bands are written
    const float* doubt;       // of the weights
    const float* echo_power;  // of the echo estimate
    float leak;               // share of that which is left
    float speech;             // probability of near-end speech in the frame before
    bool searching;           // the echo's delay may not be covered yet
    float* residual;          // written: residual echo
    float* noise;             // the same with its fall
};

class ResidualFloor {
  public:
    template <class Take>
    void lay_out(const Sizes& s, Take take) {
        for (float** bands : {&error_, &ref_, &slow_, &least_, &least_before_, &time_, &ratio_}) {
            take(*bands, s.band_count());
        }
        take(ref_power_, s.spectrum_bins() + s.band_count());
        take(doubt_factor_, s.spectrum_bins());
    }
    void start(const Sizes& s);

    /// Forgets the ratios: they belong to a path or a delay that is no more.
    void forget();

    /// Estimates the residual echo of a frame whose reference has `ref_power`, the filter's bins.
    void estimate(const float* ref_power, const ResidualFrame& frame);

    /// Whether the reference pauses, for noise that is to be heard alone, in a band and the next.
    bool pauses(int32_t band) const;

  private:
    bool is_unexplained(const float* error_bands);
    void track(const float* error_bands, const float* ref_bands);

    Sizes sizes_;
    float *error_, *ref_;  // bands, smoothed
    float* slow_;          // the reference's bands over seconds
    float* least_;         // least ratio of the window that runs, and of the one before
    float* least_before_;
    float* time_;   // s of the window that runs
    float* ratio_;  // in use
    float* ref_power_;
    float* doubt_factor_;  // of the weights' uncertainty, by bin
    float fast_rate_, slow_rate_;
    float sounded_;  // s for which the reference sounded while its delay is searched
    float onset_;    // the loudest error of the first of those
};

}  // namespace qel::tracking
