// Analysis window, delta floor and hypergeometric gain.
#include "qel/spu/sigp/qel_sigp.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <span>

namespace {

/// The elements of a float vector, `n` of them at most; none of any other vector.
std::span<float> float_elements(qel_vector_union* vec, uint32_t n) {
    if (vec->type != QEL_VECTOR_FLOAT32 || !vec->vec) return {};
    auto* floats = static_cast<qel_vector_float32*>(vec->vec);
    return {floats->data, std::min(n, floats->len)};
}

// (Gamma(5/4) M(-1/4; 1; -x))^2 at x = 0, 0.5, ... 10.
constexpr std::array<float, 21> kHypergeom = {
    0.82157f, 1.02017f, 1.20461f, 1.37534f, 1.53363f, 1.68092f, 1.81865f,
    1.94811f, 2.07038f, 2.18638f, 2.29688f, 2.40255f, 2.50391f, 2.60144f,
    2.69551f, 2.78647f, 2.87458f, 2.96015f, 3.04333f, 3.12431f, 3.20326f};

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

float qel_sigp_hypergeom_gain(float x) {
    const float steps = 2.0f * x;
    const float whole = std::floor(steps);
    if (!(whole >= 0.0f)) return 1.0f;  // NaN too
    if (whole > 19.0f) return 1.0f + 0.1296f / x;
    const auto k = static_cast<size_t>(whole);
    const float r = steps - whole;
    return (r * kHypergeom[k + 1] + (1.0f - r) * kHypergeom[k]) / std::sqrt(x + 0.0001f);
}
