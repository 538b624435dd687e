// The float transforms in wide registers, real and imaginary parts apart from the first load to the
// last store. Each pass is the portable engine's, to the last bit; only what stands in a register's
// lanes differs. First they hold neighbouring columns, so that a pass moves whole registers and its
// twiddles are the same in all lanes. When 16 or 8 columns are left, blocks of rows are transposed,
// and the last two passes, joined in registers, have neighbouring rows in the lanes.
#pragma once

#include "qel/math/fft/generic/float32.hpp"
#include "qel/math/simd/lanes.hpp"

namespace qel::fft {
namespace {  // each source compiles these for its own processors

using simd::unrolled;

/// Points as callers hold them.
template <int kLanes>
struct InterleavedIn {
    using C = Complex<simd::Floats<kLanes>>;
    const FloatPoint* at;

    QEL_KERNEL FloatPoint operator[](int32_t i) const { return at[i]; }
    QEL_KERNEL C load(int32_t i) const {
        const float* from = &at[i].r;
        const auto [r, i_] =
            simd::unzipped<kLanes>(simd::load<kLanes>(from), simd::load<kLanes>(from + kLanes));
        return {r, i_};
    }
};
template <int kLanes>
struct Interleaved {
    using C = Complex<simd::Floats<kLanes>>;
    FloatPoint* at;

    QEL_KERNEL void put(int32_t i, FloatPoint a) const { at[i] = a; }
    QEL_KERNEL void store(int32_t i, C a) const {
        float* to = &at[i].r;
        const auto [low, high] = simd::zipped<kLanes>(a.r, a.i);
        simd::store(to, low);
        simd::store(to + kLanes, high);
    }
};

/// All real parts before all imaginary ones.
template <int kLanes>
struct Planar {
    using C = Complex<simd::Floats<kLanes>>;
    float* at;
    int32_t count;

    QEL_KERNEL FloatPoint operator[](int32_t i) const { return {at[i], at[count + i]}; }
    QEL_KERNEL void put(int32_t i, FloatPoint a) const {
        at[i] = a.r;
        at[count + i] = a.i;
    }
    QEL_KERNEL C load(int32_t i) const {
        return {simd::load<kLanes>(at + i), simd::load<kLanes>(at + count + i)};
    }
    QEL_KERNEL void store(int32_t i, C a) const {
        simd::store(at + i, a.r);
        simd::store(at + count + i, a.i);
    }
};

/// A register of real parts, then one of imaginary parts: reached at whole registers only.
template <int kLanes>
struct Blocked {
    using C = Complex<simd::Floats<kLanes>>;
    float* at;

    QEL_KERNEL C load(int32_t i) const {
        return {simd::load<kLanes>(at + 2 * i), simd::load<kLanes>(at + 2 * i + kLanes)};
    }
    QEL_KERNEL void store(int32_t i, C a) const {
        simd::store(at + 2 * i, a.r);
        simd::store(at + 2 * i + kLanes, a.i);
    }
};

/// kLanes values from `at` to lower places.
template <int kLanes, class Values>
QEL_KERNEL auto load_back(const Values& values, int32_t at) {
    const auto a = values.load(at - (kLanes - 1));
    return Complex{simd::reversed<kLanes>(a.r), simd::reversed<kLanes>(a.i)};
}
template <int kLanes, class Values, class C>
QEL_KERNEL void store_back(const Values& values, int32_t at, C a) {
    values.store(at - (kLanes - 1), C{simd::reversed<kLanes>(a.r), simd::reversed<kLanes>(a.i)});
}

/// a times w, or times its conjugate on the way back.
template <bool kInverse>
struct Multiply {
    template <class W>
    QEL_KERNEL static Complex<W> run(Complex<W> a, Complex<W> w) {
        if constexpr (kInverse) return {a.r * w.r + a.i * w.i, a.i * w.r - a.r * w.i};
        return {a.r * w.r - a.i * w.i, a.r * w.i + a.i * w.r};
    }
};

template <int kLanes, bool kInverse>
struct WideEngine {
    using E = Element<float>;
    using C = Complex<simd::Floats<kLanes>>;
    using Fly = Butterfly<E, kInverse>;

    QEL_KERNEL static C mul(C a, C w) { return Multiply<kInverse>::run(a, w); }
    QEL_KERNEL static C spread(const FloatPoint* w) {
        return {simd::Floats<kLanes>{} + w->r, simd::Floats<kLanes>{} + w->i};
    }

