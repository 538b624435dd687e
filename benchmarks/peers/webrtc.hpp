// WebRTC's echo canceller through the interface that applications use.
#pragma once

#include <cstdint>
#include <memory>

struct WebrtcParts;

class WebrtcCanceller {
  public:
    static constexpr int kRate = 16000, kFrame = kRate / 100;  // it takes 10 ms at a time

    /// Its echo cancellation and nothing else; or, `extended`, with the longer filter and with
    /// strong noise suppression behind it, which together do more of what this library does.
    explicit WebrtcCanceller(bool extended);
    WebrtcCanceller(WebrtcCanceller&&) noexcept;
    ~WebrtcCanceller();

    /// Takes and gives kFrame samples; false when it refuses.
    bool feed(const int16_t* mic, const int16_t* ref, int16_t* out);

  private:
    std::unique_ptr<WebrtcParts> parts_;
};
