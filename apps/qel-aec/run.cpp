// qel-aec run: a recording through the canceller, with figures of what became of it.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <optional>

#include "audio.hpp"
#include "canceller.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "files.hpp"
#include "progress.hpp"

namespace app {

namespace {

constexpr double kSounding = -60;  // dB of full scale from which a frame holds sound
constexpr double kSettle = 3;      // s after the loudspeaker's start that the filter may learn in

struct Options {
    std::vector<std::string> recordings;
    std::string configuration, folder, near;
    Changes changes;
    double delay_ms = 0;
    bool resample = false, figures_only = false;
    std::optional<double> least_erle;
};

/// The signals in whole frames, one frame of silence more than the microphone has.
struct Signals {
    std::vector<int16_t> mic, ref;
    Signal near;       // empty if it is not known
    size_t count = 0;  // samples of the microphone
};

/// What is told of one frame of the microphone.
struct Frame {
    Fate fate;
    qel_aec_measures levels;  // `mic_db` and `ref_db` are of this frame too
    qel_aec_tracking_stats tracking;
};

struct Result {
    Signal out;
    std::vector<Frame> frames;
    double ms = 0;  // processor time
};

Signal at_rate(Recording&& recording, const Options& options, int rate) {
    if (recording.rate == rate) return std::move(recording.samples);
    if (!options.resample) {
        throw Failure(
            format("%s: its rate is %d Hz, the configuration's %d Hz: give --resample, or "
                   "set freqs",
                   recording.path.c_str(), recording.rate, rate));
    }
    return resampled(recording.samples, static_cast<double>(rate) / recording.rate);
}

/// Rounded samples, later by `delay`, continued with silence or cut to `count`.
std::vector<int16_t> fitted(const Signal& signal, long delay, size_t count) {
    std::vector<int16_t> samples(count);
    for (size_t i = 0; i < count; ++i) {
        const long from = static_cast<long>(i) - delay;
        if (from < 0 || from >= static_cast<long>(signal.size())) continue;
        samples[i] = static_cast<int16_t>(to_int16(signal[static_cast<size_t>(from)]));
    }
    return samples;
}

Signals read_signals(const Options& options, const Canceller& canceller) {
    Pair pair = read_pair(options.recordings);
    const int rate = canceller.rate();
    const size_t frame = canceller.frame_size();
    const Signal mic = at_rate(std::move(pair.mic), options, rate);
    const Signal ref = at_rate(std::move(pair.ref), options, rate);
    if (mic.size() != ref.size()) {
        std::fprintf(
            stderr, "qel-aec: the reference is %.2f s %s than the microphone and is %s\n",
            std::fabs(static_cast<double>(mic.size()) - static_cast<double>(ref.size())) / rate,
            ref.size() < mic.size() ? "shorter" : "longer",
            ref.size() < mic.size() ? "continued with silence" : "cut");
    }
    Signals signals;
    signals.count = mic.size();
    const size_t whole = ((mic.size() + frame - 1) / frame + 1) * frame;
    signals.mic = fitted(mic, 0, whole);
    signals.ref = fitted(ref, std::lround(options.delay_ms * rate / 1000), whole);
    if (!options.near.empty()) {
        signals.near = at_rate(read_mono(options.near), options, rate);
        signals.near.resize(whole);
    }
    return signals;
}

/// Runs the signals through; the canceller's one frame of delay is taken out.
Result cancel(Canceller& canceller, const Signals& signals) {
    const size_t n = canceller.frame_size(), frames = signals.mic.size() / n - 1;
    Result result;
    result.out.reserve(frames * n);
    Progress progress("cancelling", static_cast<double>(signals.count) / canceller.rate());
    qel_aec_measures before = {};
    for (size_t k = 0; k <= frames; ++k) {
        const std::span mic(&signals.mic[k * n], n), ref(&signals.ref[k * n], n);
        const auto start = std::chrono::steady_clock::now();
        const std::span<const int16_t> out = canceller.feed(mic, ref);
        const auto time = std::chrono::steady_clock::now() - start;
        result.ms += std::chrono::duration<double, std::milli>(time).count();
        qel_aec_measures now = canceller.stats().frame;
        if (k > 0) {
            result.out.insert(result.out.end(), out.begin(), out.end());
            qel_aec_measures levels = now;
            levels.mic_db = before.mic_db;
            levels.ref_db = before.ref_db;
            result.frames.push_back({canceller.fate(), levels, canceller.tracking_stats()});
        }
        before = now;
        progress.show(static_cast<double>(k) / static_cast<double>(frames));
    }
    result.out.resize(signals.count);
    return result;
}

// Figures.

/// Sums over chosen frames, of which those come in dB.
class Powers {
  public:
    Powers(const Signals& signals, const Result& result, size_t frame)
        : signals_(signals), result_(result), frame_(frame) {}

