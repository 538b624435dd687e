// qel-aec probe: what a recording of microphone and reference says about the device it comes from.
#include <algorithm>
#include <cmath>
#include <memory>

#include "align.hpp"
#include "canceller.hpp"
#include "command.hpp"
#include "echo_path.hpp"
#include "failure.hpp"
#include "quality.hpp"

namespace app {

namespace {

constexpr int kMostRate = 16000;      // Hz at which recordings are looked at
constexpr double kMostSeconds = 300;  // of a recording are looked at
constexpr double kLeastSeconds = 3;   // for a delay to be told
constexpr double kSearch = 2;         // s that the echo may be away from its reference
constexpr double kSilent = -75;       // dB: what the detectors take for silence by default
constexpr double kLowRef = -45, kLowMic = -65;       // dB, of loud frames
constexpr double kLoudEcho = 15, kTooLoudEcho = 25;  // dB over the reference
constexpr double kDcUnits = 250;                     // sample units
constexpr size_t kFewClips = 5;                      // flat tops that may be chance
constexpr double kManyClips = 0.005;                 // share of samples
constexpr size_t kFewWraps = 3;
constexpr double kDrift = 10, kMuchDrift = 50;              // ppm
constexpr double kNonlinear = 0.03, kVeryNonlinear = 0.15;  // share of the echo
constexpr double kTooDeep = 80;                             // Hz, of most voices
constexpr double kTooDull = 3e-3;    // of the power, above a sixth of the rate
constexpr double kBackwards = -1.5;  // dB of what follows the direct sound over what precedes it

struct Options {
    std::vector<std::string> recordings;
    std::string configuration;
    int play_gain = 1;
    bool json = false;
};

/// What the filter covers.
struct Reach {
    int rate = 16000, frame_size = 512, taps = 4;
    double align_ms = 0;  // by which the tracking mode may delay the reference
    double frame_ms() const { return 1000.0 * frame_size / rate; }
    double ms() const { return taps * frame_ms(); }
};

struct RateRatio {
    double ratio = 1;  // of the microphone's true rate over the reference's
    double score = 0;  // of the alignment then found
};

struct Report {
    Quality mic, ref;
    Alignment alignment;
    EchoPath path;
    int rate = 0;  // at which the delay counts samples
    bool related = false;
    bool swapped = false;
    RateRatio rates;
    double delay_ms() const { return 1000 * path.delay / rate; }
};

Reach reach_of(const Options& options) {
    Reach reach;
    if (options.configuration.empty()) return reach;
    const Canceller canceller(options.configuration);
    reach.rate = canceller.rate();
    reach.frame_size = canceller.cfg().frame_size;
    reach.taps = canceller.cfg().taps;
    if (canceller.tracking().use_align) reach.align_ms = 500;
    return reach;
}

// Looking.

/// The start of a recording at a rate that is quick to look at.
Recording shortened(const Recording& recording, int rate) {
    Recording result{recording.path, rate, recording.samples};
    const auto most = static_cast<size_t>(kMostSeconds * recording.rate);
    if (result.samples.size() > most) result.samples.resize(most);
    if (recording.rate != rate) {
        result.samples = resampled(result.samples, static_cast<double>(rate) / recording.rate);
    }
    return result;
}

/// The ratio of true rates at which the reference is found in the microphone; 1 if at none.
RateRatio other_ratio(const Signal& mic, const Signal& ref, int rate) {
    constexpr double kSeconds = 20, kSearchHere = 1, kSureHere = 35;
    const auto start = [rate](const Signal& x, double factor) {
        const double count = std::min(kSeconds * factor * rate, static_cast<double>(x.size()));
        return std::span<const float>(x).first(static_cast<size_t>(count));
    };
    RateRatio best{1, kSureHere};
    // Of 44100 and 48000, 32000, 16000, 8000; of 24000 and 16000.
    for (const double ratio :
         {3.0, 2.0, 48 / 44.1, 44.1 / 16, 44.1 / 32, 1.5, 6.0, 44.1 / 8, 4.0}) {
        for (const bool of_mic : {true, false}) {
            const Signal slow = resampled(start(of_mic ? mic : ref, ratio), 1 / ratio, true);
            const auto other = start(of_mic ? ref : mic, 1);
            const Signal plain(other.begin(), other.end());
            const double score = of_mic ? alignment_score(slow, plain, rate, kSearchHere)
                                        : alignment_score(plain, slow, rate, kSearchHere);
            if (score > best.score) best = {of_mic ? ratio : 1 / ratio, score};
        }
    }
    return best;
}

Report look(const Pair& pair, int play_gain) {
    Report report;
    report.rate = std::min({kMostRate, pair.mic.rate, pair.ref.rate});
    report.mic = quality_of(pair.mic);
    Recording played = pair.ref;
    if (play_gain != 1) played.samples = wrapped(pair.ref.samples, play_gain);
    report.ref = quality_of(played);
    const Recording mic = shortened(pair.mic, report.rate), ref = shortened(played, report.rate);
    if (mic.seconds() < kLeastSeconds || ref.seconds() < kLeastSeconds) {
        throw Failure("the recording is too short: 3 s are the least, 30 s are better");
    }
    if (report.mic.level_db < kSilent || report.ref.level_db < kSilent) return report;
    report.alignment = align(mic.samples, ref.samples, report.rate, kSearch);
    if (report.alignment.found) {
        report.path = look_at_path(mic.samples, ref.samples, report.rate, report.alignment.delay,
                                   report.alignment.drift_ppm);
        report.related = report.path.known;
    }
    if (!report.related) {
        report.rates = other_ratio(mic.samples, ref.samples, report.rate);
        return report;
    }
    // Where the delay moves, the echo before or after the move looks like an answer of its own.
    report.swapped = !report.alignment.moves && report.path.after_db < kBackwards;
    return report;
}

// Findings.

class Judge {
  public:
    Judge(const Pair& pair, const Report& report, const Reach& reach, int play_gain)
        : pair_(pair), report_(report), reach_(reach), play_gain_(play_gain) {}

