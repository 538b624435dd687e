#include "canceller.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>

#include "failure.hpp"
#include "files.hpp"
#include "qel/api/qel_api_review.h"
#include "qel/core/qel_debug.h"
#include "talk.hpp"

namespace app {

namespace {

constexpr const char* kSection = "aec";
constexpr uint32_t kUsualLevels = 0x0F;  // of the library's log

std::string in_quotes(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result + "\"";
}

/// A text as a file that only this process sees.
class TextFile {
  public:
    explicit TextFile(const std::string& text) : file_(memfd_create("qel-aec", MFD_CLOEXEC)) {
        const auto size = static_cast<ssize_t>(text.size());
        if (file_ < 0 || write(file_, text.data(), text.size()) != size) {
            throw Failure(std::string("no memory for a configuration: ") + std::strerror(errno));
        }
    }
    ~TextFile() { close(file_); }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

  private:
    int file_;
};

struct Objection {
    std::string path, text;
};

void object(void* user, const qel_api_finding* finding) {
    auto& objection = *static_cast<Objection*>(user);
    if (finding->file != objection.path || !objection.text.empty()) return;
    objection.text = std::string(finding->key) + (*finding->key ? " = " : "") + finding->written +
                     (*finding->key ? ": " : "") + finding->text;
}

/// Throws what the library has to say about the changes themselves.
void review_changes(const std::string& text) {
    const TextFile file(text);
    Objection objection{file.path(), ""};
    qel_debug_set_level(0);  // the lines come again when the text is loaded
    qel_api_aec_review(objection.path.c_str(), 0, object, &objection);
    qel_debug_set_level(kUsualLevels);
    if (!objection.text.empty()) throw Failure("--set: " + objection.text);
}

qel_config_items* section_of(const qel_aec_cfg& cfg, const std::string& inner = "") {
    const std::string path = inner.empty() ? kSection : kSection + (" > " + inner);
    return qel_config_items_find_subitems(cfg.cfg_tree->root, path.c_str());
}

bool is_set(const qel_aec_cfg& cfg, const std::string& section, const std::string& name) {
    const qel_config_items* items = section_of(cfg, section);
    const auto length = static_cast<uint32_t>(name.size());
    const qel_config_item* item =
        items ? qel_config_items_find(items, name.c_str(), length) : nullptr;
    return item && item->type == QEL_CONFIG_STRING;
}

}  // namespace

std::string changed_text(const std::string& path, const Changes& changes) {
    // Sections open again and values are set again: what comes later counts.
    std::string text = "#include " + in_quotes(std::filesystem::absolute(path).string()) + ";\n";
    for (const std::string& change : changes) {
        const size_t equals = change.find('='), dot = change.find('.');
        if (equals == std::string::npos || equals == 0 || equals + 1 == change.size()) {
            throw Failure("--set " + change +
                          ": write key=value, such as taps=6 or vad.amp_thresh=20");
        }
        const std::string value = in_quotes(change.substr(equals + 1));
        std::string name = change.substr(0, equals), inner;
        if (dot < equals) {
            inner = in_quotes(name.substr(0, dot)) + " = { ";
            name = name.substr(dot + 1);
        }
        text += std::string(kSection) + " = { " + inner + in_quotes(name) + " = " + value + ";" +
                (inner.empty() ? " }\n" : " } }\n");
    }
    return text;
}

const char* name_of(Fate fate) {
    switch (fate) {
        case Fate::kBypassed: return "bypassed";
        case Fate::kMuted: return "muted";
        case Fate::kProcessed: break;
    }
    return "processed";
}

Canceller::Canceller(const std::string& path, const Changes& changes)
    : api_(nullptr, qel_api_aec_delete) {
    check_input(path);
    const std::string text = changed_text(path, changes);
    if (!changes.empty()) review_changes(text);
    api_.reset(qel_api_aec_new_text(text.data(), static_cast<uint32_t>(text.size())));
    if (!api_) throw Failure(path + ": " + qel_api_aec_last_error());
}

qel_aec_tracking_cfg Canceller::tracking() const {
    qel_aec_tracking_cfg on = {};
    qel_aec_tracking_cfg_init(&on);
    qel_aec_tracking_cfg_update_local(&on, section_of(cfg()));
    return on;
}

std::span<const int16_t> Canceller::feed(std::span<const int16_t> mic,
                                         std::span<const int16_t> ref) {
    const qel_aec_stats before = stats_;
    uint32_t bytes = 0;
    const char* out =
        qel_api_aec_feed_data(api_.get(), mic.data(), static_cast<uint32_t>(mic.size_bytes()),
                              ref.data(), static_cast<uint32_t>(ref.size_bytes()), 0, &bytes);
    if (!out || bytes != mic.size_bytes()) throw Failure("the canceller gave no frame back");
    qel_api_aec_get_stats(api_.get(), &stats_);
    fate_ = stats_.bypassed > before.bypassed ? Fate::kBypassed
            : stats_.muted > before.muted     ? Fate::kMuted
                                              : Fate::kProcessed;
    return {reinterpret_cast<const int16_t*>(out), bytes / sizeof(int16_t)};
}

qel_aec_tracking_stats Canceller::tracking_stats() const {
    qel_aec_tracking_stats stats = {};
    qel_api_aec_get_tracking_stats(api_.get(), &stats);
    return stats;
}

double measured_ms_per_second(const std::string& path) {
    Canceller canceller(path, {"use_mute=no"});
    constexpr double kWarmUp = 0.5, kMeasured = 3;  // s of audio
    Random random(1);
    const size_t n = canceller.frame_size();
    const double frames_per_second = static_cast<double>(canceller.rate()) / static_cast<double>(n);
    std::vector<int16_t> mic(n), ref(n);
    const auto run = [&](double seconds) {
        const auto frames = static_cast<long>(std::max(2.0, seconds * frames_per_second));
        std::chrono::duration<double, std::milli> time{};
        for (long k = 0; k < frames; ++k) {
            for (size_t i = 0; i < n; ++i) {
                ref[i] = static_cast<int16_t>(random.uniform(-3000, 3000));
                mic[i] = static_cast<int16_t>(ref[i] / 2 + random.uniform(-30, 30));
            }
            const auto start = std::chrono::steady_clock::now();
            canceller.feed(mic, ref);
            time += std::chrono::steady_clock::now() - start;
        }
        return time.count() / static_cast<double>(frames) * frames_per_second;
    };
    run(kWarmUp);
    return run(kMeasured);
}

std::vector<Setting> settings_of(const qel_aec_cfg& cfg) {
    qel_aec_tracking_cfg tracking = {};
    qel_aec_tracking_cfg_update_local(&tracking, section_of(cfg));
    std::vector<Setting> all;
    const auto add = [&](const char* section, const char* name, Json value, const char* unit,
                         const char* meaning) {
        all.push_back(
            {section, name, std::move(value), unit, meaning, !is_set(cfg, section, name)});
    };
    add("", "freqs", cfg.freqs, "Hz", "sample rate of both signals");
    add("", "frame_size", cfg.frame_size, "samples", "per frame");
    add("", "taps", cfg.taps, "frames", "length of the echo path that the filter reaches");
    add("", "offset_bins", cfg.offset_bins, "bins", "lowest ones, left out");
    add("", "use_hdr", cfg.use_hdr != 0, "", "samples have 32 bits");
    add("", "use_nlp", cfg.use_nlp != 0, "", "residual echo suppressor");
    if (cfg.use_nlp) {
        add("nlp", "freqs", cfg.nlp.freqs, "Hz", "rate that its bands are made for");
        add("nlp", "nb_banks", cfg.nlp.nb_banks, "bands", "in which its gains are computed");
    }
    add("", "use_mute", cfg.use_mute != 0, "", "quiet noise while the filter starts to learn");
    if (cfg.use_mute) add("mute", "mute_time", cfg.mute.mute_time, "s", "length of it");
    add("", "use_vad", cfg.use_vad != 0, "", "detectors of a sounding loudspeaker");
    if (cfg.use_vad) {
        const qel_svad_cfg& vad = cfg.vad[1];
        add("vad", "amp_thresh", vad.amp_thresh, "sample units",
            "up to which the reference is quiet");
        add("vad", "sil2spe_num", vad.sil2spe_num, "frames", "above it that start processing");
        add("vad", "spe2sil_num", vad.spe2sil_num, "frames", "at or below it that end processing");
    }
    add("", "use_kalman", tracking.use_kalman != 0, "", "step of the filter by a Kalman filter");
    add("", "use_residual", tracking.use_residual != 0, "", "residual echo from tracked ratios");
    add("", "use_align", tracking.use_align != 0, "", "the reference waits for its echo");
    add("", "use_comfort", tracking.use_comfort != 0, "", "the room's noise is filled in");
    return all;
}

Json to_json(const std::vector<Setting>& settings) {
    Json list = Json::array();
    for (const Setting& s : settings) {
        list.push_back({{"key", (s.section.empty() ? "" : s.section + ".") + s.name},
                        {"value", s.value},
                        {"unit", s.unit},
                        {"default", s.is_default},
                        {"meaning", s.meaning}});
    }
    return list;
}

double longest_echo_ms(const qel_aec_cfg& cfg) {
    return 1000.0 * cfg.taps * cfg.frame_size / cfg.freqs;
}

}  // namespace app
