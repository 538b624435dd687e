// The canceller's life and its frame pipeline: bytes to frames, bypass or processing, bytes out.
#include "qel/spu/aec/qel_aec.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <span>

#include "qel/core/internal.hpp"
#include "qel/core/qel_version.hpp"
#include "qel/core/reason.hpp"
#include "qel/spu/aec/flush_subnormals.hpp"
#include "qel/spu/aec/kernels/kernels.hpp"
#include "qel/spu/aec/keys.hpp"
#include "qel/spu/aec/qel_aec.hpp"
#include "qel/spu/aec/qel_aec_tracking.hpp"
#include "qel/spu/sigp/frames.hpp"
#include "qel/spu/svad/qel_svad.hpp"

using qel::floats;

namespace {

constexpr char kSource[] = "qel/spu/aec/qel_aec";
constexpr char kVersion[] = "spu/aec v1.0.8";
constexpr uint32_t kOutputBytes = 1024;
// Parts in which memory is fetched: the instance's, and with its suppressor's.
constexpr int32_t kOwnParts = 7, kAllParts = 11;

/// The value as its file has it, where `value` is what 16 bits kept of that; else `value` itself.
long long written_value(const qel_aec_cfg& cfg, const char* section, const char* key,
                        int32_t value) {
    if (!cfg.cfg_tree) return value;
    const auto* items = qel_config_items_find_subitems(cfg.cfg_tree->root, section);
    const qel_string* text = qel::key_text(items, key);
    const long long written = text ? strtoll(text->data, nullptr, 10) : value;
    return static_cast<int16_t>(written) == value ? written : value;
}

/// Refuses a setting that cannot work. This name stands in its log line, which hosts may match:
/// renaming it changes the message.
bool in_range(const qel_aec_cfg& cfg, const char* section, const char* shown_section,
              const char* key, int32_t value, int32_t least, int32_t most) {
    if (value >= least && value <= most) return true;
    char why[160];
    snprintf(why, sizeof(why), "%s%s = %lld cannot work: must be %d to %d.", shown_section, key,
             written_value(cfg, section, key, value), least, most);
    QEL_LOG(QEL_LOG_ERROR, "%s", why);
    qel::set_reason("%s", why);
    return false;
}

/// Whether every key of a record has a value that can work.
bool keys_work(const qel_aec_cfg& cfg, const char* section, const char* shown_section,
               const std::span<const qel::Key>& keys, const void* record) {
    return std::all_of(keys.begin(), keys.end(), [&](const qel::Key& key) {
        if (key.outside != qel::Outside::kRefused) return true;
        const double least = key.least == qel::kFrameSize ? cfg.frame_size : key.least;
        return in_range(cfg, section, shown_section, key.name,
                        static_cast<int32_t>(key.get(record)), static_cast<int32_t>(least),
                        static_cast<int32_t>(key.most));
    });
}

/// Whether a size that qel_aec_cfg_update() derives is as it makes it.
bool derived(const qel_aec_cfg& cfg, const char* key, int32_t value, int32_t expected) {
    return in_range(cfg, "", "", key, value, expected, expected);
}

/// Whether the arithmetic is sound with these settings.
bool settings_work(const qel_aec_cfg& cfg) {
    return keys_work(cfg, "aec", "", qel::kAecKeys, &cfg) &&
           derived(cfg, "fft_size", cfg.fft_size, 2 * cfg.frame_size) &&
           derived(cfg, "fft_bins", cfg.fft_bins, cfg.frame_size + 1) &&
           derived(cfg, "num_bank", cfg.num_bank, cfg.fft_bins) &&
           (!cfg.use_nlp || keys_work(cfg, "aec > nlp", "nlp > ", qel::kNlpKeys, &cfg.nlp));
}

/// Copies the sub-configurations and gives them the canceller's frame size; all else stays as it
/// stands there, the derived number of muted frames included. Renaming it changes its messages.
void fit_sub_configurations(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    aec->nlp_cfg = cfg.nlp;
    aec->nlp_cfg.frame_size = cfg.frame_size;
    qel_aec_nlp_cfg_update(&aec->nlp_cfg);
    aec->mute_cfg = cfg.mute;
    aec->mute_cfg.frame_size = cfg.frame_size;
    if (cfg.use_nlp && cfg.nlp.frame_size != cfg.frame_size) {
        QEL_LOG(QEL_LOG_WARNING, "nlp > frame_size = %d differs from frame_size = %d: using %d.",
                cfg.nlp.frame_size, cfg.frame_size, cfg.frame_size);
    }
    if (cfg.md_type != QEL_VECTOR_FLOAT32) {
        QEL_LOG(QEL_LOG_WARNING, "md_type = %u is not computed in: using float32.", cfg.md_type);
    }
}

/// Calls fn(vector, elements) for each float vector of the instance, in the order in which a frame
/// comes to need them.
template <class Fn>
void for_each_vector(qel_aec* aec, Fn fn) {
    const auto frame = static_cast<uint32_t>(aec->cfg->frame_size);
    const auto pair = static_cast<uint32_t>(aec->cfg->fft_size);
    const auto bins = static_cast<uint32_t>(aec->cfg->fft_bins);
    const uint32_t history = bins * static_cast<uint32_t>(aec->cfg->taps);
    for (auto* u : {&aec->mic, &aec->ref, &aec->ref_hist, &aec->mic_hist}) fn(u, frame);
    for (auto* u : {&aec->mic_pass, &aec->window, &aec->ref_frame_win, &aec->mic_frame_win}) {
        fn(u, pair);
    }
    for (auto* u : {&aec->mic_spec, &aec->ref_spec}) fn(u, 2 * bins);
    for (auto* u : {&aec->delta_floor, &aec->post_power, &aec->ref_power_smooth, &aec->norm,
                    &aec->ref_power_sum}) {
        fn(u, bins);
    }
    fn(&aec->ref_power_hist, history);
    fn(&aec->ref_spec_hist, 2 * history);
    fn(&aec->weights, 2 * history);
    for (auto* u : {&aec->echo_spec, &aec->error_spec, &aec->step_spec, &aec->post_error}) {
        fn(u, 2 * bins);
    }
    for (auto* u : {&aec->mic_power, &aec->echo_power}) fn(u, bins);
    fn(&aec->overlap, frame);
}

/// Sees to it that fetch_ahead() brings the instance's memory near the core if frames of others
/// have displaced it.
void start_fetching(qel_aec* aec) {
    // As many frames of default size go through some 5 MB: from there on fetching saves more than
    // it costs. Threads count together, as only the speed depends on it: lost counts do not matter.
    constexpr uint32_t kFramesKept = 24;
    static std::atomic<uint32_t> frames = 0;
    const uint32_t before = frames.load(std::memory_order_relaxed);
    frames.store(before + 1, std::memory_order_relaxed);
    qel::Instance* self = qel::instance_of(aec);
    const bool displaced = before - self->fetch.frame > kFramesKept;
    self->fetch = {.frame = before, .parts = displaced ? 0 : kAllParts};
    if (!displaced) return;
    const auto* plan = static_cast<const qel_fft_r2c_cfg_float32*>(aec->fft.plan);
    qel::fetch(plan, reinterpret_cast<const char*>(plan->buffer + plan->ncfft));
}

/// A separator of the canceller's frames that already has one, so that a feed of one frame needs no
/// memory; null when memory runs out.
qel_sigp_frame_separator* make_separator(const qel_aec_cfg& cfg) {
    const auto frame = static_cast<uint32_t>(cfg.frame_size);
    qel_sigp_frame_separator* sep = qel_sigp_frame_separator_new(frame);
    if (!sep) return nullptr;
    if (cfg.use_hdr) sep->frame_bytes = 4 * frame;
    if (void* first = qel_hoard_pop(&sep->pool)) {
        qel_hoard_push(&sep->pool, first);
        return sep;
    }
    qel_sigp_frame_separator_delete(sep);
    return nullptr;
}

/// Makes everything the instance owns; false when memory runs out.
bool make_parts(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    const auto frame = static_cast<uint32_t>(cfg.frame_size);
    bool made = qel::instance_of(aec)->vectors.make([aec](auto fn) { for_each_vector(aec, fn); });
    made = made && (aec->out = qel_vector_int16_new(frame));
    if (cfg.use_nlp) made = made && (aec->nlp = qel_aec_nlp_new(&aec->nlp_cfg));
    if (cfg.use_vad) {
        made = made && (aec->ref_vad = qel_svad_new(&cfg.vad[0])) &&
               (aec->frame_vad = qel_svad_new(&cfg.vad[1]));
    }
    if (cfg.use_mute) made = made && (aec->mute = qel_aec_mute_new(&aec->mute_cfg));
    made = made && (aec->mic_sep = make_separator(cfg)) && (aec->ref_sep = make_separator(cfg));
    return made && (aec->output = qel_string_new(nullptr, std::max(kOutputBytes, 2 * frame)));
}

/// Takes the next frame of each signal; false if one has none. A frame whose partner was lost for
/// want of memory is dropped, or the signals would be out of step from then on.
bool pop_pair(qel_aec* aec, qel_sigp_frame** frames) {
    qel_sigp_frame_separator *mic = aec->mic_sep, *ref = aec->ref_sep;
    while (mic->ready.count > 0 && ref->ready.count > 0) {
        const uint32_t ahead = qel::frame_of<qel_sigp_frame>(mic->ready.head)->sequence -
                               qel::frame_of<qel_sigp_frame>(ref->ready.head)->sequence;
        if (ahead == 0) {
            frames[0] = qel_sigp_frame_separator_pop(mic);
            frames[1] = qel_sigp_frame_separator_pop(ref);
            return true;
        }
        auto* behind = static_cast<int32_t>(ahead) > 0 ? ref : mic;  // the numbers wrap
        qel_sigp_frame_separator_push(behind, qel_sigp_frame_separator_pop(behind));
    }
    return false;
}

/// The reference's verdict; without a detector every reference is active.
bool reference_active(qel_aec* aec) {
    if (!aec->frame_vad) return true;
    const auto n = static_cast<uint32_t>(aec->cfg->frame_size);
    const auto judge = aec->cfg->use_hdr ? qel::svad_judge_count : qel::svad_judge_pcm;
    return judge(aec->frame_vad, floats(aec->ref), n) == qel::kSpeech;
}

/// Samples of a frame as floats: 16-bit ones unscaled, 32-bit ones shifted down first.
void from_samples(const qel_aec_cfg& cfg, const void* samples, float* dst) {
    if (cfg.use_hdr) {
        // From 32 on only the sign is left; a gain that would shift up is not removed.
        const int32_t shift = std::clamp(8 - cfg.hdr_gain_db / 6, 0, 31);
        qel::kernels::from_wide_samples(samples, shift, dst, cfg.frame_size);
    } else {
        qel::kernels::from_samples(static_cast<const int16_t*>(samples), dst, cfg.frame_size);
    }
}

}  // namespace

