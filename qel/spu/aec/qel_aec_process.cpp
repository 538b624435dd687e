// One frame: analysis, partitioned adaptive filter, suppressor or linear synthesis.
#include "qel/math/fft/qel_fft_neon.h"
#include "qel/spu/aec/flush_subnormals.hpp"
#include "qel/spu/aec/kernels/kernels.hpp"
#include "qel/spu/aec/qel_aec.hpp"
#include "qel/spu/aec/qel_aec_tracking.hpp"
#include "qel/spu/svad/qel_svad.hpp"

namespace kernels = qel::kernels;
using qel::floats;

namespace {

/// Spectra of microphone and reference; that of an inactive reference is zero. The transforms take
/// signals divided by their length, the detector an undivided one.
void analyse(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    const auto size = static_cast<float>(cfg.fft_size);
    const float* window = floats(aec->window);
    float* mic = floats(aec->mic_frame_win);
    float* ref = floats(aec->ref_frame_win);
    kernels::window_pair(window, floats(aec->ref_hist), floats(aec->ref), 1, ref, cfg.frame_size);
    kernels::window_pair(window, floats(aec->mic_hist), floats(aec->mic), size, mic,
                         cfg.frame_size);
    qel::forward_transform(aec, mic, floats(aec->mic_spec));
    qel::fetch_ahead(aec);
    const auto fft_size = static_cast<uint32_t>(cfg.fft_size);
    const bool sounds =
        !cfg.use_vad || qel::svad_judge_count(aec->ref_vad, ref, fft_size) == qel::kSpeech;
    if (sounds) {
        kernels::divide(ref, size, cfg.fft_size);
        qel::forward_transform(aec, ref, floats(aec->ref_spec));
    } else {
        qel::clear(aec->ref_spec);
    }
    if (const auto* t = qel::tracking_of(aec); t && t->on.use_align) {
        qel::align_reference(aec, sounds);
    }
}

/// Normaliser of the step, from the residual and the reference power of the last frame.
void update_norm(qel_aec* aec) {
    if (const auto* t = qel::tracking_of(aec); t && t->on.use_kalman) return;  // does without
    const float* post_power = floats(aec->post_power) + qel::first_bin(*aec->cfg);
    kernels::normalise(aec->norm_gain, aec->norm_ceiling, floats(aec->delta_floor), post_power,
                       floats(aec->ref_power_smooth), floats(aec->norm),
                       qel::filter_bins(*aec->cfg));
}

/// Takes the new reference's power into the history, and sums and smooths it.
void update_reference(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    const double frame_time = static_cast<double>(cfg.frame_size) / cfg.freqs;
    kernels::update_power({.spec = qel::filter_part(*aec, aec->ref_spec),
                           .history = floats(aec->ref_power_hist),
                           .sum = floats(aec->ref_power_sum),
                           .smooth = floats(aec->ref_power_smooth),
                           .fast = static_cast<float>(0.5 * frame_time),
                           .slow = static_cast<float>(0.0031 * frame_time)},
                          qel::partitions(cfg));
}

/// Takes the new reference into the history; echo estimate and error. Skipped bins keep the
/// estimate that bound_residual() left: the whole microphone of the frame before, as no residual is
/// ever computed for them.
void estimate_echo(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    kernels::estimate_echo({.mic = qel::filter_part(*aec, aec->mic_spec),
                            .spec = qel::filter_part(*aec, aec->ref_spec),
                            .history = floats(aec->ref_spec_hist),
                            .weights = floats(aec->weights),
                            .echo = qel::filter_part(*aec, aec->echo_spec),
                            .error = qel::filter_part(*aec, aec->error_spec)},
                           qel::partitions(cfg));
    kernels::subtract(floats(aec->mic_spec), floats(aec->echo_spec), floats(aec->error_spec),
                      2 * qel::first_bin(cfg));
}

/// Normalised step of the weights, and the error that remains after it. The weights are not
/// constrained in time: what wraps around is left to the suppressor.
void adapt(qel_aec* aec) {
    if (const auto* t = qel::tracking_of(aec); t && t->on.use_kalman) {
        qel::take_kalman_step(aec);
        return;
    }
    float* step = floats(aec->step_spec);
    kernels::take_step(qel::filter_part(*aec, aec->error_spec), floats(aec->ref_power_sum),
                       floats(aec->norm), aec->post_error_gain, step,
                       qel::filter_part(*aec, aec->post_error), qel::filter_bins(*aec->cfg));
    kernels::adapt(aec->step_size, step, floats(aec->ref_spec_hist), floats(aec->weights),
                   qel::partitions(*aec->cfg));
}

/// Bounds the residual by the microphone and makes the echo estimate agree with it.
void bound_residual(qel_aec* aec) {
    kernels::bound_residual({.mic = floats(aec->mic_spec),
                             .post = floats(aec->post_error),
                             .echo = floats(aec->echo_spec),
                             .mic_power = floats(aec->mic_power),
                             .post_power = floats(aec->post_power),
                             .echo_power = floats(aec->echo_power)},
                            qel::first_bin(*aec->cfg), aec->cfg->fft_bins);
}

}  // namespace

namespace qel {

void forward_transform(qel_aec* aec, float* time, float* spec) {
    qel::fetch_ahead(aec);
    qel_fft_r2c_1d_float32(reinterpret_cast<qel_fft_cpx_float32*>(spec), time,
                           static_cast<qel_fft_r2c_cfg_float32*>(aec->fft.plan));
}

void inverse_transform(qel_aec* aec, const float* spec, float* time) {
    // By name, not through the pointer, which a host may set: the rounding is part of the output.
    // The two round alike.
#ifdef __ARM_NEON
    constexpr auto transform = qel_fft_c2r_1d_float32_neon;
#else
    constexpr auto transform = qel_fft_c2r_1d_float32_c;
#endif
    transform(time, reinterpret_cast<const qel_fft_cpx_float32*>(spec),
              static_cast<qel_fft_r2c_cfg_float32*>(aec->fft.plan));
}

void overlap_add(const qel_aec* aec, const float* time, float* overlap, float* out) {
    kernels::overlap_add(floats(aec->window), time, static_cast<float>(aec->cfg->fft_size), overlap,
                         out, aec->cfg->frame_size);
}

}  // namespace qel

int32_t qel_aec_process(qel_aec* aec) {
    const qel::FlushSubnormals guard;
    // While a step runs, the memory of later ones is on its way.
    for (auto step :
         {analyse, update_norm, update_reference, estimate_echo, adapt, bound_residual}) {
        qel::fetch_ahead(aec);
        step(aec);
    }

    const float* frame;
    if (aec->cfg->use_nlp) {
        qel_aec_nlp_process(aec);
        frame = floats(aec->nlp->out);
    } else {
        // The linear mode: the bounded residual as it is. Two buffers of the analysis are free now.
        float* time = floats(aec->ref_frame_win);
        float* linear = floats(aec->mic_frame_win);
        qel::inverse_transform(aec, floats(aec->post_error), time);
        qel::overlap_add(aec, time, floats(aec->overlap), linear);
        frame = linear;
    }
    kernels::to_samples(frame, aec->out->data, aec->cfg->frame_size);
    return 0;
}
