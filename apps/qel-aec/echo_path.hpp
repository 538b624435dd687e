// What happens to the reference on its way into the microphone, once both are aligned.
#pragma once

#include "audio.hpp"

namespace app {

struct EchoPath {
    bool known = false;    // there was sound enough
    double delay = 0;      // samples at the start, of the loudest sound that arrives
    int polarity = 0;      // 1; -1: the echo has the other sign
    double echo_db = 0;    // level of the echo over the reference's
    double rest_db = 0;    // level of all else in the microphone, over the echo's
    double after_db = 0;   // what follows the loudest sound over what comes before it: a room
                           // answers afterwards
    double nonlinear = 0;  // share of the echo's power that a nonlinear loudspeaker explains
};

/// `delay` in samples at the start and `drift_ppm` as align() found them.
EchoPath look_at_path(const Signal& mic, const Signal& ref, int rate, double delay,
                      double drift_ppm);

}  // namespace app
