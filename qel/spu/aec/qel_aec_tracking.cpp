// The tracking mode's life, and what its parts are given of a frame.
#include "qel/spu/aec/qel_aec_tracking.hpp"

#include <algorithm>

#include "qel/core/internal.hpp"
#include "qel/spu/aec/keys.hpp"
#include "qel/spu/svad/qel_svad.hpp"

using qel::floats, qel::filter_part, qel::Tracking, qel::tracking_of;

namespace {

constexpr size_t kLine = 16;           // floats of a cache line
constexpr float kLeakOfChange = 0.2f;  // the suppressor's, at least, once the path has changed

qel::tracking::Sizes sizes_of(const qel_aec& aec) {
    const qel_aec_cfg& cfg = *aec.cfg;
    return {.filter = qel::partitions(cfg),
            .first = qel::first_bin(cfg),
            .bins = cfg.fft_bins,
            .bands = aec.nlp ? aec.nlp_cfg.nb_banks : 0,
            .rate = static_cast<float>(cfg.freqs),
            .frame_time = static_cast<float>(cfg.frame_size) / static_cast<float>(cfg.freqs)};
}

/// Calls take(array, count) for each array of the parts that are on.
template <class Take>
void lay_out(Tracking& t, const qel::tracking::Sizes& sizes, Take take) {
    if (t.on.use_kalman) t.kalman.lay_out(sizes, take);
    if (t.on.use_residual) t.residual.lay_out(sizes, take);
    if (t.on.use_align) t.aligner.lay_out(sizes, take);
    if (t.on.use_comfort) t.comfort.lay_out(sizes, take);
}

size_t whole_lines(size_t count) { return (count + kLine - 1) / kLine * kLine; }

/// Fills the filter's histories with what the reference was, delayed as it is now.
void refill_histories(qel_aec* aec, const Tracking& t) {
    const qel::kernels::Partitions size = qel::partitions(*aec->cfg);
    const int32_t first = qel::first_bin(*aec->cfg);
    const auto bins = static_cast<size_t>(size.bins), block = static_cast<size_t>(size.block);
    for (int32_t j = 0; j < size.taps; ++j) {
        float* spec = floats(aec->ref_spec_hist) + 2 * static_cast<size_t>(j) * block;
        float* power = floats(aec->ref_power_hist) + static_cast<size_t>(j) * block;
        const float* past = t.aligner.before(size.taps - j);
        if (past) {
            std::copy_n(past + 2 * first, 2 * bins, spec);
        } else {
            std::fill_n(spec, 2 * bins, 0.0f);
        }
        for (size_t k = 0; k < bins; ++k) {
            power[k] = spec[2 * k] * spec[2 * k] + spec[2 * k + 1] * spec[2 * k + 1];
        }
    }
}

}  // namespace

