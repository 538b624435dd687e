// Residual echo suppressor: Bark filter bank, leak, spectral gains and synthesis, frame by frame.
#include "qel/spu/aec/qel_aec_nlp.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "qel/core/internal.hpp"
#include "qel/spu/aec/flush_subnormals.hpp"
#include "qel/spu/aec/kernels/kernels.hpp"
#include "qel/spu/aec/keys.hpp"
#include "qel/spu/aec/qel_aec.hpp"
#include "qel/spu/aec/qel_aec_tracking.hpp"
#include "qel/spu/sigp/hypergeom.hpp"
#include "qel/spu/svad/qel_svad.hpp"

namespace kernels = qel::kernels;
using qel::floats;

namespace {

constexpr char kSource[] = "qel/spu/aec/qel_aec_nlp";
constexpr int16_t kMaxAdaptCount = 20000;
constexpr int32_t kSkippedBands = 6;  // at the low end, and one fewer at the high end, of the bands
                                      // whose SNR tells speech

/// The private state of a suppressor, behind the record that callers see.
struct Suppressor : qel_aec_nlp {
    qel::VectorBlock vectors;
    qel_vector_int16* band_starts;  // the first bin of each band, for kernels::Bank
};

/// Calls fn(vector, elements) for each float vector of the suppressor, in the order in which a
/// frame comes to need them.
template <class Fn>
void for_each_vector(qel_aec_nlp* nlp, Fn fn) {
    const auto frame = static_cast<uint32_t>(nlp->cfg->frame_size);
    const auto bins = static_cast<uint32_t>(nlp->cfg->fft_bins);
    const uint32_t all = bins + static_cast<uint32_t>(nlp->cfg->nb_banks);
    for (auto* u : {&nlp->error_avg, &nlp->echo_avg, &nlp->weight_left, &nlp->weight_right}) {
        fn(u, bins);
    }
    for (auto* u : {&nlp->residual, &nlp->echo_noise, &nlp->ps, &nlp->old_ps, &nlp->post,
                    &nlp->prior, &nlp->zeta, &nlp->gain_floor, &nlp->gain, &nlp->gain2}) {
        fn(u, all);
    }
    fn(&nlp->time, nlp->cfg->fft_size);
    fn(&nlp->overlap, frame);
    fn(&nlp->out, frame);
    fn(&nlp->spec, 2 * nlp->cfg->fft_size);
}

/// Critical-band rate in Bark of a frequency in Hz (Wang, Sekey and Gersho, IEEE JSAC 10(5), 1992).
float bark(float f) {
    return static_cast<float>(13.1 * std::atan(0.00074f * f) + 2.24 * std::atan(1.85e-8f * f * f) +
                              1e-4 * f);
}

/// Gives each bin two neighbouring bands, weighted by its distance from their centres; the bands
/// lie evenly on the Bark scale from 0 to the top bin.
void build_filter_bank(qel_aec_nlp* nlp) {
    const qel_aec_nlp_cfg& cfg = *nlp->cfg;
    const int32_t bins = cfg.fft_bins, bands = cfg.nb_banks;
    int16_t* left = nlp->band_left->data;
    int16_t* right = nlp->band_right->data;
    float* weight_left = floats(nlp->weight_left);
    float* weight_right = floats(nlp->weight_right);

    const float width = static_cast<float>(cfg.freqs) / static_cast<float>(2 * cfg.frame_size);
    // From the last bin's own frequency, not from freqs / 2: so it lands exactly on the last band.
    const float top = bark(static_cast<float>(bins - 1) * width);
    const float interval = top / static_cast<float>(bands - 1);
    for (int32_t i = 0; i < bins; ++i) {
        const float v = bark(static_cast<float>(i) * width) / interval;
        const auto id = static_cast<int32_t>(v);
        const bool last = id >= bands - 1;
        const float above = v - static_cast<float>(id);
        left[i] = static_cast<int16_t>(last ? bands - 2 : id);
        right[i] = static_cast<int16_t>(left[i] + 1);
        weight_left[i] = last ? 0.0f : 1.0f - above;
        weight_right[i] = last ? 1.0f : above;
    }
    int16_t* starts = static_cast<Suppressor*>(nlp)->band_starts->data;
    for (int32_t band = 0; band < bands; ++band) {
        starts[band] = static_cast<int16_t>(std::lower_bound(left, left + bins, band) - left);
    }
}

/// Follows the share of the echo estimate that is still in the error. A frame whose sums are not
/// finite (32-bit samples can be so loud) teaches nothing: what lodged here would stay.
void update_leak(qel_aec_nlp* nlp, const qel_aec& aec) {
    const qel_aec_nlp_cfg& cfg = *nlp->cfg;
    const float* error = floats(aec.post_power);
    const float* echo = floats(aec.echo_power);
    float* error_avg = floats(nlp->error_avg);
    float* echo_avg = floats(nlp->echo_avg);

    const float frame_time = static_cast<float>(cfg.frame_size) / static_cast<float>(cfg.freqs);
    const auto [see, syy, cross, echo_auto] =
        kernels::sum_leak(error, echo, error_avg, echo_avg, cfg.fft_bins);
    if (!std::isfinite(see) || !std::isfinite(syy)) return;
    kernels::smooth(frame_time, error, error_avg, cfg.fft_bins);
    kernels::smooth(frame_time, echo, echo_avg, cfg.fft_bins);

    // An error of exactly zero (a digitally silent microphone) tells nothing about the leak.
    if (!(see > 0.0f) || !std::isfinite(cross) || !std::isfinite(echo_auto)) return;
    const float alpha = std::min(2.0f * frame_time * syy, 0.5f * frame_time * see) / see;
    const float pyy = std::sqrt(1.0f + echo_auto);
    const float pey = cross / pyy;
    nlp->pyy = std::max(1.0f, alpha * pyy + (1.0f - alpha) * nlp->pyy);
    nlp->pey = alpha * pey + (1.0f - alpha) * nlp->pey;
    nlp->pey = std::min(std::max(nlp->pey, nlp->min_leak * nlp->pyy), nlp->pyy);
}

/// Residual echo of the bins: the leaked share of the echo estimate, falling off slowly.
void update_echo_noise(qel_aec_nlp* nlp, const qel_aec& aec) {
    const int32_t bins = nlp->cfg->fft_bins;
    const float leak = qel::leak_share(*nlp);
    const float* echo_power = floats(aec.echo_power);
    float* residual = floats(nlp->residual);
    float* echo = floats(nlp->echo_noise);
    const float lowest = leak * echo_power[0];
    // NaN fails both comparisons.
    if (lowest >= 0.0f && lowest < static_cast<float>(bins) * 1e9f) {
        kernels::raise_noise(leak, echo_power, residual, echo, bins);
    } else {
        std::fill_n(residual, bins, 0.0f);
        kernels::raise_noise(0, residual, residual, echo, bins);
    }
}

/// Error power and residual echo of the bins, and the bands of both.
void update_power(qel_aec_nlp* nlp, qel_aec* aec) {
    float* ps = floats(nlp->ps);
    std::copy_n(floats(aec->post_power), nlp->cfg->fft_bins, ps);
    const kernels::Bank bank = qel::bank_of(*nlp);
    if (const auto* t = qel::tracking_of(aec); t && t->on.use_residual) {
        qel::estimate_residual(aec);
        kernels::sum_bands(bank, floats(nlp->echo_noise));
    } else {
        update_echo_noise(nlp, *aec);
        kernels::sum_bands(bank, ps, floats(nlp->echo_noise));
    }
    // The first frame leaves the last band's history at zero; its gain has always started so.
    if (nlp->adapt_count == 1) {
        std::copy_n(ps, nlp->cfg->frame_size + nlp->cfg->nb_banks, floats(nlp->old_ps));
    }
}

/// A-posteriori and decision-directed a-priori SNR, and the bands' smoothed a-priori SNR.
void update_snr(qel_aec_nlp* nlp) {
    const int32_t bins = nlp->cfg->fft_bins, bands = nlp->cfg->nb_banks;
    const float* prior = floats(nlp->prior);
    kernels::update_snr(floats(nlp->ps), floats(nlp->old_ps), floats(nlp->echo_noise),
                        floats(nlp->post), floats(nlp->prior), bins + bands);
    kernels::smooth(0.3f, prior + bins, floats(nlp->zeta) + bins, bands);
}

/// Least gain of the bands, from the suppression in dB that the frame calls for.
void update_gain_floor(qel_aec_nlp* nlp, float speech) {
    const int32_t bins = nlp->cfg->fft_bins, bands = nlp->cfg->nb_banks;
    const float* echo = floats(nlp->echo_noise) + bins;
    float* floor = floats(nlp->gain_floor) + bins;
    const float db = speech * static_cast<float>(nlp->echo_suppress_active) +
                     (1.0f - speech) * static_cast<float>(nlp->echo_suppress);
    const float echo_floor = std::exp(0.2302585f * db);
    for (int32_t b = 0; b < bands; ++b) {
        floor[b] = std::sqrt(echo_floor * echo[b]) / std::sqrt(echo[b] + 1.0f);
    }
}

/// Gain and speech-presence gain of the bands.
void update_band_gains(qel_aec_nlp* nlp, float speech) {
    const int32_t bins = nlp->cfg->fft_bins, all = bins + nlp->cfg->nb_banks;
    const float* post = floats(nlp->post);
    const float* prior = floats(nlp->prior);
    const float* zeta = floats(nlp->zeta);
    const float* ps = floats(nlp->ps);
    float* old_ps = floats(nlp->old_ps);
    float* gain = floats(nlp->gain);
    float* gain2 = floats(nlp->gain2);
    kernels::estimate_gain(post + bins, prior + bins, gain + bins, nlp->cfg->nb_banks);
    for (int32_t i = bins; i < all; ++i) {
        const float theta = (post[i] + 1.0f) * (prior[i] / (prior[i] + 1.0f));
        old_ps[i] = 0.2f * old_ps[i] + 0.8f * (gain[i] * gain[i]) * ps[i];
        const float absence = 1.0f - (0.8f / (0.15f / zeta[i] + 1.0f) + 0.199f) * speech;
        gain2[i] =
            1.0f / (1.0f + absence / (1.0f - absence) * (1.0f + prior[i]) * std::exp(-theta));
    }
}

/// Floor and gain of each bin, the gain kept near its bands' and weighted by speech presence.
void update_bin_gains(qel_aec_nlp* nlp) {
    float* floor = floats(nlp->gain_floor);
    float* gain = floats(nlp->gain);
    float* gain2 = floats(nlp->gain2);
    kernels::spread_bands(qel::bank_of(*nlp), gain, gain2, floor);
    kernels::update_bin_gains({.post = floats(nlp->post),
                               .prior = floats(nlp->prior),
                               .power = floats(nlp->ps),
                               .floor = floor,
                               .old_power = floats(nlp->old_ps),
                               .gain = gain,
                               .presence = gain2},
                              nlp->cfg->fft_bins);
}

/// Takes the a-posteriori error again, the step `factor` times.
void over_subtract(qel_aec* aec, float factor) {
    const int32_t first = qel::first_bin(*aec->cfg);
    const float *weight = floats(aec->ref_power_sum), *step = floats(aec->step_spec);
    if (const auto* t = qel::tracking_of(aec); t && t->on.use_kalman) {
        weight = t->kalman.share() + first;
        step = floats(aec->error_spec) + 2 * first;
    }
    kernels::over_subtract(factor, weight, step, floats(aec->error_spec) + 2 * first,
                           floats(aec->post_error) + 2 * first, qel::filter_bins(*aec->cfg));
}

/// The time-domain output frame.
void synthesise(qel_aec_nlp* nlp, qel_aec* aec, float factor, float speech) {
    const qel_aec_cfg& cfg = *aec->cfg;
    const qel::Tracking* t = qel::tracking_of(aec);
    if (cfg.use_mute && qel::mute_frame(aec->mute, floats(nlp->out))) return;

    const float* time = floats(nlp->time);
    if (cfg.use_vad && aec->ref_vad->state != qel::kSpeech && !(t && t->due_frames > 0)) {
        time = floats(aec->mic_frame_win);  // a silent reference: the microphone, not suppressed
    } else {
        float* spec = floats(nlp->spec);
        kernels::apply_gain(floats(aec->post_error), floats(nlp->gain2), spec, cfg.fft_bins);
        if (t && t->on.use_comfort) qel::fill_in_noise(aec, factor, speech);
        qel::inverse_transform(aec, spec, floats(nlp->time));
    }
    qel::overlap_add(aec, time, floats(nlp->overlap), floats(nlp->out));
}

}  // namespace

