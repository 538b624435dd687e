// The room's own noise, which goes with the echo, put back. Its level is learnt in the reference's
// pauses, and held down at all times, by minima of smoothed powers (R. Martin, IEEE Transactions on
// Speech and Audio Processing 9(5), 2001), bin by bin.
#pragma once

#include <initializer_list>

#include "qel/spu/aec/tracking/sizes.hpp"

namespace qel::tracking {

class Comfort {
  public:
    template <class Take>
    void lay_out(const Sizes& s, Take take) {
        for (float** bins : {&power_, &floor_, &pause_, &pause_least_, &pause_before_, &always_,
                             &always_least_, &always_before_}) {
            take(*bins, s.spectrum_bins());
        }
        for (float** bands : {&seen_, &window_}) take(*bands, s.band_count());
    }
    void start(const Sizes& s);

    /// Learns from a frame whose echo is cancelled: the less of the powers of microphone and error
    /// is at least the noise. Bins from the filter's first on.
    void observe(const float* mic_power, const float* error_power);

    /// Learns from the last frame observed, in the bins between `band` and the next: nothing but
    /// noise and near-end talk is in it.
    void observe_pause(const kernels::Bank& bank, int32_t band);

    /// Learns from a frame that was bypassed.
    void observe_bypassed(const float* spec, const kernels::Bank& bank);

    /// Whether to look at this frame that is bypassed: every second.
    bool looks_at_bypassed() { return ++bypassed_ % 2 == 1; }

    /// Adds to a spectrum the noise that the filter's over-subtraction `factor` * `share` and then
    /// `gain` took out, as far as no speech covers it.
    void fill(float factor, float speech, const float* share, const float* gain, float* spec);

  private:
    Sizes sizes_;
    float* power_;  // of the last frame observed
    float* floor_;  // power of the noise, 0 while unknown
    float *pause_, *pause_least_, *pause_before_;
    float *always_, *always_least_, *always_before_;
    float *seen_, *window_;  // frames of pause by band: all, and of the window that runs
    float rate_, rise_;
    uint32_t frames_, window_frames_, bypassed_, random_;
};

}  // namespace qel::tracking