namespace qel {

void fetch_ahead(qel_aec* aec) {
    Instance* self = instance_of(aec);
    if (self->fetch.parts == kAllParts) return;
    const int32_t part = self->fetch.parts++;
    if (part < kOwnParts) {
        self->vectors.fetch(part, kOwnParts);
    } else if (aec->nlp) {
        fetch_vectors(*aec->nlp, part - kOwnParts, kAllParts - kOwnParts);
    }
}

}  // namespace qel

void _g_module_aec() { qel::register_module(kVersion); }

qel_aec* qel_aec_new(const qel_aec_cfg* cfg) { return qel_aec_new_tracking(cfg, nullptr); }

qel_aec* qel_aec_new_tracking(const qel_aec_cfg* cfg, const qel_aec_tracking_cfg* tracking) {
    if (!cfg || !settings_work(*cfg)) return nullptr;
    auto* aec = qel::make_zeroed<qel::Instance>().release();
    if (aec) {
        aec->cfg = cfg;
        fit_sub_configurations(aec);
        if (make_parts(aec) && (!tracking || qel::make_tracking(aec, *tracking))) {
            qel_aec_init(aec);
            qel::start_meter(aec);
            qel::start_tracking(aec);
            if (aec->fft.plan) return aec;
        }
    }
    QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    qel::set_reason("out of memory");
    qel_aec_delete(aec);
    return nullptr;
}

