// The float transforms in registers of at most `kMost` lanes, which leave the lengths that these
// do not serve to `kOthers`.
#pragma once

#include "qel/math/fft/x86/float32.hpp"
#include "qel/math/fft/x86/wide.hpp"

namespace qel::fft {
namespace {  // each source compiles these for its own processors

/// Calls run(lanes) with the number of lanes that serves the factors of `n`; false if none does.
/// Four lanes are left to the source that has no more.
template <int kMost, class Run>
bool with_lanes(const int32_t* factors, int32_t n, Run run) {
    const int lanes = std::min(kMost, lanes_for(factors, n));
    if (lanes == kMost) return run(Lanes<kMost>{}), true;
    if constexpr (kMost == 16) {
        if (lanes == 8) return run(Lanes<8>{}), true;
    }
    return false;
}

float* parts(FloatPoint* at) { return &at->r; }

template <int kMost, const FloatTransforms& kOthers>
struct Transforms {
    static void c2c(FloatPoint* out, const FloatPoint* in, const qel_fft_cfg_float32& plan,
                    bool inverse) {
        if (plan.nfft == 24) {
            return (inverse ? run_24<true> : run_24<false>)(out, in, plan.twiddles);
        }
        const bool done = with_lanes<kMost>(plan.factors, plan.nfft, [&](auto lanes) {
            using From = InterleavedIn<lanes>;
            using To = Interleaved<lanes>;
            const auto run = inverse ? WideEngine<lanes, true>::template run<To, From>
                                     : WideEngine<lanes, false>::template run<To, From>;
            const bool scaled = is_fast(plan.factors);
            run({out}, {in}, plan.factors, plan.twiddles, parts(plan.buffer), parts(out),
                scaled ? 1 / static_cast<float>(plan.nfft) : 1);
        });
        if (!done) kOthers.c2c(out, in, plan, inverse);
    }

    static void r2c(FloatPoint* out, const float* in, const qel_fft_r2c_cfg_float32& plan) {
        const int32_t m = plan.ncfft;
        const auto* points = reinterpret_cast<const FloatPoint*>(in);
        const bool done = with_lanes<kMost>(plan.factors, m, [&](auto lanes) {
            const Planar<lanes> z{parts(plan.buffer + m), m};
            WideEngine<lanes, false>::run(z, InterleavedIn<lanes>{points}, plan.factors,
                                          plan.twiddles, parts(plan.buffer), z.at);
            const FloatPoint first = z[0];
            split_wide<lanes, false>(Interleaved<lanes>{out}, z, plan.super_twiddles, m);
            out[0] = {first.r + first.i, 0};
            out[m] = {first.r - first.i, 0};
        });
        if (!done) kOthers.r2c(out, in, plan);
    }

    static void c2r(float* out, const FloatPoint* in, const qel_fft_r2c_cfg_float32& plan) {
        const int32_t m = plan.ncfft;
        auto* points = reinterpret_cast<FloatPoint*>(out);
        const bool done = with_lanes<kMost>(plan.factors, m, [&](auto lanes) {
            const Planar<lanes> z{parts(plan.buffer), m};
            split_wide<lanes, true>(z, InterleavedIn<lanes>{in}, plan.super_twiddles, m);
            z.put(0, {(in[0].r + in[m].r) * 0.5f, (in[0].r - in[m].r) * 0.5f});
            WideEngine<lanes, true>::run(Interleaved<lanes>{points}, z, plan.factors, plan.twiddles,
                                         parts(plan.buffer + m), out, 1 / static_cast<float>(m));
        });
        if (!done) kOthers.c2r(out, in, plan);
    }

    static constexpr FloatTransforms kTable = {c2c, r2c, c2r};
};

}  // namespace
}  // namespace qel::fft
