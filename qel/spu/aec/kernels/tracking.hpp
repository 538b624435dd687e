// The loops of the tracking mode's frame: as kernels.hpp, which is at home here too.
#pragma once

#include "qel/spu/aec/kernels/kernels.hpp"

namespace qel::kernels {

// Kalman step: filter bins

/// Powers of microphone and error, and the excess of the echo estimate in the error:
/// -Re(error * conj(echo)) over the mean of their powers, -1 to 1.
struct FilterPowers {
    const float *mic, *error, *echo;
    float *mic_power, *error_power, *excess;
};
void measure_filter(const FilterPowers& powers, int32_t bins, Width width = widest());

struct FilterTerms {
    const float *stress, *mic_power, *ref_power, *error_power, *excess;
};
/// Sums in sixteen parts each: of all bins, weighted by stress, and of those from `heard` on.
struct FilterSums {
    float stressed_mic, stressed_ref;
    float mic, error, excess;
};
FilterSums sum_filter(const FilterTerms& terms, int32_t heard, int32_t bins,
                      Width width = widest());

/// By the bins' `feed`: variance = min((1 - feed) * variance + feed * (|weights|^2 + floor),
/// ceiling) of each partition; doubt = the sum of those times the reference's power.
struct Prediction {
    float* variance;  // partitions without gaps
    const float *weights, *power, *feed;
    float* doubt;
    float floor, ceiling;
};
void predict(const Prediction& prediction, Partitions size, Width width = widest());

/// The noise's power follows; gain = mu / (doubt + noise), by the noise that the frame shows where
/// that is louder; share = doubt * gain / mu, step = gain * error, post = (1 - mu * share) * error.
struct Weighing {
    const float *error, *error_power, *doubt;
    float *noise, *gain, *share, *step, *post;
    float mu, decay, least;
};
void weigh(const Weighing& weighing, int32_t bins, Width width = widest());

/// weights += variance * step * conj(history), variance *= 1 - mu * gain * variance * |history|^2.
struct Correction {
    const float *step, *gain, *history;
    float *weights, *variance;
    float mu;
};
void correct(const Correction& correction, Partitions size, Width width = widest());

void scale_weights(float factor, float* weights, Partitions size, Width width = widest());

// Residual echo: spectrum bins

/// residual = the most of doubt_factor * doubt, leak * echo_power and ratio_factor * ratio *
/// ref_power, with the bands' ratio interpolated; noise = the most of fall * noise, that, and
/// error_factor * error_power.
struct ResidualTerms {
    const float* ratio;  // by band
    const float *ref_power, *doubt, *doubt_factor, *echo_power, *error_power;
    float ratio_factor, leak, error_factor, fall;
    float *residual, *noise;
};
void raise_residual(const ResidualTerms& terms, const Bank& bank, Width width = widest());

// Alignment

/// Probes of the phase transform, real parts and then imaginary ones, of the lags one by one.
constexpr int32_t kProbes = 48;

/// The reference's phases, where it is louder than `gate` times its mean, replace the oldest in a
/// ring of `lags` frames. For each lag the mean of the microphone's phases against those follows,
/// and its power summed over the probes is the lag's score.
struct Correlation {
    const float *mic, *ref;  // 2 * kProbes each
    float *mean, *past, *cross, *score;
    float gate, mean_rate, rate;
    int32_t newest, lags;
};
void correlate_probes(const Correlation& correlation, Width width = widest());

// Comfort noise

/// power = the less of both powers; its mean follows, the mean's minimum once `settled`, and a
/// known floor is at most bias * mean.
struct NoiseTerms {
    const float *mic_power, *error_power;
    float *power, *mean, *least, *floor;
    float rate, bias;
    bool settled;
};
void observe_noise(const NoiseTerms& terms, int32_t bins, Width width = widest());

/// The pause's mean follows the power; once `believed` so does its minimum, and the floor: at most
/// bias times the least minimum, and rising by no more than `rise`.
struct PauseTerms {
    const float *power, *always_least, *always_before, *before;
    float *mean, *least, *floor;
    float rate, bias, rise;
    bool believed;
};
void observe_pause(const PauseTerms& terms, int32_t bins, Width width = widest());

/// spec += what of level * floor went with (1 - factor * share) * gain, in pseudo-random phase: one
/// of the four diagonals, by a hash of the bin and `random`.
struct NoiseFill {
    const float *floor, *share, *gain;
    float* spec;
    float factor, level;
    uint32_t random;
};
void fill_noise(const NoiseFill& fill, int32_t bins, Width width = widest());

}  // namespace qel::kernels
