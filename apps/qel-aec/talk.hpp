// Random numbers that are the same everywhere, and a source that sounds and measures like speech.
#pragma once

#include <cstdint>
#include <random>

#include "audio.hpp"

namespace app {

/// The standard fixes the engine, though not its distributions: these are fixed here.
class Random {
  public:
    explicit Random(uint64_t seed) : engine_(seed) {}
    double uniform(double least, double most);
    double normal();

  private:
    std::mt19937_64 engine_;
};

double rms(std::span<const float> samples);

/// Syllables of voiced and hissing sounds in words and phrases, with pauses; `level` is the rms.
Signal talk(Random& random, size_t count, int rate, double level);

}  // namespace app
