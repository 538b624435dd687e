// Test signals from a seed: the same on every machine up to the last bits of sin() and exp().
#include "tests/support/signals.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

namespace {

constexpr double kPi = std::numbers::pi;

/// Uniform in [low, high); the standard distributions differ between libraries.
double uniform(std::mt19937& random, double low, double high) {
    return low + (high - low) * static_cast<double>(random()) / 4294967296.0;
}

/// A formant: two poles at `freq` Hz, `width` Hz wide.
struct Resonator {
    double a1 = 0, a2 = 0, y1 = 0, y2 = 0;
    void tune(double freq, double width, int rate) {
        const double r = std::exp(-kPi * width / rate);
        a1 = 2 * r * std::cos(2 * kPi * freq / rate);
        a2 = -r * r;
    }
    double step(double x) {
        const double y = (1 - std::sqrt(-a2)) * x + a1 * y1 + a2 * y2;
        y2 = y1;
        return y1 = y;
    }
};

double energy(const Signal& x) { return std::inner_product(x.begin(), x.end(), x.begin(), 0.0); }

Signal to_signal(const Pcm& x) { return {x.begin(), x.end()}; }

}  // namespace

Signal white_noise(uint32_t seed, size_t samples, double peak) {
    std::mt19937 random(seed);
    Signal x(samples);
    for (double& v : x) v = uniform(random, -peak, peak);
    return x;
}

Signal speech(uint32_t seed, size_t samples, int rate, double rms) {
    std::mt19937 random(seed);
    Signal x;
    Resonator formants[3];
    double phase = 0;
    while (x.size() < samples) {
        const bool voiced = uniform(random, 0, 1) < 0.75;
        const double pitch = uniform(random, 90, 220), glide = uniform(random, -0.3, 0.3);
        formants[0].tune(uniform(random, 300, 800), 80, rate);
        formants[1].tune(uniform(random, 900, 2200), 120, rate);
        formants[2].tune(uniform(random, 2400, 3600), 250, rate);
        const double loudness = uniform(random, 0.4, 1) * (voiced ? 1 : 0.3);
        const auto length = static_cast<size_t>(uniform(random, 0.1, 0.3) * rate);
        for (size_t i = 0; i < length; ++i) {
            const double at = static_cast<double>(i) / static_cast<double>(length);
            phase += pitch * (1 + glide * at) / rate;
            double source = uniform(random, -1, 1) * (voiced ? 0.1 : 1);
            if (voiced && phase >= 1) source += 8;
            phase -= std::floor(phase);
            double y = 0.3 * source;
            for (Resonator& f : formants) y += f.step(source);
            x.push_back(loudness * std::sin(kPi * at) * y);
        }
        const bool sentence_ends = uniform(random, 0, 1) < 0.1;
        x.resize(x.size() + static_cast<size_t>((sentence_ends ? 0.35 : 0.03) * rate));
    }
    x.resize(samples);
    const double scale = rms / std::sqrt(energy(x) / static_cast<double>(samples));
    for (double& v : x) v *= scale;
    return x;
}

Signal room_response(uint32_t seed, double delay, double rt60, int rate) {
    const auto first = static_cast<size_t>(delay * rate);
    // Past two thirds of the decay, 40 dB below where it began, nothing is left to hear.
    Signal h = white_noise(seed, static_cast<size_t>(rt60 * rate * 2 / 3), 0.1);
    for (size_t i = 0; i < h.size(); ++i)
        h[i] *= std::pow(10, -3 * static_cast<double>(i) / (rt60 * rate));
    h[0] = 1;
    h.insert(h.begin(), first, 0.0);
    return h;
}

Signal echo(const Signal& ref, double clip, const Signal& response) {
    Signal played = ref, y(ref.size());
    for (double& x : played) x = std::clamp(x, -clip, clip);
    for (size_t k = 0; k < response.size(); ++k) {
        if (response[k] == 0) continue;
        for (size_t i = k; i < y.size(); ++i) y[i] += response[k] * played[i - k];
    }
    return y;
}

Signal operator+(Signal a, const Signal& b) {
    for (size_t i = 0; i < a.size(); ++i) a[i] += b[i];
    return a;
}

Pcm to_pcm(const Signal& x) {
    Pcm y(x.size());
    for (size_t i = 0; i < x.size(); ++i)
        y[i] = static_cast<int16_t>(std::clamp(std::round(x[i]), -32768.0, 32767.0));
    return y;
}

Pcm delayed(const Pcm& x, size_t samples) {
    Pcm y(samples);
    y.insert(y.end(), x.begin(), x.end() - static_cast<ptrdiff_t>(samples));
    return y;
}

double erle_db(const Pcm& mic, const Pcm& out) {
    return 10 * std::log10(energy(to_signal(mic)) / energy(to_signal(out)));
}

NearEnd measure_near_end(const Pcm& x, const Pcm& near_end) {
    Signal rest = to_signal(x);
    const Signal target = to_signal(near_end);
    const double gain =
        std::inner_product(rest.begin(), rest.end(), target.begin(), 0.0) / energy(target);
    for (size_t i = 0; i < rest.size(); ++i) rest[i] -= gain * target[i];
    return {10 * std::log10(gain * gain * energy(target) / energy(rest)),
            20 * std::log10(std::abs(gain))};
}
