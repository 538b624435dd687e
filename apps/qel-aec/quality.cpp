#include "quality.hpp"

#include <algorithm>
#include <cmath>

#include "transform.hpp"

namespace app {

namespace {

constexpr double kFrame = 0.02;      // s
constexpr double kLoudEnough = 300;  // sample units from which flat tops are looked for
constexpr size_t kFlat = 4;          // equal samples in a row at the peak that are no chance
constexpr float kJump = 40000;       // sample units from one sample to the next
constexpr float kSmallJump = 25536;  // ... with 65536 added or taken
constexpr double kPitchFrame = 0.1;  // s
constexpr double kLeastPitch = 25, kMostPitch = 500;  // Hz
constexpr double kLowSounds = 900;                    // Hz
constexpr double kVoiced = 0.6;                       // likeness one period later
constexpr size_t kFewPitches = 20;
constexpr size_t kWindow = 2048;
constexpr double kNothing = 1e-8;  // of the power, above the top frequency

void find_levels(const Recording& recording, Quality& quality) {
    const Signal& x = recording.samples;
    const auto frame = std::max<size_t>(1, static_cast<size_t>(kFrame * recording.rate));
    double sum = 0;
    for (const float v : x) {
        sum += v;
        quality.peak = std::max(quality.peak, std::fabs(static_cast<double>(v)));
    }
    quality.dc = sum / static_cast<double>(x.size());
    std::vector<double> levels;
    for (size_t at = 0; at + frame <= x.size(); at += frame) {
        Signal part(x.begin() + static_cast<ptrdiff_t>(at),
                    x.begin() + static_cast<ptrdiff_t>(at + frame));
        for (float& v : part) v -= static_cast<float>(quality.dc);
        levels.push_back(level_db(part));
    }
    if (levels.empty()) return;
    std::sort(levels.begin(), levels.end());
    quality.floor_db = levels[levels.size() / 20];
    quality.level_db = levels[levels.size() - 1 - levels.size() / 20];
}

void find_clips(const Signal& x, Quality& quality) {
    if (quality.peak < kLoudEnough) return;
    const float most = *std::max_element(x.begin(), x.end());
    const float least = *std::min_element(x.begin(), x.end());
    size_t flat = 0, run = 0;
    for (size_t i = 0; i <= x.size(); ++i) {
        const bool top = i < x.size() && (x[i] >= most - 1 || x[i] <= least + 1);
        if (top) {
            ++run;
            continue;
        }
        if (run >= kFlat) {
            flat += run;
            ++quality.clips;
        }
        run = 0;
    }
    quality.clipped = static_cast<double>(flat) / static_cast<double>(x.size());
}

void find_wraps(const Signal& x, Quality& quality) {
    for (size_t i = 1; i < x.size(); ++i) {
        const float jump = std::fabs(x[i] - x[i - 1]);
        if (jump > kJump && 65536 - jump < kSmallJump) ++quality.wraps;
    }
}

void find_top(const Recording& recording, Quality& quality) {
    Transform transform(kWindow);
    std::vector<double> power(transform.bins());
    Signal part(kWindow);
    double all = 0;
    for (size_t at = 0; at + kWindow <= recording.samples.size(); at += kWindow) {
        for (size_t i = 0; i < kWindow; ++i) {
            const double phase = 2 * M_PI * (static_cast<double>(i) + 0.5) / kWindow;
            // A window whose side lobes fall far below what counts as nothing.
            const double w = 0.35875 - 0.48829 * std::cos(phase) + 0.14128 * std::cos(2 * phase) -
                             0.01168 * std::cos(3 * phase);
            part[i] = recording.samples[at + i] * static_cast<float>(w);
        }
        const Spectrum spectrum = transform.forward(part);
        for (size_t b = 0; b < power.size(); ++b) {
            power[b] += std::norm(spectrum[b]);
            all += std::norm(spectrum[b]);
        }
    }
    double high = 0;
    for (size_t b = power.size() / 3; b < power.size(); ++b) high += power[b];
    quality.high_share = high / (all + 1e-9);
    double above = 0;
    size_t top = power.size();
    while (top > 0 && above + power[top - 1] <= kNothing * all) above += power[--top];
    quality.top_hertz = static_cast<double>(top) * recording.rate / kWindow;
}

/// The pitch of a voice in a frame, from the correlation of its low sounds with themselves; 0 if it
/// has none.
double pitch_of(std::span<const float> frame, int rate, Transform& transform) {
    Spectrum spectrum = transform.forward(frame);
    for (size_t b = 0; b < spectrum.size(); ++b) {
        const double hertz =
            static_cast<double>(b) * rate / static_cast<double>(transform.length());
        spectrum[b] = hertz < kLeastPitch || hertz > kLowSounds ? 0 : std::norm(spectrum[b]);
    }
    const Signal lags = transform.backward(spectrum);
    const auto likeness = [&](size_t lag) {
        const auto n = static_cast<double>(frame.size());
        return lags[lag] / (lags[0] + 1e-9) * n / (n - static_cast<double>(lag));
    };
    const auto first = static_cast<size_t>(rate / kMostPitch);
    const size_t last = std::min(static_cast<size_t>(rate / kLeastPitch), frame.size() / 2);
    double most = 0;
    for (size_t lag = first; lag < last; ++lag) most = std::max(most, likeness(lag));
    if (most < kVoiced) return 0;
    for (size_t lag = first; lag < last; ++lag) {
        const double here = likeness(lag);
        if (here > 0.92 * most && here >= likeness(lag - 1) && here >= likeness(lag + 1)) {
            return rate / static_cast<double>(lag);
        }
    }
    return 0;
}

void find_pitch(const Recording& recording, Quality& quality) {
    const auto frame = static_cast<size_t>(kPitchFrame * recording.rate);
    if (frame < 16 || recording.samples.size() < frame) return;
    Transform transform(fast_length(2 * frame));
    std::vector<double> pitches;
    for (size_t at = 0; at + frame <= recording.samples.size(); at += frame) {
        const std::span<const float> part(&recording.samples[at], frame);
        if (level_db(part) < quality.level_db - 20) continue;
        const double pitch = pitch_of(part, recording.rate, transform);
        if (pitch > 0) pitches.push_back(pitch);
    }
    if (pitches.size() < kFewPitches) return;
    std::sort(pitches.begin(), pitches.end());
    quality.pitch = pitches[pitches.size() / 2];
}

}  // namespace

Quality quality_of(const Recording& recording) {
    Quality quality;
    find_levels(recording, quality);
    find_clips(recording.samples, quality);
    find_wraps(recording.samples, quality);
    find_top(recording, quality);
    find_pitch(recording, quality);
    return quality;
}

Signal wrapped(const Signal& samples, int gain) {
    Signal all(samples.size());
    for (size_t i = 0; i < all.size(); ++i) {
        all[i] = static_cast<float>(static_cast<int16_t>(to_int16(samples[i]) * gain));
    }
    return all;
}

}  // namespace app
