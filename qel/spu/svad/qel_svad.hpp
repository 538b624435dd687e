// The judgement itself, for windows of any length; shared with the canceller.
#pragma once

#include <cstdint>

#include "qel/spu/svad/qel_svad.h"

namespace qel {

/// State of a detector that hears something.
constexpr int32_t kSpeech = QEL_FRAMING_SPEECH;

/// qel_svad_judge() for a window of `n` samples.
int32_t svad_judge_count(qel_svad* det, const float* samples, uint32_t n);

/// The same, and sooner, where `samples` are whole numbers of 16 bits.
int32_t svad_judge_pcm(qel_svad* det, const float* samples, uint32_t n);

}  // namespace qel