namespace qel {

kernels::Bank bank_of(const qel_aec_nlp& nlp) {
    return {.starts = static_cast<const Suppressor&>(nlp).band_starts->data,
            .lower = floats(nlp.weight_left),
            .upper = floats(nlp.weight_right),
            .bands = nlp.cfg->nb_banks};
}

void fetch_vectors(const qel_aec_nlp& nlp, int32_t part, int32_t parts) {
    static_cast<const Suppressor&>(nlp).vectors.fetch(part, parts);
}

float leak_share(const qel_aec_nlp& nlp) {
    const float leak = nlp.pey / nlp.pyy;
    return leak > 0.5f ? 1.0f : static_cast<float>(nlp.leak_mult) * leak;
}

float speech_probability(const qel_aec_nlp& nlp) {
    const int32_t bands = nlp.cfg->nb_banks;
    const float* zeta = floats(nlp.zeta) + nlp.cfg->fft_bins;
    float sum = 0.0f;
    for (int32_t b = kSkippedBands; b < bands - kSkippedBands + 1; ++b) sum += zeta[b];
    const float mean = sum / static_cast<float>(bands - 2 * kSkippedBands + 1);
    return 0.1f + 0.899f / (1.0f + 0.15f / mean);
}

}  // namespace qel

int32_t qel_aec_nlp_cfg_init(qel_aec_nlp_cfg* cfg) {
    qel::set_defaults(qel::kNlpKeys, cfg);
    return qel_aec_nlp_cfg_update(cfg);
}

