// The keys of a framing configuration.
#pragma once

#include "qel/spu/frame/qel_framing.h"
#include "qel/spu/sigp/keys.hpp"

namespace qel {

inline constexpr Key kFramingKeys[] = {
    QEL_KEY(qel_framing_cfg, mtype, kInteger, 0, kLowest, kHighest, kTaken, "kept, not used"),
    QEL_KEY(qel_framing_cfg, frame_len, kInteger, 512, 1, 1 << 27, kTaken, "samples per frame"),
    QEL_KEY(qel_framing_cfg, bit_extends, kInteger, 6, 0, 31, kTaken,
            "right shift from 24 and 32 bits to 16"),
    QEL_FLAG(qel_framing_cfg, use_16bit, 1, "16-bit samples"),
    QEL_FLAG(qel_framing_cfg, use_24bit, 0, "24-bit samples"),
    QEL_FLAG(qel_framing_cfg, use_32bit, 0, "32-bit samples"),
};

}  // namespace qel
