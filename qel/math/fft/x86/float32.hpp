// The float transforms of an x86-64 processor in each width of its registers. All give the portable
// results, bit for bit.
#pragma once

#include "qel/math/fft/generic/float32.hpp"

namespace qel::fft {

extern const FloatTransforms kSse2Transforms, kAvx2Transforms, kAvx512Transforms;

inline bool has_avx512() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512vl");
}
inline bool has_avx2() { return __builtin_cpu_supports("avx2"); }

inline const FloatTransforms& widest_transforms() {
    return has_avx512() ? kAvx512Transforms : has_avx2() ? kAvx2Transforms : kSse2Transforms;
}

}  // namespace qel::fft
