// What every part of the tracking mode knows of its canceller.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "qel/spu/aec/kernels/tracking.hpp"

namespace qel::tracking {

struct Sizes {
    kernels::Partitions filter;  // its bins are those of a spectrum from `first` on
    int32_t first;
    int32_t bins;      // of a spectrum, frame_size + 1
    int32_t bands;     // of the suppressor
    float rate;        // samples per second
    float frame_time;  // s

    /// Hz from one bin to the next.
    float bin_width() const { return rate / static_cast<float>(2 * (bins - 1)); }

    /// What a factor or a share that is meant for frames of 32 ms becomes here.
    float per_frame(float factor) const { return std::pow(factor, frame_time / 0.032f); }

    /// The weight of a frame in a mean that forgets within `seconds`.
    float rate_of(float seconds) const { return 1.0f - std::exp(-frame_time / seconds); }

    size_t filter_bins() const { return static_cast<size_t>(filter.bins); }
    size_t spectrum_bins() const { return static_cast<size_t>(bins); }
    size_t band_count() const { return static_cast<size_t>(bands); }
};

/// Counts frames, up to more than any rule here asks for.
inline void count_up(uint32_t* frames) {
    constexpr uint32_t kEnough = 1 << 24;
    if (*frames < kEnough) ++*frames;
}

}  // namespace qel::tracking
