// The adaptive filter's step as a Kalman filter's: each bin of each partition knows how uncertain
// its weight is, and each bin how loud what the reference does not explain, so that the step needs
// no detector of double talk.
//
// G. Enzner and P. Vary, "Frequency-domain adaptive Kalman filter for acoustic echo control in
// hands-free telephones", Signal Processing 86(6), 2006; partitioned: F. Kuech, E. Mabande and
// G. Enzner, "State-space architecture of the partitioned-block-based acoustic echo controller",
// ICASSP 2014.
#pragma once

#include <initializer_list>

#include "qel/spu/aec/tracking/sizes.hpp"

namespace qel::tracking {

/// A frame as the filter left it; spectra from the filter's first bin on.
struct FilterFrame {
    const float *mic, *echo, *error;
    const float* ref_spec_hist;
    const float *ref_power_hist, *ref_power_sum;
    float* weights;
    float* mic_power;   // written: the microphone's power
    float* step;        // written: no meaning outside
    float* post_error;  // written: the error that the step leaves
};

class Kalman {
  public:
    /// Calls take(array, count) for each array of floats that it keeps.
    template <class Take>
    void lay_out(const Sizes& s, Take take) {
        take(variance_, static_cast<size_t>(s.filter.taps) * s.filter_bins());
        for (float** bins : {&error_power_, &doubt_, &share_}) take(*bins, s.spectrum_bins());
        for (float** bins : {&noise_, &gain_, &excess_, &stress_, &feed_})
            take(*bins, s.filter_bins());
    }

    /// The state before the first frame, but for the arrays, which are zero.
    void start(const Sizes& s);

    /// Takes the step. True if the path was found changed: what was learnt of it is void.
    bool step(const FilterFrame& frame);

    /// Starts anew after the reference was delayed otherwise; the weights are the caller's to
    /// clear.
    void restart();

    // Of a spectrum's bins, zero below the filter's first.

    /// Power of the error.
    const float* error_power() const { return error_power_; }
    /// How loud the echo of the weights' own uncertainty is.
    const float* doubt() const { return doubt_; }
    /// Share of the error that the step takes for echo, 0 to 1.
    const float* share() const { return share_; }

    /// Whether the last frame's error was louder than its microphone: the filter was worse than
    /// none.
    bool worse_than_none() const { return worse_; }
    uint32_t changes() const { return changes_; }
    /// Mean of share(): near 1 while the filter may still be all wrong.
    float uncertainty() const;

  private:
    enum class Change { kNone, kHarmful, kWrong };

    void update_prior(float mic, float ref);
    void raise_variance(float to);
    Change look_for_change(const kernels::FilterSums& sums);

    Sizes sizes_;
    float* variance_;     // of each partition's weights
    float* error_power_;  // bins of a spectrum, as are the next two
    float* doubt_;
    float* share_;
    float* noise_;   // power that the reference does not explain
    float* gain_;    // of the step
    float* excess_;  // how far the echo estimate itself stands in the error
    float* feed_;    // share of a variance that is renewed in a frame
    float* stress_;  // weight of a bin in the prior
    int32_t heard_;  // the first bin that tells of a change
    float noise_decay_, change_decay_, excess_decay_;
    uint32_t frames_;        // since the start
    uint32_t prior_frames_;  // since the prior's
    double mic_mean_, ref_mean_, covariance_, ref_variance_;
    float prior_, prior_in_use_;
    float error_sum_, mic_sum_;
    float excess_sum_, excess_bins_;
    uint32_t calm_frames_;  // until the next change can be seen
    bool worse_;
    uint32_t changes_;
};

}  // namespace qel::tracking
