// Where in time a reference finds itself in a microphone: delay, drift, and moves of the delay.
#pragma once

#include <vector>

#include "audio.hpp"

namespace app {

/// The delay in one block of the recording, as far as it can be told.
struct BlockDelay {
    double at_s;      // middle of the block
    double samples;   // delay of the block's own peak, wherever it is
    double strength;  // of that peak, squared, over what chance gives on average
};

struct Alignment {
    bool found = false;
    double score = 0;      // standard deviations by which the best line exceeds chance
    double delay = 0;      // samples at the start of the recording; positive: the echo comes later
    double drift_ppm = 0;  // by which the echo comes later and later
    double drift_error = 0;          // one standard deviation of it
    double confidence = 0;           // share of the blocks with sound in which the line is found
    bool moves = false;              // the delay is another one for part of the time
    std::vector<BlockDelay> blocks;  // those with sound
};

/// Looks for `ref` in `mic` within `most_s` of it either way, and for clocks that drift apart.
Alignment align(const Signal& mic, const Signal& ref, int rate, double most_s);

/// Whether `ref` is there at all: a quick form of the same.
double alignment_score(const Signal& mic, const Signal& ref, int rate, double most_s);

}  // namespace app