    std::vector<Finding> findings() {
        judge_signal("microphone", report_.mic, kLowMic);
        judge_signal("reference", report_.ref, kLowRef);
        judge_rates();
        judge_wraps();
        judge_relation();
        if (report_.related) {
            judge_delay();
            judge_drift();
            judge_echo();
        }
        sort_worst_first(found_);
        return std::move(found_);
    }

  private:
    void add(const char* code, Level level, std::string text, std::string advice,
             Json more = Json::object()) {
        found_.push_back({code, level, std::move(text), std::move(advice), std::move(more)});
    }

    void judge_signal(const char* name, const Quality& quality, double low) {
        const Json more = {{"signal", name}, {"level_db", quality.level_db}};
        const bool mic = *name == 'm';
        if (quality.level_db < kSilent) {
            add("silent", Level::kError,
                format("the %s is silent: its loud frames have %.0f dB of full scale", name,
                       quality.level_db),
                mic ? "Check the microphone's channel, its gain and its mute switch."
                    : "Check where the reference is taken: it must carry what the loudspeaker "
                      "plays, "
                      "at its level.",
                more);
        } else if (quality.level_db < low) {
            add("level", Level::kWarning,
                format("the %s is very quiet: its loud frames have %.0f dB of full scale", name,
                       quality.level_db),
                mic ? "Raise the microphone's gain."
                    : "Take the reference at full level, before the volume control, or raise "
                      "\"playGain\".",
                more);
        }
        if (quality.clips > kFewClips) {
            add("clipping", quality.clipped > kManyClips ? Level::kError : Level::kWarning,
                format("the %s is clipped %zu times, at %.0f of 32768, in %.2g %% of its samples",
                       name, quality.clips, quality.peak, 100 * quality.clipped),
                mic ? "Lower the microphone's gain or the loudspeaker's volume: no filter takes a "
                      "clipped echo away."
                    : "Lower the level before the place where the reference clips.",
                more);
        }
        if (std::fabs(quality.dc) > kDcUnits) {
            add("dc", Level::kWarning,
                format("the %s has an offset of %.0f sample units", name, quality.dc),
                "Switch on the converter's highpass, or take the offset out before the canceller.",
                {{"signal", name}, {"offset", quality.dc}});
        }
    }

