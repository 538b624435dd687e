// Registers of 4, 8 or 16 floats, as the compiler's own vectors: the rearrangements that loops need
// beside plain arithmetic. A source that uses more lanes than its processor's baseline has is
// compiled for that width as a whole. (ARMv7 takes such vectors to pieces: NEON has its own lanes.)
#pragma once

#include <array>
#include <cstring>
#include <utility>

#include "qel/math/simd/widest.hpp"

namespace qel::simd {

template <int kCount>
struct FloatsOf {
    typedef float Type __attribute__((vector_size(kCount * sizeof(float))));
};
/// kCount floats. Operators work lane by lane; a float operand counts for all lanes.
template <int kCount>
using Floats = typename FloatsOf<kCount>::Type;

/// Calls step(i) for i = 0 .. kCount - 1, each a constant.
template <int kCount, class Step>
QEL_KERNEL void unrolled(Step step) {
    [&]<int... i>(std::integer_sequence<int, i...>) QEL_INLINED {
        (step(std::integral_constant<int, i>{}), ...);
    }
    (std::make_integer_sequence<int, kCount>{});
}

template <int kCount>
QEL_KERNEL Floats<kCount> load(const float* at) {
    Floats<kCount> a;
    std::memcpy(&a, at, sizeof a);
    return a;
}
template <class V>
QEL_KERNEL void store(float* at, V a) {
    std::memcpy(at, &a, sizeof a);
}

/// Lane i of the result is lane from(i) of a, b one behind the other.
template <int kCount, class From>
QEL_KERNEL Floats<kCount> pick(Floats<kCount> a, Floats<kCount> b, From) {
    return [&]<int... i>(std::integer_sequence<int, i...>) QEL_INLINED {
        return __builtin_shufflevector(a, b, From{}(i)...);
    }
    (std::make_integer_sequence<int, kCount>{});
}

template <int kCount>
QEL_KERNEL Floats<kCount> reversed(Floats<kCount> a) {
    return pick<kCount>(a, a, [](int i) { return kCount - 1 - i; });
}
/// The lanes 0, 2, 4 .. of a and b, and the lanes 1, 3, 5 ..
template <int kCount>
QEL_KERNEL std::array<Floats<kCount>, 2> unzipped(Floats<kCount> a, Floats<kCount> b) {
    return {pick<kCount>(a, b, [](int i) { return 2 * i; }),
            pick<kCount>(a, b, [](int i) { return 2 * i + 1; })};
}
/// The way back.
template <int kCount>
QEL_KERNEL std::array<Floats<kCount>, 2> zipped(Floats<kCount> a, Floats<kCount> b) {
    return {pick<kCount>(a, b, [](int i) { return i / 2 + i % 2 * kCount; }),
            pick<kCount>(a, b, [](int i) { return (i + kCount) / 2 + i % 2 * kCount; })};
}

/// Transposes kCount registers, row by row the same as column by column: within each four lanes,
/// as these are quick on x86, then the blocks of four.
template <int kCount>
QEL_KERNEL void transpose(Floats<kCount>* rows) {
    using V = Floats<kCount>;
    constexpr int kBlocks = kCount / 4;
    unrolled<kBlocks>([&](auto block) QEL_INLINED {
        V* x = rows + 4 * block;
        const auto low = [](int i) { return i / 4 * 4 + i % 4 / 2 + i % 2 * kCount; };
        const auto high = [](int i) { return i / 4 * 4 + i % 4 / 2 + i % 2 * kCount + 2; };
        const auto front = [](int i) { return i / 4 * 4 + i % 2 + i % 4 / 2 * kCount; };
        const auto back = [](int i) { return i / 4 * 4 + i % 2 + i % 4 / 2 * kCount + 2; };
        const V a = pick<kCount>(x[0], x[1], low), b = pick<kCount>(x[2], x[3], low);
        const V c = pick<kCount>(x[0], x[1], high), d = pick<kCount>(x[2], x[3], high);
        x[0] = pick<kCount>(a, b, front);
        x[1] = pick<kCount>(a, b, back);
        x[2] = pick<kCount>(c, d, front);
        x[3] = pick<kCount>(c, d, back);
    });
    // Blocks of even and of odd places, the first of two registers before those of the second.
    const auto even = [](int i) { return i / 4 * 8 + i % 4; };
    const auto odd = [](int i) { return i / 4 * 8 + i % 4 + 4; };
    unrolled<4>([&](auto c) QEL_INLINED {
        const auto row = [=](int i) QEL_INLINED -> V& { return rows[4 * i + c]; };
        if constexpr (kBlocks == 2) {
            const V a = row(0), b = row(1);
            row(0) = pick<kCount>(a, b, even);
            row(1) = pick<kCount>(a, b, odd);
        } else if constexpr (kBlocks == 4) {
            const V a = pick<kCount>(row(0), row(1), even), b = pick<kCount>(row(2), row(3), even);
            const V d = pick<kCount>(row(0), row(1), odd), e = pick<kCount>(row(2), row(3), odd);
            row(0) = pick<kCount>(a, b, even);
            row(1) = pick<kCount>(d, e, even);
            row(2) = pick<kCount>(a, b, odd);
            row(3) = pick<kCount>(d, e, odd);
        }
    });
}

}  // namespace qel::simd
