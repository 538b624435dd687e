// Where the echo lies: the reference waits for it by whole frames. The phase transform (C. Knapp
// and G. Carter, "The generalized correlation method for estimation of time delay", IEEE
// Transactions on Acoustics, Speech, and Signal Processing 24(4), 1976) of a few dozen bins, over
// frames instead of samples: at the echo's lag the phases of microphone and reference keep their
// distance.
#pragma once

#include <initializer_list>

#include "qel/spu/aec/tracking/sizes.hpp"

namespace qel::tracking {

class Aligner {
  public:
    template <class Take>
    void lay_out(const Sizes& s, Take take) {
        const auto lags = static_cast<size_t>(lags_of(s));
        take(ring_, 2 * s.spectrum_bins() * lags);
        for (float** of_lags : {&past_, &cross_}) take(*of_lags, 2 * kernels::kProbes * lags);
        take(mean_, kernels::kProbes);
        take(bins_, kernels::kProbes);
        take(score_, lags);
    }
    void start(const Sizes& s);

    /// Looks at the next frame's spectra and puts the reference of delay() frames before in the
    /// place of this one's. True if the delay changed.
    bool align(const float* mic, float* ref);

    /// The spectrum that the reference had `age` frames before the one that was last put in place;
    /// null if it is forgotten.
    const float* before(int32_t age) const;

    int32_t delay() const { return delay_; }
    uint32_t changes() const { return changes_; }
    /// Best score over the best of those apart from it; 0 before any.
    float clearness() const { return clearness_; }
    /// Whether the echo may lie where the filter does not reach: no delay was ever sure, and that
    /// of none is not likely.
    bool searching() const { return !found_ && !(best_ == 0 && clearness_ > 2.0f); }

  private:
    static int32_t lags_of(const Sizes& s);
    void correlate(const float* heard, const float* played);
    int32_t find_best();
    bool moves_to(int32_t best);

    Sizes sizes_;
    float* ring_;    // the spectra of the last lags_ frames
    float* past_;    // phases of the same, at the probes
    float* cross_;   // mean phase between microphone and reference, by lag
    float* mean_;    // power of the reference at the probes
    int32_t* bins_;  // the probes' bins
    float* score_;   // by lag
    int32_t lags_, probes_;
    int32_t newest_;         // place in the ring
    uint32_t frames_;        // that told of a delay
    int32_t silent_frames_;  // of the reference, up to lags_
    int32_t best_;
    float clearness_;
    bool sure_, found_;
    int32_t delay_, wanted_;
    int32_t wanted_frames_;
    uint32_t changes_;
};

}  // namespace qel::tracking
