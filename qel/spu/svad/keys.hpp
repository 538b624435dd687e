// The keys of a voice-activity detector, beside those of its framing.
#pragma once

#include "qel/spu/sigp/keys.hpp"
#include "qel/spu/svad/qel_svad.h"

namespace qel {

inline constexpr Key kSvadKeys[] = {
    QEL_KEY(qel_svad_cfg, amp_thresh, kNumber, 5, 0, 32768, kTaken,
            "mean distance from the mean up to which a window is quiet, in sample units"),
    QEL_KEY(qel_svad_cfg, sil2spe_num, kInteger, 1, 0, INT32_MAX, kTaken,
            "sounding frames in a row that begin processing"),
    QEL_KEY(qel_svad_cfg, spe2sil_num, kInteger, 15, 0, INT32_MAX, kTaken,
            "quiet frames in a row that end processing"),
    QEL_KEY(qel_svad_cfg, frame_len, kInteger, 512, 1, 1 << 27, kTaken, "samples per frame"),
};

}  // namespace qel