    /// The way back is scaled by its first pass.
    QEL_KERNEL static auto leave_first([[maybe_unused]] float factor) {
        if constexpr (kInverse) {
            return E::Times{factor};
        } else {
            return E::Keep{};
        }
    }

    template <int kRadix, class In>
    static void first_pass(Blocked<kLanes> out, In in, int32_t columns, float factor,
                           [[maybe_unused]] float cos45 = 0) {
        const auto leave = leave_first(factor);
        for (int32_t g = 0; g < columns; g += kLanes) {
            std::array<C, kRadix> a;
            unrolled<kRadix>([&](auto q) QEL_INLINED { a[q] = in.load(g + q * columns); });
            if constexpr (kRadix == 8) {
                a = Fly::run(a, cos45);
            } else {
                a = Fly::run(a);
            }
            unrolled<kRadix>([&](auto q) QEL_INLINED { out.store(g + q * columns, leave(a[q])); });
        }
    }

    /// Rows of kRadix * columns become kRadix times as many rows of `columns`.
    template <int kRadix>
    static void later_pass(Blocked<kLanes> out, Blocked<kLanes> in, const FloatPoint* w, int32_t m,
                           int32_t columns) {
        for (int32_t j = 0; j < m; ++j) {
            std::array<C, kRadix> turn;
            unrolled<kRadix - 1>([&](auto q) QEL_INLINED { turn[q] = spread(w + q * m + j); });
            for (int32_t g = 0; g < columns; g += kLanes) {
                std::array<C, kRadix> a;
                unrolled<kRadix>([&](auto q) QEL_INLINED {
                    a[q] = in.load((j * kRadix + q) * columns + g);
                    if constexpr (q > 0) a[q] = mul(a[q], turn[q - 1]);
                });
                a = Fly::run(a);
                unrolled<kRadix>([&](auto q)
                                     QEL_INLINED { out.store((q * m + j) * columns + g, a[q]); });
            }
        }
    }

    /// Two passes over 4 * kRadix values, a[4 q + s]: kRadix transforms become one of each s, then
    /// these four become one. turn(q) and later_turn(s, q) are their twiddles.
    template <int kRadix, class Leave, class Turn, class LaterTurn>
    QEL_KERNEL static void join_two(C* a, Leave leave, Turn turn, LaterTurn later_turn) {
        unrolled<4>([&](auto s) QEL_INLINED {
            std::array<C, kRadix> b;
            unrolled<kRadix>([&](auto q) QEL_INLINED { b[q] = turn(a[4 * q + s], q); });
            b = Fly::run(b);
            unrolled<kRadix>([&](auto q) QEL_INLINED { a[4 * q + s] = leave(b[q]); });
        });
        unrolled<kRadix>([&](auto q) QEL_INLINED {
            std::array<C, 4> b;
            b[0] = a[4 * q];
            unrolled<3>([&](auto s)
                            QEL_INLINED { b[s + 1] = mul(a[4 * q + s + 1], later_turn(s, q)); });
            b = Fly::run(b);
            unrolled<4>([&](auto s) QEL_INLINED { a[4 * q + s] = b[s]; });
        });
    }

    /// The first two radix-4 passes.
    template <class In>
    static void first_two(Blocked<kLanes> out, In in, const FloatPoint* w, int32_t columns,
                          float factor) {
        const auto leave = leave_first(factor);
        for (int32_t g = 0; g < columns; g += kLanes) {
            C a[16];
            unrolled<16>([&](auto i) QEL_INLINED { a[i] = in.load(g + i * columns); });
            join_two<4>(
                a, leave, [](C x, auto) QEL_INLINED { return x; },
                [=](auto s, auto q) QEL_INLINED { return spread(w + s * 4 + q); });
            unrolled<16>([&](auto i)
                             QEL_INLINED { out.store((i / 4 + i % 4 * 4) * columns + g, a[i]); });
        }
    }

