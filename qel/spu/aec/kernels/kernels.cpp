#include "qel/spu/aec/kernels/kernels.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "qel/math/simd/sum.hpp"
#include "qel/spu/aec/kernels/parts.hpp"
#include "qel/spu/sigp/hypergeom.hpp"

namespace qel::kernels {

using simd::run_at;

namespace {

/// Calls loop(quotient) with a function that divides by `divisor`: by a multiplication where that
/// is exact, for a power of two.
template <class Loop>
QEL_KERNEL void with_quotient(float divisor, Loop loop) {
    int exponent;
    if (std::frexp(divisor, &exponent) == 0.5f) {
        const float inverse = 1.0f / divisor;
        loop([inverse](float x) QEL_INLINED { return x * inverse; });
    } else {
        loop([divisor](float x) QEL_INLINED { return x / divisor; });
    }
}

#if defined(__arm__) || defined(__aarch64__)
/// x toward zero; NaN gives 0. This is what the processor's conversion does.
QEL_KERNEL int32_t saturated(float x) { return static_cast<int32_t>(x); }
#else
/// x toward zero, as far as its low 16 bits go; NaN gives 0.
QEL_KERNEL int32_t saturated(float x) {
    const bool high = x >= 2147483648.0f;
    const bool inside = x > -2147483648.0f && !high;
    const auto whole = static_cast<int32_t>(inside ? x : 0.0f);
    return high ? -1 : whole;
}
#endif

}  // namespace

void from_samples(const int16_t* src, float* dst, int32_t n, Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t i = 0; i < n; ++i) dst[i] = static_cast<float>(src[i]);
    });
}

void from_wide_samples(const void* src, int32_t shift, float* dst, int32_t n, Width width) {
    run_at(width, [=, bytes = static_cast<const char*>(src)]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t i = 0; i < n; ++i) {
            int32_t x;
            std::memcpy(&x, bytes + 4 * i, sizeof x);
            dst[i] = static_cast<float>(x >> shift);
        }
    });
}

void to_samples(const float* src, int16_t* dst, int32_t n, Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t i = 0; i < n; ++i) {
            dst[i] = static_cast<int16_t>(saturated(src[i]));
        }
    });
}

void window_pair(const float* window, float* previous, const float* frame, float divisor,
                 float* dst, int32_t n, Width width) {
    run_at(width, [=]() QEL_INLINED {
        with_quotient(divisor, [=](auto quotient) QEL_INLINED {
            QEL_INDEPENDENT
            for (int32_t i = 0; i < n; ++i) {
                dst[i] = quotient(window[i] * previous[i]);
                dst[n + i] = quotient(window[n + i] * frame[i]);
                previous[i] = frame[i];
            }
        });
    });
}

void window(const float* window, const float* src, float divisor, float* dst, int32_t n,
            Width width) {
    run_at(width, [=]() QEL_INLINED {
        with_quotient(divisor, [=](auto quotient) QEL_INLINED {
            QEL_INDEPENDENT
            for (int32_t i = 0; i < n; ++i) dst[i] = quotient(window[i] * src[i]);
        });
    });
}

void divide(float* x, float divisor, int32_t n, Width width) {
    run_at(width, [=]() QEL_INLINED {
        with_quotient(divisor, [=](auto quotient) QEL_INLINED {
            QEL_INDEPENDENT
            for (int32_t i = 0; i < n; ++i) x[i] = quotient(x[i]);
        });
    });
}

namespace {

constexpr int32_t kBlock = 64;  // numbers whose steps stay in the nearest cache

QEL_KERNEL void add_squares(const float* x, int32_t n, simd::Sum* sum) {
    simd::by_sixteen(
        n,
        [=](int32_t p, int32_t i) QEL_INLINED {
            const auto v = simd::load<4>(x + i);
            sum->parts[p] += v * v;
        },
        [=](int32_t i) QEL_INLINED { sum->rest += x[i] * x[i]; });
}

}  // namespace

float mean_square(const float* x, int32_t n, Width width) {
    simd::Sum sum;
    run_at(width, [=, &sum]() QEL_INLINED { add_squares(x, n, &sum); });
    return sum.total() / static_cast<float>(n);
}

