// The operations in NEON registers. What fills no register is left to the portable form, which each
// of them takes as its last argument.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "qel/math/vector/generic/element.hpp"
#include "qel/math/vector/generic/operations.hpp"
#include "qel/math/vector/neon/lanes.hpp"

namespace qel::vector::neon {

/// Calls `step` for `at_once` registers of `lanes` elements, which hide each other's latency, as
/// often as `n` elements have them, then for one.
template <uint32_t lanes, uint32_t at_once, class Step>
QEL_KERNEL void by_registers(uint32_t n, Step step) {
    for (uint32_t k = n / (at_once * lanes); k != 0; --k) {
        step(std::integral_constant<uint32_t, at_once>());
    }
    for (uint32_t k = n % (at_once * lanes) / lanes; k != 0; --k) {
        step(std::integral_constant<uint32_t, 1>());
    }
}

/// The register at `x`, which moves on behind it. The empty instruction makes that a part of the
/// load: GCC 12 computes an address for every load of an unrolled loop otherwise.
template <class T>
QEL_KERNEL auto take(const T*& x) {
    const auto value = Lanes<T>::load(x);
    x += Lanes<T>::kCount;
    asm("" : "+r"(x));
    return value;
}

template <class T>
QEL_KERNEL void put(T*& x, typename Lanes<T>::Register value) {
    Lanes<T>::store(x, value);
    x += Lanes<T>::kCount;
    asm("" : "+r"(x));
}

// Element-wise

/// Writes what `next` returns, register by register, and leaves `dst` behind the last.
template <class T, class Next>
QEL_KERNEL void fill(T*& dst, uint32_t n, Next next) {
    by_registers<Lanes<T>::kCount, 4>(n, [&](auto count) QEL_INLINED {
        typename Lanes<T>::Register results[count];
        for (auto& result : results) result = next();
        for (const auto& result : results) put(dst, result);
    });
}

template <class T, class Operation, class Portable>
QEL_KERNEL int32_t binary(T* dst, const T* a, const T* b, uint32_t n, Operation operation,
                          Portable portable) {
    fill(dst, n, [&]() QEL_INLINED {
        const auto x = take(a);
        return operation(x, take(b));
    });
    return portable(dst, a, b, n % Lanes<T>::kCount);
}

template <class T, class Portable>
int32_t add(T* dst, const T* a, const T* b, uint32_t n, Portable portable) {
    return binary(dst, a, b, n, Lanes<T>::add, portable);
}

template <class T, class Portable>
int32_t sub(T* dst, const T* a, const T* b, uint32_t n, Portable portable) {
    return binary(dst, a, b, n, Lanes<T>::sub, portable);
}

template <class T, class Portable>
int32_t mul(T* dst, const T* a, const T* b, uint32_t n, Portable portable) {
    return binary(dst, a, b, n, Lanes<T>::mul, portable);
}

template <class T, class Portable>
int32_t scale(T* data, uint32_t n, T factor, Portable portable) {
    const T* from = data;
    const auto factors = Lanes<T>::all(factor);
    fill(data, n, [&]() QEL_INLINED { return Lanes<T>::mul(take(from), factors); });
    return portable(data, n % Lanes<T>::kCount, factor);
}

// Reductions

/// Four totals in turn, then these together, then the lanes in order, then the rest. Not an array:
/// GCC 12 keeps that in memory.
template <class T, class Portable>
T sum(const T* data, uint32_t n, Portable portable) {
    using L = Lanes<T>;
    auto w = L::all(0), x = w, y = w, z = w;
    for (uint32_t k = n / (4 * L::kCount); k != 0; --k) {
        w = L::add(w, take(data));
        x = L::add(x, take(data));
        y = L::add(y, take(data));
        z = L::add(z, take(data));
    }
    for (uint32_t k = n / L::kCount % 4; k != 0; --k) w = L::add(w, take(data));
    T lanes[L::kCount];
    L::store(lanes, L::add(L::add(w, x), L::add(y, z)));
    T total = 0;
    for (const T lane : lanes) total = Element<T>::add(total, lane);
    return Element<T>::add(total, portable(data, n % L::kCount));
}

template <class T, class Portable>
T average(const T* data, uint32_t n, Portable portable_sum) {
    return Element<T>::average(sum(data, n, portable_sum), n);
}

// Transcendental, in place. The kernels are the portable ones, four floats at a time, so that the
// results are too. NEON on 32-bit ARM takes subnormal numbers for 0: where they would occur, and
// wherever a kernel does not reach, a block is left to the portable form.

constexpr uint32_t kBlock = 64;  // elements

/// Whether the condition holds for all whole registers.
template <class T, class Condition>
QEL_KERNEL bool all_of(const T* data, uint32_t n, Condition condition) {
    uint32x4_t all = vdupq_n_u32(~0u);
    for (uint32_t i = 0; n - i >= 4; i += 4) all &= condition(load_reals(data + i));
    const uint32x2_t half = vand_u32(vget_low_u32(all), vget_high_u32(all));
    return (vget_lane_u32(half, 0) & vget_lane_u32(half, 1)) == ~0u;
}

/// Writes `kernel` of the whole registers of `data` to `out`; returns how many elements these are.
template <class In, class Out, class Kernel>
QEL_KERNEL uint32_t run_kernel(Out* out, const In* data, uint32_t n, Kernel kernel) {
    by_registers<4, 2>(n, [&](auto count) QEL_INLINED {
        Float4 results[count];
        for (Float4& result : results) {
            result = kernel(load_reals(data));
            data += 4;
        }
        for (const Float4& result : results) {
            store_reals(out, result);
            out += 4;
        }
    });
    return n - n % 4;
}

template <class T, class Condition, class Kernel, class Portable>
QEL_KERNEL int32_t in_place(T* data, uint32_t n, Condition kernel_serves, Kernel kernel,
                            Portable portable) {
    for (uint32_t begin = 0; begin < n; begin += kBlock) {
        T* block = data + begin;
        const uint32_t count = std::min(kBlock, n - begin);
        const bool serves = all_of(block, count, kernel_serves);
        const uint32_t done = serves ? run_kernel(block, block, count, kernel) : 0;
        portable(block + done, count - done);
    }
    return 0;
}

/// Whether NEON has a number for e^x and 1 / (1 + e^-x): neither is subnormal. In Q12 none is.
template <class T>
QEL_KERNEL uint32x4_t power_is_normal(Float4 x) {
    if constexpr (kKeepsSubnormals || !std::is_same_v<T, float>) return vdupq_n_u32(~0u);
    return ~((x > -Real<float>::kExpLimit) & (x < -87.0f));
}

template <class T, class Portable>
int32_t exponential(T* data, uint32_t n, Portable portable) {
    const Exp<Float4> exp;
    const Float4 largest = Element<T>::to_real(std::numeric_limits<T>::max());
    const auto kernel = [=](Float4 x) QEL_INLINED {
        return std::is_same_v<T, float> ? exp(x) : min_of(exp(x), largest);
    };
    return in_place(data, n, power_is_normal<T>, kernel, portable);
}

template <class T, class Portable>
int32_t logarithm(T* data, uint32_t n, Portable portable) {
    if constexpr (std::is_same_v<T, float>) {
        const auto normal = [](Float4 x) QEL_INLINED {
            return ~(x < std::numeric_limits<float>::min()) &
                   (x < std::numeric_limits<float>::infinity());
        };
        const auto kernel = [](Float4 x) QEL_INLINED { return log_of_normal(x); };
        return in_place(data, n, normal, kernel, portable);
    } else {
        const Float4 smallest = Element<T>::to_real(std::numeric_limits<T>::min());
        const auto any = [](Float4) QEL_INLINED { return vdupq_n_u32(~0u); };
        const auto kernel = [=](Float4 x) QEL_INLINED {
            const Float4 log = max_of(log_of_normal(x), smallest);
            return Float4(vbslq_f32(x > 0, log.lanes, smallest.lanes));
        };
        return in_place(data, n, any, kernel, portable);
    }
}

template <class T, class Portable>
int32_t sigmoid(T* data, uint32_t n, Portable portable) {
    const Exp<Float4> exp;
    const auto kernel = [=](Float4 x) QEL_INLINED { return exp.sigmoid(x); };
    return in_place(data, n, power_is_normal<T>, kernel, portable);
}

/// The powers in registers, their sum and the quotients as the portable form has them, in double
/// and in order.
template <class T, class Portable>
int32_t softmax(T* data, uint32_t n, Portable portable) {
    if (n == 0) return 0;
    const float largest = Element<T>::to_real(maximum(data, n));
    const Exp<Float4> exp;
    const Exp<float> exp_of_one;
    const auto serves = [=](Float4 x) QEL_INLINED { return power_is_normal<T>(x - largest); };
    if (!all_of(data, n, serves)) return portable(data, n);

    float powers[kBlock];
    const auto each_block = [&](auto use) QEL_INLINED {
        for (uint32_t begin = 0; begin < n; begin += kBlock) {
            T* block = data + begin;
            const uint32_t count = std::min(kBlock, n - begin);
            uint32_t i = run_kernel(powers, block, count, [=](Float4 x) QEL_INLINED {
                return exp.of_difference(x, largest);
            });
            for (; i < count; ++i) {
                powers[i] = exp_of_one.of_difference(Element<T>::to_real(block[i]), largest);
            }
            for (i = 0; i < count; ++i) use(block[i], double{powers[i]});
        }
    };
    double sum = 0;
    each_block([&](T&, double power) QEL_INLINED { sum += power; });
    const double inverse = 1 / sum;
    each_block([=](T& x, double power) QEL_INLINED { x = Element<T>::from_real(power * inverse); });
    return 0;
}

/// For Q20, which takes doubles: 32-bit ARM has no registers of these.
template <class T, class Portable>
int32_t portable(T* data, uint32_t n, Portable form) {
    return form(data, n);
}

}  // namespace qel::vector::neon
