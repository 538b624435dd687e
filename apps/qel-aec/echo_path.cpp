#include "echo_path.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "talk.hpp"
#include "transform.hpp"

namespace app {

namespace {

using Complex = std::complex<double>;

constexpr double kPathWindow = 0.5;        // s, for the response
constexpr double kNonlinearWindow = 0.25;  // s, for more averages
constexpr double kLowest = 60;             // Hz
constexpr double kQuiet = 10;              // rms in sample units of windows without reference
constexpr double kOverlapWorth = 0.6;      // independent windows per window, at half overlap
constexpr size_t kLeastWindows = 6;
constexpr long kSearch = 64;           // samples about the delay in which the peak may be
constexpr double kSmoothHertz = 60;    // to either side: colour of a voice, not of a room
constexpr double kTalkerVaries = 1.5;  // times what noise would explain by chance
constexpr double kAloneDb = 3;         // dB over the echo up to which a window holds it alone
constexpr double kEmpty = 1e-9;        // of the power
constexpr double kNear = 0.002, kFar = 0.06, kFloorFrom = 0.12, kFloorTo = 0.2;  // s

/// Sums of products of spectra over windows: of the reference and what is derived from it, with
/// each other and with the microphone.
template <size_t Inputs>
struct Sums {
    struct Bin {
        std::array<std::array<Complex, Inputs>, Inputs> inputs{};  // conj(i) * k
        std::array<Complex, Inputs> cross{};                       // conj(i) * microphone
        double mic = 0;
    };
    std::vector<Bin> bins;
    double windows = 0;  // independent ones
};

/// The first bin of sound: below it are offsets and rumble.
size_t first_bin(size_t length, int rate) {
    return static_cast<size_t>(std::ceil(kLowest * static_cast<double>(length) / rate));
}

/// The part of a signal at `from`, in a Hann window.
Signal windowed(const Signal& x, long from, size_t length) {
    Signal part(length);
    for (size_t i = 0; i < length; ++i) {
        const long at = from + static_cast<long>(i);
        if (at < 0 || at >= static_cast<long>(x.size())) continue;
        const double phase =
            2 * M_PI * (static_cast<double>(i) + 0.5) / static_cast<double>(length);
        part[i] = x[static_cast<size_t>(at)] * static_cast<float>(0.5 - 0.5 * std::cos(phase));
    }
    return part;
}

/// Sums over all windows in which the first input sounds, and the microphone not more than
/// `most_gain` times as loud; the inputs are `delay` before `mic`.
template <size_t Inputs>
Sums<Inputs> sums_of(const Signal& mic, const std::array<const Signal*, Inputs>& inputs, long delay,
                     size_t length, double most_gain = 1e9) {
    Transform transform(length);
    Sums<Inputs> sums;
    sums.bins.resize(transform.bins());
    size_t count = 0;
    for (size_t at = 0; at + length <= mic.size(); at += length / 2) {
        const long from = static_cast<long>(at) - delay;
        const Signal first = windowed(*inputs[0], from, length);
        if (rms(first) < kQuiet) continue;
        std::array<Spectrum, Inputs> spectra;
        spectra[0] = transform.forward(first);
        for (size_t k = 1; k < Inputs; ++k) {
            spectra[k] = transform.forward(windowed(*inputs[k], from, length));
        }
        const Signal there = windowed(mic, static_cast<long>(at), length);
        if (rms(there) > most_gain * rms(first)) continue;
        const Spectrum heard = transform.forward(there);
        for (size_t b = 0; b < sums.bins.size(); ++b) {
            auto& bin = sums.bins[b];
            const Complex y(heard[b]);
            bin.mic += std::norm(y);
            for (size_t i = 0; i < Inputs; ++i) {
                const Complex x = std::conj(Complex(spectra[i][b]));
                bin.cross[i] += x * y;
                for (size_t k = 0; k < Inputs; ++k) bin.inputs[i][k] += x * Complex(spectra[k][b]);
            }
        }
        ++count;
    }
    sums.windows = kOverlapWorth * static_cast<double>(count);
    return sums;
}

/// Share of the microphone's power that the reference explains, less what chance would.
double coherence(const Sums<1>::Bin& bin, double windows) {
    const double all = bin.mic * bin.inputs[0][0].real();
    if (all <= 0) return 0;
    const double share = std::norm(bin.cross[0]) / all;
    return std::max(0.0, share - (1 - share) / windows);
}

/// The response of the room about the delay, with both signals' colour taken out, but not the
/// room's.
class Response {
  public:
    Response(const Sums<1>& sums, size_t length, int rate) {
        const auto width = static_cast<size_t>(kSmoothHertz * static_cast<double>(length) / rate);
        std::vector<double> ref(1), mic(1);
        for (const auto& bin : sums.bins) {
            ref.push_back(ref.back() + bin.inputs[0][0].real());
            mic.push_back(mic.back() + bin.mic);
        }
        // Where there is next to nothing, next to nothing counts; differences of sums end there
        // too.
        const double ref_floor = kEmpty * ref.back(), mic_floor = kEmpty * mic.back();
        Spectrum spectrum(sums.bins.size());
        for (size_t b = 1; b + 1 < spectrum.size(); ++b) {
            const size_t from = b > width ? b - width : 0;
            const size_t to = std::min(spectrum.size(), b + width + 1);
            const double colour =
                (ref[to] - ref[from] + ref_floor) * (mic[to] - mic[from] + mic_floor);
            spectrum[b] = Bin(sums.bins[b].cross[0] / (std::sqrt(colour) + 1e-9));
        }
        samples_ = Transform(length).backward(spectrum);
    }

