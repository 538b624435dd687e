// A running canceller of the library with its configuration, for tests that feed it signals.
#pragma once

#include <algorithm>
#include <cstring>
#include <functional>
#include <span>
#include <string_view>

#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/qel_vector.h"
#include "qel/spu/aec/qel_aec_stats.h"
#include "qel/spu/aec/qel_aec_tracking.h"
#include "tests/support/reference_aec.hpp"
#include "tests/support/signals.hpp"

/// For the configuration of a Canceller: a start-up mute of one second.
inline void with_mute(qel_aec_cfg& cfg) { cfg.mute.mute_time = 1; }

class Canceller {
  public:
    /// Without a mute; `adjust` has the last word on the configuration.
    explicit Canceller(const AecSettings& settings = {},
                       const std::function<void(qel_aec_cfg&)>& adjust = {}) {
        qel_fft_init_module();
        qel_vector_init_module();
        qel_aec_cfg_init(&cfg_);
        cfg_.freqs = cfg_.nlp.freqs = cfg_.mute.freqs = static_cast<int16_t>(settings.rate);
        cfg_.frame_size = cfg_.nlp.frame_size = cfg_.mute.frame_size =
            static_cast<int16_t>(settings.frame);
        cfg_.taps = static_cast<int16_t>(settings.taps);
        cfg_.nb_banks = cfg_.nlp.nb_banks = static_cast<int16_t>(settings.banks);
        cfg_.offset_bins = static_cast<int16_t>(settings.offset);
        cfg_.mute.mute_time = 0;
        cfg_.use_nlp = settings.nlp;
        cfg_.use_vad = settings.vad;
        if (adjust) adjust(cfg_);
        qel_aec_cfg_update(&cfg_, nullptr);
        aec_ = settings.tracking ? make_tracking(settings.tracking) : qel_aec_new(&cfg_);
    }
    ~Canceller() {
        qel_aec_delete(aec_);
        qel_aec_cfg_clean(&cfg_);
    }
    Canceller(Canceller&&) = delete;

    qel_aec* get() { return aec_; }
    void reset() { qel_aec_reset(aec_); }
    qel_aec_stats stats() const {
        qel_aec_stats stats;
        qel_aec_get_stats(aec_, &stats);
        return stats;
    }
    qel_aec_tracking_stats tracking() const {
        qel_aec_tracking_stats stats;
        qel_aec_get_tracking_stats(aec_, &stats);
        return stats;
    }

    /// Feeds both signals in pieces of at most `chunk` bytes; `end` goes with the last piece.
    template <class Sample>
    Pcm feed(const std::vector<Sample>& mic, const std::vector<Sample>& ref, size_t chunk = 1 << 30,
             bool end = false) {
        const size_t total = sizeof(Sample) * std::max(mic.size(), ref.size());
        Pcm out;
        for (size_t at = 0; at < total; at += chunk) {
            const auto piece = [&](std::span<const Sample> x) {
                const auto rest = std::as_bytes(x).subspan(std::min(at, x.size_bytes()));
                return rest.first(std::min(chunk, rest.size()));
            };
            const auto m = piece(mic), r = piece(ref);
            uint32_t bytes = 0;
            const void* data = qel_aec_feed_data(aec_, m.data(), static_cast<uint32_t>(m.size()),
                                                 r.data(), static_cast<uint32_t>(r.size()),
                                                 end && at + chunk >= total, &bytes);
            out.resize(out.size() + bytes / 2);
            if (bytes > 0) std::memcpy(out.data() + out.size() - bytes / 2, data, bytes);
        }
        return out;
    }

  private:
    qel_aec* make_tracking(std::string_view switches) const {
        const auto on = [switches](char letter) {
            return switches.find(letter) == switches.npos ? 0u : 1u;
        };
        const qel_aec_tracking_cfg tracking = {.use_kalman = on('K'),
                                               .use_residual = on('R'),
                                               .use_align = on('A'),
                                               .use_comfort = on('N'),
                                               .flags_spare = 0};
        return qel_aec_new_tracking(&cfg_, &tracking);
    }

    qel_aec_cfg cfg_{};
    qel_aec* aec_ = nullptr;
};