    /// Two later radix-4 passes: rows of 16 * columns become rows of `columns`.
    static void later_two(Blocked<kLanes> out, Blocked<kLanes> in, const FloatPoint* w, int32_t m,
                          int32_t columns) {
        const FloatPoint* later = w + 3 * m;
        for (int32_t j = 0; j < m; ++j) {
            for (int32_t g = 0; g < columns; g += kLanes) {
                C a[16];
                unrolled<16>([&](auto i)
                                 QEL_INLINED { a[i] = in.load((j * 16 + i) * columns + g); });
                join_two<4>(
                    a, E::Keep{},
                    [=](C x, auto q) QEL_INLINED {
                        if constexpr (q == 0)
                            return x;
                        else
                            return mul(x, spread(w + (q - 1) * m + j));
                    },
                    [=](auto s, auto q)
                        QEL_INLINED { return spread(later + s * 4 * m + q * m + j); });
                unrolled<16>([&](auto i) QEL_INLINED {
                    out.store((i / 4 * m + i % 4 * 4 * m + j) * columns + g, a[i]);
                });
            }
        }
    }

    /// The last two passes, of radix kRadix and 4, from m rows of 4 * kRadix columns.
    template <int kRadix, class Out>
    static void last_two(Out out, Blocked<kLanes> in, const FloatPoint* w, int32_t m) {
        constexpr int kColumns = 4 * kRadix;
        const InterleavedIn<kLanes> turns{w};
        const InterleavedIn<kLanes> later{w + (kRadix - 1) * m};
        for (int32_t next = 0; next < m; next += kLanes) {
            const int32_t j = std::min(next, m - kLanes);
            simd::Floats<kLanes> r[kColumns], i[kColumns];
            unrolled<kColumns / kLanes>([&](auto part) QEL_INLINED {
                unrolled<kLanes>([&](auto row) QEL_INLINED {
                    const C x = in.load((j + row) * kColumns + part * kLanes);
                    r[part * kLanes + row] = x.r;
                    i[part * kLanes + row] = x.i;
                });
                simd::transpose<kLanes>(r + part * kLanes);
                simd::transpose<kLanes>(i + part * kLanes);
            });
            C a[kColumns];
            unrolled<kColumns>([&](auto q) QEL_INLINED { a[q] = {r[q], i[q]}; });
            join_two<kRadix>(
                a, E::Keep{},
                [=](C x, auto q) QEL_INLINED {
                    if constexpr (q == 0)
                        return x;
                    else
                        return mul(x, turns.load((q - 1) * m + j));
                },
                [=](auto s, auto q) QEL_INLINED { return later.load((s * kRadix + q) * m + j); });
            unrolled<kColumns>(
                [&](auto q) QEL_INLINED { out.store((q % 4 * kRadix + q / 4) * m + j, a[q]); });
        }
    }

