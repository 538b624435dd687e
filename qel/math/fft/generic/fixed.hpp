// What the int32 and int16 shims share: plans, and the choice by direction and scaled flag.
#pragma once

#include "qel/math/fft/generic/transform.hpp"

namespace qel::fft {

/// A real plan; its twiddles have the general scheme's order at every length.
template <class E, class Plan>
Plan* new_fixed_r2c_plan(int32_t nfft) {
    auto* plan = new_r2c_plan<Plan, typename E::Point>(nfft);
    if (plan == nullptr) return nullptr;
    qel_fft_generate_twiddles_impl_float32(plan->twiddles, plan->factors, plan->ncfft, E::line);
    for (int32_t i = 0; i < plan->ncfft / 2; ++i) {
        plan->super_twiddles[i] =
            E::unit_point((static_cast<double>(i + 1) / plan->ncfft + 0.5) / 2);
    }
    return plan;
}

template <class E, class Plan>
void fixed_c2c(typename E::Point* out, const typename E::Point* in, const Plan& plan, bool inverse,
               bool scaled) {
    const auto run = inverse
                         ? (scaled ? Engine<E, true, true>::run : Engine<E, true, false>::run)
                         : (scaled ? Engine<E, false, true>::run : Engine<E, false, false>::run);
    run(out, in, plan.factors, plan.twiddles, plan.buffer, is_fast(plan.factors));
}

template <class E, class Plan>
void fixed_r2c(typename E::Point* out, const void* in, const Plan& plan, bool scaled) {
    const auto run = scaled ? real_to_complex<E, true, Plan> : real_to_complex<E, false, Plan>;
    run(out, static_cast<const typename E::Point*>(in), plan);
}

template <class E, class Plan>
void fixed_c2r(void* out, const typename E::Point* in, const Plan& plan, bool scaled) {
    const auto run = scaled ? complex_to_real<E, true, Plan> : complex_to_real<E, false, Plan>;
    run(static_cast<typename E::Point*>(out), in, plan);
}

}  // namespace qel::fft