int32_t qel_aec_nlp_cfg_update_local(qel_aec_nlp_cfg* cfg, qel_config_items* section) {
    qel::read_keys(section, qel::kNlpKeys, cfg);
    return 0;
}

int32_t qel_aec_nlp_cfg_update(qel_aec_nlp_cfg* cfg) {
    cfg->fft_size = 2 * static_cast<uint32_t>(cfg->frame_size);
    cfg->fft_bins = static_cast<int16_t>(cfg->frame_size + 1);
    cfg->num_bank = cfg->fft_bins;
    return 0;
}

int32_t qel_aec_nlp_cfg_clean(qel_aec_nlp_cfg*) { return 0; }

qel_aec_nlp* qel_aec_nlp_new(const qel_aec_nlp_cfg* cfg) {
    auto nlp = qel::make_zeroed<Suppressor>();
    bool made = nlp != nullptr;
    if (made) {
        nlp->cfg = cfg;
        const auto bins = static_cast<uint32_t>(cfg->fft_bins);
        nlp->band_left = qel_vector_int16_new(bins);
        nlp->band_right = qel_vector_int16_new(bins);
        nlp->band_starts = qel_vector_int16_new(static_cast<uint32_t>(cfg->nb_banks));
        made = nlp->band_left && nlp->band_right && nlp->band_starts &&
               nlp->vectors.make([&nlp](auto fn) { for_each_vector(nlp.get(), fn); });
    }
    if (!made) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        qel_aec_nlp_delete(nlp.release());
        return nullptr;
    }
    nlp->scratch = qel::make_zeroed<float>(static_cast<size_t>(cfg->nb_banks)).release();
    // The bands find room in the vectors. The message is still what a host may wait for.
    if (!nlp->scratch) std::puts("ptmpbuf alloc fail.");
    qel_aec_nlp_init(nlp.get());
    return nlp.release();
}

