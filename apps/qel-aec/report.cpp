// qel-aec report: one page that shows what `run` made of a recording, and lets it be heard.
#include <sndfile.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>

#include "audio.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "files.hpp"
#include "own.hpp"
#include "pages.hpp"

namespace app {

namespace fs = std::filesystem;

namespace {

constexpr double kMinuteBytes = 4.8e6;  // of a page per minute of audio, at most
constexpr double kMostBytes = 40e6;     // of a page that browsers open at once
constexpr double kPageBytes = 100e3;    // of what is no audio, nearly

struct Options {
    std::string folder, against, output;
};

std::string read_text(const fs::path& path) {
    check_input(path);
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What `run` left in a folder.
struct Run {
    fs::path folder;
    Json summary;
    std::string frames;  // CSV
    Recording out;
};

Run read_run(const std::string& folder) {
    Run run = {fs::absolute(folder).lexically_normal(), nullptr, "", {}};
    for (const char* name : {"summary.json", "frames.csv", "out.wav"}) {
        if (!fs::exists(run.folder / name)) {
            throw Failure(folder + ": has no " + name + ": qel-aec run -o " + folder +
                          " writes it");
        }
    }
    run.summary = Json::parse(read_text(run.folder / "summary.json"), nullptr, false);
    if (!run.summary.is_object() || !run.summary.contains("recordings")) {
        throw Failure(folder + "/summary.json: is none of qel-aec run");
    }
    run.frames = read_text(run.folder / "frames.csv");
    run.out = read_mono((run.folder / "out.wav").string());
    return run;
}

// Audio as a page holds it.

struct Track {
    std::string id, name;
    const Recording* recording;
};

/// The recording as a file of `format`, in memory.
std::string encoded(const Recording& recording, int format) {
    const int file = memfd_create("qel-aec", MFD_CLOEXEC);
    SF_INFO info = {};
    info.samplerate = recording.rate;
    info.channels = 1;
    info.format = format;
    SNDFILE* sound = sf_open_fd(file, SFM_WRITE, &info, 0);
    if (!sound) {
        close(file);
        throw Failure(std::string("audio for the page: ") + sf_strerror(nullptr));
    }
    double quality = 0.7;  // of Vorbis
    sf_command(sound, SFC_SET_VBR_ENCODING_QUALITY, &quality, sizeof(quality));
    std::vector<short> block;
    for (const float sample : recording.samples) {
        block.push_back(static_cast<short>(to_int16(sample)));
        if (block.size() < 4096) continue;  // Vorbis takes no long ones
        sf_write_short(sound, block.data(), 4096);
        block.clear();
    }
    sf_write_short(sound, block.data(), static_cast<sf_count_t>(block.size()));
    sf_close(sound);
    std::string bytes(static_cast<size_t>(lseek(file, 0, SEEK_END)), ' ');
    const ssize_t got = pread(file, bytes.data(), bytes.size(), 0);
    close(file);
    if (got != static_cast<ssize_t>(bytes.size())) throw Failure("audio for the page: unreadable");
    return bytes;
}

/// The tracks without loss; where a page of them would be too large, the longest with little.
Json encoded_tracks(const std::vector<Track>& tracks, double most_bytes) {
    std::vector<std::string> data;
    double bytes = kPageBytes;
    for (const Track& track : tracks) {
        data.push_back(base64(encoded(*track.recording, SF_FORMAT_FLAC | SF_FORMAT_PCM_16)));
        bytes += static_cast<double>(data.back().size());
    }
    std::vector<bool> lossy(tracks.size(), false);
    while (bytes > most_bytes) {
        size_t longest = tracks.size();
        for (size_t i = 0; i < tracks.size(); ++i) {
            if (lossy[i]) continue;
            if (longest == tracks.size() || data[i].size() > data[longest].size()) longest = i;
        }
        if (longest == tracks.size()) break;
        bytes -= static_cast<double>(data[longest].size());
        data[longest] =
            base64(encoded(*tracks[longest].recording, SF_FORMAT_OGG | SF_FORMAT_VORBIS));
        bytes += static_cast<double>(data[longest].size());
        lossy[longest] = true;
    }
    Json list = Json::array();
    for (size_t i = 0; i < tracks.size(); ++i) {
        list.push_back({{"id", tracks[i].id},
                        {"name", tracks[i].name},
                        {"rate", tracks[i].recording->rate},
                        {"lossless", !lossy[i]},
                        {"data", std::move(data[i])}});
    }
    return list;
}

/// What the run was given, at its rate and with its delay; empty, with the reason, if it is gone.
Pair read_inputs(const Json& summary, std::string& missing) {
    try {
        Pair pair = read_pair(summary["recordings"].get<std::vector<std::string>>());
        const int rate = summary.value("rate", pair.mic.rate);
        for (Recording* recording : {&pair.mic, &pair.ref}) {
            if (recording->rate == rate) continue;
            recording->samples =
                resampled(recording->samples, static_cast<double>(rate) / recording->rate);
            recording->rate = rate;
        }
        const long delay = std::lround(summary.value("delay_ms", 0.0) * rate / 1000);
        Signal& ref = pair.ref.samples;
        const auto count = std::min(static_cast<size_t>(std::labs(delay)), ref.size());
        if (delay > 0) ref.insert(ref.begin(), count, 0.0f);
        if (delay < 0) ref.erase(ref.begin(), ref.begin() + static_cast<ptrdiff_t>(count));
        ref.resize(pair.mic.samples.size());
        return pair;
    } catch (const Failure& failure) {
        missing = failure.what();
        return {};
    }
}

/// What another command says as JSON; null if it has nothing to say.
Json said_by(std::vector<std::string> words) {
    words.emplace_back("--json");
    const Json said = Json::parse(call_own(words).out, nullptr, false);
    return said.is_object() ? said : Json(nullptr);
}

Json shown(const Run& run) {
    const std::string configuration = run.summary.value("configuration", "");
    std::vector<std::string> probe = {"probe", "--config=" + configuration};
    for (const Json& path : run.summary["recordings"]) probe.push_back(path.get<std::string>());
    return {{"folder", run.folder.string()},
            {"summary", run.summary},
            {"frames", run.frames},
            {"check", said_by({"check", configuration})},
            {"probe", said_by(probe)}};
}

int report(const Options& options) {
    std::vector<Run> runs = {read_run(options.folder)};
    if (!options.against.empty()) runs.push_back(read_run(options.against));
    std::string missing;
    const Pair pair = read_inputs(runs[0].summary, missing);
    std::vector<Track> tracks;
    if (missing.empty()) {
        tracks = {{"mic", "microphone", &pair.mic}, {"ref", "reference", &pair.ref}};
    }
    const bool two = runs.size() == 2;
    tracks.push_back({"out", two ? "output A" : "output", &runs[0].out});
    if (two) tracks.push_back({"other", "output B", &runs[1].out});

    const double minutes = std::max(1.0, runs[0].out.seconds() / 60);
    Json data = {{"version", QEL_AEC_VERSION}, {"missing", missing}, {"runs", Json::array()}};
    for (const Run& run : runs) data["runs"].push_back(shown(run));
    data["tracks"] = encoded_tracks(tracks, std::min(kMinuteBytes * minutes, kMostBytes));

    const fs::path page = options.output.empty() ? runs[0].folder / "report.html"
                                                 : fs::absolute(options.output).lexically_normal();
    std::vector<fs::path> inputs;
    for (const Run& run : runs) {
        for (const char* name : {"summary.json", "frames.csv", "out.wav"}) {
            inputs.push_back(run.folder / name);
        }
        for (const Json& path : run.summary["recordings"]) {
            inputs.emplace_back(path.get<std::string>());
        }
        inputs.emplace_back(run.summary.value("configuration", ""));
    }
    Outputs outputs(page.parent_path(), inputs);
    outputs.add_text(page.filename().string(), page_with(kReportPage, data));
    outputs.commit();
    std::printf("%s\n", page.c_str());
    if (!missing.empty()) {
        std::fprintf(stderr, "qel-aec: the page does without the recording: %s\n", missing.c_str());
    }
    return 0;
}

}  // namespace

Command add_report(CLI::App& program) {
    auto options = std::make_shared<Options>();
    CLI::App* app = program.add_subcommand(
        "report",
        "Makes one HTML page of what run left in a folder: to listen, to look, to compare. It "
        "needs no network.");
    app->add_option("DIR", options->folder, "folder that run wrote into")->required();
    app->add_option("--against", options->against, "another run's folder, shown beside it")
        ->type_name("DIR");
    app->add_option("-o,--output", options->output, "the page, DIR/report.html if not given")
        ->type_name("FILE");
    return {app, [options] { return report(*options); }};
}

}  // namespace app
