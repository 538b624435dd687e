#include "qel/spu/aec/kernels/tracking.hpp"

#include <algorithm>

#include "qel/math/simd/sum.hpp"
#include "qel/spu/aec/kernels/parts.hpp"

namespace qel::kernels {

using simd::run_at;

void measure_filter(const FilterPowers& powers, int32_t bins, Width width) {
    run_at(width, [=, p = powers]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            const float re = p.error[2 * k], im = p.error[2 * k + 1];
            const float echo_re = p.echo[2 * k], echo_im = p.echo[2 * k + 1];
            const float e = re * re + im * im, y = echo_re * echo_re + echo_im * echo_im;
            p.mic_power[k] = power_of(p.mic, k);
            p.error_power[k] = e;
            p.excess[k] = -(re * echo_re + im * echo_im) / (0.5f * (e + y) + 1e-6f);
        }
    });
}

FilterSums sum_filter(const FilterTerms& terms, int32_t heard, int32_t bins, Width width) {
    FilterSums sums;
    run_at(width, [=, t = terms, &sums]() QEL_INLINED {
        simd::Sum stressed_mic, stressed_ref, mic, error, excess;
        simd::by_sixteen(
            bins,
            [&](int32_t p, int32_t i) QEL_INLINED {
                const auto stress = simd::load<4>(t.stress + i);
                stressed_mic.parts[p] += stress * simd::load<4>(t.mic_power + i);
                stressed_ref.parts[p] += stress * simd::load<4>(t.ref_power + i);
            },
            [&](int32_t i) QEL_INLINED {
                stressed_mic.rest += t.stress[i] * t.mic_power[i];
                stressed_ref.rest += t.stress[i] * t.ref_power[i];
            });
        simd::by_sixteen(
            bins - heard,
            [&, from = heard](int32_t p, int32_t i) QEL_INLINED {
                mic.parts[p] += simd::load<4>(t.mic_power + from + i);
                error.parts[p] += simd::load<4>(t.error_power + from + i);
                excess.parts[p] += simd::load<4>(t.excess + from + i);
            },
            [&, from = heard](int32_t i) QEL_INLINED {
                mic.rest += t.mic_power[from + i];
                error.rest += t.error_power[from + i];
                excess.rest += t.excess[from + i];
            });
        sums = {stressed_mic.total(), stressed_ref.total(), mic.total(), error.total(),
                excess.total()};
    });
    return sums;
}

namespace {

template <int kTaps, bool kFirst>
QEL_KERNEL void predict_some(const Prediction& p, float* variance, const float* weights,
                             const float* power, Partitions size) {
    const auto bins = static_cast<size_t>(size.bins);
    const size_t stride = partition_at(size, 1, 1);
    const float floor = p.floor, ceiling = p.ceiling;
    const float* feeds = p.feed;
    float* doubt = p.doubt;
    QEL_INDEPENDENT
    for (int32_t k = 0; k < size.bins; ++k) {
        const float feed = feeds[k], keep = 1.0f - feed;
        float sum = 0;
        if constexpr (!kFirst) sum = doubt[k];
        simd::unrolled<kTaps>([&](auto tap) QEL_INLINED {
            float* v = variance + tap * bins + k;
            const float grown =
                keep * *v + feed * (power_of(weights + 2 * tap * stride, k) + floor);
            const float bounded = std::min(grown, ceiling);
            *v = bounded;
            sum += bounded * power[tap * stride + k];
        });
        doubt[k] = sum;
    }
}

template <int kTaps>
QEL_KERNEL void correct_some(const Correction& c, float* variance, float* weights,
                             const float* history, Partitions size) {
    const auto bins = static_cast<size_t>(size.bins);
    const size_t stride = partition_at(size, 1, 1);
    const float mu = c.mu;
    const float *step = c.step, *gain = c.gain;
    QEL_INDEPENDENT
    for (int32_t k = 0; k < size.bins; ++k) {
        const float step_re = step[2 * k], step_im = step[2 * k + 1], shrink = mu * gain[k];
        simd::unrolled<kTaps>([&](auto tap) QEL_INLINED {
            float* v = variance + tap * bins + k;
            float* w = weights + 2 * (tap * stride + k);
            const float* x = history + 2 * (tap * stride + k);
            const float re = x[0], im = x[1];
            const float before = *v, gr = before * step_re, gi = before * step_im;
            w[0] += gr * re + gi * im;
            w[1] += gi * re + -gr * im;
            *v = before * (1.0f - shrink * before * (re * re + im * im));
        });
    }
}

}  // namespace