float mean_square(const int16_t* x, int32_t n, Width width) {
    simd::Sum sum;
    run_at(width, [=, &sum]() QEL_INLINED {
        for (int32_t at = 0; at < n; at += kBlock) {
            float block[kBlock];
            const int32_t count = std::min(kBlock, n - at);
            for (int32_t i = 0; i < count; ++i) block[i] = static_cast<float>(x[at + i]);
            add_squares(block, count, &sum);
        }
    });
    return sum.total() / static_cast<float>(n);
}

void overlap_add(const float* window, const float* time, float scale, float* overlap, float* out,
                 int32_t n, Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t i = 0; i < n; ++i) {
            out[i] = (overlap[i] + window[i] * time[i]) * scale;
            overlap[i] = window[n + i] * time[n + i];
        }
    });
}

void normalise(float norm_gain, float ceiling, const float* floor, const float* post_power,
               const float* smooth, float* norm, int32_t bins, Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            const float v = norm_gain * (post_power[k] + smooth[k]), least = floor[k];
            const float bounded = v > ceiling ? ceiling : v;
            norm[k] = v <= least ? least : bounded;
        }
    });
}

namespace {

/// sum += kTaps partitions from `x` on, each after it took what stands `block` bins further; the
/// last takes the power of `spec`, and ends the sum.
template <int kTaps, bool kFirst, bool kLast>
QEL_KERNEL void add_powers(ReferencePower p, float* x, Partitions size) {
    const size_t stride = partition_at(size, 1, 1);
    QEL_INDEPENDENT
    for (int32_t k = 0; k < size.bins; ++k) {
        float sum = 0;
        if constexpr (!kFirst) sum = p.sum[k];
        simd::unrolled<kTaps>([&](auto tap) QEL_INLINED {
            float* older = x + tap * stride + k;
            const float newer = kLast && tap + 1 == kTaps ? power_of(p.spec, k) : older[stride];
            older[0] = newer;
            sum = kFirst && tap == 0 ? newer : sum + newer;
        });
        p.sum[k] = sum;
        if constexpr (kLast) {
            const float before = p.smooth[k], a = sum > before ? p.fast : p.slow;
            p.smooth[k] = a * sum + (1.0f - a) * before;
        }
    }
}

}  // namespace

void update_power(const ReferencePower& power, Partitions size, Width width) {
    run_at(width, [=, p = power]() QEL_INLINED {
        by_four(size.taps, [=](auto taps, auto first, auto last, int32_t j) QEL_INLINED {
            add_powers<taps, first, last>(p, p.history + partition_at(size, j, 1), size);
        });
    });
}

namespace {

/// echo += weights * x of kTaps partitions from `x` on, each of which then moves down by `block`
/// bins; what comes behind the last is `newest`, and ends the sum: the microphone lacks it.
template <int kTaps, bool kFirst, bool kLast>
QEL_KERNEL void add_products(const Echo& e, const float* weights, float* x, Partitions size) {
    const size_t stride = partition_at(size, 1, 2);
    const float *newest = kLast ? e.spec : x + kTaps * stride, *mic = e.mic;
    float *echo = e.echo, *error = e.error;
    QEL_INDEPENDENT
    for (int32_t k = 0; k < size.bins; ++k) {
        float re = 0, im = 0;
        if constexpr (!kFirst) {
            re = echo[2 * k];
            im = echo[2 * k + 1];
        }
        simd::unrolled<kTaps>([&](auto tap) QEL_INLINED {
            const float* w = weights + tap * stride + 2 * k;
            float* older = x + tap * stride + 2 * k;
            const float* newer = tap + 1 < kTaps ? older + stride : newest + 2 * k;
            const float xr = newer[0], xi = newer[1];
            older[0] = xr;
            older[1] = xi;
            // Adding the negative: from a difference beside a sum GCC makes one that rounds once.
            const float product_re = w[0] * xr + -w[1] * xi;
            const float product_im = w[0] * xi + w[1] * xr;
            re = kFirst && tap == 0 ? product_re : re + product_re;
            im = kFirst && tap == 0 ? product_im : im + product_im;
        });
        echo[2 * k] = re;
        echo[2 * k + 1] = im;
        if constexpr (kLast) {
            error[2 * k] = mic[2 * k] - re;
            error[2 * k + 1] = mic[2 * k + 1] - im;
        }
    }
}

/// weights += step * conj(x) of kTaps partitions.
template <int kTaps>
QEL_KERNEL void add_conj_products(float mu, const float* step, const float* x, float* weights,
                                  Partitions size) {
    const size_t stride = partition_at(size, 1, 2);
    QEL_INDEPENDENT
    for (int32_t k = 0; k < size.bins; ++k) {
        const float gr = mu * step[2 * k], gi = mu * step[2 * k + 1];
        simd::unrolled<kTaps>([&](auto tap) QEL_INLINED {
            float* w = weights + tap * stride + 2 * k;
            const float xr = x[tap * stride + 2 * k], xi = x[tap * stride + 2 * k + 1];
            w[0] += gr * xr + gi * xi;
            w[1] += gi * xr + -gr * xi;
        });
    }
}

}  // namespace

