// The loops of a frame, over plain arrays: each is written once and built for every vector width.
// Spectra hold real and imaginary parts in turn. All widths give the same bits on one processor
// family; ARMv7 divides and takes roots by estimates, which are off by a few units in the last
// place. Arrays of one call overlap only where that is said.
#pragma once

#include <cstdint>

#include "qel/math/simd/widest.hpp"

namespace qel::kernels {

using simd::widest;
using simd::Width;

// Samples

void from_samples(const int16_t* src, float* dst, int32_t n, Width width = widest());

/// 32-bit samples at any address, shifted down by `shift` bits first.
void from_wide_samples(const void* src, int32_t shift, float* dst, int32_t n,
                       Width width = widest());

/// Truncates toward zero into 32 bits, which saturate (NaN gives 0), and keeps the low 16: a sample
/// that is too loud wraps, and does so alike on every processor.
void to_samples(const float* src, int16_t* dst, int32_t n, Width width = widest());

/// Windows the previous and the current frame of `n` samples into `dst` and divides that by
/// `divisor`; then the current frame is the previous one.
void window_pair(const float* window, float* previous, const float* frame, float divisor,
                 float* dst, int32_t n, Width width = widest());

/// Windows `n` samples and divides them by `divisor`.
void window(const float* window, const float* src, float divisor, float* dst, int32_t n,
            Width width = widest());

void divide(float* x, float divisor, int32_t n, Width width = widest());

/// Mean square of `n` numbers, at least one, in sixteen parts.
float mean_square(const float* x, int32_t n, Width width = widest());
float mean_square(const int16_t* x, int32_t n, Width width = widest());

/// Adds the windowed head of `time`, 2 * `n` samples, to the overlap memory and scales it into
/// `out`, then keeps the windowed tail.
void overlap_add(const float* window, const float* time, float scale, float* overlap, float* out,
                 int32_t n, Width width = widest());

// Adaptive filter: `bins` filter bins of each partition, which start `block` bins apart

/// Partitions of a history, the oldest first, or of the weights; a bin has one float or two.
struct Partitions {
    int32_t taps, block, bins;
};

/// norm = norm_gain * (post_power + smooth), between `floor` and `ceiling`.
void normalise(float norm_gain, float ceiling, const float* floor, const float* post_power,
               const float* smooth, float* norm, int32_t bins, Width width = widest());

/// The power of `spec` replaces the oldest partition of `history`; their sum, and that smoothed:
/// by `fast` where it grew, else by `slow`.
struct ReferencePower {
    const float* spec;
    float* history;
    float* sum;
    float* smooth;
    float fast, slow;
};
void update_power(const ReferencePower& power, Partitions size, Width width = widest());

/// `spec` replaces the oldest partition of `history`; `echo` is the sum of its partitions, each
/// times its weights, and `error` what `mic` has beside it.
struct Echo {
    const float *mic, *spec;
    float* history;
    const float* weights;
    float *echo, *error;
};
void estimate_echo(const Echo& echo, Partitions size, Width width = widest());

/// error = mic - echo for `n` floats.
void subtract(const float* mic, const float* echo, float* error, int32_t n, Width width = widest());

/// step = error / (power + norm), post = error - step * (post_gain * power).
void take_step(const float* error, const float* power, const float* norm, float post_gain,
               float* step, float* post, int32_t bins, Width width = widest());

/// weights += mu * step * conj(history), of each partition.
void adapt(float mu, const float* step, const float* history, float* weights, Partitions size,
           Width width = widest());

/// Powers of microphone, residual `post` and echo estimate. Bins from `first` on whose residual is
/// above the microphone become the microphone; then the estimate becomes what the residual lacks of
/// the microphone. The estimate's power is that of before.
struct Residual {
    const float* mic;
    float *post, *echo;
    float *mic_power, *post_power, *echo_power;
};
void bound_residual(const Residual& residual, int32_t first, int32_t bins, Width width = widest());

// Suppressor

/// Sums over bins of powers, and of the products of their changes, in sixteen parts each.
struct LeakSums {
    float error, echo;       // of the powers
    float cross, echo_auto;  // of the changes: error by echo, echo by echo
};
LeakSums sum_leak(const float* error, const float* echo, const float* error_avg,
                  const float* echo_avg, int32_t bins, Width width = widest());

/// avg = share * x + (1 - share) * avg.
void smooth(float share, const float* x, float* avg, int32_t n, Width width = widest());

/// residual = leak * echo_power, noise = max(0.6 * noise, residual).
void raise_noise(float leak, const float* echo_power, float* residual, float* noise, int32_t bins,
                 Width width = widest());

/// A filter bank whose bands ascend: bins starts[b] to starts[b + 1] lie between the bands b and
/// b + 1, for each b below bands - 1, and have a weight for either.
struct Bank {
    const int16_t* starts;  // `bands` of them; the last is the number of bins
    const float *lower, *upper;
    int32_t bands;
};

/// Band sums of one spectrum or two, up to the order of additions as FilterbankComputeBank32() has
/// them; each spectrum's bands stand behind its bins.
void sum_bands(const Bank& bank, float* a, Width width = widest());
void sum_bands(const Bank& bank, float* a, float* b, Width width = widest());

/// Bins between the bands, which stand behind them, of each of three spectra, as
/// FilterbankComputePsd16() has them.
void spread_bands(const Bank& bank, float* a, float* b, float* c, Width width = widest());

/// A-posteriori and decision-directed a-priori SNR, both at most 100.
void update_snr(const float* power, const float* old_power, const float* noise, float* post,
                float* prior, int32_t n, Width width = widest());

/// Gain of the amplitude estimator, at most 1.
void estimate_gain(const float* post, const float* prior, float* gain, int32_t n,
                   Width width = widest());

/// From the bands' interpolated `gain` and `presence`: the gain of each bin, kept near its bands'
/// and above `floor`, in `gain`, and weighted by presence in `presence`; old_power follows.
struct BinGains {
    const float *post, *prior, *power, *floor;
    float *old_power, *gain, *presence;
};
void update_bin_gains(const BinGains& gains, int32_t bins, Width width = widest());

/// out = error - factor * weight * step.
void over_subtract(float factor, const float* weight, const float* step, const float* error,
                   float* out, int32_t bins, Width width = widest());

/// out = spec * gain.
void apply_gain(const float* spec, const float* gain, float* out, int32_t bins,
                Width width = widest());

}  // namespace qel::kernels
