// The configuration of one canceller: sizes, switches and the sub-configurations.
#ifndef QEL_SPU_AEC_QEL_AEC_CFG_H
#define QEL_SPU_AEC_QEL_AEC_CFG_H

#include <stdint.h>

#include "qel/core/config/qel_config_base.h"
#include "qel/core/config/qel_config_ryl.h"
#include "qel/core/qel_export.h"
#include "qel/core/source/qel_source.h"
#include "qel/spu/aec/qel_aec_mute.h"
#include "qel/spu/aec/qel_aec_nlp.h"
#include "qel/spu/svad/qel_svad.h"

QEL_BEGIN_DECLS

typedef struct qel_aec_cfg {
    qel_aec_nlp_cfg nlp;    // section "nlp", read when use_nlp is on
    qel_aec_mute_cfg mute;  // section "mute", read when use_mute is on
    qel_svad_cfg vad[2];    // section "vad" fills both: [0] the windowed reference, [1] the raw one
    const char* type;       // element type by name, borrowed from the tree; key "type"
    uint32_t md_type;       // 0 float32, 1 fixed32, 2 fixed16; keys "md_type" and "type"
    int16_t hdr_gain_db;    // dB taken from 32-bit input: shift = 8 - hdr_gain_db / 6; 12
    int16_t freqs;          // sample rate in Hz, frame_size to 32767; key "freqs", 16000
    int16_t frame_size;     // samples per frame and hop, 2 to 16383; key "frame_size", 512
    int16_t taps;           // filter partitions, at least 1; key "taps", 4
    int16_t offset_bins;    // low bins that the filter skips, at least 0; key "offset_bins", 0
    int16_t nb_banks;       // Bark bands, at least 12; key "nb_banks", 24
    int16_t fft_size;       // always 2 * frame_size once updated; its key has no effect
    int16_t fft_bins;       // always frame_size + 1 once updated; its key has no effect
    int16_t num_bank;       // bins per partition, like fft_bins
    uint32_t use_nlp : 1;   // run the residual echo suppressor; key "use_nlp", on
    uint32_t use_vad : 1;   // make and ask the detectors; key "use_vad", off
    uint32_t use_bypass : 1;   // pass the microphone while the reference is silent; no key, on
    uint32_t use_hdr : 1;      // samples are signed 32-bit; key "use_hdr", off
    uint32_t use_mute : 1;     // mute the start; key "use_mute", on
    uint32_t flags_spare : 3;  // kept as they are; the flags fill one byte
    qel_config_ryl* cfg_tree;  // what the keys were read from; owned by whoever loaded it
} qel_aec_cfg;

/// Sets every default, of the sub-configurations too; returns 0. The record must have been zeroed
/// before its first use.
QEL_API int32_t qel_aec_cfg_init(qel_aec_cfg* cfg);

/// Reads the keys of an "aec" section (null allowed) and of the sections in it; returns 0. Only
/// plain string values count; a missing key keeps its value. `cfg->type` points into the tree.
QEL_API int32_t qel_aec_cfg_update_local(qel_aec_cfg* cfg, qel_config_items* section);

/// Derives the dependent sizes here and in the sub-configurations in use; returns 0.
QEL_API int32_t qel_aec_cfg_update(qel_aec_cfg* cfg, qel_source_loader* loader);

/// Releases what the sub-configurations in use hold; returns 0. Leaves `type` and `cfg_tree` alone.
QEL_API int32_t qel_aec_cfg_clean(qel_aec_cfg* cfg);

QEL_END_DECLS

#endif