void predict(const Prediction& prediction, Partitions size, Width width) {
    run_at(width, [=, p = prediction]() QEL_INLINED {
        by_four(size.taps, [=](auto taps, auto first, auto, int32_t j) QEL_INLINED {
            const size_t at = partition_at(size, j, 1);
            predict_some<taps, first>(p, p.variance + static_cast<size_t>(j * size.bins),
                                      p.weights + 2 * at, p.power + at, size);
        });
    });
}

void weigh(const Weighing& weighing, int32_t bins, Width width) {
    run_at(width, [=, w = weighing]() QEL_INLINED {
        const float rise = 1.0f - w.decay, whole = 1.0f / w.mu;
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            const float e = w.error_power[k], doubt = w.doubt[k], before = w.noise[k];
            const float part = before / (doubt + before + 1e-9f);
            const float noise =
                std::max(w.decay * before + rise * (part * part * e + doubt * part), w.least);
            const float gain = w.mu / (doubt + std::max(noise, e - doubt));
            const float post = 1.0f - doubt * gain;
            const float re = w.error[2 * k], im = w.error[2 * k + 1];
            w.noise[k] = noise;
            w.gain[k] = gain;
            w.share[k] = doubt * gain * whole;
            w.step[2 * k] = gain * re;
            w.step[2 * k + 1] = gain * im;
            w.post[2 * k] = post * re;
            w.post[2 * k + 1] = post * im;
        }
    });
}

void correct(const Correction& correction, Partitions size, Width width) {
    run_at(width, [=, c = correction]() QEL_INLINED {
        by_four(size.taps, [=](auto taps, auto, auto, int32_t j) QEL_INLINED {
            const size_t at = partition_at(size, j, 1);
            correct_some<taps>(c, c.variance + static_cast<size_t>(j * size.bins),
                               c.weights + 2 * at, c.history + 2 * at, size);
        });
    });
}

void scale_weights(float factor, float* weights, Partitions size, Width width) {
    run_at(width, [=]() QEL_INLINED {
        for (int32_t j = 0; j < size.taps; ++j) {
            float* w = weights + partition_at(size, j, 2);
            QEL_INDEPENDENT
            for (int32_t i = 0; i < 2 * size.bins; ++i) w[i] *= factor;
        }
    });
}

void raise_residual(const ResidualTerms& terms, const Bank& bank, Width width) {
    run_at(width, [=, t = terms]() QEL_INLINED {
        for (int32_t band = 0; band + 1 < bank.bands; ++band) {
            const float below = t.ratio_factor * t.ratio[band];
            const float above = t.ratio_factor * t.ratio[band + 1];
            const int32_t end = bank.starts[band + 1];
            QEL_INDEPENDENT
            for (int32_t i = bank.starts[band]; i < end; ++i) {
                const float ratio = bank.upper[i] * above + bank.lower[i] * below;
                const float doubted = t.doubt_factor[i] * t.doubt[i];
                const float tracked = std::max(doubted, ratio * t.ref_power[i]);
                const float residual = std::max(t.leak * t.echo_power[i], tracked);
                const float kept = std::max(t.fall * t.noise[i], t.error_factor * t.error_power[i]);
                t.residual[i] = residual;
                t.noise[i] = std::max(kept, residual);
            }
        }
    });
}

