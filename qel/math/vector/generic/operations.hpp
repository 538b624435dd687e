// The operations, one template each; the shims of the element types give them their names.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <type_traits>

#include "qel/core/qel_debug.h"
#include "qel/math/vector/generic/element.hpp"
#include "qel/math/vector/generic/elementary.hpp"

namespace qel::vector {

template <class T>
using Vector = typename Element<T>::Vector;

// Housekeeping

template <class T>
uint32_t data_bytes(const Vector<T>* vec) {
    return vec->len * static_cast<uint32_t>(sizeof(T));
}

template <class T>
Vector<T>* make_vector(uint32_t len) {
    // Whole words. A block's size is reported in 32 bits, so it must fit them.
    const uint64_t bytes = (uint64_t{len} * sizeof(T) + QEL_VECTOR_HEADER_BYTES + 3) & ~uint64_t{3};
    if (bytes > UINT32_MAX) return nullptr;
    auto* vec = static_cast<Vector<T>*>(std::malloc(static_cast<size_t>(bytes)));
    if (vec == nullptr) return nullptr;
    vec->len = vec->capacity = len;
    vec->reserved[0] = vec->reserved[1] = 0;
    return vec;
}

template <class T>
void copy(Vector<T>* dst, const Vector<T>* src) {
    std::memmove(dst->data, src->data, data_bytes<T>(src));
    dst->len = src->len;
}

template <class V, class Value>
void print(const V* vec, const char* format, Value value_of, uint32_t per_line) {
    for (uint32_t i = 0; i < vec->len; ++i) {
        if (i % per_line == 0) std::printf("\n");
        std::printf(format, value_of(vec->data[i]));
    }
    std::printf("\n");
}

// Element-wise

/// Where a length mismatch is reported from.
struct Site {
    const char* source;
    const char* function;
    int32_t line;
};

/// Logs and returns -1 if the lengths differ, else 0.
inline int32_t check_lengths(uint32_t a, uint32_t b, const Site& site) {
    if (a == b) return 0;
    qel_debug_log(QEL_LOG_WARNING, site.source, site.function, site.line,
                  "vector size mismatched. %d != %d", static_cast<int32_t>(a),
                  static_cast<int32_t>(b));
    return -1;
}

/// Runs a bare-array operation over all of `dst` that `a` and `b` reach.
template <class V, class Operation>
int32_t binary(V* dst, const V* a, const V* b, Operation operation, const Site& site) {
    if (check_lengths(a->len, b->len, site) != 0) return -1;
    return operation(dst->data, a->data, b->data, std::min(dst->len, a->len));
}

template <class T>
int32_t add(T* dst, const T* a, const T* b, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) dst[i] = Element<T>::add(a[i], b[i]);
    return 0;
}

template <class T>
int32_t sub(T* dst, const T* a, const T* b, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) dst[i] = Element<T>::sub(a[i], b[i]);
    return 0;
}

template <class T>
int32_t mul(T* dst, const T* a, const T* b, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) dst[i] = Element<T>::mul(a[i], b[i]);
    return 0;
}

template <class T>
int32_t scale(T* data, uint32_t n, T factor) {
    for (uint32_t i = 0; i < n; ++i) data[i] = Element<T>::mul(data[i], factor);
    return 0;
}

template <class T>
int32_t set(T* data, uint32_t n, T value) {
    std::fill_n(data, n, value);
    return 0;
}

// Reductions

/// In one accumulator and index order: callers rely on the last bit of float sums.
template <class T>
T sum(const T* data, uint32_t n) {
    typename Element<T>::Sum total = 0;
    // Additions stay in order; one by one, ARMv7 would spend as long on counting.
    QEL_UNROLLED
    for (uint32_t i = 0; i < n; ++i) total += static_cast<typename Element<T>::Sum>(data[i]);
    return static_cast<T>(total);
}

template <class T>
T average(const T* data, uint32_t n) {
    return Element<T>::average(sum(data, n), n);
}

/// Element 0 counts even when n is 0.
template <class T>
T maximum(const T* data, uint32_t n) {
    T best = data[0];
    for (uint32_t i = 1; i < n; ++i) best = data[i] > best ? data[i] : best;
    return best;
}

template <class T>
T minimum(const T* data, uint32_t n) {
    T best = data[0];
    for (uint32_t i = 1; i < n; ++i) best = data[i] < best ? data[i] : best;
    return best;
}

/// Whether an element 0 exists, which an empty vector may have too once it was longer.
template <class V>
bool has_first(const V* vec) {
    return vec->len != 0 || vec->capacity != 0;
}

// Transcendental, in place