    void add(size_t k) {
        const size_t end = std::min((k + 1) * frame_, signals_.count);
        for (size_t i = k * frame_; i < end; ++i) {
            const double mic = signals_.mic[i], out = result_.out[i];
            mic_ += mic * mic;
            out_ += out * out;
        }
        ++frames_;
    }
    size_t frames() const { return frames_; }

    /// Null without a frame.
    Json reduction_db() const {
        if (frames_ == 0) return nullptr;
        return 10 * std::log10(std::max(mic_, 1.0) / std::max(out_, 1.0));
    }

  private:
    const Signals& signals_;
    const Result& result_;
    const size_t frame_;
    double mic_ = 0, out_ = 0;
    size_t frames_ = 0;
};

/// How much of the near end there is in `x`, over the frames for which take(k) holds.
struct NearScore {
    double xx = 0, xs = 0, ss = 0;
    void add(double x, double s) {
        xx += x * x;
        xs += x * s;
        ss += s * s;
    }
    double gain_db() const { return 20 * std::log10(std::max(1e-6, std::fabs(xs) / ss)); }
    double si_sdr_db() const {
        const double wanted = xs * xs / ss;
        return 10 * std::log10(std::max(wanted, 1e-9) / std::max(xx - wanted, 1e-9));
    }
};

class Figures {
  public:
    Figures(const Canceller& canceller, const Signals& signals, const Result& result)
        : canceller_(canceller),
          signals_(signals),
          result_(result),
          n_(canceller.frame_size()),
          first_(std::find_if(result.frames.begin(), result.frames.end(), is_played) -
                 result.frames.begin()) {}

    Json counts() const {
        Json counts = {{"total", result_.frames.size()}};
        for (const Fate fate : {Fate::kBypassed, Fate::kMuted, Fate::kProcessed}) {
            counts[name_of(fate)] =
                std::count_if(result_.frames.begin(), result_.frames.end(),
                              [fate](const Frame& frame) { return frame.fate == fate; });
        }
        return counts;
    }

    Json levels() const {
        const std::span<const int16_t> mic(signals_.mic), ref(signals_.ref);
        const auto level = [](auto samples) {
            return level_db(Signal(samples.begin(), samples.end()));
        };
        return {{"mic_db", level(mic.first(signals_.count))},
                {"ref_db", level(ref.first(signals_.count))},
                {"out_db", level_db(result_.out)}};
    }

    /// Reduction in dB of the frames that were processed, second by second.
    Json by_second() const {
        Json list = Json::array();
        const double frame_s = canceller_.frame_ms() / 1000;
        for (size_t k = 0; k < result_.frames.size();) {
            const double second = std::floor(static_cast<double>(k) * frame_s);
            Powers powers(signals_, result_, n_);
            for (; k < result_.frames.size() && static_cast<double>(k) * frame_s < second + 1;
                 ++k) {
                if (result_.frames[k].fate == Fate::kProcessed) powers.add(k);
            }
            list.push_back({{"at_s", second}, {"reduction_db", powers.reduction_db()}});
        }
        return list;
    }

    Json reduction_db() const {
        Powers powers(signals_, result_, n_);
        for (size_t k = 0; k < result_.frames.size(); ++k) {
            if (result_.frames[k].fate == Fate::kProcessed) powers.add(k);
        }
        return powers.reduction_db();
    }

    /// The reduction of the echo alone, as far as is known, once the filter has settled.
    Json erle_db() const { return echo_reduction_db(settled(), result_.frames.size()); }

    /// The same in the second from the loudspeaker's start; null while a mute takes most of it.
    Json first_second_db() const {
        const auto second = static_cast<size_t>(1000 / canceller_.frame_ms());
        const size_t first = static_cast<size_t>(first_);
        return echo_reduction_db(first, std::min(first + second, result_.frames.size()),
                                 second / 2);
    }

    /// Average of a measure over the processed frames.
    Json mean(float qel_aec_measures::*measure) const {
        double sum = 0;
        size_t count = 0;
        for (const Frame& frame : result_.frames) {
            if (frame.fate != Fate::kProcessed) continue;
            sum += frame.levels.*measure;
            ++count;
        }
        return count == 0 ? Json(nullptr) : Json(sum / static_cast<double>(count));
    }

