// All that a canceller remembers from frame to frame, for tests that look for what must not be in
// it.
#pragma once

#include <algorithm>
#include <cmath>

#include "qel/spu/aec/qel_aec_tracking.hpp"

/// Whether `holds` is true of every number in the instance's vectors and smoothed values.
template <class Holds>
bool all_states(const qel_aec& aec, Holds holds) {
    // In both records the vectors lie side by side.
    const auto all = [&](const qel_vector_union* u, const qel_vector_union& last) {
        for (; u <= &last; ++u) {
            const auto* v = static_cast<const qel_vector_float32*>(u->vec);
            if (!std::all_of(v->data, v->data + v->len, holds)) return false;
        }
        return true;
    };
    // The tracking mode's minima are infinite where nothing was seen yet.
    const qel::Tracking* t = qel::tracking_of(&aec);
    const auto holds_or_unseen = [&](float x) { return x == HUGE_VALF || holds(x); };
    if (t && !std::all_of(t->memory, t->memory + t->floats, holds_or_unseen)) return false;
    const qel_aec_nlp* nlp = aec.nlp;
    return all(&aec.mic, aec.ref) && all(&aec.mic_pass, aec.mic_pass) &&
           all(&aec.window, aec.post_error) &&
           (!nlp || (all(&nlp->weight_left, nlp->overlap) && holds(nlp->pey) && holds(nlp->pyy)));
}

inline bool is_finite(float x) { return std::isfinite(x); }
