// Recordings: mono signals as floats in 16-bit sample units, full scale 32768.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace app {

constexpr double kFullScale = 32768;

using Signal = std::vector<float>;

struct Recording {
    std::string path;
    int rate = 0;  // Hz
    Signal samples;
    double seconds() const { return static_cast<double>(samples.size()) / rate; }
};

struct Pair {
    Recording mic, ref;
};

/// Reads a file of one channel.
Recording read_mono(const std::string& path);

/// Reads a microphone and its reference: one stereo file, microphone first, or two mono files.
Pair read_pair(const std::vector<std::string>& paths);

/// Writes 16-bit WAV; samples are rounded and limited to what fits.
void write_wav(const std::string& path, int rate, std::span<const float> samples);

/// The sample as it is written.
int to_int16(double sample);

/// Level in dB of full scale, -120 for silence.
double level_db(std::span<const float> samples);
double power_db(double power);

/// The signal at another rate, `ratio` samples for each one; `rough` is quick, for looking only.
Signal resampled(std::span<const float> samples, double ratio, bool rough = false);

}  // namespace app