    void judge_rates() {
        const int mic = pair_.mic.rate, ref = pair_.ref.rate;
        if (mic != ref) {
            add("wrong-rate", Level::kError,
                format("the microphone has %d Hz, the reference %d Hz", mic, ref),
                "Record both at one rate; qel-aec run --resample converts a recording.");
        }
        const Quality& voice = report_.ref;
        if (voice.pitch > 0 && voice.pitch < kTooDeep && voice.high_share < kTooDull) {
            add("wrong-rate", Level::kWarning,
                format("the voices in the reference are too deep, %.0f Hz, and nearly nothing is "
                       "above %d Hz: three times as many samples as the label says, %d Hz labelled "
                       "%d?",
                       voice.pitch, ref / 6, 3 * ref, ref),
                "Listen to it: if it is slow and deep, label the recording with its true rate.",
                {{"pitch", voice.pitch}});
        }
        if (reach_.rate != mic && mic == ref && configured_) {
            add("wrong-rate", Level::kWarning,
                format("the recording has %d Hz, the configuration %d Hz", mic, reach_.rate),
                "Set freqs, in aec and in nlp, or resample.");
        }
    }

    void judge_wraps() {
        if (report_.ref.wraps < kFewWraps) return;
        const int most = static_cast<int>(32767 / std::max(1.0, peak_of(pair_.ref)));
        add("gain-wraps", Level::kError,
            format("the reference jumps by nearly 65536 from one sample to the next, %zu times: it "
                   "was amplified beyond 16 bits and wrapped",
                   report_.ref.wraps),
            play_gain_ > 1
                ? format("\"playGain\" may be %d at most for this reference.", std::max(1, most))
                : "Lower \"playGain\", or the gain before the reference is recorded.",
            {{"count", report_.ref.wraps}});
    }

    static double peak_of(const Recording& recording) {
        double peak = 0;
        for (const float x : recording.samples) peak = std::max(peak, std::fabs(double{x}));
        return peak;
    }

    void judge_relation() {
        if (report_.mic.level_db < kSilent || report_.ref.level_db < kSilent) return;
        if (report_.rates.ratio != 1) {
            judge_ratio();
        } else if (!report_.related) {
            add("unrelated", Level::kError,
                format("nothing of the reference is found in the microphone, %.0f s before and "
                       "after",
                       kSearch),
                "Check that the reference is what this loudspeaker plays, that it does play, and "
                "that both were recorded at the same time.",
                {{"score", report_.alignment.score}});
        } else if (report_.swapped) {
            add("swapped", Level::kError,
                "the room answers backwards: microphone and reference have changed places",
                "Give the microphone first, or exchange the channels where they are recorded.",
                {{"after_db", report_.path.after_db}});
        }
    }

    void judge_ratio() {
        const double ratio = report_.rates.ratio;
        const bool of_mic = ratio > 1;
        const double factor = of_mic ? ratio : 1 / ratio;
        const int labelled = of_mic ? pair_.mic.rate : pair_.ref.rate;
        const char *fast = of_mic ? "microphone" : "reference",
                   *slow = of_mic ? "reference" : "microphone";
        add("wrong-rate", Level::kError,
            format("the %s has %.4g samples for each one of the %s: %.0f Hz labelled %d, or the %s "
                   "is %.0f Hz labelled %d",
                   fast, factor, slow, std::round(labelled * factor), labelled, slow,
                   std::round(labelled / factor), labelled),
            "Record both at one rate, and label them with it.",
            {{"ratio", ratio}, {"score", report_.rates.score}});
    }

    void judge_delay() {
        if (report_.alignment.moves) {
            add("delay-moves", Level::kError, "the delay of the echo jumps: " + moves(),
                "Look for buffers that under- or overrun between playback and capture; "
                "use_align = yes; follows single jumps.");
        }
        if (report_.swapped) return;  // the delay then has the other sign
        const double delay = report_.delay_ms(), frame = reach_.frame_ms();
        if (report_.path.delay < -1.5) {
            const int frames = static_cast<int>(std::ceil(-delay / frame));
            add("reference-late", -delay > frame / 2 ? Level::kError : Level::kWarning,
                format("the reference is late: the echo comes %.1f ms before it", -delay),
                format("Delay the reference less by %d frame%s, or the microphone more by as much.",
                       frames, frames == 1 ? "" : "s"));
        } else if (delay > reach_.ms() + reach_.align_ms - frame) {
            const double over = reach_.ms() + reach_.align_ms - delay;
            const int frames = static_cast<int>(delay / frame);
            add("echo-too-late", over < frame / 2 ? Level::kError : Level::kWarning,
                format(
                    "the echo comes %.1f ms after its reference, and the filter reaches %.0f ms, "
                    "weaker in the last %.0f",
                    delay, reach_.ms() + reach_.align_ms, frame),
                format("Delay the reference more by %d frame%s, or set taps = %d.", frames,
                       frames == 1 ? "" : "s", frames + 3));
        }
    }

