#include "talk.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace app {

namespace {

constexpr double kPi = std::numbers::pi;

/// Formants of a few vowels in Hz, of an average voice.
constexpr std::array<std::array<double, 3>, 6> kVowels = {{{730, 1090, 2440},
                                                           {530, 1840, 2480},
                                                           {270, 2290, 3010},
                                                           {570, 840, 2410},
                                                           {300, 870, 2240},
                                                           {660, 1720, 2410}}};
constexpr std::array<double, 3> kWidths = {80, 100, 140};  // of the formants, Hz

/// A resonance: two poles, gain 1 at its frequency, nearly.
class Resonator {
  public:
    Resonator(double hertz, double width, int rate) {
        const double r = std::exp(-kPi * width / rate), angle = 2 * kPi * hertz / rate;
        a1_ = 2 * r * std::cos(angle);
        a2_ = -r * r;
        gain_ = (1 - r) * std::sqrt(1 - 2 * r * std::cos(2 * angle) + r * r);
    }
    double operator()(double x) {
        const double y = gain_ * x + a1_ * y1_ + a2_ * y2_;
        y2_ = y1_;
        return y1_ = y;
    }

  private:
    double a1_, a2_, gain_, y1_ = 0, y2_ = 0;
};

/// Rises and falls over the first and last quarter of a sound.
double envelope(double part) {
    const double edge = std::min(part, 1 - part) / 0.25;
    return edge >= 1 ? 1 : 0.5 - 0.5 * std::cos(kPi * edge);
}

/// One voice, which writes sounds one after another.
class Voice {
  public:
    Voice(Random& random, int rate, Signal& out)
        : random_(random), rate_(rate), out_(out), pitch_(random.uniform(90, 230)) {}

    void pause(double least, double most) { at_ += seconds(random_.uniform(least, most)); }

    void syllable() {
        if (random_.uniform(0, 1) < 0.6) hiss();
        vowel();
    }

    bool done() const { return at_ >= out_.size(); }

  private:
    size_t seconds(double time) const { return static_cast<size_t>(time * rate_); }

    void add(size_t i, double x) {
        if (at_ + i < out_.size()) out_[at_ + i] += static_cast<float>(x);
    }

    void hiss() {
        const size_t count = seconds(random_.uniform(0.04, 0.1));
        const double top = 0.45 * rate_;
        Resonator shape(std::min(top, random_.uniform(1500, 6500)), random_.uniform(500, 2000),
                        rate_);
        const double loud = random_.uniform(0.1, 0.4);
        for (size_t i = 0; i < count; ++i) {
            const double part = static_cast<double>(i) / static_cast<double>(count);
            add(i, loud * envelope(part) * shape(random_.normal()));
        }
        at_ += count;
    }

    void vowel() {
        const size_t count = seconds(random_.uniform(0.1, 0.28));
        const auto& formants = kVowels[static_cast<size_t>(random_.uniform(0, kVowels.size()))];
        const double size = random_.uniform(0.92, 1.15);
        std::array<Resonator, 3> tract = {Resonator(size * formants[0], kWidths[0], rate_),
                                          Resonator(size * formants[1], kWidths[1], rate_),
                                          Resonator(size * formants[2], kWidths[2], rate_)};
        const double from = pitch_ * random_.uniform(0.85, 1.25);
        const double to = pitch_ * random_.uniform(0.8, 1.15), loud = random_.uniform(0.4, 1);
        double phase = 0, glottis = 0;
        for (size_t i = 0; i < count; ++i) {
            const double part = static_cast<double>(i) / static_cast<double>(count);
            phase += (from + (to - from) * part) / rate_;
            const bool pulse = phase >= 1;
            if (pulse) phase -= 1;
            glottis = 0.9 * glottis + (pulse ? 1 : 0) + 0.01 * random_.normal();
            double sum = 0;
            for (Resonator& formant : tract) sum += formant(glottis);
            add(i, 8 * loud * envelope(part) * sum);
        }
        at_ += count;
    }

    Random& random_;
    const int rate_;
    Signal& out_;
    const double pitch_;
    size_t at_ = 0;
};

/// As lips do: they radiate changes of the pressure, not the pressure.
void take_offset_out(Signal& x, int rate) {
    const double keep = 1 - 2 * kPi * 50 / rate;  // a highpass at 50 Hz
    double before = 0, y = 0;
    for (float& v : x) {
        y = v - before + keep * y;
        before = v;
        v = static_cast<float>(y);
    }
}

}  // namespace

double Random::uniform(double least, double most) {
    return least + (most - least) * static_cast<double>(engine_() >> 11) * 0x1p-53;
}

double Random::normal() {
    const double u = 1 - uniform(0, 1);  // never 0
    return std::sqrt(-2 * std::log(u)) * std::cos(2 * kPi * uniform(0, 1));
}

double rms(std::span<const float> samples) {
    double sum = 0;
    for (const float x : samples) sum += static_cast<double>(x) * x;
    return std::sqrt(sum / static_cast<double>(std::max<size_t>(1, samples.size())));
}

Signal talk(Random& random, size_t count, int rate, double level) {
    Signal out(count);
    Voice voice(random, rate, out);
    while (!voice.done()) {
        const int words = static_cast<int>(random.uniform(2, 6));
        for (int word = 0; word < words && !voice.done(); ++word) {
            const int syllables = static_cast<int>(random.uniform(1, 5));
            for (int i = 0; i < syllables && !voice.done(); ++i) voice.syllable();
            voice.pause(0.02, 0.08);
        }
        voice.pause(0.2, 0.6);
    }
    take_offset_out(out, rate);
    const double scale = level / std::max(1e-9, rms(out));
    for (float& x : out) x *= static_cast<float>(scale);
    return out;
}

}  // namespace app