void qel_aec_init(qel_aec* aec) {
    const qel_aec_cfg& cfg = *aec->cfg;
    const auto bins = static_cast<uint32_t>(cfg.num_bank);
    aec->norm_gain = 2;
    aec->delta_floor_level = 7.5157342f;
    aec->norm_ceiling = 2147352.5f;
    aec->post_error_gain = 0.5f;
    aec->step_size = 0.4f;
    for_each_vector(aec, [](qel_vector_union* u, uint32_t) { qel::clear(*u); });
    qel_vector_int16_zero(aec->out);
    // A plan keeps nothing between transforms, so one made before serves as well as a new one.
    if (!aec->fft.plan) qel_fft_r2c_state_union_init(&aec->fft, QEL_FFT_FLOAT32, cfg.fft_size);
    qel_sigp_hanning_window_with_sqrt(&aec->window, static_cast<uint32_t>(cfg.fft_size));
    qel_sigp_gen_delta_floor(&aec->delta_floor, bins, static_cast<uint32_t>(cfg.taps),
                             aec->delta_floor_level);
}

void qel_aec_reset(qel_aec* aec) {
    qel_aec_init(aec);
    qel::start_meter(aec);
    qel::start_tracking(aec);
    if (aec->nlp) qel_aec_nlp_init(aec->nlp);
    qel_svad_reset(aec->ref_vad);
    qel_svad_reset(aec->frame_vad);
    if (aec->mute) qel_aec_mute_init(aec->mute);
    qel_sigp_frame_separator_reset(aec->mic_sep);
    qel_sigp_frame_separator_reset(aec->ref_sep);
    qel_string_reset(aec->output, 0);
}

