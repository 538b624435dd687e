// See reference_aec.hpp. Every loop runs over all bins of one quantity; nothing is optimised.
#include "tests/support/reference_aec.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace {

using Complex = std::complex<double>;

constexpr double kPi = std::numbers::pi;

/// reference_dft(), fast enough for a whole call: halves an even length.
Spectrum dft(const Spectrum& x, bool inverse) {
    const size_t n = x.size(), half = n / 2;
    if (n % 2 != 0) return reference_dft(x, inverse);
    Spectrum even, odd, y(n);
    for (size_t i = 0; i < n; i += 2) {
        even.push_back(x[i]);
        odd.push_back(x[i + 1]);
    }
    even = dft(even, inverse);
    odd = dft(odd, inverse);
    const Complex turn = std::polar(1.0, (inverse ? kPi : -kPi) / static_cast<double>(half));
    Complex root = 1;
    for (size_t k = 0; k < half; ++k, root *= turn) {
        y[k] = even[k] + root * odd[k];
        y[half + k] = even[k] - root * odd[k];
    }
    return y;
}

Spectrum forward(const Signal& x) {
    Spectrum y = dft(Spectrum(x.begin(), x.end()), false);
    y.resize(x.size() / 2 + 1);
    return y;
}

/// The real inverse, with 1/N.
Signal inverse(Spectrum bins) {
    // The imaginary parts of the first and the last bin have no part in the real result.
    for (size_t k = bins.size() - 2; k > 0; --k) bins.push_back(std::conj(bins[k]));
    Signal y;
    for (const Complex& v : dft(bins, true))
        y.push_back(v.real() / static_cast<double>(bins.size()));
    return y;
}

Signal power(const Spectrum& x) {
    Signal p;
    for (const Complex& v : x) p.push_back(std::norm(v));
    return p;
}

double sum(const Signal& x) { return std::accumulate(x.begin(), x.end(), 0.0); }

double square(double x) { return x * x; }

/// Toward zero, and of what does not fit in 16 bits the low ones.
int16_t truncate(double x) { return static_cast<int16_t>(static_cast<int64_t>(x)); }

double bark(double hz) {
    return 13.1 * std::atan(0.00074 * hz) + 2.24 * std::atan(1.85e-8 * hz * hz) + 0.0001 * hz;
}

double hypergeom(double x) {
    constexpr double kTable[] = {0.82157, 1.02017, 1.20461, 1.37534, 1.53363, 1.68092, 1.81865,
                                 1.94811, 2.07038, 2.18638, 2.29688, 2.40255, 2.50391, 2.60144,
                                 2.69551, 2.78647, 2.87458, 2.96015, 3.04333, 3.12431, 3.20326};
    const int k = static_cast<int>(std::floor(2 * x));
    if (k < 0) return 1;
    if (k > 19) return 1 + 0.1296 / x;
    return std::lerp(kTable[k], kTable[k + 1], 2 * x - k) / std::sqrt(x + 0.0001);
}

}  // namespace

ReferenceAec::ReferenceAec(const AecSettings& settings)
    : set_(settings), frame_(static_cast<size_t>(settings.frame)), bins_(frame_ + 1) {
    const size_t taps = static_cast<size_t>(set_.taps), bands = static_cast<size_t>(set_.banks);
    for (size_t i = 0; i < 2 * frame_; ++i) {
        window_.push_back(
            std::sin(kPi * (static_cast<double>(i) + 0.5) / (2 * static_cast<double>(frame_))));
    }
    mic_pass_ = mic_hist_ = ref_hist_ = overlap_ = Signal(frame_);
    ref_spec_ = weights_ = std::vector<Spectrum>(taps, Spectrum(bins_));
    ref_power_ = std::vector<Signal>(taps, Signal(bins_));
    ref_sum_ = ref_smooth_ = residual_power_ = echo_power_ = Signal(bins_);
    echo_ = error_ = step_ = residual_ = Spectrum(bins_);
    error_avg_ = echo_avg_ = echo_noise_ = old_ps_[0] = Signal(bins_);
    zeta_ = old_ps_[1] = Signal(bands);

    const double width = set_.rate / (2.0 * set_.frame);
    const double interval = bark(set_.frame * width) / (set_.banks - 1);
    for (size_t i = 0; i < bins_; ++i) {
        const double v = bark(static_cast<double>(i) * width) / interval;
        const size_t left = std::min(static_cast<size_t>(v), bands - 2);
        band_of_.push_back({left, std::min(v - static_cast<double>(left), 1.0)});
    }
}

bool ReferenceAec::Detector::active(const Signal& x) {
    const double n = static_cast<double>(x.size()), mean = sum(x) / n;
    double deviation = 0;
    for (const double v : x) deviation += std::abs(v - mean) / n;
    const bool is_loud = deviation > 5;
    quiet = state == 1 && !is_loud ? quiet + 1 : 0;
    loud = state == 0 && is_loud ? loud + 1 : 0;
    if (quiet == 15 || loud == 1) {
        state = 1 - state;
        quiet = loud = 0;
    }
    return state == 1;
}

