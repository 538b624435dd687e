// The canceller's configuration: defaults, keys and derived sizes.
#include "qel/spu/aec/qel_aec_cfg.h"

#include <strings.h>

#include "qel/spu/aec/keys.hpp"

namespace {

/// The element type that a name stands for; any unknown name means float32.
uint32_t type_by_name(const char* name) {
    if (strcasecmp(name, "fixed32") == 0) return QEL_VECTOR_INT32;
    if (strcasecmp(name, "fixed16") == 0) return QEL_VECTOR_INT16;
    return QEL_VECTOR_FLOAT32;
}

}  // namespace

int32_t qel_aec_cfg_init(qel_aec_cfg* cfg) {
    qel::set_defaults(qel::kAecKeys, cfg);
    cfg->type = nullptr;
    cfg->hdr_gain_db = 12;
    cfg->use_bypass = 1;
    for (qel_svad_cfg& vad : cfg->vad) qel_svad_cfg_init(&vad);

    // The sub-records copy the defaults, here and never again: a frame size set in the main section
    // leaves theirs alone, and qel_aec_new() fits them together.
    qel_aec_nlp_cfg_init(&cfg->nlp);
    cfg->nlp.freqs = cfg->freqs;
    cfg->nlp.nb_banks = cfg->nb_banks;
    cfg->nlp.frame_size = cfg->frame_size;
    cfg->nlp.md_type = cfg->md_type;
    qel_aec_mute_cfg_init(&cfg->mute);
    cfg->mute.md_type = cfg->md_type;
    cfg->mute.freqs = cfg->freqs;
    cfg->mute.frame_size = cfg->frame_size;
    return 0;
}

int32_t qel_aec_cfg_update_local(qel_aec_cfg* cfg, qel_config_items* section) {
    qel::read_keys(section, qel::kAecKeys, cfg);
    if (const qel_string* type = qel::key_text(section, "type")) cfg->type = type->data;
    if (cfg->type) cfg->md_type = type_by_name(cfg->type);

    const auto sub = [section](const char* name) {
        return section ? qel_config_items_find_subitems(section, name) : nullptr;
    };
    if (cfg->use_nlp) qel_aec_nlp_cfg_update_local(&cfg->nlp, sub("nlp"));
    if (cfg->use_vad) {
        for (qel_svad_cfg& vad : cfg->vad) qel_svad_cfg_update_local(&vad, sub("vad"));
    }
    if (cfg->use_mute) qel_aec_mute_cfg_update_local(&cfg->mute, sub("mute"));
    return 0;
}

int32_t qel_aec_cfg_update(qel_aec_cfg* cfg, qel_source_loader* loader) {
    cfg->fft_size = static_cast<int16_t>(2 * cfg->frame_size);
    cfg->fft_bins = static_cast<int16_t>(cfg->frame_size + 1);
    cfg->num_bank = cfg->fft_bins;
    if (cfg->use_nlp) qel_aec_nlp_cfg_update(&cfg->nlp);
    if (cfg->use_vad) {
        for (qel_svad_cfg& vad : cfg->vad) qel_svad_cfg_update(&vad, loader);
    }
    if (cfg->use_mute) qel_aec_mute_cfg_update(&cfg->mute);
    return 0;
}

int32_t qel_aec_cfg_clean(qel_aec_cfg* cfg) {
    if (cfg->use_nlp) qel_aec_nlp_cfg_clean(&cfg->nlp);
    if (cfg->use_vad) {
        for (qel_svad_cfg& vad : cfg->vad) qel_svad_cfg_clean(&vad);
    }
    return 0;
}