void estimate_echo(const Echo& echo, Partitions size, Width width) {
    run_at(width, [=, e = echo]() QEL_INLINED {
        by_four(size.taps, [=](auto taps, auto first, auto last, int32_t j) QEL_INLINED {
            const size_t at = partition_at(size, j, 2);
            add_products<taps, first, last>(e, e.weights + at, e.history + at, size);
        });
    });
}

void subtract(const float* mic, const float* echo, float* error, int32_t n, Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t i = 0; i < n; ++i) error[i] = mic[i] - echo[i];
    });
}

void take_step(const float* error, const float* power, const float* norm, float post_gain,
               float* step, float* post, int32_t bins, Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            const float denominator = power[k] + norm[k];
            const float amount = post_gain * power[k];
            const float re = error[2 * k], im = error[2 * k + 1];
            const float step_re = re / denominator, step_im = im / denominator;
            step[2 * k] = step_re;
            step[2 * k + 1] = step_im;
            post[2 * k] = re - step_re * amount;
            post[2 * k + 1] = im - step_im * amount;
        }
    });
}

void adapt(float mu, const float* step, const float* history, float* weights, Partitions size,
           Width width) {
    run_at(width, [=]() QEL_INLINED {
        by_four(size.taps, [=](auto taps, auto, auto, int32_t j) QEL_INLINED {
            const size_t at = partition_at(size, j, 2);
            add_conj_products<taps>(mu, step, history + at, weights + at, size);
        });
    });
}

void bound_residual(const Residual& residual, int32_t first, int32_t bins, Width width) {
    run_at(width, [=, r = residual]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            const float mic_re = r.mic[2 * k], mic_im = r.mic[2 * k + 1];
            const float p = power_of(r.post, k), m = power_of(r.mic, k);
            const bool bound = (p > m) & (k >= first);
            const float re = bound ? mic_re : r.post[2 * k];
            const float im = bound ? mic_im : r.post[2 * k + 1];
            r.mic_power[k] = m;
            r.post_power[k] = bound ? m : p;
            r.echo_power[k] = power_of(r.echo, k);
            r.post[2 * k] = re;
            r.post[2 * k + 1] = im;
            r.echo[2 * k] = mic_re - re;
            r.echo[2 * k + 1] = mic_im - im;
        }
    });
}

LeakSums sum_leak(const float* error, const float* echo, const float* error_avg,
                  const float* echo_avg, int32_t bins, Width width) {
    LeakSums sums;
    run_at(width, [=, &sums]() QEL_INLINED {
        simd::Sum see, syy, pey, pyy;
        simd::by_sixteen(
            bins,
            [&](int32_t p, int32_t i) QEL_INLINED {
                const auto e = simd::load<4>(error + i), y = simd::load<4>(echo + i);
                const auto d_error = e - simd::load<4>(error_avg + i);
                const auto d_echo = y - simd::load<4>(echo_avg + i);
                see.parts[p] += e;
                syy.parts[p] += y;
                pey.parts[p] += d_error * d_echo;
                pyy.parts[p] += d_echo * d_echo;
            },
            [&](int32_t i) QEL_INLINED {
                const float d_error = error[i] - error_avg[i], d_echo = echo[i] - echo_avg[i];
                see.rest += error[i];
                syy.rest += echo[i];
                pey.rest += d_error * d_echo;
                pyy.rest += d_echo * d_echo;
            });
        sums = {see.total(), syy.total(), pey.total(), pyy.total()};
    });
    return sums;
}

void smooth(float share, const float* x, float* avg, int32_t n, Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t i = 0; i < n; ++i) avg[i] = share * x[i] + (1.0f - share) * avg[i];
    });
}

