// The whole canceller in double precision, as plainly as it can be written: the yardstick of the
// product's frame pipeline. Independent of the library; without the start-up mute.
#pragma once

#include <vector>

#include "tests/support/reference_dft.hpp"
#include "tests/support/signals.hpp"

struct AecSettings {
    int frame = 512, rate = 16000, taps = 4, banks = 24, offset = 0;
    bool nlp = true, vad = true;
    // Letters of the tracking mode's switches that are on: Kalman, Residual, Align, Noise. Null:
    // made without the mode. The yardstick has none.
    const char* tracking = nullptr;
};

class ReferenceAec {
  public:
    explicit ReferenceAec(const AecSettings& settings);

    /// Takes whole frames, gives as many.
    Pcm feed(const Pcm& mic, const Pcm& ref);

  private:
    struct Detector {
        int state = 0, quiet = 0, loud = 0;
        bool active(const Signal& x);
    };

    Signal process(const Signal& mic, const Signal& ref);
    void adapt(const Spectrum& mic, const Spectrum& ref);
    Signal suppression();  // a gain for each bin; takes the over-subtraction into residual_
    Signal to_bands(const Signal& bins) const;
    double interpolate(const Signal& bands, size_t bin) const;

    const AecSettings set_;
    const size_t frame_, bins_;
    Signal window_;
    Detector frame_vad_, ref_vad_;
    Signal mic_pass_, mic_hist_, ref_hist_, overlap_;
    // Adaptive filter; one spectrum for each tap, oldest first.
    std::vector<Spectrum> ref_spec_, weights_;
    std::vector<Signal> ref_power_;
    Signal ref_sum_, ref_smooth_, residual_power_, echo_power_;
    Spectrum echo_, error_, step_, residual_;
    // Suppressor.
    struct Band {
        size_t left;
        double weight_right;
    };
    std::vector<Band> band_of_;
    int frames_ = 0;
    double pey_ = 1, pyy_ = 1;
    Signal error_avg_, echo_avg_, echo_noise_, zeta_;
    Signal old_ps_[2];  // of bins, of bands
};