void correlate_probes(const Correlation& correlation, Width width) {
    run_at(width, [=, c = correlation]() QEL_INLINED {
        float heard_re[kProbes], heard_im[kProbes], power[kProbes];
        float *newest_re = c.past + 2 * kProbes * c.newest, *newest_im = newest_re + kProbes;
        QEL_INDEPENDENT
        for (int32_t i = 0; i < kProbes; ++i) {
            const float re = c.ref[i], im = c.ref[kProbes + i], p = re * re + im * im;
            const float mean = c.mean[i] + c.mean_rate * (p - c.mean[i]);
            const float scale = p > c.gate * mean ? over_root(1.0f, p) : 0.0f;
            c.mean[i] = mean;
            newest_re[i] = scale * re;
            newest_im[i] = scale * im;
            const float mic_re = c.mic[i], mic_im = c.mic[kProbes + i];
            const float m = mic_re * mic_re + mic_im * mic_im;
            // What overflowed has no phase, whatever a processor makes of its root.
            const float mic_scale = ((m > 0.0f) & (m < 1e30f)) ? over_root(1.0f, m) : 0.0f;
            heard_re[i] = mic_scale * mic_re;
            heard_im[i] = mic_scale * mic_im;
        }
        for (int32_t lag = 0; lag < c.lags; ++lag) {
            const int32_t place = lag <= c.newest ? c.newest - lag : c.newest - lag + c.lags;
            const float *past_re = c.past + 2 * kProbes * place, *past_im = past_re + kProbes;
            float *cross_re = c.cross + 2 * kProbes * lag, *cross_im = cross_re + kProbes;
            QEL_INDEPENDENT
            for (int32_t i = 0; i < kProbes; ++i) {
                const float re = heard_re[i] * past_re[i] + heard_im[i] * past_im[i];
                const float im = heard_im[i] * past_re[i] + -heard_re[i] * past_im[i];
                const float next_re = cross_re[i] + c.rate * (re - cross_re[i]);
                const float next_im = cross_im[i] + c.rate * (im - cross_im[i]);
                cross_re[i] = next_re;
                cross_im[i] = next_im;
                power[i] = next_re * next_re + next_im * next_im;
            }
            simd::Sum sum;
            simd::by_sixteen(
                kProbes,
                [&](int32_t p, int32_t i) QEL_INLINED { sum.parts[p] += simd::load<4>(power + i); },
                [](int32_t) QEL_INLINED {});
            c.score[lag] = sum.total();
        }
    });
}

void observe_noise(const NoiseTerms& terms, int32_t bins, Width width) {
    run_at(width, [=, t = terms]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            const float power = std::min(t.mic_power[k], t.error_power[k]);
            const float mean = t.mean[k] + t.rate * (power - t.mean[k]);
            t.power[k] = power;
            t.mean[k] = mean;
            t.least[k] = t.settled ? std::min(t.least[k], mean) : t.least[k];
            t.floor[k] = std::min(t.floor[k], t.bias * mean);
        }
    });
}

void observe_pause(const PauseTerms& terms, int32_t bins, Width width) {
    run_at(width, [=, t = terms]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            t.mean[k] += t.rate * (t.power[k] - t.mean[k]);
        }
        if (!t.believed) return;
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            const float least = std::min(t.least[k], t.mean[k]);
            const float ever = std::min(t.always_least[k], t.always_before[k]);
            const float level = t.bias * std::min(std::min(least, t.before[k]), ever);
            const float floor = t.floor[k], risen = std::min(level, t.rise * floor);
            t.least[k] = least;
            t.floor[k] = floor == 0.0f ? level : risen;
        }
    });
}

void fill_noise(const NoiseFill& fill, int32_t bins, Width width) {
    run_at(width, [=, f = fill]() QEL_INLINED {
        QEL_INDEPENDENT
        for (int32_t k = 0; k < bins; ++k) {
            const float left = (1.0f - f.factor * f.share[k]) * f.gain[k];
            const float lost = f.level * f.floor[k] * std::max(0.0f, 1.0f - left * left);
            const float part = root(0.5f * lost);
            uint32_t hash = f.random + static_cast<uint32_t>(k) * 2654435761u;
            hash = (hash ^ hash >> 15) * 2246822519u;
            hash ^= hash >> 13;
            f.spec[2 * k] += hash & 0x80000000u ? part : -part;
            f.spec[2 * k + 1] += hash & 0x40000000u ? part : -part;
        }
    });
}

}  // namespace qel::kernels
