// The places where the canceller's frame asks the tracking mode.
#pragma once

#include "qel/spu/aec/qel_aec.hpp"
#include "qel/spu/aec/qel_aec_tracking.h"
#include "qel/spu/aec/tracking/align.hpp"
#include "qel/spu/aec/tracking/comfort.hpp"
#include "qel/spu/aec/tracking/kalman.hpp"
#include "qel/spu/aec/tracking/residual.hpp"

namespace qel {

/// An instance's tracking mode: the parts whose switches are on have arrays in `memory`.
struct Tracking {
    qel_aec_tracking_cfg on;  // the switches that have an effect
    tracking::Kalman kalman;
    tracking::ResidualFloor residual;
    tracking::Aligner aligner;
    tracking::Comfort comfort;
    float speech;        // probability of the frame before
    int32_t due_frames;  // for which the echo of a reference that fell silent may still come
    float* memory;
    size_t floats;
};

/// Null when no switch is on.
inline Tracking* tracking_of(const qel_aec* aec) {
    return static_cast<const Instance*>(aec)->tracking;
}

/// Makes what the switches need and can have; false when memory runs out.
bool make_tracking(qel_aec* aec, const qel_aec_tracking_cfg& wanted);

/// The state before the first frame.
void start_tracking(qel_aec* aec);

void delete_tracking(qel_aec* aec);

// Called with use_align on.

/// Puts the reference that the microphone's echo belongs to in the place of this frame's spectrum,
/// of a reference that sounds or not.
void align_reference(qel_aec* aec, bool sounds);

/// Takes the filter's step, with use_kalman on, and leaves the error behind it in post_error.
void take_kalman_step(qel_aec* aec);

/// Estimates the residual echo, with use_residual on; the suppressor's error power is there, and
/// gets its bands.
void estimate_residual(qel_aec* aec);

// Called with use_comfort on.

/// Learns the room's noise from a frame that is bypassed.
void learn_from_bypassed(qel_aec* aec);

/// Adds noise to the suppressor's output spectrum, where the over-subtraction `factor` and the
/// suppressor's gain took it.
void fill_in_noise(qel_aec* aec, float factor, float speech);

}  // namespace qel
