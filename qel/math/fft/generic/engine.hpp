// The complex transform of all three element types, by either engine.
//
// Self-sorting (Stockham): stages run from the last factor to the first, each reads
// columns of n / radix points and writes where the next one reads. See Van Loan, Computational
// Frameworks for the Fast Fourier Transform, 1992, sections 1.7 and 2.
#pragma once

#include <array>
#include <utility>

#include "qel/math/fft/generic/element.hpp"

// A step is a loop's body: as a call it would cost more than it does.
#define QEL_FFT_STEP __attribute__((always_inline))

namespace qel::fft {

/// Whether `count` steps are left to the scalar type.
template <class E>
constexpr bool too_short(int32_t count) {
    return !std::is_same_v<E, typename E::Scalar> && count < E::kLanes;
}

/// Whether the element type takes more code for less to do: steps that are not the last need not be
/// held inside the range, and twiddles that serve one group need not be kept.
template <class E>
constexpr bool is_quick() {
    return requires { E::kQuick; };
}

/// Calls step(lanes, j) for j = begin .. end - 1, several at once where the element type can. One
/// that leaves short counts to its scalar type does the last ones twice if need be, so a step must
/// not write what it reads.
template <class E, class Step>
QEL_FFT_STEP inline void for_lanes(int32_t begin, int32_t end, Step step) {
    constexpr Lanes<E::kLanes> kAll;
    int32_t j = begin;
    if constexpr (std::is_same_v<E, typename E::Scalar>) {
        if constexpr (kAll > 1) {
            for (; j + kAll <= end; j += kAll) step(kAll, j);
        }
        for (; j < end; ++j) step(Lanes<1>{}, j);
    } else if constexpr (is_quick<E>()) {
        for (; j + kAll <= end; j += kAll) step(kAll, j);
        if (j < end) step(kAll, end - kAll);
    } else {
        for (const int32_t last = end - kAll; j < end; j += kAll) step(kAll, std::min(j, last));
    }
}

/// A transform of as many points as the array holds, without scaling.
template <class E, bool kInverse>
struct Butterfly {
    template <class C>
    QEL_KERNEL static std::array<C, 2> run(const std::array<C, 2>& a) {
        return {a[0] + a[1], a[0] - a[1]};
    }

    template <class C>
    QEL_KERNEL static std::array<C, 3> run(const std::array<C, 3>& a) {
        const C sum = a[1] + a[2], mean = a[0] - E::scale(sum, E::kHalf);
        const C diff = E::scale(a[1] - a[2], E::kSin60);
        return {a[0] + sum, plus_turned<kInverse>(mean, diff), minus_turned<kInverse>(mean, diff)};
    }

    template <class C>
    QEL_KERNEL static std::array<C, 4> run(const std::array<C, 4>& a) {
        const C even = a[0] + a[2], even_diff = a[0] - a[2];
        const C odd = a[1] + a[3], odd_diff = a[1] - a[3];
        return {even + odd, plus_turned<kInverse>(even_diff, odd_diff), even - odd,
                minus_turned<kInverse>(even_diff, odd_diff)};
    }

    template <class C>
    QEL_KERNEL static std::array<C, 5> run(const std::array<C, 5>& a) {
        const C s1 = a[1] + a[4], d1 = a[1] - a[4], s2 = a[2] + a[3], d2 = a[2] - a[3];
        const C c1 = a[0] + E::scale(s1, E::kCos72) + E::scale(s2, E::kCos144);
        const C c2 = a[0] + E::scale(s1, E::kCos144) + E::scale(s2, E::kCos72);
        const C t1 = E::scale(d1, E::kSin72) + E::scale(d2, E::kSin144);
        const C t2 = E::scale(d1, E::kSin144) - E::scale(d2, E::kSin72);
        return {a[0] + s1 + s2, plus_turned<kInverse>(c1, t1), plus_turned<kInverse>(c2, t2),
                minus_turned<kInverse>(c2, t2), minus_turned<kInverse>(c1, t1)};
    }