    /// Of the passes before the last two, those that write to `last` and to `other` take turns,
    /// and `last` is last; either holds as many points as the transform has. `other` may be where
    /// `out` is, and `in` too if the first of them does not write there. `factor`
    /// scales the way back.
    template <class Out, class In>
    static void run(Out out, In in, const int32_t* factors, const FloatPoint* twiddles, float* last,
                    float* other, float factor = 1) {
        const bool fast = is_fast(factors);
        int32_t stage = factors[0], radix = factors[2 * stage], columns = factors[1];
        if (fast && radix == 2) {
            --stage;
            radix = 8;
            columns /= 4;
            twiddles += 6;  // of the radix-4 stage
        } else if (radix % 2 != 0) {
            twiddles += radix;  // ones
        }
        const auto two_at = [=](int32_t s) {
            return s > 3 && (s < stage || radix == 4) && factors[2 * s] == 4 &&
                   factors[2 * s - 2] == 4;
        };
        Blocked<kLanes> dst{last}, src{other};
        for (int32_t s = stage; s > 2; s -= 1 + two_at(s)) std::swap(dst, src);
        std::swap(dst, src);

        const bool two = two_at(stage);
        if (two) columns /= 4;
        switch (radix) {
            case 3: first_pass<3>(dst, in, columns, factor); break;
            case 4:
                two ? first_two(dst, in, twiddles, columns, factor)
                    : first_pass<4>(dst, in, columns, factor);
                break;
            case 5: first_pass<5>(dst, in, columns, factor); break;
            case 8:
                first_pass<8>(dst, in, columns, factor, fast ? E::kCos45 : E::kMixedCos45);
                break;
        }
        int32_t m = radix;
        if (two) {
            twiddles += 3 * m;
            m *= 4;
            --stage;
        }
        while (--stage > 2) {
            std::swap(dst, src);
            radix = factors[2 * stage];
            columns /= radix;
            if (two_at(stage)) {
                --stage;
                columns /= 4;
                later_two(dst, src, twiddles, m, columns);
                twiddles += 15 * m;
                m *= 16;
                continue;
            }
            switch (radix) {
                case 2: later_pass<2>(dst, src, twiddles, m, columns); break;
                case 3: later_pass<3>(dst, src, twiddles, m, columns); break;
                case 4: later_pass<4>(dst, src, twiddles, m, columns); break;
                case 5: later_pass<5>(dst, src, twiddles, m, columns); break;
            }
            twiddles += m * (radix - 1);
            m *= radix;
        }
        if (factors[4] == 4) {
            last_two<4>(out, dst, twiddles, m);
        } else if constexpr (kLanes <= 8) {
            last_two<2>(out, dst, twiddles, m);
        }
    }
};

/// 24 points, whose factors are 3 and 8: a radix-8 pass with its three columns in four lanes, then
/// one of radix 3, unscaled.
template <bool kInverse>
void run_24(FloatPoint* out, const FloatPoint* in, const FloatPoint* twiddles) {
    using E = Element<float>;
    using C = Complex<simd::Floats<4>>;
    using Fly = Butterfly<E, kInverse>;
    using Product = Multiply<kInverse>;
    const InterleavedIn<4> from{in}, turns{twiddles};
    const auto next = [](int i) { return (i + 1) % 4; };
    std::array<C, 8> a;
    unrolled<7>([&](auto q) QEL_INLINED { a[q] = from.load(3 * q); });
    const C end = from.load(20);  // one lane early: the input ends here
    a[7] = {simd::pick<4>(end.r, end.r, next), simd::pick<4>(end.i, end.i, next)};
    a = Fly::run(a, E::kMixedCos45);
    unrolled<2>([&](auto half) QEL_INLINED {
        simd::Floats<4> r[4], i[4];
        unrolled<4>([&](auto q) QEL_INLINED {
            r[q] = a[4 * half + q].r;
            i[q] = a[4 * half + q].i;
        });
        simd::transpose<4>(r);
        simd::transpose<4>(i);
        std::array<C, 3> b = {C{r[0], i[0]}, Product::run(C{r[1], i[1]}, turns.load(4 * half)),
                              Product::run(C{r[2], i[2]}, turns.load(8 + 4 * half))};
        b = Fly::run(b);
        unrolled<3>([&](auto q) QEL_INLINED { Interleaved<4>{out}.store(8 * q + 4 * half, b[q]); });
    });
}

/// How many lanes at most serve a length: what its last two passes find in columns and in rows. 0:
/// too short, or of other factors.
int lanes_for(const int32_t* factors, int32_t n) {
    const int32_t last = factors[2 * factors[0]];
    const int32_t first_stages = is_fast(factors) && last == 2 ? 2 : 1;
    if (factors[0] - first_stages < 2 || factors[2] != 4) return 0;
    if ((factors[4] != 4 && factors[4] != 2) || (last > 5 && last != 8)) return 0;
    const int32_t columns = 4 * factors[4], rows = n / columns;
    int lanes = 16;
    while (lanes > columns || lanes > rows) lanes /= 2;
    return lanes < 4 ? 0 : lanes;
}

/// Bins 1 .. m - 1 of the split between a real transform and the complex one of m points.
template <int kLanes, bool kInverse, class Out, class In>
void split_wide(Out out, In in, const FloatPoint* twiddles, int32_t m) {
    const InterleavedIn<kLanes> turns{twiddles};
    const auto pair = [](auto low, auto high, auto w) QEL_INLINED {
        const auto sum = plus_conj(low, high);
        const auto turned = Multiply<kInverse>::run(minus_conj(low, high), w);
        const auto half = [](auto a) QEL_INLINED { return Element<float>::scale(a, 0.5f); };
        return std::array{half(sum + turned), half(conj(sum - turned))};
    };
    const int32_t end = (m + 1) / 2;
    for (int32_t next = 1; next < end; next += kLanes) {
        const int32_t k = std::min(next, end - kLanes);
        const auto [a, b] = pair(in.load(k), load_back<kLanes>(in, m - k), turns.load(k - 1));
        out.store(k, a);
        store_back<kLanes>(out, m - k, b);
    }
    if (const int32_t k = m / 2; m % 2 == 0) {  // its own mirror image
        const FloatPoint x = in[k], w = twiddles[k - 1];
        const Complex at = {x.r, x.i};
        const auto b = pair(at, at, Complex{w.r, w.i})[1];
        out.put(k, {b.r, b.i});
    }
}

}  // namespace
}  // namespace qel::fft
