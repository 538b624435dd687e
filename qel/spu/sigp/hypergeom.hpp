// The hypergeometric gain, for loops over bins.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

namespace qel {

// (Gamma(5/4) M(-1/4; 1; -x))^2 at x = 0, 0.5, ... 10.
inline constexpr std::array<float, 21> kHypergeom = {
    0.82157f, 1.02017f, 1.20461f, 1.37534f, 1.53363f, 1.68092f, 1.81865f,
    1.94811f, 2.07038f, 2.18638f, 2.29688f, 2.40255f, 2.50391f, 2.60144f,
    2.69551f, 2.78647f, 2.87458f, 2.96015f, 3.04333f, 3.12431f, 3.20326f};

// A loop looks the table up between the two functions below; they are apart for its sake.

/// Where in the table x is, 0 to just below 20; the nearest place for one that is not inside.
inline float hypergeom_place(float x) {
    return std::min(std::max(0.0f, 2.0f * x), 20.0f - 0x1p-19f);
}

/// The gain of x from what it is inside the table and above.
inline float hypergeom_choice(float x, float inside, float above) {
    const float steps = 2.0f * x;
    const float ratio = steps >= 20.0f ? above : inside;
    return steps >= 0.0f ? ratio : 1.0f;  // NaN too
}

/// qel_sigp_hypergeom_gain().
inline float hypergeom_gain(float x) {
    const float place = hypergeom_place(x);
    const auto k = static_cast<uint32_t>(static_cast<int32_t>(place));
    const float r = place - static_cast<float>(static_cast<int32_t>(k));
    const float between = r * kHypergeom[k + 1] + (1.0f - r) * kHypergeom[k];
    return hypergeom_choice(x, between / std::sqrt(x + 0.0001f), 1.0f + 0.1296f / x);
}

}  // namespace qel
