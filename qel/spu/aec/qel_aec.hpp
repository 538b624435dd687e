// What the sources of the canceller share and nobody else sees.
#pragma once

#include <algorithm>
#include <cstdint>

#include "qel/math/vector/qel_vector.h"
#include "qel/spu/aec/kernels/kernels.hpp"
#include "qel/spu/aec/qel_aec.h"
#include "qel/spu/aec/vector_block.hpp"

/// Registers the canceller's version; runs while the library loads.
void _g_module_aec();

namespace qel {

/// How a frame left the canceller.
enum class Path { kBypassed, kMuted, kProcessed };

/// What is known of one frame, or of the frames so far; the signals by their mean square.
struct Measures {
    float mic, ref, out;
    float leak, speech;  // estimates of the suppressor
    float heard, left;   // of a processed frame's microphone, and of what it became
};

/// What qel_aec_get_stats() tells, before it is put into decibels.
struct Meter {
    uint64_t bypassed, muted, processed;
    Measures frame, smoothed;
    float rate;  // weight of a frame in `smoothed`
};

struct Tracking;

/// The private state of an instance, behind the record that callers see; qel_aec_new() makes it.
struct Instance : qel_aec {
    Meter meter;
    Tracking* tracking;  // null when its switches are off
    VectorBlock vectors;
    struct {
        uint32_t frame;  // the count of all instances' frames at this one's last
        int32_t parts;   // fetched for this frame
    } fetch;
};

inline Instance* instance_of(qel_aec* aec) { return static_cast<Instance*>(aec); }

/// Forgets what was measured.
void start_meter(qel_aec* aec);

/// Measures the frame that left `out` by `path`.
void measure_frame(qel_aec* aec, Path path);

/// The elements of a float32 union.
inline float* floats(const qel_vector_union& u) {
    return static_cast<qel_vector_float32*>(u.vec)->data;
}

/// Sets every element of a float32 union to zero.
inline void clear(const qel_vector_union& u) {
    qel_vector_float32_zero(static_cast<qel_vector_float32*>(u.vec));
}

/// Makes a float32 vector of `len` elements in `u`; false when memory runs out.
inline bool make_floats(qel_vector_union* u, uint32_t len) {
    qel_vector_union_init(u, QEL_VECTOR_FLOAT32, len);
    return u->vec != nullptr;
}

/// The first spectrum bin that the filter works on, and how many there are: filter bins past the
/// spectrum's end are left out.
inline int32_t first_bin(const qel_aec_cfg& cfg) { return std::min(cfg.offset_bins, cfg.fft_bins); }
inline int32_t filter_bins(const qel_aec_cfg& cfg) { return cfg.fft_bins - first_bin(cfg); }

/// The sizes of the filter's histories and weights.
inline kernels::Partitions partitions(const qel_aec_cfg& cfg) {
    return {cfg.taps, cfg.num_bank, filter_bins(cfg)};
}

/// The part of a spectrum that the filter works on.
inline float* filter_part(const qel_aec& aec, const qel_vector_union& spec) {
    return floats(spec) + 2 * first_bin(*aec.cfg);
}

/// fft_size samples at `time` into fft_bins complex bins at `spec`.
void forward_transform(qel_aec* aec, float* time, float* spec);

/// fft_bins complex bins at `spec` into fft_size samples at `time`.
void inverse_transform(qel_aec* aec, const float* spec, float* time);

/// Adds the windowed head of `time`, fft_size samples, to the overlap memory and scales it into
/// `out`, then keeps the windowed tail; both of these hold frame_size samples.
void overlap_add(const qel_aec* aec, const float* time, float* overlap, float* out);

/// Asks for a part of the memory that a frame goes through, that of later steps, if it is to be
/// had from afar. Called between steps, so that it is on its way while they run.
void fetch_ahead(qel_aec* aec);

/// The same for one of `parts` parts of the suppressor's memory.
void fetch_vectors(const qel_aec_nlp& nlp, int32_t part, int32_t parts);

/// The suppressor's filter bank.
kernels::Bank bank_of(const qel_aec_nlp& nlp);

/// The share of the echo estimate that the suppressor takes for residual echo, 0.01 to 1.
float leak_share(const qel_aec_nlp& nlp);

/// Probability, 0.1 to 0.999, that the suppressor's last frame holds near-end speech.
float speech_probability(const qel_aec_nlp& nlp);

/// Writes one comfort-noise frame of the mute's frame size to `out` and counts it; false, with
/// nothing done, once mute_frames frames have been muted.
bool mute_frame(qel_aec_mute* mute, float* out);

}  // namespace qel
