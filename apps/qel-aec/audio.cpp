#include "audio.hpp"

#include <samplerate.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "failure.hpp"
#include "files.hpp"

namespace app {

namespace {

constexpr double kMostSamples = 2e9;  // of a file; what a day at 16 kHz has is less
constexpr size_t kBlock = 65536;      // samples read at a time

using File = std::unique_ptr<SNDFILE, decltype(&sf_close)>;

/// Reads all channels of a file, each as a recording.
std::vector<Recording> read_channels(const std::string& path) {
    check_input(path);
    SF_INFO info = {};
    const File file(sf_open(path.c_str(), SFM_READ, &info), sf_close);
    if (!file) throw Failure(path + ": " + sf_strerror(nullptr));
    const auto channels = static_cast<size_t>(info.channels);
    if (static_cast<double>(info.frames) * info.channels > kMostSamples) {
        throw Failure(path + ": is too long to be looked at as a whole");
    }
    std::vector<Recording> all(channels, Recording{path, info.samplerate, {}});
    std::vector<float> block(kBlock / channels * channels);
    for (;;) {
        const sf_count_t frames = sf_readf_float(file.get(), block.data(),
                                                 static_cast<sf_count_t>(block.size() / channels));
        if (frames <= 0) break;
        for (size_t i = 0; i < static_cast<size_t>(frames) * channels; ++i) {
            if (!std::isfinite(block[i])) throw Failure(path + ": holds numbers that are no sound");
            all[i % channels].samples.push_back(block[i] * static_cast<float>(kFullScale));
        }
    }
    if (all[0].samples.empty()) throw Failure(path + ": holds no samples");
    return all;
}

}  // namespace

Recording read_mono(const std::string& path) {
    std::vector<Recording> channels = read_channels(path);
    if (channels.size() != 1) {
        throw Failure(path + ": has " + std::to_string(channels.size()) +
                      " channels where one is expected; sox IN OUT remix 1 takes the first");
    }
    return std::move(channels[0]);
}

Pair read_pair(const std::vector<std::string>& paths) {
    if (paths.size() == 2) return {read_mono(paths[0]), read_mono(paths[1])};
    std::vector<Recording> channels = read_channels(paths.at(0));
    if (channels.size() != 2) {
        throw Failure(paths[0] + ": has " + std::to_string(channels.size()) +
                      " channels: give one stereo file, microphone first, or two mono files");
    }
    return {std::move(channels[0]), std::move(channels[1])};
}

int to_int16(double sample) {
    return static_cast<int>(std::clamp(std::round(sample), -32768.0, 32767.0));
}

void write_wav(const std::string& path, int rate, std::span<const float> samples) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    File file(sf_open(path.c_str(), SFM_WRITE, &info), sf_close);
    if (!file) throw Failure(path + ": " + sf_strerror(nullptr));
    std::vector<short> rounded(samples.size());
    std::transform(samples.begin(), samples.end(), rounded.begin(),
                   [](float x) { return static_cast<short>(to_int16(x)); });
    const auto count = static_cast<sf_count_t>(rounded.size());
    const bool whole = sf_write_short(file.get(), rounded.data(), count) == count;
    if (sf_close(file.release()) != 0 || !whole) throw Failure(path + ": cannot be written");
}

double power_db(double power) {
    return std::max(-120.0, 10 * std::log10(power / (kFullScale * kFullScale) + 1e-30));
}

double level_db(std::span<const float> samples) {
    double sum = 0;
    for (const float x : samples) sum += static_cast<double>(x) * x;
    return power_db(sum / static_cast<double>(std::max<size_t>(1, samples.size())));
}

Signal resampled(std::span<const float> samples, double ratio, bool rough) {
    const auto count =
        static_cast<size_t>(std::llround(static_cast<double>(samples.size()) * ratio));
    Signal out(count + 1);
    SRC_DATA data = {};
    data.data_in = samples.data();
    data.input_frames = static_cast<long>(samples.size());
    data.data_out = out.data();
    data.output_frames = static_cast<long>(out.size());
    data.src_ratio = ratio;
    if (const int error =
            src_simple(&data, rough ? SRC_SINC_FASTEST : SRC_SINC_MEDIUM_QUALITY, 1)) {
        throw Failure(std::string("resampling: ") + src_strerror(error));
    }
    out.resize(count);
    return out;
}

}  // namespace app
