// The float transforms with registers of 4 floats, of all lengths.
#include "qel/math/fft/x86/element.hpp"
#include "qel/math/fft/x86/transforms.hpp"

const qel::fft::FloatTransforms qel::fft::kSse2Transforms =
    qel::fft::Transforms<4, qel::fft::kFloatTransforms<qel::fft::SseElement>>::kTable;