void raise_noise(float leak, const float* echo_power, float* residual, float* noise, int32_t bins,
                 Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t i = 0; i < bins; ++i) {
            const float r = leak * echo_power[i];
            residual[i] = r;
            noise[i] = std::max(0.6f * noise[i], r);
        }
    });
}

namespace {

/// What the bins between two bands add to either.
struct PairSum {
    simd::Floats<4> lower{}, upper{};
    float lower_rest = 0, upper_rest = 0;

    QEL_KERNEL void add(simd::Floats<4> l, simd::Floats<4> u, simd::Floats<4> x) {
        lower += l * x;
        upper += u * x;
    }
    QEL_KERNEL void add(float l, float u, float x) {
        lower_rest += l * x;
        upper_rest += u * x;
    }
};

/// What two spectra's bins add to the band below them and to the one above, in turn.
QEL_KERNEL void totals(const PairSum& a, const PairSum& b, float* total) {
    // Neighbours, then neighbours of those: a lane at a time would go through ARM's core registers.
    const auto of_a = simd::unzipped<4>(a.lower, a.upper);
    const auto of_b = simd::unzipped<4>(b.lower, b.upper);
    const auto halves = simd::unzipped<4>(of_a[0] + of_a[1], of_b[0] + of_b[1]);
    simd::store(total, halves[0] + halves[1]);
    total[0] += a.lower_rest;
    total[1] += a.upper_rest;
    total[2] += b.lower_rest;
    total[3] += b.upper_rest;
}

template <size_t kSpectra>
QEL_KERNEL void sum_bands_of(const Bank& bank, std::array<float*, kSpectra> spectra) {
    const int32_t bins = bank.starts[bank.bands - 1];
    float below[kSpectra] = {};  // sums over the bins below a band
    for (int32_t band = 0; band + 1 < bank.bands; ++band) {
        const int32_t start = bank.starts[band];
        const float *lower = bank.lower + start, *upper = bank.upper + start;
        PairSum sums[kSpectra];
        int32_t i = 0;
        const int32_t n = bank.starts[band + 1] - start;
        for (; i + 4 <= n; i += 4) {
            const auto l = simd::load<4>(lower + i), u = simd::load<4>(upper + i);
            simd::unrolled<kSpectra>([&](auto s) QEL_INLINED {
                sums[s].add(l, u, simd::load<4>(spectra[s] + start + i));
            });
        }
        for (; i < n; ++i) {
            simd::unrolled<kSpectra>([&](auto s) QEL_INLINED {
                sums[s].add(lower[i], upper[i], spectra[s][start + i]);
            });
        }
        float total[4];
        totals(sums[0], sums[kSpectra - 1], total);
        simd::unrolled<kSpectra>([&](auto s) QEL_INLINED {
            spectra[s][bins + band] = below[s] + total[2 * s];
            below[s] = total[2 * s + 1];
        });
    }
    simd::unrolled<kSpectra>([&](auto s)
                                 QEL_INLINED { spectra[s][bins + bank.bands - 1] = below[s]; });
}

}  // namespace

void sum_bands(const Bank& bank, float* a, Width width) {
    run_at(width, [=]() QEL_INLINED { sum_bands_of<1>(bank, {a}); });
}

void sum_bands(const Bank& bank, float* a, float* b, Width width) {
    run_at(width, [=]() QEL_INLINED { sum_bands_of<2>(bank, {a, b}); });
}

void spread_bands(const Bank& bank, float* a, float* b, float* c, Width width) {
    run_at(width, [=]() QEL_INLINED {
        const int32_t bins = bank.starts[bank.bands - 1];
        for (int32_t band = 0; band + 1 < bank.bands; ++band) {
            const float *a0 = a + bins + band, *b0 = b + bins + band, *c0 = c + bins + band;
            const float a_lower = a0[0], a_upper = a0[1], b_lower = b0[0], b_upper = b0[1];
            const float c_lower = c0[0], c_upper = c0[1];
            const int32_t end = bank.starts[band + 1];
            QEL_INDEPENDENT
            for (int32_t i = bank.starts[band]; i < end; ++i) {
                const float lower = bank.lower[i], upper = bank.upper[i];
                a[i] = upper * a_upper + lower * a_lower;
                b[i] = upper * b_upper + lower * b_lower;
                c[i] = upper * c_upper + lower * c_lower;
            }
        }
    });
}

