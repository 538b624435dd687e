// What can be told of one signal alone.
#pragma once

#include "audio.hpp"

namespace app {

struct Quality {
    double level_db = -120;  // of the loud frames: 19 of 20 are quieter
    double floor_db = -120;  // of the quiet ones: 19 of 20 are louder
    double peak = 0;         // greatest size, in sample units
    double dc = 0;           // mean, in sample units
    double clipped = 0;      // share of the samples in flat tops
    size_t clips = 0;        // flat tops
    size_t wraps = 0;        // jumps that vanish when 65536 is added or taken
    double pitch = 0;        // of voices, Hz, the middle one of all frames; 0 where there are few
    double high_share = 0;   // of the power, above a sixth of the rate
    double top_hertz = 0;    // above it there is nothing but a thousandth of a millionth
};

Quality quality_of(const Recording& recording);

/// What becomes of samples that are multiplied by `gain` and kept in 16 bits.
Signal wrapped(const Signal& samples, int gain);

}  // namespace app
