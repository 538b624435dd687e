// The canceller as the commands use it: a configuration and changes to it in, frames through it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "findings.hpp"
#include "qel/api/qel_api_aec.h"

namespace app {

/// A setting and what it is set to, as the configuration has them: "taps=6", "vad.amp_thresh=20".
using Changes = std::vector<std::string>;

/// Configuration text that says what the file `path` says, with changes. Throws for a change that
/// is none.
std::string changed_text(const std::string& path, const Changes& changes);

/// What became of a frame.
enum class Fate { kBypassed, kMuted, kProcessed };
const char* name_of(Fate fate);

class Canceller {
  public:
    /// Throws, with the reason, for what the library refuses, and for changes that it has anything
    /// to say about.
    explicit Canceller(const std::string& path, const Changes& changes = {});

    const qel_aec_cfg& cfg() const { return *api_->cfg; }
    int rate() const { return cfg().freqs; }
    size_t frame_size() const { return static_cast<size_t>(cfg().frame_size); }
    double frame_ms() const { return 1000.0 * cfg().frame_size / cfg().freqs; }
    qel_aec_tracking_cfg tracking() const;

    /// Feeds a frame and gives back that of the microphone frame before, valid until the next feed.
    std::span<const int16_t> feed(std::span<const int16_t> mic, std::span<const int16_t> ref);

    /// Of the frame that the last feed gave back.
    Fate fate() const { return fate_; }
    const qel_aec_stats& stats() const { return stats_; }
    qel_aec_tracking_stats tracking_stats() const;

  private:
    using Handle = std::unique_ptr<qel_api_aec_t, decltype(&qel_api_aec_delete)>;
    Handle api_;
    Fate fate_ = Fate::kBypassed;
    qel_aec_stats stats_ = {};
};

/// Processor time per second of audio in ms, measured with noise through a canceller of its own.
double measured_ms_per_second(const std::string& path);

/// One effective setting.
struct Setting {
    std::string section;  // "" for the main one
    std::string name;
    Json value;
    std::string unit;
    std::string meaning;
    bool is_default;  // the file does not say it
};

/// Every setting that has an effect as it is.
std::vector<Setting> settings_of(const qel_aec_cfg& cfg);
Json to_json(const std::vector<Setting>& settings);

/// The longest echo that the filter reaches, in ms.
double longest_echo_ms(const qel_aec_cfg& cfg);

}  // namespace app
