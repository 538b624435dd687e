// One signal from one sample rate to another, block by block.
#pragma once

#include <samplerate.h>

#include <cstddef>
#include <cstdint>
#include <memory>

class Resampler {
  public:
    /// Ready to give its first sample for the first one that it gets: what its filter must see
    /// ahead is there already, as silence. Throws std::bad_alloc.
    Resampler(uint32_t from, uint32_t to);

    /// Writes what the `n` samples of `in` complete to `out`, at most `room` samples, and returns
    /// their number. Allocates nothing.
    size_t run(const float* in, size_t n, float* out, size_t room);

    /// By which the output lags behind the input, in samples of the input.
    double delay() const { return delay_; }

  private:
    struct Delete {
        void operator()(SRC_STATE* state) const { src_delete(state); }
    };
    std::unique_ptr<SRC_STATE, Delete> state_;  // null where the rates are the same
    double ratio_;
    double delay_ = 0;
};
