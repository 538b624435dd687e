// The float transforms with registers of 16 floats; compiled for processors that have them.
#include "qel/math/fft/x86/transforms.hpp"

const qel::fft::FloatTransforms qel::fft::kAvx512Transforms =
    qel::fft::Transforms<16, qel::fft::kSse2Transforms>::kTable;