Pcm ReferenceAec::feed(const Pcm& mic, const Pcm& ref) {
    Pcm out;
    for (size_t at = 0; at + frame_ <= mic.size(); at += frame_) {
        const Pcm m = part(mic, at, at + frame_), r = part(ref, at, at + frame_);
        const Signal mic_frame(m.begin(), m.end()), ref_frame(r.begin(), r.end());
        const bool bypass = set_.vad && !frame_vad_.active(ref_frame);
        const Signal y = bypass ? mic_pass_ : process(mic_frame, ref_frame);
        mic_pass_ = mic_frame;
        std::transform(y.begin(), y.end(), std::back_inserter(out), truncate);
    }
    return out;
}

Signal ReferenceAec::process(const Signal& mic, const Signal& ref) {
    const double length = 2 * static_cast<double>(frame_);
    Signal mic_win = mic_hist_, ref_win = ref_hist_;
    mic_win.insert(mic_win.end(), mic.begin(), mic.end());
    ref_win.insert(ref_win.end(), ref.begin(), ref.end());
    mic_hist_ = mic;
    ref_hist_ = ref;
    for (size_t i = 0; i < 2 * frame_; ++i) {
        mic_win[i] *= window_[i] / length;
        ref_win[i] *= window_[i];
    }
    const bool active = !set_.vad || ref_vad_.active(ref_win);
    Spectrum ref_spec = forward(ref_win);
    for (Complex& v : ref_spec) v = active ? v / length : 0;
    adapt(forward(mic_win), ref_spec);

    const Signal gain = set_.nlp ? suppression() : Signal(bins_, 1.0);
    Spectrum spec(residual_);
    for (size_t k = 0; k < bins_; ++k) spec[k] *= gain[k];
    // While the windowed reference is silent the suppressor lets the microphone pass.
    const Signal y = active || !set_.nlp ? inverse(spec) : mic_win;
    Signal out(frame_);
    for (size_t i = 0; i < frame_; ++i) {
        out[i] = (overlap_[i] + window_[i] * y[i]) * length;
        overlap_[i] = window_[frame_ + i] * y[frame_ + i];
    }
    return out;
}

void ReferenceAec::adapt(const Spectrum& mic, const Spectrum& ref) {
    const double frame_time = static_cast<double>(set_.frame) / set_.rate;
    const double fast = 0.5 * frame_time, slow = 0.0031 * frame_time;
    const size_t taps = ref_spec_.size(), offset = static_cast<size_t>(set_.offset);
    std::rotate(ref_spec_.begin(), ref_spec_.begin() + 1, ref_spec_.end());
    std::rotate(ref_power_.begin(), ref_power_.begin() + 1, ref_power_.end());
    for (size_t k = 0; k + offset < bins_; ++k) {
        const double slope = 1 - static_cast<double>(k) / static_cast<double>(bins_);
        const double floor = 7.5157342 * set_.taps * std::max(2.0 / set_.taps, slope);
        const double level = 2 * (residual_power_[k + offset] + ref_smooth_[k]);
        const double norm = level <= floor ? floor : std::min(level, 2147352.5);
        ref_spec_.back()[k] = ref[k + offset];
        ref_power_.back()[k] = std::norm(ref[k + offset]);
        ref_sum_[k] = 0;
        echo_[k + offset] = 0;
        for (size_t j = 0; j < taps; ++j) {
            ref_sum_[k] += ref_power_[j][k];
            echo_[k + offset] += weights_[j][k] * ref_spec_[j][k];
        }
        const double rate = ref_sum_[k] > ref_smooth_[k] ? fast : slow;
        ref_smooth_[k] = std::lerp(ref_smooth_[k], ref_sum_[k], rate);
        error_[k + offset] = mic[k + offset] - echo_[k + offset];
        step_[k] = error_[k + offset] / (ref_sum_[k] + norm);
        residual_[k + offset] = error_[k + offset] - 0.5 * ref_sum_[k] * step_[k];
        for (size_t j = 0; j < taps; ++j) {
            weights_[j][k] += 0.4 * step_[k] * std::conj(ref_spec_[j][k]);
        }
        if (std::norm(residual_[k + offset]) > std::norm(mic[k + offset])) {
            residual_[k + offset] = mic[k + offset];
        }
    }
    echo_power_ = power(echo_);
    // Skipped bins: no residual, and the whole microphone is the next frame's echo estimate.
    std::copy_n(mic.begin(), offset, echo_.begin());
    residual_power_ = power(residual_);
}

Signal ReferenceAec::to_bands(const Signal& bins) const {
    Signal bands(static_cast<size_t>(set_.banks));
    for (size_t i = 0; i < bins_; ++i) {
        bands[band_of_[i].left] += (1 - band_of_[i].weight_right) * bins[i];
        bands[band_of_[i].left + 1] += band_of_[i].weight_right * bins[i];
    }
    return bands;
}