    template <class C, class Cos45>
    QEL_KERNEL static std::array<C, 8> run(const std::array<C, 8>& a, Cos45 cos45) {
        const auto even = run(std::array<C, 4>{a[0], a[2], a[4], a[6]});
        auto odd = run(std::array<C, 4>{a[1], a[3], a[5], a[7]});
        odd[1] = E::scale(plus_turned<kInverse>(odd[1], odd[1]), cos45);
        odd[3] = E::scale(plus_turned<kInverse>(-odd[3], odd[3]), cos45);
        return {even[0] + odd[0],
                even[1] + odd[1],
                plus_turned<kInverse>(even[2], odd[2]),
                even[3] + odd[3],
                even[0] - odd[0],
                even[1] - odd[1],
                minus_turned<kInverse>(even[2], odd[2]),
                even[3] - odd[3]};
    }
};

template <class E, bool kInverse, bool kScaled>
class Engine {
    using Point = typename E::Point;
    using Fly = Butterfly<E, kInverse>;
    using Scalar = Engine<typename E::Scalar, kInverse, kScaled>;
    template <class, bool, bool>
    friend class Engine;
    static constexpr Lanes<E::kLanes> kAll{};

    /// Without twiddles: n / radix columns become as many groups of neighbours.
    template <int kRadix>
    static void first_pass(Point* out, const Point* in, int32_t columns,
                           [[maybe_unused]] decltype(E::kCos45) cos45 = E::kCos45) {
        if (too_short<E>(columns)) {
            return Scalar::template first_pass<kRadix>(out, in, columns, cos45);
        }
        const auto leave = E::template leave_first<kScaled, kRadix>(columns * kRadix, kRadix);
        for_lanes<E>(0, columns, [=](auto lanes, int32_t j) QEL_FFT_STEP {
            std::array<decltype(E::guard(E::load(lanes, in))), kRadix> a;
            for (int32_t q = 0; q < kRadix; ++q) {
                a[q] = E::guard(E::load(lanes, in + j + q * columns));
            }
            if constexpr (kRadix == 8) {
                a = Fly::run(a, cos45);
            } else {
                a = Fly::run(a);
            }
            for (int32_t q = 0; q < kRadix; ++q) {
                E::scatter(lanes, out + kRadix * j + q, kRadix, leave(a[q]));
            }
        });
    }

    /// The same for any radix: sums over `radix` roots, which are made in `roots`.
    static void direct_pass(Point* out, const Point* in, int32_t columns, int32_t radix,
                            Point* roots) {
        constexpr Lanes<1> kOne;
        E::line(roots, radix, 1, 2, radix);
        const auto leave = E::template leave_first<kScaled, 0>(columns * radix, radix);
        for (int32_t j = 0; j < columns; ++j) {
            for (int32_t k = 0; k < radix; ++k) {
                Complex<typename E::Sum> sum{};
                for (int32_t q = 0, turn = 0; q < radix; ++q) {
                    const auto w = E::load(kOne, roots + turn);
                    const auto term =
                        E::template mul<kInverse>(E::load(kOne, in + j + q * columns), w);
                    sum = {sum.r + term.r, sum.i + term.i};
                    turn = turn < radix - k ? turn + k : turn + k - radix;
                }
                E::store(kOne, out + radix * j + k, leave(sum));
            }
        }
    }

