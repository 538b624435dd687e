// Sums that a compiler must not split by itself: the same sixteen parts on every processor. For
// ARMv7 CMakeLists.txt gives sources that use them leave to flush subnormals.
#pragma once

#include <cstdint>

#include "qel/math/simd/lanes.hpp"

namespace qel::simd {

QEL_KERNEL Floats<4> magnitude(Floats<4> x) {
    typedef int32_t Bits __attribute__((vector_size(16)));
    return (Floats<4>)((Bits)x & 0x7fffffff);
}

/// A sum in sixteen parts, and of the numbers that are left over in one.
struct Sum {
    Floats<4> parts[4] = {};
    float rest = 0;

    QEL_KERNEL float total() const {
        const Floats<4> all = (parts[0] + parts[1]) + (parts[2] + parts[3]);
        return (all[0] + all[1]) + (all[2] + all[3]) + rest;
    }
};

/// Calls step(parts, i) for every fourth i below `n`, `parts` counting from 0 to 3 in turn, as long
/// as whole sixteens are left; then rest(i) for each i that is left over.
template <class Step, class Rest>
QEL_KERNEL void by_sixteen(int32_t n, Step step, Rest rest) {
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        unrolled<4>([&](auto p) QEL_INLINED { step(p, i + 4 * p); });
    }
    for (; i < n; ++i) rest(i);
}

}  // namespace qel::simd
