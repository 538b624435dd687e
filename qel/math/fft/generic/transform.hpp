// The real transforms of all element types: a complex one of half the length, and the split between
// the two.
#pragma once

#include "qel/math/fft/generic/engine.hpp"
#include "qel/math/fft/generic/plan.hpp"

namespace qel::fft {

/// Bins 1 .. m - 1 of the split, in pairs k and m - k. With x the real signal and Z the spectrum of
/// the pairs x[2n] + i x[2n + 1], Z is the spectrum of the even samples plus i times that of the
/// odd ones; their symmetries tell the two apart. See Sorensen et al., Real-valued fast Fourier
/// transform algorithms, IEEE Trans. ASSP 35, 1987. The way back differs in the sign of the angle
/// only.
template <class E, bool kInverse, class Leave>
void split_pairs(typename E::Point* dst, const typename E::Point* src,
                 const typename E::Point* twiddles, int32_t m, Leave leave) {
    constexpr Lanes<1> kOne;
    if (too_short<E>((m + 1) / 2 - 1)) {
        return split_pairs<typename E::Scalar, kInverse>(dst, src, twiddles, m, leave);
    }
    const auto pair = [=](auto lanes, int32_t k, auto at_k, auto at_mirror) QEL_FFT_STEP {
        const auto w = E::load(lanes, twiddles + k - 1);
        const auto sum = plus_conj(E::guard(at_k), E::guard(at_mirror));
        const auto turned = E::template mul_mirrored<kInverse>(at_k, at_mirror, w);
        return std::array{leave(sum + turned), leave(conj(sum - turned))};
    };
    for_lanes<E>(1, (m + 1) / 2, [=](auto lanes, int32_t k) QEL_FFT_STEP {
        const auto [low, high] =
            pair(lanes, k, E::load(lanes, src + k), E::load_back(lanes, src + m - k));
        E::store(lanes, dst + k, low);
        E::store_back(lanes, dst + m - k, high);
    });
    if (const int32_t k = m / 2; m % 2 == 0) {
        const auto middle = E::load(kOne, src + k);
        E::store(kOne, dst + k, pair(kOne, k, middle, middle)[1]);
    }
}

template <class E, bool kScaled, class Plan>
void real_to_complex(typename E::Point* out, const typename E::Point* in, const Plan& plan) {
    constexpr Lanes<1> kOne;
    const int32_t m = plan.ncfft;
    if (m == 0) {  // no samples: the sum that bin 0 is has no terms
        *out = {};
        return;
    }
    const auto* z = plan.buffer;
    Engine<E, false, kScaled>::run(plan.buffer, in, plan.factors, plan.twiddles, plan.buffer + m,
                                   is_fast(plan.factors));
    auto dc = E::guard(E::load(kOne, z)), nyquist = dc;
    dc = {dc.r + dc.i, 0};
    nyquist = {nyquist.r - nyquist.i, 0};
    constexpr int kEndHalvings = kScaled, kPairHalvings = kEndHalvings + 1;
    const auto leave_end = E::template leave_split<kScaled, kEndHalvings>();
    E::store(kOne, out, leave_end(dc));
    E::store(kOne, out + m, leave_end(nyquist));
    split_pairs<E, false>(out, z, plan.super_twiddles, m,
                          E::template leave_split<kScaled, kPairHalvings>());
}

template <class E, bool kScaled, class Plan>
void complex_to_real(typename E::Point* out, const typename E::Point* in, const Plan& plan) {
    constexpr Lanes<1> kOne;
    const int32_t m = plan.ncfft;
    if (m == 0) return;
    constexpr int kHalvings = kScaled;
    const auto leave = E::template leave_split<kScaled, kHalvings>();
    const auto dc = E::load(kOne, in), nyquist = E::load(kOne, in + m);
    auto first = dc;
    first = {dc.r + nyquist.r, dc.r - nyquist.r};
    E::store(kOne, plan.buffer, leave(E::guard(first)));
    split_pairs<E, true>(plan.buffer, in, plan.super_twiddles, m, leave);
    Engine<E, true, kScaled>::run(out, plan.buffer, plan.factors, plan.twiddles, plan.buffer + m,
                                  is_fast(plan.factors));
}

}  // namespace qel::fft