    Json near() const {
        return {{"both", near_where([this](size_t k) { return is_played(result_.frames[k]); })},
                {"alone", near_where([this](size_t k) { return !is_played(result_.frames[k]); })}};
    }

  private:
    static bool is_played(const Frame& frame) { return frame.levels.ref_db > kSounding; }

    bool talks(size_t k) const {
        return !signals_.near.empty() && level_db({&signals_.near[k * n_], n_}) > kSounding;
    }

    /// Of the frames with echo alone; null if there are fewer than `least`.
    Json echo_reduction_db(size_t from, size_t to, size_t least = 1) const {
        Powers powers(signals_, result_, n_);
        for (size_t k = from; k < to; ++k) {
            if (result_.frames[k].fate == Fate::kProcessed && is_played(result_.frames[k]) &&
                !talks(k)) {
                powers.add(k);
            }
        }
        return powers.frames() < least ? Json(nullptr) : powers.reduction_db();
    }

    /// The frame from which the filter has had its time, half of the recording at most.
    size_t settled() const {
        const auto settle = static_cast<size_t>(1000 * kSettle / canceller_.frame_ms());
        const size_t first = static_cast<size_t>(first_), all = result_.frames.size();
        return first + std::min(settle, (all - first) / 2);
    }

    template <class Take>
    Json near_where(Take take) const {
        NearScore before, after;
        for (size_t k = 0; k < result_.frames.size(); ++k) {
            if (result_.frames[k].fate == Fate::kMuted || !talks(k) || !take(k)) continue;
            for (size_t i = k * n_; i < std::min((k + 1) * n_, signals_.count); ++i) {
                before.add(signals_.mic[i], signals_.near[i]);
                after.add(result_.out[i], signals_.near[i]);
            }
        }
        if (after.ss == 0) return nullptr;
        return {{"gain_db", after.gain_db()},
                {"si_sdr_db", after.si_sdr_db()},
                {"si_sdr_before_db", before.si_sdr_db()}};
    }