void qel_aec_delete(qel_aec* aec) {
    if (!aec) return;
    qel::instance_of(aec)->vectors.clean();
    qel::delete_tracking(aec);
    qel_vector_int16_delete(aec->out);
    qel_aec_nlp_delete(aec->nlp);
    qel_svad_delete(aec->ref_vad);
    qel_svad_delete(aec->frame_vad);
    qel_aec_mute_delete(aec->mute);
    qel_fft_r2c_state_union_clean(&aec->fft);
    qel_sigp_frame_separator_delete(aec->mic_sep);
    qel_sigp_frame_separator_delete(aec->ref_sep);
    if (aec->output) qel_string_delete(aec->output);
    std::free(aec);
}

const char* qel_aec_feed_data(qel_aec* aec, const void* mic, uint32_t mic_bytes, const void* ref,
                              uint32_t ref_bytes, uintptr_t is_end, uint32_t* out_bytes) {
    const uint32_t flags = is_end != 0 ? QEL_SIGP_FEED_END : 0;
    qel_sigp_frame_separator_feed(aec->mic_sep, mic, mic_bytes, flags);
    qel_sigp_frame_separator_feed(aec->ref_sep, ref, ref_bytes, flags);
    qel_string_assign(aec->output, nullptr, 0);  // unlike a reset it zeroes no storage

    const qel::FlushSubnormals guard;
    int32_t result = 0;
    qel_sigp_frame* frames[2];
    while (result == 0 && pop_pair(aec, frames)) {
        result = qel_aec_feed(aec, frames);
        qel_sigp_frame_separator_push(aec->mic_sep, frames[0]);
        qel_sigp_frame_separator_push(aec->ref_sep, frames[1]);
    }
    if (out_bytes) *out_bytes = aec->output->length;
    return aec->output->data;
}

int32_t qel_aec_feed(qel_aec* aec, qel_sigp_frame* const* frames) {
    const qel::FlushSubnormals guard;
    const qel_aec_cfg& cfg = *aec->cfg;
    const int32_t n = cfg.frame_size;
    float* mic = floats(aec->mic);
    from_samples(cfg, frames[0]->samples, mic);
    from_samples(cfg, frames[1]->samples, floats(aec->ref));

    bool active = true;
    if (cfg.use_bypass) {
        float* pass = floats(aec->mic_pass);
        std::copy_n(pass + n, n, pass);
        std::copy_n(mic, n, pass + n);
        active = reference_active(aec);
        const qel::Tracking* t = qel::tracking_of(aec);
        if (t && t->due_frames > 0) active = true;
        if (t && t->on.use_comfort && !active) qel::learn_from_bypassed(aec);
        // The frame before, so that both paths are one frame late.
        if (!active) qel::kernels::to_samples(pass, aec->out->data, n);
    }
    const int32_t muted = aec->mute ? aec->mute->count : 0;
    if (active) {
        start_fetching(aec);
        qel_aec_process(aec);
    }
    const bool mutes = aec->mute && aec->mute->count != muted;
    qel::measure_frame(aec, !active ? qel::Path::kBypassed
                            : mutes ? qel::Path::kMuted
                                    : qel::Path::kProcessed);
    return qel_string_append(aec->output, aec->out->data, 2 * static_cast<uint32_t>(n));
}

const char* qel_aec_get_version() { return kVersion; }

const char* qel_aec_version() { return qel_aec_get_version(); }