    std::string moves() const {
        std::string text;
        double last = NAN;
        for (const BlockDelay& block : report_.alignment.blocks) {
            const double ms = 1000 * block.samples / report_.rate;
            if (block.strength < 49 || std::fabs(ms - last) < 1) continue;
            if (text.size() > 200) return text + ", ...";
            text += format("%s%.1f ms at %.0f s", text.empty() ? "" : ", ", ms, block.at_s);
            last = ms;
        }
        return text;
    }

    void judge_drift() {
        const Alignment& alignment = report_.alignment;
        const double size = std::fabs(alignment.drift_ppm);
        if (size < std::max(kDrift, 4 * alignment.drift_error)) return;
        add("drift", size > kMuchDrift ? Level::kError : Level::kWarning,
            format("the clocks drift apart: the echo comes %s by %.1f ppm, %.2f ms in a minute",
                   alignment.drift_ppm > 0 ? "later and later" : "earlier and earlier", size,
                   size * 0.06),
            "Take microphone and reference from one clock, or resample the reference to the "
            "microphone's; use_kalman = yes; follows slow drifts.");
    }

    void judge_echo() {
        const EchoPath& path = report_.path;
        if (path.polarity < 0) {
            add("polarity", Level::kWarning, "the echo has the opposite sign of its reference",
                "The canceller learns this too; if it is not meant, exchange the wires of the "
                "loudspeaker, or look for an inverting stage.");
        }
        if (path.echo_db > kLoudEcho && !report_.swapped) {
            add("level", path.echo_db > kTooLoudEcho ? Level::kError : Level::kWarning,
                format("the echo is %.0f dB louder than its reference", path.echo_db),
                "Raise the reference's level, or lower the loudspeaker's volume or the "
                "microphone's "
                "gain.",
                {{"signal", "reference"}});
        }
        if (path.nonlinear > kNonlinear && !report_.swapped && !report_.alignment.moves) {
            add("nonlinear", path.nonlinear > kVeryNonlinear ? Level::kError : Level::kWarning,
                format("the loudspeaker is not linear: no filter takes %.1f %% of the echo's power "
                       "away, so the filter alone ends at %.0f dB",
                       100 * path.nonlinear, -10 * std::log10(path.nonlinear)),
                "Lower the volume, or take the reference behind the limiter that feeds the "
                "loudspeaker; use_residual = yes; suppresses what is left.",
                {{"share", path.nonlinear}});
        }
    }

  public:
    bool configured_ = false;  // the reach is that of a configuration, not of the defaults