    const Canceller& canceller_;
    const Signals& signals_;
    const Result& result_;
    const size_t n_;
    const ptrdiff_t first_;  // frame that the loudspeaker plays in
};

bool is_tracking(const Canceller& canceller) {
    const qel_aec_tracking_cfg on = canceller.tracking();
    return on.use_kalman || on.use_residual || on.use_align || on.use_comfort;
}

std::string csv_of(const Canceller& canceller, const Result& result) {
    const bool tracking = is_tracking(canceller);
    std::string csv = "frame,time_s,state,mic_db,ref_db,out_db,reduction_db,leak,speech";
    csv += tracking ? ",delay_ms,delay_changes,path_changes,uncertainty\n" : "\n";
    for (size_t k = 0; k < result.frames.size(); ++k) {
        const Frame& frame = result.frames[k];
        const qel_aec_measures& m = frame.levels;
        csv += format("%zu,%.4f,%s,%.2f,%.2f,%.2f,%.2f,%.4f,%.4f", k,
                      static_cast<double>(k) * canceller.frame_ms() / 1000, name_of(frame.fate),
                      m.mic_db, m.ref_db, m.out_db, m.mic_db - m.out_db, m.leak, m.speech);
        if (tracking) {
            const qel_aec_tracking_stats& t = frame.tracking;
            csv += format(",%.2f,%u,%u,%.4f", t.delay_ms, t.delay_changes, t.path_changes,
                          t.uncertainty);
        }
        csv += "\n";
    }
    return csv;
}

Json summary_of(const Options& options, const Canceller& canceller, const Signals& signals,
                const Result& result) {
    const auto absolute = [](const std::string& path) {
        return std::filesystem::absolute(path).lexically_normal().string();
    };
    const Figures figures(canceller, signals, result);
    const double seconds = static_cast<double>(signals.count) / canceller.rate();
    Json summary = {{"recordings", Json::array()},
                    {"configuration", absolute(options.configuration)},
                    {"changes", options.changes},
                    {"delay_ms", options.delay_ms},
                    {"rate", canceller.rate()},
                    {"frame_size", canceller.frame_size()},
                    {"seconds", seconds},
                    {"frames", figures.counts()},
                    {"levels", figures.levels()},
                    {"erle_db", figures.erle_db()},
                    {"first_second_db", figures.first_second_db()},
                    {"reduction_db", figures.reduction_db()},
                    {"reduction", figures.by_second()},
                    {"leak", figures.mean(&qel_aec_measures::leak)},
                    {"speech", figures.mean(&qel_aec_measures::speech)},
                    {"ms_per_second", result.ms / seconds}};
    for (const std::string& path : options.recordings) {
        summary["recordings"].push_back(absolute(path));
    }
    if (!signals.near.empty()) summary["near"] = figures.near();
    if (is_tracking(canceller)) {
        const qel_aec_tracking_stats stats = canceller.tracking_stats();
        summary["tracking"] = {{"delay_ms", stats.delay_ms},
                               {"delay_changes", stats.delay_changes},
                               {"path_changes", stats.path_changes},
                               {"uncertainty", stats.uncertainty}};
    }
    summary["settings"] = to_json(settings_of(canceller.cfg()));
    return summary;
}

void print_summary(const Json& summary, const std::string& folder) {
    const auto number = [](const Json& value) {
        return value.is_null() ? std::string("-") : format("%.1f", value.get<double>());
    };
    std::printf("%s: %.2f s at %d Hz\n", folder.c_str(), summary["seconds"].get<double>(),
                summary["rate"].get<int>());
    const Json& frames = summary["frames"];
    std::printf("frames: %d bypassed, %d muted, %d processed\n", frames["bypassed"].get<int>(),
                frames["muted"].get<int>(), frames["processed"].get<int>());
    std::printf("echo reduction: %s dB once settled, %s dB of all processed frames\n",
                number(summary["erle_db"]).c_str(), number(summary["reduction_db"]).c_str());
    if (summary.contains("near")) {
        for (const char* part : {"both", "alone"}) {
            const Json& near = summary["near"][part];
            if (near.is_null()) continue;
            std::printf("near end, %s: gain %s dB, SI-SDR %s -> %s dB\n",
                        *part == 'b' ? "both talking" : "alone", number(near["gain_db"]).c_str(),
                        number(near["si_sdr_before_db"]).c_str(),
                        number(near["si_sdr_db"]).c_str());
        }
    }
    std::printf("time: %s ms per second of audio\n", number(summary["ms_per_second"]).c_str());
}

int run(const Options& options) {
    std::vector<std::filesystem::path> inputs(options.recordings.begin(), options.recordings.end());
    inputs.emplace_back(options.configuration);
    if (!options.near.empty()) inputs.emplace_back(options.near);
    Canceller canceller(options.configuration, options.changes);
    if (canceller.cfg().use_hdr) {
        throw Failure(options.configuration + ": use_hdr is on, and recordings are fed as 16 bits");
    }
    const Signals signals = read_signals(options, canceller);
    Outputs outputs(options.folder, inputs);
    const std::string wav = options.figures_only ? "" : outputs.add("out.wav");
    const Result result = cancel(canceller, signals);
    const Json summary = summary_of(options, canceller, signals, result);
    if (!options.figures_only) {
        write_wav(wav, canceller.rate(), result.out);
        outputs.add_text("frames.csv", csv_of(canceller, result));
    }
    outputs.add_text("summary.json", text_of(summary));
    outputs.commit();
    print_summary(summary, options.folder);
    if (!options.least_erle) return 0;
    const Json& erle = summary["erle_db"];
    if (!erle.is_null() && erle.get<double>() >= *options.least_erle) return 0;
    std::fprintf(stderr, "qel-aec: the echo reduction is below %g dB\n", *options.least_erle);
    return 1;
}

}  // namespace

Command add_run(CLI::App& program) {
    auto options = std::make_shared<Options>();
    CLI::App* app = program.add_subcommand(
        "run",
        "Runs a recording through the canceller: out.wav, in step with the microphone, "
        "frames.csv with a line per frame, and summary.json.");
    add_pair(app, &options->recordings);
    add_configuration(app, &options->configuration);
    add_folder(app, &options->folder);
    app->add_option("--delay", options->delay_ms,
                    "ms by which the reference is made later; negative: earlier")
        ->check(CLI::Range(-60000.0, 60000.0));
    add_resample(app, &options->resample);
    app->add_option("--set", options->changes,
                    "settings for this run, such as taps=6 or vad.amp_thresh=20")
        ->type_name("KEY=VALUE");
    app->add_option("--near", options->near,
                    "the talker alone, in step with the microphone: scores him in the output, and "
                    "leaves him out of the echo reduction");
    app->add_flag("--figures-only", options->figures_only, "write summary.json alone");
    app->add_option("--fail-below-erle", options->least_erle,
                    "end with status 1 if the echo reduction once settled, 3 s after the "
                    "loudspeaker's start, is less")
        ->type_name("DB");
    return {app, [options] { return run(*options); }};
}

}  // namespace app
