#include "scene.hpp"

#include <algorithm>
#include <cmath>

#include "talk.hpp"
#include "transform.hpp"

namespace app {

namespace {

constexpr double kLevel = 1500;    // rms of a generated talker, about -27 dB of full scale
constexpr double kStart = 0.25;    // s before the loudspeaker starts
constexpr double kNearFrom = 0.5;  // of the scene: where the near end begins to talk
constexpr double kFarUntil = 0.8;  // of the scene: where the far end stops then
constexpr int kReflections = 6;    // early ones
constexpr double kLatest = 0.015;  // s, the last of them
constexpr double kTail = 0.03;     // level of the tail at its start, of the direct sound's

/// What the loudspeaker's sound becomes on its way to the microphone; the direct sound comes first.
Signal room(Random& random, const SceneOptions& options) {
    const auto rate = static_cast<double>(options.rate);
    Signal response(static_cast<size_t>(std::max(1.0, options.rt60 * rate)));
    if (options.rt60 > 0) {
        for (size_t i = 0; i < response.size(); ++i) {
            const double decay = std::pow(10, -3 * static_cast<double>(i) / rate / options.rt60);
            // As loud at every rate: what is denser in time is lower.
            response[i] =
                static_cast<float>(kTail * std::sqrt(16000 / rate) * decay * random.normal());
        }
        for (int i = 0; i < kReflections; ++i) {
            const double time = random.uniform(0.001, kLatest), sign = random.uniform(-1, 1);
            const auto at = static_cast<size_t>(time * rate);
            const double gain = 0.6 * std::exp(-time / kLatest) * random.uniform(0.5, 1);
            if (at < response.size()) response[at] += static_cast<float>(sign < 0 ? -gain : gain);
        }
    }
    response[0] = 1;
    return response;
}

void silence_before(Signal& signal, double from) {
    const auto count = std::min(signal.size(), static_cast<size_t>(from));
    std::fill_n(signal.begin(), count, 0.0f);
}

void silence_after(Signal& signal, double from) {
    const auto count = std::min(signal.size(), static_cast<size_t>(from));
    std::fill(signal.begin() + static_cast<ptrdiff_t>(count), signal.end(), 0.0f);
}

/// The same length, later by a whole number of samples.
Signal later(const Signal& signal, long samples) {
    Signal moved(signal.size());
    for (size_t i = 0; i < signal.size(); ++i) {
        const long from = static_cast<long>(i) - samples;
        if (from >= 0 && from < static_cast<long>(signal.size())) {
            moved[i] = signal[static_cast<size_t>(from)];
        }
    }
    return moved;
}

void add(Signal& sum, const Signal& other) {
    for (size_t i = 0; i < sum.size(); ++i) sum[i] += other[i];
}

void scale(Signal& signal, double factor) {
    for (float& x : signal) x *= static_cast<float>(factor);
}

Signal loudspeaker(const Signal& ref, const SceneOptions& options) {
    Signal played = ref;
    if (options.clip_db) {
        float peak = 0;
        for (const float x : ref) peak = std::max(peak, std::fabs(x));
        const float limit = peak * static_cast<float>(std::pow(10, -*options.clip_db / 20));
        for (float& x : played) x = std::clamp(x, -limit, limit);
    }
    return played;
}

/// The echo of what is played, in one room and then in another.
Signal echo_of(const Signal& played, Random& random, const SceneOptions& options) {
    const double per_ms = options.rate / 1000.0;
    const long delay = std::max(0L, std::lround(options.delay_ms * per_ms));
    Signal before = played;
    if (options.change_at) silence_after(before, *options.change_at * options.rate);
    Signal echo = later(convolved(before, room(random, options)), delay);
    if (options.change_at) {
        Signal after = played;
        silence_before(after, *options.change_at * options.rate);
        const long moved = std::lround((options.delay_ms + options.move_ms) * per_ms);
        add(echo, later(convolved(after, room(random, options)), std::max(0L, moved)));
    }
    return echo;
}

/// A talker from the loudspeaker, who falls silent for the last part of the near end's talk.
Signal far_talk(Random& random, size_t count, const SceneOptions& options) {
    Signal far = talk(random, count, options.rate, kLevel);
    silence_before(far, kStart * options.rate);
    if (options.near_end) silence_after(far, kFarUntil * static_cast<double>(count));
    return far;
}

Signal near_talk(Random& random, size_t count, const SceneOptions& options) {
    if (!options.near_end) return Signal(count);
    Signal near = talk(random, count, options.rate, kLevel);
    silence_before(near, kNearFrom * static_cast<double>(count));
    return near;
}

/// What a clock makes of a signal that ticks slower by `ppm` than the reference's.
Signal drifted(const Signal& signal, double ppm) {
    Signal slow = resampled(signal, 1 / (1 - ppm * 1e-6));
    slow.resize(signal.size());
    return slow;
}

}  // namespace

Scene make_scene(const SceneOptions& options, Signal far, Signal near) {
    const auto count = static_cast<size_t>(options.seconds * options.rate);
    // One stream of numbers each, so that one option leaves alone what the others make.
    Random far_random(4 * options.seed), near_random(4 * options.seed + 1);
    Random room_random(4 * options.seed + 2), noise_random(4 * options.seed + 3);

    Scene scene;
    scene.ref = far.empty() ? far_talk(far_random, count, options) : std::move(far);
    scene.ref.resize(count);
    for (float& x : scene.ref) x = static_cast<float>(to_int16(x));

    Signal echo = echo_of(loudspeaker(scene.ref, options), room_random, options);
    const double loud = rms(scene.ref) * std::pow(10, options.echo_db / 20);
    scale(echo, (options.inverted ? -1 : 1) * loud / std::max(1e-9, rms(echo)));

    scene.near = near.empty() ? near_talk(near_random, count, options) : std::move(near);
    scene.near.resize(count);
    scene.mic = std::move(echo);
    add(scene.mic, scene.near);
    if (options.drift_ppm != 0) {
        scene.mic = drifted(scene.mic, options.drift_ppm);
        scene.near = drifted(scene.near, options.drift_ppm);
    }
    const double noise = loud * std::pow(10, -options.noise_db / 20);
    for (float& x : scene.mic) x += static_cast<float>(noise * noise_random.normal());

    const long late = std::max(0L, std::lround(-options.delay_ms * options.rate / 1000.0));
    if (late > 0) scene.ref = later(scene.ref, late);
    if (options.swapped) std::swap(scene.mic, scene.ref);
    return scene;
}

}  // namespace app
