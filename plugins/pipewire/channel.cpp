#include "plugins/pipewire/channel.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

constexpr size_t kChunk = 256;  // samples of the server that are worked on at a time
constexpr float kFullScale = 32768.0f;
// Samples of the canceller that keep a resampler's last rounded digit from costing a frame.
constexpr size_t kSpare = 2;

int16_t to_int16(float x) {
    if (std::isnan(x)) return 0;
    return static_cast<int16_t>(std::lrint(std::clamp(x * kFullScale, -32768.0f, 32767.0f)));
}

/// A canceller of 16-bit samples, or the reason why there is none.
qel_api_aec_t* make_canceller(const std::string& configuration) {
    qel_api_aec_t* api =
        qel_api_aec_new_text(configuration.data(), static_cast<uint32_t>(configuration.size()));
    if (!api) throw std::invalid_argument(qel_api_aec_last_error());
    if (!api->cfg->use_hdr) return api;
    qel_api_aec_delete(api);
    throw std::invalid_argument("use_hdr cannot work here: samples have 16 bits");
}

}  // namespace

Channel::Channel(const std::string& configuration, uint32_t rate)
    : api_(make_canceller(configuration)),
      rate_(rate),
      inner_rate_(static_cast<uint32_t>(api_->cfg->freqs)),
      frame_(static_cast<uint32_t>(api_->cfg->frame_size)),
      mic_down_(rate_, inner_rate_),
      ref_down_(rate_, inner_rate_),
      out_up_(inner_rate_, rate_),
      inner_(kChunk * inner_rate_ / rate_ + 8),
      mic_(inner_.size()),
      ref_(inner_.size()),
      frame_out_(frame_),
      ready_(4 * at_server(frame_ + kSpare) + 2 * kChunk) {
    if (rate_ != inner_rate_) {
        cancel(kSpare);  // silence
        ready_end_ = at_server(kSpare);
    }
}

/// As many samples of the server as `inner` of the canceller last, rounded up.
size_t Channel::at_server(size_t inner) const {
    return (inner * rate_ + inner_rate_ - 1) / inner_rate_;
}

/// Output that must be there when the first block of `n` samples ends: nothing if every block
/// brings whole frames, else as much as may be missing to one.
size_t Channel::head_start(size_t n) const {
    const bool whole_frames = n * inner_rate_ % (static_cast<size_t>(rate_) * frame_) == 0;
    return whole_frames ? 0 : at_server(frame_);
}

size_t Channel::latency(size_t n) const {
    const double ratio = static_cast<double>(rate_) / inner_rate_;
    const double spare = rate_ == inner_rate_ ? 0 : kSpare * ratio + at_server(kSpare);
    const double outside = head_start(n) + mic_down_.delay() + spare;
    return static_cast<size_t>(std::lround(outside + ratio * (frame_ + out_up_.delay())));
}

void Channel::run(const float* mic, const float* ref, float* out, size_t n) {
    if (!started_) ready_end_ += head_start(n);
    started_ = true;
    size_t given = 0;
    for (size_t taken = 0; taken < n;) {
        const size_t chunk = std::min(kChunk, n - taken);
        bring_down(ref + taken, chunk, &ref_down_, &ref_);
        cancel(bring_down(mic + taken, chunk, &mic_down_, &mic_));
        taken += chunk;
        given += give(out + given, taken - given);
    }
    std::fill(out + given, out + n, 0.0f);
}

/// Makes samples of the canceller of `n` of the server, and returns their number.
size_t Channel::bring_down(const float* in, size_t n, Resampler* down, std::vector<int16_t>* out) {
    n = down->run(in, n, inner_.data(), inner_.size());
    std::transform(inner_.data(), inner_.data() + n, out->begin(), to_int16);
    return n;
}

/// Feeds `n` samples of `mic_` and `ref_`, at most a frame at once: more would take memory.
void Channel::cancel(size_t n) {
    for (size_t fed = 0; fed < n;) {
        const size_t piece = std::min<size_t>(frame_, n - fed);
        const auto bytes = static_cast<uint32_t>(piece * sizeof(int16_t));
        uint32_t out_bytes = 0;
        const void* out =
            qel_api_aec_feed_data(api_.get(), &mic_[fed], bytes, &ref_[fed], bytes, 0, &out_bytes);
        take(static_cast<const int16_t*>(out), out_bytes / sizeof(int16_t));
        fed += piece;
    }
}

/// Adds a frame of the canceller, or nothing, to the output that waits.
void Channel::take(const int16_t* frame, size_t n) {
    std::copy(ready_.begin() + ready_begin_, ready_.begin() + ready_end_, ready_.begin());
    ready_end_ -= ready_begin_;
    ready_begin_ = 0;
    std::transform(frame, frame + n, frame_out_.begin(), [](int16_t x) { return x / kFullScale; });
    ready_end_ +=
        out_up_.run(frame_out_.data(), n, &ready_[ready_end_], ready_.size() - ready_end_);
}

/// Hands out up to `n` samples of the output that waits and returns their number.
size_t Channel::give(float* out, size_t n) {
    n = std::min(n, ready_end_ - ready_begin_);
    std::copy_n(ready_.begin() + ready_begin_, n, out);
    ready_begin_ += n;
    return n;
}
