// All that a canceller remembers from frame to frame, for tests that look for what must not be in
// it.
#pragma once

#include <algorithm>
#include <cmath>

#include "qel/spu/aec/qel_aec.h"

/// Whether `holds` is true of every number in the instance's vectors and smoothed values.
template <class Holds>
bool all_states(const qel_aec& aec, Holds holds) {
    const auto all = [&](const auto& record, auto... members) {
        const auto each = [&](const qel_vector_union& u) {
            const auto* v = static_cast<const qel_vector_float32*>(u.vec);
            return std::all_of(v->data, v->data + v->len, holds);
        };
        return (each(record.*members) && ...);
    };
    using A = qel_aec;
    using S = qel_aec_nlp;
    if (!all(aec, &A::mic, &A::ref, &A::mic_pass, &A::norm, &A::ref_power_sum, &A::error_spec,
             &A::step_spec, &A::mic_power, &A::echo_power, &A::mic_frame_win, &A::ref_frame_win,
             &A::mic_spec, &A::ref_spec, &A::mic_hist, &A::ref_hist, &A::overlap, &A::ref_spec_hist,
             &A::post_power, &A::ref_power_smooth, &A::ref_power_hist, &A::echo_spec, &A::weights,
             &A::post_error)) {
        return false;
    }
    return !aec.nlp || (holds(aec.nlp->pey) && holds(aec.nlp->pyy) &&
                        all(*aec.nlp, &S::gain2, &S::time, &S::gain_floor, &S::post, &S::prior,
                            &S::gain, &S::residual, &S::ps, &S::out, &S::error_avg, &S::echo_avg,
                            &S::echo_noise, &S::old_ps, &S::zeta));
}

inline bool is_finite(float x) { return std::isfinite(x); }
