// Seeded test signals, a small simulated room, and the measures of an echo canceller's work.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

using Signal = std::vector<double>;  // in 16-bit sample units
using Pcm = std::vector<int16_t>;

/// White noise, uniform in [-peak, peak).
Signal white_noise(uint32_t seed, size_t samples, double peak);

/// Speech-like: voiced and unvoiced syllables with changing formants, pauses between sentences.
Signal speech(uint32_t seed, size_t samples, int rate, double rms);

/// A room's impulse response: a direct path after `delay` seconds, reflections that decay by 60 dB
/// in `rt60` seconds, -20 dB of them at first.
Signal room_response(uint32_t seed, double delay, double rt60, int rate);

/// What the loudspeaker plays of `ref`, clipped at +-`clip`, as the microphone hears it.
Signal echo(const Signal& ref, double clip, const Signal& response);

Signal operator+(Signal a, const Signal& b);

/// Rounded and limited to 16 bits.
Pcm to_pcm(const Signal& x);

/// `x` later by `samples`: zeros first, cut to the same length.
Pcm delayed(const Pcm& x, size_t samples);

/// Samples [from, to).
template <class T>
std::vector<T> part(const std::vector<T>& x, size_t from, size_t to) {
    return {x.begin() + static_cast<ptrdiff_t>(from), x.begin() + static_cast<ptrdiff_t>(to)};
}

/// Power of `mic` over power of `out`, in dB: echo return loss enhancement where only echo is.
double erle_db(const Pcm& mic, const Pcm& out);

struct NearEnd {
    double si_sdr_db;  // scale-invariant signal-to-distortion ratio
    double gain_db;    // of the near end's share in the signal
};

/// What `x` holds of `near_end`.
NearEnd measure_near_end(const Pcm& x, const Pcm& near_end);
