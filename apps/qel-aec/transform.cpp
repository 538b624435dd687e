#include "transform.hpp"

#include <algorithm>

namespace app {

namespace {

fftwf_complex* as_fftw(Spectrum& bins) { return reinterpret_cast<fftwf_complex*>(bins.data()); }

}  // namespace

size_t fast_length(size_t n) {
    for (;; ++n) {
        size_t rest = n;
        for (const size_t factor : {2u, 3u, 5u}) {
            while (rest > 1 && rest % factor == 0) rest /= factor;
        }
        if (rest == 1 && n % 2 == 0) return n;
    }
}

Transform::Transform(size_t length)
    : time_(length),
      bins_(length / 2 + 1),
      forward_(fftwf_plan_dft_r2c_1d(static_cast<int>(length), time_.data(), as_fftw(bins_),
                                     FFTW_ESTIMATE),
               fftwf_destroy_plan),
      backward_(fftwf_plan_dft_c2r_1d(static_cast<int>(length), as_fftw(bins_), time_.data(),
                                      FFTW_ESTIMATE),
                fftwf_destroy_plan) {}

Spectrum Transform::forward(std::span<const float> samples) {
    std::copy(samples.begin(), samples.end(), time_.begin());
    std::fill(time_.begin() + static_cast<ptrdiff_t>(samples.size()), time_.end(), 0.0f);
    fftwf_execute(forward_.get());
    return bins_;
}

Signal Transform::backward(const Spectrum& spectrum) {
    std::copy(spectrum.begin(), spectrum.end(), bins_.begin());
    fftwf_execute(backward_.get());
    const float scale = 1.0f / static_cast<float>(length());
    Signal samples = time_;
    for (float& x : samples) x *= scale;
    return samples;
}

Signal convolved(std::span<const float> samples, std::span<const float> response) {
    Transform transform(fast_length(samples.size() + response.size()));
    Spectrum product = transform.forward(samples);
    const Spectrum other = transform.forward(response);
    for (size_t i = 0; i < product.size(); ++i) product[i] *= other[i];
    Signal all = transform.backward(product);
    all.resize(samples.size());
    return all;
}

}  // namespace app
