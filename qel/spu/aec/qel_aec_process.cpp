// One frame: analysis, partitioned adaptive filter, suppressor or linear synthesis.
#include <cmath>
#include <cstring>

#include "qel/spu/aec/flush_subnormals.hpp"
#include "qel/spu/aec/neon/products.hpp"
#include "qel/spu/aec/qel_aec.hpp"
#include "qel/spu/svad/qel_svad.hpp"

using qel::floats;

namespace {

/// Windows the previous and the current frame into `dst`, then makes the current one the previous.
void window_pair(const qel_aec& aec, float* hist, const float* frame, float* dst) {
    const int32_t n = aec.cfg->frame_size;
    const float* window = floats(aec.window);
    for (int32_t i = 0; i < n; ++i) {
        dst[i] = window[i] * hist[i];
        dst[n + i] = window[n + i] * frame[i];
    }
    std::memcpy(hist, frame, static_cast<size_t>(n) * sizeof(float));
}

/// Divides fft_size samples by fft_size, in place, and transforms them.
void forward_transform(qel_aec* aec, float* time, float* spec) {
    const auto size = static_cast<float>(aec->cfg->fft_size);
    for (int32_t i = 0; i < aec->cfg->fft_size; ++i) time[i] /= size;
    qel_fft_r2c_1d_float32(reinterpret_cast<qel_fft_cpx_float32*>(spec), time,
                           static_cast<qel_fft_r2c_cfg_float32*>(aec->fft.plan));
}

/// Spectra of microphone and reference; that of an inactive reference is zero.
void analyse(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    float* mic = floats(aec->mic_frame_win);
    float* ref = floats(aec->ref_frame_win);
    window_pair(*aec, floats(aec->ref_hist), floats(aec->ref), ref);
    window_pair(*aec, floats(aec->mic_hist), floats(aec->mic), mic);
    forward_transform(aec, mic, floats(aec->mic_spec));
    const auto fft_size = static_cast<uint32_t>(cfg.fft_size);
    if (!cfg.use_vad || qel::svad_judge_count(aec->ref_vad, ref, fft_size) == qel::kSpeech) {
        forward_transform(aec, ref, floats(aec->ref_spec));
    } else {
        qel::clear(aec->ref_spec);
    }
}

/// Normaliser of the step, from the residual and the reference power of the last frame.
void update_norm(qel_aec* aec) {
    const int32_t bins = qel::filter_bins(*aec->cfg);
    const float gain = aec->norm_gain, ceiling = aec->norm_ceiling;
    const float* post_power = floats(aec->post_power) + qel::first_bin(*aec->cfg);
    const float* smooth = floats(aec->ref_power_smooth);
    const float* floor = floats(aec->delta_floor);
    float* norm = floats(aec->norm);
    for (int32_t k = 0; k < bins; ++k) {
        const float v = gain * (post_power[k] + smooth[k]);
        norm[k] = v <= floor[k] ? floor[k] : v > ceiling ? ceiling : v;
    }
}

/// Drops the oldest of `taps` blocks of `len` values; the space for the newest is free then.
float* shift_blocks(float* blocks, int32_t taps, int32_t len) {
    const size_t kept = static_cast<size_t>(taps - 1) * static_cast<size_t>(len);
    std::memmove(blocks, blocks + len, kept * sizeof(float));
    return blocks + kept;
}

/// Takes the new reference spectrum into the histories, and sums and smooths the power.
void update_reference(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    const int32_t bins = qel::filter_bins(cfg), block = cfg.num_bank;
    const float* ref = floats(aec->ref_spec) + 2 * qel::first_bin(cfg);
    float* spec = shift_blocks(floats(aec->ref_spec_hist), cfg.taps, 2 * block);
    float* power = shift_blocks(floats(aec->ref_power_hist), cfg.taps, block);
    for (int32_t k = 0; k < bins; ++k) {
        const float re = ref[2 * k], im = ref[2 * k + 1];
        spec[2 * k] = re;
        spec[2 * k + 1] = im;
        power[k] = re * re + im * im;
    }

    const float* hist = floats(aec->ref_power_hist);
    float* sum = floats(aec->ref_power_sum);
    std::memcpy(sum, hist, static_cast<size_t>(bins) * sizeof(float));
    for (int32_t j = 1; j < cfg.taps; ++j) {
        const float* partition = hist + static_cast<size_t>(j) * static_cast<size_t>(block);
        for (int32_t k = 0; k < bins; ++k) sum[k] += partition[k];
    }

    const double frame_time = static_cast<double>(cfg.frame_size) / cfg.freqs;
    const auto fast = static_cast<float>(0.5 * frame_time);
    const auto slow = static_cast<float>(0.0031 * frame_time);
    float* smooth = floats(aec->ref_power_smooth);
    for (int32_t k = 0; k < bins; ++k) {
        const float a = sum[k] > smooth[k] ? fast : slow;
        smooth[k] = a * sum[k] + (1.0f - a) * smooth[k];
    }
}

/// dst[k] += a[k] * b[k] for `bins` complex values.
void add_products(float* __restrict dst, const float* __restrict a, const float* __restrict b,
                  int32_t bins) {
    for (int32_t k = qel::neon::add_products(dst, a, b, bins); k < bins; ++k) {
        const float ar = a[2 * k], ai = a[2 * k + 1], br = b[2 * k], bi = b[2 * k + 1];
        dst[2 * k] += ar * br - ai * bi;
        dst[2 * k + 1] += ar * bi + ai * br;
    }
}

/// dst[k] += mu * g[k] * conj(x[k]) for `bins` complex values.
void add_conj_products(float* __restrict dst, float mu, const float* __restrict g,
                       const float* __restrict x, int32_t bins) {
    for (int32_t k = qel::neon::add_conj_products(dst, mu, g, x, bins); k < bins; ++k) {
        const float gr = g[2 * k], gi = g[2 * k + 1], xr = x[2 * k], xi = x[2 * k + 1];
        dst[2 * k] += mu * (gr * xr + gi * xi);
        dst[2 * k + 1] += mu * (gi * xr - gr * xi);
    }
}

/// Where partition `j` of a complex history or of the weights starts.
size_t partition_at(const qel_aec_cfg& cfg, int32_t j) {
    return static_cast<size_t>(j) * 2 * static_cast<size_t>(cfg.num_bank);
}

/// Echo estimate and error. Skipped bins keep the estimate that bound_residual() left: the whole
/// microphone of the frame before, as no residual is ever computed for them.
void estimate_echo(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    const int32_t bins = qel::filter_bins(cfg);
    float* echo = floats(aec->echo_spec);
    float* filtered = echo + 2 * qel::first_bin(cfg);
    std::fill_n(filtered, 2 * bins, 0.0f);
    for (int32_t j = 0; j < cfg.taps; ++j) {
        const size_t at = partition_at(cfg, j);
        add_products(filtered, floats(aec->weights) + at, floats(aec->ref_spec_hist) + at, bins);
    }
    const float* mic = floats(aec->mic_spec);
    float* error = floats(aec->error_spec);
    for (int32_t i = 0; i < 2 * cfg.fft_bins; ++i) error[i] = mic[i] - echo[i];
}

/// Normalised step of the weights, and the error that remains after it. The weights are not
/// constrained in time: what wraps around is left to the suppressor.
void adapt(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    const int32_t bins = qel::filter_bins(cfg);
    const float* power = floats(aec->ref_power_sum);
    const float* norm = floats(aec->norm);
    const float* error = floats(aec->error_spec) + 2 * qel::first_bin(cfg);
    float* step = floats(aec->step_spec);
    float* post = floats(aec->post_error) + 2 * qel::first_bin(cfg);
    const float post_gain = aec->post_error_gain;
    for (int32_t k = 0; k < bins; ++k) {
        const float denominator = power[k] + norm[k];
        const float amount = post_gain * power[k];
        step[2 * k] = error[2 * k] / denominator;
        step[2 * k + 1] = error[2 * k + 1] / denominator;
        post[2 * k] = error[2 * k] - step[2 * k] * amount;
        post[2 * k + 1] = error[2 * k + 1] - step[2 * k + 1] * amount;
    }
    for (int32_t j = 0; j < cfg.taps; ++j) {
        const size_t at = partition_at(cfg, j);
        add_conj_products(floats(aec->weights) + at, aec->step_size, step,
                          floats(aec->ref_spec_hist) + at, bins);
    }
}

/// Bounds the residual by the microphone and makes the echo estimate agree with it.
void bound_residual(qel_aec* aec) {
    const int32_t bins = aec->cfg->fft_bins, first = qel::first_bin(*aec->cfg);
    const float* mic = floats(aec->mic_spec);
    float* post = floats(aec->post_error);
    float* echo = floats(aec->echo_spec);
    float* post_power = floats(aec->post_power);
    float* mic_power = floats(aec->mic_power);
    float* echo_power = floats(aec->echo_power);
    const auto power = [](const float* spec, int32_t k) {
        return spec[2 * k] * spec[2 * k] + spec[2 * k + 1] * spec[2 * k + 1];
    };
    for (int32_t k = 0; k < bins; ++k) {
        const float mic_re = mic[2 * k], mic_im = mic[2 * k + 1];
        const float p = power(post, k), m = power(mic, k);
        const bool bound = p > m && k >= first;
        const float re = bound ? mic_re : post[2 * k], im = bound ? mic_im : post[2 * k + 1];
        mic_power[k] = m;
        post_power[k] = bound ? m : p;
        echo_power[k] = power(echo, k);  // of the estimate before the bound, and it stays so
        post[2 * k] = re;
        post[2 * k + 1] = im;
        echo[2 * k] = mic_re - re;
        echo[2 * k + 1] = mic_im - im;
    }
}

}  // namespace

namespace qel {

void inverse_transform(qel_aec* aec, const float* spec, float* time) {
    // The portable variant by name: its rounding is part of the output.
    qel_fft_c2r_1d_float32_c(time, reinterpret_cast<const qel_fft_cpx_float32*>(spec),
                             static_cast<qel_fft_r2c_cfg_float32*>(aec->fft.plan));
}

void overlap_add(const qel_aec* aec, const float* time, float* overlap, float* out) {
    const int32_t n = aec->cfg->frame_size;
    const auto scale = static_cast<float>(aec->cfg->fft_size);
    const float* window = floats(aec->window);
    for (int32_t i = 0; i < n; ++i) {
        out[i] = (overlap[i] + window[i] * time[i]) * scale;
        overlap[i] = window[n + i] * time[n + i];
    }
}

}  // namespace qel

int32_t qel_aec_process(qel_aec* aec) {
    const qel::FlushSubnormals guard;
    analyse(aec);
    update_norm(aec);
    update_reference(aec);
    estimate_echo(aec);
    adapt(aec);
    bound_residual(aec);

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
    qel::to_samples(frame, aec->out->data, aec->cfg->frame_size);
    return 0;
}
