// One channel of the server: float blocks of any size and rate around a canceller of whole frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "plugins/pipewire/resampler.hpp"
#include "qel/api/qel_api_aec.h"

class Channel {
  public:
    /// A canceller of this configuration at a server of `rate` Hz. Throws std::invalid_argument
    /// with the reason if it cannot work so, std::bad_alloc when memory runs out.
    Channel(const std::string& configuration, uint32_t rate);

    /// Takes `n` samples of microphone and reference and gives as many without echo. Blocks should
    /// all have one size; after a larger one a gap may open, once. Allocates nothing.
    void run(const float* mic, const float* ref, float* out, size_t n);

    uint32_t frame_size() const { return frame_; }  // in samples of the canceller
    uint32_t inner_rate() const { return inner_rate_; }
    /// The best size of a block, in samples of the server: the least that brings a whole frame.
    size_t block() const { return at_server(frame_); }
    /// By which the output lags behind the microphone, in samples of the server, in blocks of `n`.
    size_t latency(size_t n) const;

  private:
    struct Delete {
        void operator()(qel_api_aec_t* api) const { qel_api_aec_delete(api); }
    };

    size_t at_server(size_t inner) const;
    size_t head_start(size_t n) const;
    size_t bring_down(const float* in, size_t n, Resampler* down, std::vector<int16_t>* out);
    void cancel(size_t n);
    void take(const int16_t* frame, size_t n);
    size_t give(float* out, size_t n);

    std::unique_ptr<qel_api_aec_t, Delete> api_;
    uint32_t rate_, inner_rate_;
    uint32_t frame_;
    Resampler mic_down_, ref_down_, out_up_;
    std::vector<float> inner_;        // one signal of a chunk, at the canceller's rate
    std::vector<int16_t> mic_, ref_;  // of a chunk, the same
    std::vector<float> frame_out_;    // a frame, at the canceller's rate
    std::vector<float> ready_;        // output that waits, at the server's rate:
    size_t ready_begin_ = 0, ready_end_ = 0;
    bool started_ = false;
};
