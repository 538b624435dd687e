// Fourier transforms of real signals, of any length.
#pragma once

#include <fftw3.h>

#include <complex>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "audio.hpp"

namespace app {

using Bin = std::complex<float>;
using Spectrum = std::vector<Bin>;

/// The least length of at least `n` whose transform is fast.
size_t fast_length(size_t n);

/// The transform of one length; unscaled forward, scaled by 1 / length on the way back.
class Transform {
  public:
    explicit Transform(size_t length);
    size_t length() const { return time_.size(); }
    size_t bins() const { return time_.size() / 2 + 1; }

    /// The spectrum of `samples`, at most length(), continued with zeros.
    Spectrum forward(std::span<const float> samples);
    Signal backward(const Spectrum& spectrum);

  private:
    using Plan = std::unique_ptr<fftwf_plan_s, decltype(&fftwf_destroy_plan)>;
    Signal time_;
    Spectrum bins_;
    Plan forward_, backward_;
};

/// Convolves, and keeps the length of `samples`.
Signal convolved(std::span<const float> samples, std::span<const float> response);

}  // namespace app