double ReferenceAec::interpolate(const Signal& bands, size_t bin) const {
    const auto [left, weight_right] = band_of_[bin];
    return std::lerp(bands[left], bands[left + 1], weight_right);
}

Signal ReferenceAec::suppression() {
    const double frame_time = static_cast<double>(set_.frame) / set_.rate;
    const size_t bands = static_cast<size_t>(set_.banks);

    // Leak: how much of the echo estimate's fluctuation the error follows.
    double pey = 0, pyy = 1;
    for (size_t k = 0; k < bins_; ++k) {
        const double echo_change = echo_power_[k] - echo_avg_[k];
        pey += (residual_power_[k] - error_avg_[k]) * echo_change;
        pyy += square(echo_change);
        error_avg_[k] = std::lerp(error_avg_[k], residual_power_[k], frame_time);
        echo_avg_[k] = std::lerp(echo_avg_[k], echo_power_[k], frame_time);
    }
    pyy = std::sqrt(pyy);
    pey /= pyy;
    const double see = sum(residual_power_), syy = sum(echo_power_);
    const double alpha = see > 0 ? frame_time * std::min(2 * syy, 0.5 * see) / see : 0;
    pyy_ = std::max(std::lerp(pyy_, pyy, alpha), 1.0);
    pey_ = std::clamp(std::lerp(pey_, pey, alpha), 0.005 * pyy_, pyy_);
    const double leak = pey_ / pyy_ > 0.5 ? 1.0 : 2 * pey_ / pyy_;
    const bool huge = leak * echo_power_[0] >= 1e9 * static_cast<double>(bins_);
    for (size_t k = 0; k < bins_; ++k) {
        echo_noise_[k] = std::max(0.6 * echo_noise_[k], huge ? 0.0 : leak * echo_power_[k]);
    }

    // Estimator, first over bins, then over bands.
    struct Estimate {
        double prior, theta, gain;
    };
    const Signal echoes[] = {echo_noise_, to_bands(echo_noise_)};
    const Signal ps[] = {residual_power_, to_bands(residual_power_)};
    std::vector<Estimate> estimates[2];
    if (++frames_ == 1) {
        old_ps_[0] = ps[0];
        old_ps_[1] = ps[1];
        old_ps_[1].back() = 0;  // the last band alone starts without a history
    }
    for (const int scale : {0, 1}) {
        for (size_t i = 0; i < ps[scale].size(); ++i) {
            const double noise = echoes[scale][i] + 0.001, old = old_ps_[scale][i];
            const double post = std::min(ps[scale][i] / noise - 1, 100.0);
            const double gamma = 0.1 + 0.89 * square(old / (old + noise));
            const double prior =
                std::min(gamma * std::max(0.0, post) + (1 - gamma) * old / noise, 100.0);
            const double r = prior / (prior + 1), theta = (post + 1) * r;
            estimates[scale].push_back({prior, theta, std::min(1.0, r * hypergeom(theta))});
        }
    }
    double presence = 0;
    for (size_t b = 0; b < bands; ++b) {
        zeta_[b] = 0.7 * zeta_[b] + 0.3 * estimates[1][b].prior;
        if (b >= 6 && b + 5 < bands) presence += zeta_[b] / static_cast<double>(bands - 11);
    }
    const double speech = 0.1 + 0.899 / (1 + 0.15 / presence);

    const double echo_floor = std::exp(0.2302585 * (-15 * speech - 40 * (1 - speech)));
    Signal band_gain, band_presence, band_floor;
    for (size_t b = 0; b < bands; ++b) {
        const auto [prior, theta, gain] = estimates[1][b];
        band_floor.push_back(std::sqrt(echo_floor * echoes[1][b] / (echoes[1][b] + 1)));
        band_gain.push_back(gain);
        old_ps_[1][b] = 0.2 * old_ps_[1][b] + 0.8 * square(gain) * ps[1][b];
        const double q = 1 - (0.8 / (0.15 / zeta_[b] + 1) + 0.199) * speech;
        band_presence.push_back(1 / (1 + q / (1 - q) * (1 + prior) * std::exp(-theta)));
    }
    Signal gains;
    for (size_t k = 0; k < bins_; ++k) {
        double gain = estimates[0][k].gain;
        const double wide = interpolate(band_gain, k), floor = interpolate(band_floor, k);
        if (wide < 0.333 * gain) gain = 3 * wide;
        old_ps_[0][k] = 0.2 * old_ps_[0][k] + 0.8 * square(gain) * ps[0][k];
        const double p = interpolate(band_presence, k);
        gains.push_back(square(p * std::sqrt(std::max(gain, floor)) + (1 - p) * std::sqrt(floor)));
    }
    const size_t offset = static_cast<size_t>(set_.offset);
    for (size_t k = 0; k + offset < bins_; ++k) {
        residual_[k + offset] = error_[k + offset] - 0.8 * (1.8 - speech) * ref_sum_[k] * step_[k];
    }
    return gains;
}
