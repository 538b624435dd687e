// Analysis window, delta floor and hypergeometric gain.
#include "qel/spu/sigp/qel_sigp.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

#include "qel/spu/sigp/hypergeom.hpp"

namespace {

/// The elements of a float vector, `n` of them at most; none of any other vector.
std::span<float> float_elements(qel_vector_union* vec, uint32_t n) {
    if (vec->type != QEL_VECTOR_FLOAT32 || !vec->vec) return {};
    auto* floats = static_cast<qel_vector_float32*>(vec->vec);
    return {floats->data, std::min(n, floats->len)};
}

}  // namespace

void qel_sigp_hanning_window_with_sqrt(qel_vector_union* vec, uint32_t n) {
    uint32_t i = 0;
    for (float& w : float_elements(vec, n)) {
        const double angle = 2.0 * std::numbers::pi * (i++ + 0.5) / n;
        w = std::sqrt((1.0f - std::cos(static_cast<float>(angle))) / 2.0f);
    }
}

void qel_sigp_gen_delta_floor(qel_vector_union* vec, uint32_t n, uint32_t m, float scale) {
    const float top = static_cast<float>(m) * scale;
    const float least = 2.0f / static_cast<float>(m);
    uint32_t i = 0;
    for (float& value : float_elements(vec, n)) {
        const float fall = 1.0f - static_cast<float>(i++) / static_cast<float>(n);
        value = top * std::max(least, fall);
    }
}

float qel_sigp_hypergeom_gain(float x) { return qel::hypergeom_gain(x); }
