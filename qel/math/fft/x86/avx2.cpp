// The float transforms with registers of 8 floats; compiled for processors that have them.
#include "qel/math/fft/x86/transforms.hpp"

const qel::fft::FloatTransforms qel::fft::kAvx2Transforms =
    qel::fft::Transforms<8, qel::fft::kSse2Transforms>::kTable;
