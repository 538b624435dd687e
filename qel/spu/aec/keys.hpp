// The keys of the canceller and of the sections in it.
#pragma once

#include <span>

#include "qel/spu/aec/qel_aec_cfg.h"
#include "qel/spu/aec/qel_aec_tracking.h"
#include "qel/spu/frame/keys.hpp"
#include "qel/spu/sigp/keys.hpp"
#include "qel/spu/svad/keys.hpp"

namespace qel {

// In the order in which values that cannot work are refused. The ranges keep the arithmetic sound:
// a frame of one sample has no deviation to judge, and 2 * frame_size must fit 16 bits; smoothing
// by frame_size / freqs is stable up to 1; the speech probability averages nb_banks - 11 bands.
inline constexpr Key kAecKeys[] = {
    QEL_KEY(qel_aec_cfg, frame_size, kInteger, 512, 2, 16383, kRefused, "samples per frame"),
    QEL_KEY(qel_aec_cfg, freqs, kInteger, 16000, kFrameSize, kMaxInt16, kRefused,
            "sample rate in Hz"),
    QEL_KEY(qel_aec_cfg, taps, kInteger, 4, 1, kMaxInt16, kRefused,
            "filter partitions, one frame of echo path each"),
    QEL_KEY(qel_aec_cfg, offset_bins, kInteger, 0, 0, kMaxInt16, kRefused,
            "lowest bins that the filter leaves out"),
    QEL_KEY(qel_aec_cfg, nb_banks, kInteger, 24, 12, kMaxInt16, kRefused,
            "no effect: the section nlp has its own"),
    // Read like the others, and then overwritten by qel_aec_cfg_update(): old files still name
    // them.
    QEL_KEY(qel_aec_cfg, fft_size, kInteger, 1024, kLowest, kHighest, kTaken, "no effect"),
    QEL_KEY(qel_aec_cfg, fft_bins, kInteger, 513, kLowest, kHighest, kTaken, "no effect"),
    QEL_KEY(qel_aec_cfg, num_bank, kInteger, 513, kLowest, kHighest, kTaken, "no effect"),
    QEL_KEY(qel_aec_cfg, md_type, kInteger, 0, 0, 2, kTaken, "element type by number"),
    {"type", KeyKind::kType, 0, 0, 0, Outside::kTaken, "element type by name; overrides md_type",
     [](void*, double) {}, [](const void*) { return 0.0; }},
    QEL_FLAG(qel_aec_cfg, use_nlp, 1, "residual echo suppressor"),
    QEL_FLAG(qel_aec_cfg, use_vad, 0, "detectors of a sounding loudspeaker"),
    QEL_FLAG(qel_aec_cfg, use_hdr, 0, "samples are signed 32-bit"),
    QEL_FLAG(qel_aec_cfg, use_mute, 1, "start-up mute"),
};

// In the same section, in a record of their own.
inline constexpr Key kTrackingKeys[] = {
    QEL_FLAG(qel_aec_tracking_cfg, use_kalman, 0, "Kalman step of the filter"),
    QEL_FLAG(qel_aec_tracking_cfg, use_residual, 0,
             "residual echo by tracked ratios; needs use_kalman"),
    QEL_FLAG(qel_aec_tracking_cfg, use_align, 0, "the reference waits for its echo"),
    QEL_FLAG(qel_aec_tracking_cfg, use_comfort, 0,
             "the room's noise is filled in; needs use_residual"),
};

inline constexpr Key kNlpKeys[] = {
    QEL_KEY(qel_aec_nlp_cfg, freqs, kInteger, 16000, kFrameSize, kMaxInt16, kRefused,
            "sample rate in Hz"),
    QEL_KEY(qel_aec_nlp_cfg, nb_banks, kInteger, 24, 12, kMaxInt16, kRefused,
            "Bark bands in which gains are computed"),
    QEL_KEY(qel_aec_nlp_cfg, frame_size, kInteger, 512, 2, 16383, kTaken,
            "samples per frame; the main one is used"),
    QEL_KEY(qel_aec_nlp_cfg, offset_bins, kInteger, 0, 0, kMaxInt16, kTaken, "no effect"),
};

inline constexpr Key kMuteKeys[] = {
    QEL_KEY(qel_aec_mute_cfg, mute_time, kInteger, 1, 0, 2097, kTaken,
            "whole seconds of processed frames that are muted"),
};

/// The records of all keys.
struct Settings {
    qel_aec_cfg aec;
    qel_aec_tracking_cfg tracking;
};

/// A section, and where its keys' records stand in the Settings.
struct KeySection {
    const char* path;  // within the root, as qel_config_items_find_subitems() takes it
    const char* name;
    struct Part {
        std::span<const Key> keys;
        size_t record;  // offset
    } parts[2];
};

inline constexpr KeySection kKeySections[] = {
    {"aec", "aec", {{kAecKeys, 0}, {kTrackingKeys, offsetof(Settings, tracking)}}},
    {"aec > nlp", "nlp", {{kNlpKeys, offsetof(qel_aec_cfg, nlp)}, {}}},
    {"aec > mute", "mute", {{kMuteKeys, offsetof(qel_aec_cfg, mute)}, {}}},
    {"aec > vad",
     "vad",
     {{kSvadKeys, offsetof(qel_aec_cfg, vad)},
      {kFramingKeys, offsetof(qel_aec_cfg, vad) + offsetof(qel_svad_cfg, framing)}}},
};

}  // namespace qel