    double at(long lag) const {
        const long n = static_cast<long>(samples_.size());
        return static_cast<double>(samples_[static_cast<size_t>((lag + 2 * n) % n)]);
    }

    /// Average power between two lags.
    double power(long from, long to) const {
        double sum = 0;
        for (long lag = from; lag < to; ++lag) sum += at(lag) * at(lag);
        return sum / static_cast<double>(to - from);
    }

  private:
    Signal samples_;
};

void find_peak(const Response& response, EchoPath& path, long delay) {
    long top = 0;
    for (long lag = -kSearch; lag <= kSearch; ++lag) {
        if (std::fabs(response.at(lag)) > std::fabs(response.at(top))) top = lag;
    }
    const double a = std::fabs(response.at(top - 1)), b = std::fabs(response.at(top));
    const double c = std::fabs(response.at(top + 1)), bend = a - 2 * b + c;
    const double off = bend < 0 ? std::clamp(0.5 * (a - c) / bend, -0.5, 0.5) : 0;
    path.polarity = response.at(top) < 0 ? -1 : 1;
    path.delay = static_cast<double>(delay + top) + off;
}

void find_levels(const Sums<1>& sums, size_t first, EchoPath& path) {
    double ref = 0, echo = 0, mic = 0;
    for (const auto& bin : std::span(sums.bins).subspan(first)) {
        ref += bin.inputs[0][0].real();
        echo += bin.mic * coherence(bin, sums.windows);
        mic += bin.mic;
    }
    path.echo_db = 10 * std::log10((echo + 1e-9) / (ref + 1e-9));
    path.rest_db = 10 * std::log10((mic - echo + 1e-9) / (echo + 1e-9));
}

/// Compares both sides of the peak.
void find_sides(const Response& response, int rate, EchoPath& path, long delay) {
    const long peak = std::lround(path.delay) - delay;
    const auto power = [&](double from, double to) {
        return response.power(peak + std::lround(from * rate), peak + std::lround(to * rate));
    };
    const double floor = 0.5 * (power(kFloorFrom, kFloorTo) + power(-kFloorTo, -kFloorFrom));
    const double after = std::max(power(kNear, kFar) - floor, 0.1 * floor);
    const double before = std::max(power(-kFar, -kNear) - floor, 0.1 * floor);
    path.after_db = 10 * std::log10((after + 1e-30) / (before + 1e-30));
}

/// What a clipping or a bent characteristic adds to the reference: its cube, and its peaks.
std::array<Signal, 2> bent(const Signal& ref) {
    float peak = 1;
    for (const float x : ref) peak = std::max(peak, std::fabs(x));
    std::array<Signal, 2> all = {Signal(ref.size()), Signal(ref.size())};
    for (size_t i = 0; i < ref.size(); ++i) {
        const float x = ref[i] / peak;
        all[0][i] = peak * x * x * x;
        all[1][i] = peak * std::copysign(std::max(0.0f, std::fabs(x) - 0.3f), x);
    }
    return all;
}

/// Power that the bent inputs explain beyond the linear one, in each bin: two unknowns, solved.
double nonlinear_share(const Sums<3>& sums, size_t first) {
    double added = 0, echo = 0;
    for (const auto& bin : std::span(sums.bins).subspan(first)) {
        const double xx = bin.inputs[0][0].real();
        if (xx <= 0) continue;
        std::array<std::array<Complex, 2>, 2> g;
        std::array<Complex, 2> c;
        for (size_t i = 0; i < 2; ++i) {
            const Complex with = bin.inputs[i + 1][0];
            c[i] = bin.cross[i + 1] - with * bin.cross[0] / xx;
            for (size_t k = 0; k < 2; ++k) {
                g[i][k] = bin.inputs[i + 1][k + 1] - with * bin.inputs[0][k + 1] / xx;
            }
            g[i][i] += 1e-3 * bin.inputs[i + 1][i + 1].real() + 1e-9;
        }
        const double det = (g[0][0] * g[1][1] - g[0][1] * g[1][0]).real();
        if (det <= 0) continue;
        const double linear = std::norm(bin.cross[0]) / xx;
        const double explained = ((std::conj(c[0]) * (g[1][1] * c[0] - g[0][1] * c[1]) +
                                   std::conj(c[1]) * (g[0][0] * c[1] - g[1][0] * c[0])) /
                                  det)
                                     .real();
        // Each input explains its share of the rest by chance alone, and a talker varies more.
        const double rest =
            std::max(0.0, bin.mic - linear - explained) / std::max(1.0, sums.windows - 3);
        added += explained - kTalkerVaries * 2 * rest;
        echo += linear - rest + explained - 2 * rest;
    }
    return echo > 0 ? std::clamp(added / echo, 0.0, 1.0) : 0;
}

}  // namespace

EchoPath look_at_path(const Signal& mic, const Signal& ref, int rate, double delay,
                      double drift_ppm) {
    const Signal aligned =
        std::fabs(drift_ppm) > 0.5 ? resampled(ref, 1 / (1 - drift_ppm * 1e-6)) : ref;
    const long whole = std::lround(delay);
    EchoPath path;
    path.delay = delay;
    const size_t length = fast_length(static_cast<size_t>(kPathWindow * rate));
    const Sums<1> sums = sums_of<1>(mic, {&aligned}, whole, length);
    if (sums.windows < kOverlapWorth * kLeastWindows) return path;
    path.known = true;
    const Response response(sums, length, rate);
    find_peak(response, path, whole);
    find_levels(sums, first_bin(length, rate), path);
    find_sides(response, rate, path, whole);
    const std::array<Signal, 2> more = bent(aligned);
    const size_t window = fast_length(static_cast<size_t>(kNonlinearWindow * rate));
    // Only while nobody talks over the echo: he would explain himself by chance.
    const double alone = std::pow(10, (path.echo_db + kAloneDb) / 20);
    path.nonlinear = nonlinear_share(
        sums_of<3>(mic, {&aligned, &more[0], &more[1]}, std::lround(path.delay), window, alone),
        first_bin(window, rate));
    return path;
}

}  // namespace app