  private:
    const Pair& pair_;
    const Report& report_;
    const Reach& reach_;
    const int play_gain_;
    std::vector<Finding> found_;
};

// Telling.

Json rounded(double value, double step) { return std::round(value / step) * step; }

Json json_of(const Report& report, const std::vector<Finding>& findings, const Reach& reach) {
    Json json = to_json(findings);
    const bool known = report.related;
    json["delay_ms"] = known ? rounded(report.delay_ms(), 1e-4) : Json(nullptr);
    json["confidence"] = known ? rounded(report.alignment.confidence, 1e-3) : Json(0);
    json["drift_ppm"] = known ? rounded(report.alignment.drift_ppm, 1e-2) : Json(nullptr);
    json["echo_db"] = known ? rounded(report.path.echo_db, 1e-2) : Json(nullptr);
    json["polarity"] = known ? Json(report.path.polarity) : Json(nullptr);
    json["nonlinear"] = known ? rounded(report.path.nonlinear, 1e-4) : Json(nullptr);
    json["rest_db"] = known ? rounded(report.path.rest_db, 1e-2) : Json(nullptr);
    json["after_db"] = known ? rounded(report.path.after_db, 1e-2) : Json(nullptr);
    json["score"] = rounded(report.alignment.score, 1e-2);
    json["reach_ms"] = reach.ms() + reach.align_ms;
    Json delays = Json::array();
    for (const BlockDelay& block : report.alignment.blocks) {
        delays.push_back({{"at_s", block.at_s},
                          {"delay_ms", rounded(1000 * block.samples / report.rate, 1e-3)},
                          {"strength", rounded(std::sqrt(block.strength), 0.1)}});
    }
    json["delays"] = std::move(delays);
    for (const auto& [name, quality] :
         {std::pair{"microphone", report.mic}, {"reference", report.ref}}) {
        json[name] = {{"level_db", quality.level_db},
                      {"floor_db", quality.floor_db},
                      {"peak", quality.peak},
                      {"dc", quality.dc},
                      {"clipped", quality.clipped},
                      {"pitch", quality.pitch},
                      {"high_share", quality.high_share},
                      {"top_hertz", quality.top_hertz}};
    }
    return json;
}

void print_report(const Report& report, const std::vector<Finding>& findings, const Reach& reach) {
    print(findings);
    if (findings.empty()) std::printf("nothing to find fault with\n");
    std::printf("\nmicrophone: loud frames %.0f dB, quiet ones %.0f dB, peak %.0f of 32768\n",
                report.mic.level_db, report.mic.floor_db, report.mic.peak);
    std::printf("reference:  loud frames %.0f dB, quiet ones %.0f dB, peak %.0f of 32768\n",
                report.ref.level_db, report.ref.floor_db, report.ref.peak);
    if (!report.related) return;
    std::printf(
        "echo:       %+.2f ms after its reference, seen in %.0f %% of the time; the filter "
        "reaches %.0f ms\n",
        report.delay_ms(), 100 * report.alignment.confidence, reach.ms() + reach.align_ms);
    std::printf(
        "            %+.1f dB of the reference, sign %c, drift %+.1f ppm, %.1f %% not "
        "linear\n",
        report.path.echo_db, report.path.polarity < 0 ? '-' : '+', report.alignment.drift_ppm,
        100 * report.path.nonlinear);
}

int probe(const Options& options) {
    const Reach reach = reach_of(options);
    const Pair pair = read_pair(options.recordings);
    const Report report = look(pair, options.play_gain);
    Judge judge(pair, report, reach, options.play_gain);
    judge.configured_ = !options.configuration.empty();
    const std::vector<Finding> findings = judge.findings();
    if (options.json) {
        std::fputs(text_of(json_of(report, findings, reach)).c_str(), stdout);
    } else {
        print_report(report, findings, reach);
    }
    return status_of(findings);
}

/// With --json even what cannot be looked at is told as JSON.
int probe_or_tell(const Options& options) {
    try {
        return probe(options);
    } catch (const Failure& failure) {
        if (!options.json) throw;
        const std::vector<Finding> findings = {{"unreadable", Level::kError, failure.what(),
                                                "Give a recording as qel-aec probe --help says.",
                                                Json::object()}};
        std::fputs(text_of(to_json(findings)).c_str(), stdout);
        return status_of(findings);
    }
}

}  // namespace

Command add_probe(CLI::App& program) {
    auto options = std::make_shared<Options>();
    CLI::App* app = program.add_subcommand(
        "probe",
        "Says whether a recording can be cancelled, and what is wrong with it: delay, "
        "drift, polarity, levels, clipping, swapped or unrelated channels, wrong rates, a "
        "nonlinear loudspeaker. The first five minutes count.");
    add_pair(app, &options->recordings);
    app->add_option("-c,--config", options->configuration,
                    "configuration whose taps must cover the delay; else the defaults")
        ->type_name("CONF");
    app->add_option("--play-gain", options->play_gain, "\"playGain\" of the device")
        ->capture_default_str()
        ->check(CLI::Range(-32768, 32767));
    add_json(app, &options->json);
    return {app, [options] { return probe_or_tell(*options); }};
}

}  // namespace app