void qel_aec_nlp_init(qel_aec_nlp* nlp) {
    nlp->leak_mult = 2;
    nlp->echo_suppress = -40;
    nlp->echo_suppress_active = -15;
    nlp->adapt_count = 0;
    nlp->min_leak = 0.005f;
    nlp->over_sub_base = 1.8f;
    nlp->over_sub_scale = 0.8f;
    nlp->pey = 1.0f;
    nlp->pyy = 1.0f;
    for_each_vector(nlp, [](qel_vector_union* u, uint32_t) { qel::clear(*u); });
    build_filter_bank(nlp);
}

void qel_aec_nlp_delete(qel_aec_nlp* nlp) {
    if (!nlp) return;
    qel_vector_int16_delete(nlp->band_left);
    qel_vector_int16_delete(nlp->band_right);
    qel_vector_int16_delete(static_cast<Suppressor*>(nlp)->band_starts);
    static_cast<Suppressor*>(nlp)->vectors.clean();
    std::free(nlp->scratch);
    std::free(nlp);
}

int32_t qel_aec_nlp_process(qel_aec* aec) {
    const qel::FlushSubnormals guard;
    qel_aec_nlp* nlp = aec->nlp;
    if (nlp->adapt_count < kMaxAdaptCount) ++nlp->adapt_count;
    qel::fetch_ahead(aec);
    update_leak(nlp, *aec);
    qel::fetch_ahead(aec);
    update_power(nlp, aec);
    update_snr(nlp);
    const float speech = qel::speech_probability(*nlp);
    update_gain_floor(nlp, speech);
    update_band_gains(nlp, speech);
    update_bin_gains(nlp);
    // Grows as speech gets less likely.
    const float factor = (nlp->over_sub_base - speech) * nlp->over_sub_scale;
    over_subtract(aec, factor);
    synthesise(nlp, aec, factor, speech);
    if (auto* t = qel::tracking_of(aec)) t->speech = speech;
    return 0;
}

void FilterbankComputeBank32(const float* ps, float* bands, const int16_t* left,
                             const int16_t* right, const float* weight_left,
                             const float* weight_right, int32_t bins, int32_t num_bands) {
    std::fill_n(bands, num_bands, 0.0f);
    for (int32_t i = 0; i < bins; ++i) {
        bands[left[i]] += weight_left[i] * ps[i];
        bands[right[i]] += weight_right[i] * ps[i];
    }
}

void FilterbankComputePsd16(const float* bands, float* out, const int16_t* left,
                            const int16_t* right, const float* weight_left,
                            const float* weight_right, int32_t bins) {
    for (int32_t i = 0; i < bins; ++i) {
        out[i] = weight_right[i] * bands[right[i]] + weight_left[i] * bands[left[i]];
    }
}

float HypergeomGain(float x) { return qel::hypergeom_gain(x); }

void RandFrame(float* buf, int32_t n) {
    for (int32_t i = 0; i < n; ++i) buf[i] = static_cast<float>(std::rand() % 1000 - 500) / 1000.0f;
}