void update_snr(const float* power, const float* old_power, const float* noise, float* post,
                float* prior, int32_t n, Width width) {
    constexpr float kMaxSnr = 100.0f;
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t i = 0; i < n; ++i) {
            const float raised = noise[i] + 0.001f, old = old_power[i];
            const float share = old / (old + raised);
            const float gamma = 0.1f + 0.89f * (share * share);
            const float snr = power[i] / raised - 1.0f;
            const float above = std::min(std::max(0.0f, snr), kMaxSnr);
            post[i] = std::min(snr, kMaxSnr);
            prior[i] = std::min(gamma * above + (1.0f - gamma) * (old / raised), kMaxSnr);
        }
    });
}

namespace {

/// The estimator's gain of up to kBlock bins. The steps are loops of their own: looking up the
/// table makes a loop scalar, and so does what compilers make of a bounded number as an index.
QEL_KERNEL void block_gain(const float* post, const float* prior, float* gain, int32_t n) {
    float wiener[kBlock], theta[kBlock], place[kBlock], around[2 * kBlock];
    int32_t index[kBlock];
    QEL_INDEPENDENT
    for (int32_t i = 0; i < n; ++i) {
        wiener[i] = prior[i] / (prior[i] + 1.0f);
        theta[i] = (post[i] + 1.0f) * wiener[i];
        place[i] = hypergeom_place(theta[i]);
    }
    QEL_INDEPENDENT
    for (int32_t i = 0; i < n; ++i) index[i] = static_cast<int32_t>(place[i]);
    QEL_UNROLLED
    for (int32_t i = 0; i < n; ++i) {
        std::memcpy(&around[2 * i], &kHypergeom[static_cast<uint32_t>(index[i])],
                    2 * sizeof(float));
    }
    QEL_INDEPENDENT
    for (int32_t i = 0; i < n; ++i) {
        const float t = theta[i], part = place[i] - static_cast<float>(index[i]);
        const float between = part * around[2 * i + 1] + (1.0f - part) * around[2 * i];
        const float inside = over_root(between, t + 0.0001f), above = 1.0f + 0.1296f / t;
        const float ratio = hypergeom_choice(t, inside, above);
        gain[i] = std::min(1.0f, wiener[i] * ratio);
    }
}

}  // namespace

void estimate_gain(const float* post, const float* prior, float* gain, int32_t n, Width width) {
    run_at(width, [=]() QEL_INLINED {
        for (int32_t at = 0; at < n; at += kBlock) {
            block_gain(post + at, prior + at, gain + at, std::min(kBlock, n - at));
        }
    });
}

void update_bin_gains(const BinGains& gains, int32_t bins, Width width) {
    run_at(width, [=, all = gains]() QEL_INLINED {
        float estimate[kBlock];
        for (int32_t at = 0; at < bins; at += kBlock) {
            const int32_t n = std::min(kBlock, bins - at);
            block_gain(all.post + at, all.prior + at, estimate, n);
            const float *power = all.power + at, *floor = all.floor + at;
            float *old_power = all.old_power + at, *gain = all.gain + at;
            float* presence = all.presence + at;
            QEL_INDEPENDENT
            for (int32_t i = 0; i < n; ++i) {
                const float near = 3.0f * gain[i];
                const float g = gain[i] < 0.333f * estimate[i] ? near : estimate[i];
                const float bounded = std::max(g, floor[i]), p = presence[i];
                const float amplitude = p * root(bounded) + (1.0f - p) * root(floor[i]);
                old_power[i] = 0.2f * old_power[i] + 0.8f * (g * g) * power[i];
                gain[i] = bounded;
                presence[i] = amplitude * amplitude;
            }
        }
    });
}

void over_subtract(float factor, const float* weight, const float* step, const float* error,
                   float* out, int32_t bins, Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            const float amount = factor * weight[k];
            out[2 * k] = error[2 * k] - amount * step[2 * k];
            out[2 * k + 1] = error[2 * k + 1] - amount * step[2 * k + 1];
        }
    });
}

void apply_gain(const float* spec, const float* gain, float* out, int32_t bins, Width width) {
    run_at(width, [=]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            out[2 * k] = spec[2 * k] * gain[k];
            out[2 * k + 1] = spec[2 * k + 1] * gain[k];
        }
    });
}

}  // namespace qel::kernels