    /// Joins kRadix transforms of m points each, `groups` times.
    template <int kRadix>
    static void later_pass(Point* out, const Point* in, const Point* twiddles, int32_t m,
                           int32_t groups) {
        if (too_short<E>(std::max(m, groups))) {
            return Scalar::template later_pass<kRadix>(out, in, twiddles, m, groups);
        }
        const auto leave = E::template leave_later<kScaled, kRadix>(groups == 1);
        const int32_t column = m * groups;
        const auto twiddles_at = [=](int32_t j, auto load) QEL_FFT_STEP {
            std::array<decltype(load(twiddles)), kRadix - 1> w;
            for (int32_t q = 1; q < kRadix; ++q) w[q - 1] = load(twiddles + (q - 1) * m + j);
            return w;
        };
        const auto join = [=](int32_t g, int32_t j, const auto& w, auto load, auto store)
                              QEL_FFT_STEP {
                                  const Point* from = in + g * m + j;
                                  Point* to = out + kRadix * g * m + j;
                                  std::array<decltype(E::guard(load(from))), kRadix> a;
                                  a[0] = E::guard(load(from));
                                  for (int32_t q = 1; q < kRadix; ++q) {
                                      from += column;
                                      a[q] = E::template mul<kInverse>(load(from), w[q - 1]);
                                  }
                                  a = Fly::run(a);
                                  for (int32_t q = 0; q < kRadix; ++q, to += m)
                                      store(to, leave(a[q]));
                              };

        if constexpr (requires { E::gather(kAll, in, m); }) {
            if (m < kAll && groups >= kAll) {  // too few neighbours: lanes from as many groups
                for (int32_t j = 0; j < m; ++j) {
                    const auto w = twiddles_at(
                        j, [](const Point* at) QEL_FFT_STEP { return E::spread(kAll, at); });
                    for (int32_t g = 0; g < groups; g += kAll) {
                        join(
                            std::min<int32_t>(g, groups - kAll), j, w,
                            [=](const Point* at) QEL_FFT_STEP { return E::gather(kAll, at, m); },
                            [=](Point* at, auto a)
                                QEL_FFT_STEP { E::scatter(kAll, at, kRadix * m, a); });
                    }
                }
                return;
            }
        }
        const auto join_all = [=](auto count) QEL_FFT_STEP {
            for_lanes<E>(0, m, [=](auto lanes, int32_t j) QEL_FFT_STEP {
                const auto load = [=](const Point* at) QEL_FFT_STEP { return E::load(lanes, at); };
                const auto store = [=](Point* at, auto a) QEL_FFT_STEP { E::store(lanes, at, a); };
                const auto w = twiddles_at(j, load);
                for (int32_t g = 0; g < count; ++g) join(g, j, w, load, store);
            });
        };
        if constexpr (is_quick<E>()) {
            if (groups == 1) return join_all(Lanes<1>{});
        }
        join_all(groups);
    }

  public:
    /// The fast engine for `fast`, which needs radices of 2 and 4 and then joins the last two, 4
    /// and 2, in one pass. `in` is read by the first pass only; `out` and `buffer` take turns so
    /// that `out` is last.
    static void run(Point* out, const Point* in, const int32_t* factors, const Point* twiddles,
                    Point* buffer, bool fast) {
        int32_t stage = factors[0], radix = factors[2 * stage], columns = factors[1];
        if (fast && radix == 2 && stage > 1) {
            --stage;
            radix = 8;
            columns /= 4;
            twiddles += 6;  // of the radix-4 stage
        } else if (radix % 2 != 0) {
            twiddles += radix;  // ones
        }
        Point *dst = out, *idle = buffer;
        if (stage % 2 == 0) std::swap(dst, idle);

        switch (radix) {
            case 2: first_pass<2>(dst, in, columns); break;
            case 3: first_pass<3>(dst, in, columns); break;
            case 4: first_pass<4>(dst, in, columns); break;
            case 5: first_pass<5>(dst, in, columns); break;
            case 8: first_pass<8>(dst, in, columns, fast ? E::kCos45 : E::kMixedCos45); break;
            default: Scalar::direct_pass(dst, in, columns, radix, idle);
        }
        for (int32_t m = radix; --stage > 0; m *= radix) {
            radix = factors[2 * stage];
            columns /= radix;
            std::swap(dst, idle);
            switch (radix) {  // no other radix stands before the last factor
                case 2: later_pass<2>(dst, idle, twiddles, m, columns); break;
                case 3: later_pass<3>(dst, idle, twiddles, m, columns); break;
                case 4: later_pass<4>(dst, idle, twiddles, m, columns); break;
                case 5: later_pass<5>(dst, idle, twiddles, m, columns); break;
            }
            twiddles += m * (radix - 1);
        }
    }
};

}  // namespace qel::fft
