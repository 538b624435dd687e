// A loudspeaker, a talker and a microphone in a simulated room, with what goes wrong in real ones.
#pragma once

#include <cstdint>
#include <optional>

#include "audio.hpp"

namespace app {

struct SceneOptions {
    uint64_t seed = 1;
    double seconds = 30;
    int rate = 16000;      // Hz
    double rt60 = 0.2;     // s for the room's tail to fall by 60 dB; 0: the direct sound alone
    double delay_ms = 1;   // from the reference to its echo's first sound; may be negative
    double drift_ppm = 0;  // by which the echo comes later and later
    double echo_db = 0;    // echo's level over the reference's
    double noise_db = 50;  // echo's level over the background noise's
    std::optional<double> clip_db;    // the loudspeaker clips this far below the reference's peak
    std::optional<double> change_at;  // s; the room is another one from there on
    double move_ms = 0;               // ... and the delay longer by this
    bool inverted = false;            // the echo's sign
    bool swapped = false;             // microphone and reference
    bool near_end = true;
};

struct Scene {
    Signal mic, ref, near;  // near: the talker as he is in the microphone
};

/// The same options give the same samples. `far` and `near` replace the generated talkers where
/// they are not empty; they are at the scene's rate.
Scene make_scene(const SceneOptions& options, Signal far, Signal near);

}  // namespace app