namespace qel {

bool make_tracking(qel_aec* aec, const qel_aec_tracking_cfg& wanted) {
    qel_aec_tracking_cfg on = wanted;
    on.use_residual &= on.use_kalman & (aec->nlp != nullptr);
    on.use_comfort &= on.use_residual;
    if (!on.use_kalman && !on.use_align) return true;
    auto* t = make_zeroed<Tracking>().release();
    instance_of(aec)->tracking = t;
    if (!t) return false;
    t->on = on;
    lay_out(*t, sizes_of(*aec), [t](float*, size_t count) { t->floats += whole_lines(count); });
    t->memory = make_zeroed<float>(t->floats + kLine).release();
    return t->memory != nullptr;
}

void start_tracking(qel_aec* aec) {
    Tracking* t = tracking_of(aec);
    if (!t) return;
    const tracking::Sizes sizes = sizes_of(*aec);
    std::fill_n(t->memory, t->floats + kLine, 0.0f);
    const uintptr_t bytes = kLine * sizeof(float);
    const uintptr_t past = reinterpret_cast<uintptr_t>(t->memory) % bytes;
    float* at = t->memory + (bytes - past) % bytes / sizeof(float);
    lay_out(*t, sizes, [&at](float*& array, size_t count) {
        array = at;
        at += whole_lines(count);
    });
    t->speech = 0;
    t->held_frames = 0;
    if (t->on.use_kalman) t->kalman.start(sizes);
    if (t->on.use_residual) t->residual.start(sizes);
    if (t->on.use_align) t->aligner.start(sizes);
    if (t->on.use_comfort) t->comfort.start(sizes);
}

void delete_tracking(qel_aec* aec) {
    Tracking* t = tracking_of(aec);
    if (!t) return;
    std::free(t->memory);
    std::free(t);
}

bool is_echo_due(qel_aec* aec, bool active) {
    Tracking& t = *tracking_of(aec);
    if (active) {
        t.held_frames = t.aligner.delay() + aec->cfg->taps;
        return true;
    }
    if (t.held_frames == 0) return false;
    --t.held_frames;
    return true;
}

void align_reference(qel_aec* aec) {
    Tracking& t = *tracking_of(aec);
    const qel_aec_cfg& cfg = *aec->cfg;
    // Without the bypass nobody else has asked, and the silent reference must hold off too.
    if (!cfg.use_bypass) is_echo_due(aec, !cfg.use_vad || aec->ref_vad->state == kSpeech);
    if (!t.aligner.align(floats(aec->mic_spec), floats(aec->ref_spec))) return;
    clear(aec->weights);
    refill_histories(aec, t);
    if (t.on.use_kalman) t.kalman.restart();
    if (t.on.use_residual) t.residual.forget();
}

void take_kalman_step(qel_aec* aec) {
    Tracking& t = *tracking_of(aec);
    const bool changed = t.kalman.step({.mic = filter_part(*aec, aec->mic_spec),
                                        .echo = filter_part(*aec, aec->echo_spec),
                                        .error = filter_part(*aec, aec->error_spec),
                                        .ref_spec_hist = floats(aec->ref_spec_hist),
                                        .ref_power_hist = floats(aec->ref_power_hist),
                                        .ref_power_sum = floats(aec->ref_power_sum),
                                        .weights = floats(aec->weights),
                                        .mic_power = floats(aec->mic_power) + first_bin(*aec->cfg),
                                        .step = floats(aec->step_spec),
                                        .post_error = filter_part(*aec, aec->post_error)});
    if (!changed) return;
    if (t.on.use_residual) t.residual.forget();
    qel_aec_nlp* nlp = aec->nlp;
    if (nlp) nlp->pey = std::max(nlp->pey, kLeakOfChange * nlp->pyy);
}

void estimate_residual(qel_aec* aec) {
    Tracking& t = *tracking_of(aec);
    qel_aec_nlp* nlp = aec->nlp;
    const kernels::Bank bank = bank_of(*nlp);
    // Where the filter did harm all of its estimate may be what is heard.
    const float leak = t.kalman.worse_than_none() ? 1.0f : leak_share(*nlp);
    t.residual.estimate(floats(aec->ref_power_sum),
                        {.bank = bank,
                         .error_power = floats(nlp->ps),
                         .doubt = t.kalman.doubt(),
                         .echo_power = floats(aec->echo_power),
                         .leak = leak,
                         .speech = t.speech,
                         .searching = t.on.use_align && t.aligner.searching(),
                         .residual = floats(nlp->residual),
                         .noise = floats(nlp->echo_noise)});
    if (!t.on.use_comfort) return;
    t.comfort.observe(floats(aec->mic_power), t.kalman.error_power());
    for (int32_t band = 0; band + 1 < bank.bands; ++band) {
        if (t.residual.pauses(band)) t.comfort.observe_pause(bank, band);
    }
}

void learn_from_bypassed(qel_aec* aec) {
    Tracking& t = *tracking_of(aec);
    if (!t.comfort.looks_at_bypassed()) return;
    // The analysis and the suppressor do not need their buffers now.
    float* time = floats(aec->mic_frame_win);
    float* spec = floats(aec->nlp->spec);
    kernels::window(floats(aec->window), floats(aec->mic_pass),
                    static_cast<float>(aec->cfg->fft_size), time, aec->cfg->fft_size);
    forward_transform(aec, time, spec);
    t.comfort.observe_bypassed(spec, bank_of(*aec->nlp));
}

void fill_in_noise(qel_aec* aec, float factor, float speech) {
    Tracking& t = *tracking_of(aec);
    t.comfort.fill(factor, speech, t.kalman.share(), floats(aec->nlp->gain2),
                   floats(aec->nlp->spec));
}

}  // namespace qel

int32_t qel_aec_tracking_cfg_init(qel_aec_tracking_cfg* cfg) {
    qel::set_defaults(qel::kTrackingKeys, cfg);
    return 0;
}

int32_t qel_aec_tracking_cfg_update_local(qel_aec_tracking_cfg* cfg, qel_config_items* section) {
    qel::read_keys(section, qel::kTrackingKeys, cfg);
    return 0;
}

int32_t qel_aec_get_tracking_stats(const qel_aec* aec, qel_aec_tracking_stats* stats) {
    if (!aec || !stats) return -1;
    *stats = {};
    const Tracking* t = tracking_of(aec);
    if (t && t->on.use_align) {
        stats->delay_frames = t->aligner.delay();
        stats->delay_ms = 1000.0f * static_cast<float>(t->aligner.delay() * aec->cfg->frame_size) /
                          static_cast<float>(aec->cfg->freqs);
        stats->delay_clearness = t->aligner.clearness();
        stats->delay_changes = t->aligner.changes();
    }
    if (t && t->on.use_kalman) {
        stats->path_changes = t->kalman.changes();
        stats->uncertainty = t->kalman.uncertainty();
    }
    return 0;
}
