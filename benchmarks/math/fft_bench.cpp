// The float32 transforms beside FFTW, which picks the widest vectors that the processor has: both
// in turn on the same arrays, in thread CPU time.
//
// usage: fft_bench [c2c|r2c|c2r LENGTH]...
#include <fftw3.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "tests/math/fft_api.hpp"

namespace {

constexpr int kRounds = 15;
constexpr double kRoundSeconds = 1e-3;  // of each side

struct Case {
    std::string what;  // c2c, r2c or c2r
    int n;
};

const std::vector<Case> kCases = {{"r2c", 256},  {"r2c", 512},  {"r2c", 1024}, {"r2c", 2048},
                                  {"r2c", 4096}, {"c2r", 256},  {"c2r", 512},  {"c2r", 1024},
                                  {"c2r", 2048}, {"c2r", 4096}, {"c2c", 512},  {"c2c", 1024},
                                  {"c2c", 24},   {"c2c", 120},  {"c2c", 1000}, {"c2c", 64},
                                  {"c2c", 480},  {"r2c", 320},  {"r2c", 960},  {"c2r", 960}};

using Array = std::unique_ptr<float[], decltype(&fftwf_free)>;
Array make_array(size_t count) { return {fftwf_alloc_real(count), fftwf_free}; }

double thread_seconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Seconds of one of `count` calls.
double time_calls(const std::function<void()>& run, int count) {
    const double start = thread_seconds();
    for (int i = 0; i < count; ++i) run();
    return (thread_seconds() - start) / count;
}

/// What a transform reads, and the exact result as FFTW scales it.
struct Signal {
    std::vector<float> in;
    Spectrum exact;
};

Signal make_signal(const Case& c) {
    const auto n = static_cast<size_t>(c.n);
    const auto x = random_values<float>(c.what == "c2c" ? 2 * n : n, 1);
    Signal signal = {x, reference_dft(values(c.what == "c2c" ? kComplex : kReal, x))};
    if (c.what != "c2r") return signal;
    signal.in.clear();
    for (size_t k = 0; k <= n / 2; ++k) {
        signal.in.push_back(static_cast<float>(signal.exact[k].real()));
        signal.in.push_back(static_cast<float>(signal.exact[k].imag()));
    }
    signal.exact = divided(values(kComplex, x), 1 / static_cast<double>(n));
    return signal;
}

/// The transform by this library, with its plan.
std::function<void()> ours(const Case& c, float* in, float* out) {
    const bool back = c.what == "c2r";
    const auto with = [=](auto* plan) {
        const std::shared_ptr<std::remove_pointer_t<decltype(plan)>> owner(
            plan, [](auto* p) { Fft<float>::destroy(p); });
        return [=] { Fft<float>::run(out, in, owner.get(), back, false); };
    };
    if (c.what == "c2c") return with(Fft<float>::alloc_c2c(c.n));
    return with(Fft<float>::alloc_r2c(c.n));
}

std::function<void()> fftw(const Case& c, float* in, float* out, unsigned effort) {
    auto *in_bins = reinterpret_cast<fftwf_complex*>(in),
         *out_bins = reinterpret_cast<fftwf_complex*>(out);
    const unsigned flags = effort | FFTW_PRESERVE_INPUT;
    fftwf_plan plan = c.what == "c2c"
                          ? fftwf_plan_dft_1d(c.n, in_bins, out_bins, FFTW_FORWARD, flags)
                      : c.what == "r2c" ? fftwf_plan_dft_r2c_1d(c.n, in, out_bins, flags)
                                        : fftwf_plan_dft_c2r_1d(c.n, in_bins, out, flags);
    const std::shared_ptr<std::remove_pointer_t<fftwf_plan>> owner(plan, fftwf_destroy_plan);
    return [owner] { fftwf_execute(owner.get()); };
}

/// Within 100 dB of the exact result; this library's c2r divides by the length, FFTW's does not.
bool is_right(const Case& c, const Signal& signal, const float* out, bool scaled) {
    const std::vector<float> result(out, out + (c.what == "c2c"   ? 2 * c.n
                                                : c.what == "r2c" ? c.n + 2
                                                                  : c.n));
    const auto exact = c.what == "c2r" && scaled ? divided(signal.exact, c.n) : signal.exact;
    return snr_db(exact, values(kComplex, result)) > 100;
}

double median(std::vector<double> x) {
    std::sort(x.begin(), x.end());
    return x[x.size() / 2];
}

bool measure(const Case& c) {
    const Signal signal = make_signal(c);
    const auto count = 2 * static_cast<size_t>(c.n) + 2;
    const Array in = make_array(count), out = make_array(count);
    const std::array sides = {ours(c, in.get(), out.get()),
                              fftw(c, in.get(), out.get(), FFTW_MEASURE),
                              fftw(c, in.get(), out.get(), FFTW_PATIENT)};
    std::array<int, sides.size()> calls;
    for (size_t side = 0; side < sides.size(); ++side) {
        std::copy(signal.in.begin(), signal.in.end(), in.get());  // planning overwrites both arrays
        std::memset(out.get(), -1, count * sizeof(float));
        sides[side]();
        if (!is_right(c, signal, out.get(), side == 0)) {
            std::printf("%s %d: wrong result of side %zu\n", c.what.c_str(), c.n, side);
            return false;
        }
        const double warm = time_calls(sides[side], 200);
        calls[side] = std::max(1, static_cast<int>(kRoundSeconds / warm));
    }

    std::array<std::vector<double>, sides.size()> seconds, ratios;
    for (int round = 0; round < kRounds; ++round) {
        for (size_t side = 0; side < sides.size(); ++side) {
            seconds[side].push_back(time_calls(sides[side], calls[side]));
            ratios[side].push_back(seconds[0].back() / seconds[side].back());
        }
    }
    const auto [least, most] = std::minmax_element(ratios[2].begin(), ratios[2].end());
    std::printf("| %s %d | %.0f | %.0f | %.0f | %.2f | %.2f | %.2f to %.2f |\n", c.what.c_str(),
                c.n, 1e9 * median(seconds[0]), 1e9 * median(seconds[1]), 1e9 * median(seconds[2]),
                median(ratios[1]), median(ratios[2]), *least, *most);
    std::fflush(stdout);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<Case> cases;
    for (int i = 1; i + 1 < argc; i += 2) cases.push_back({argv[i], std::atoi(argv[i + 1])});
    std::puts(
        "| Transform | ours, ns | FFTW measured | FFTW patient | to measured | to patient | rounds "
        "|\n|---|---|---|---|---|---|---|");
    bool right = true;
    for (const Case& c : cases.empty() ? kCases : cases) right = measure(c) && right;
    return right ? 0 : 1;
}