template <class T>
int32_t exponential(T* data, uint32_t n) {
    using Real = typename Element<T>::Real;
    simd::run_widest([=]() QEL_INLINED {
        const Exp<Real> exp;
        if constexpr (std::is_same_v<T, float>) {
            for (uint32_t i = 0; i < n; ++i) data[i] = exp(data[i]);
        } else {
            const Real largest = Element<T>::to_real(std::numeric_limits<T>::max());
            for (uint32_t i = 0; i < n; ++i) {
                const Real power = exp(Element<T>::to_real(data[i]));
                data[i] = Element<T>::from_real(select(power < largest, power, largest));
            }
        }
    });
    return 0;
}

/// Whether all numbers are positive, normal and finite: between the bits of the least and the
/// largest normal number, tested by the signs of two differences.
QEL_KERNEL bool all_normal(const float* data, uint32_t n) {
    uint32_t outside = 0;
    for (uint32_t i = 0; i < n; ++i) {
        const auto bits = std::bit_cast<uint32_t>(data[i]);
        outside |= (bits - 0x00800000u) | (0x7f7fffffu - bits);
    }
    return outside >> 31 == 0;
}

template <class T>
int32_t logarithm(T* data, uint32_t n) {
    using Real = typename Element<T>::Real;
    simd::run_widest([=]() QEL_INLINED {
        if constexpr (std::is_same_v<T, float>) {
            if (all_normal(data, n)) {  // the usual case, at two thirds of the time
                for (uint32_t i = 0; i < n; ++i) data[i] = log_of_normal(data[i]);
            } else {
                for (uint32_t i = 0; i < n; ++i) data[i] = log_of_any(data[i]);
            }
        } else {
            const Real smallest = Element<T>::to_real(std::numeric_limits<T>::min());
            for (uint32_t i = 0; i < n; ++i) {
                const Real x = Element<T>::to_real(data[i]);
                const Real log = log_of_normal(x);
                const bool fits = (x > 0) & (log > smallest);
                data[i] = Element<T>::from_real(select(fits, log, smallest));
            }
        }
    });
    return 0;
}

template <class T>
int32_t sigmoid(T* data, uint32_t n) {
    simd::run_widest([=]() QEL_INLINED {
        const Exp<typename Element<T>::Real> exp;
        for (uint32_t i = 0; i < n; ++i) {
            data[i] = Element<T>::from_real(exp.sigmoid(Element<T>::to_real(data[i])));
        }
    });
    return 0;
}

/// The powers are computed twice, for their sum and for the results: integer elements cannot hold
/// them in between. Their sum and its inverse are double: each result is rounded, or truncated,
/// once.
template <class T>
int32_t softmax(T* data, uint32_t n) {
    if (n == 0) return 0;
    using Real = typename Element<T>::Real;
    simd::run_widest([=]() QEL_INLINED {
        const Exp<Real> exp;
        const Real largest = Element<T>::to_real(maximum(data, n));
        double sum = 0;
        Real powers[64];  // two loops: the sum, being in order, would keep one scalar
        for (uint32_t begin = 0; begin < n; begin += std::size(powers)) {
            const T* block = data + begin;
            const uint32_t count = std::min<uint32_t>(std::size(powers), n - begin);
            for (uint32_t i = 0; i < count; ++i) {
                powers[i] = exp.of_difference(Element<T>::to_real(block[i]), largest);
            }
            for (uint32_t i = 0; i < count; ++i) sum += double{powers[i]};
        }
        const double inverse = 1 / sum;
        for (uint32_t i = 0; i < n; ++i) {
            const Real power = exp.of_difference(Element<T>::to_real(data[i]), largest);
            data[i] = Element<T>::from_real(double{power} * inverse);
        }
    });
    return 0;
}

/// Runs the bare-array `transform` if a spectrum of `plan` may go into `out` and `in` has all
/// samples for it; else logs and returns -1.
template <class V, class Plan, class Transform>
int32_t spectrum(V* out, const V* in, const Plan* plan, Transform transform, const Site& site) {
    const auto half = static_cast<uint32_t>(plan->ncfft);
    const uint32_t elements = 2 * (half + 1);
    const bool fits = (out->len == half || out->len == elements) && out->capacity >= elements;
    if (fits && in->len >= 2 * half) return transform(out->data, in->data, half, plan);
    qel_debug_log(QEL_LOG_WARNING, site.source, site.function, site.line,
                  "vectors of %u in and %u out, made for %u, do not fit %u points.", in->len,
                  out->len, out->capacity, 2 * half);
    return -1;
}

}  // namespace qel::vector
