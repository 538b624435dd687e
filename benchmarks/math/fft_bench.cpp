// The portable transforms beside FFTW, which picks the widest vectors that the processor has.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <string>
#include <type_traits>

#include "tests/math/fft_api.hpp"

namespace {

/// Checks the first result against the direct transform, to `floor` dB, then times `run`.
template <class T, class Run>
void timed(benchmark::State& state, const Spectrum& expected, const std::vector<T>& out,
           double floor, Run run) {
    run();
    if (!(snr_db(expected, values(kComplex, out)) > floor)) {
        return state.SkipWithError("wrong result");
    }
    for (auto _ : state) {
        run();
        benchmark::ClobberMemory();
    }
}

template <class T>
void ours(benchmark::State& state, Kind kind, size_t n) {
    constexpr bool kFloat = std::is_same_v<T, float>;
    const auto x = random_values<T>(2 * n, kFloat ? 1 : 0.7 * std::numeric_limits<T>::max());
    std::vector<T> in(x.begin(), x.begin() + static_cast<int64_t>(kind == kReal ? n : 2 * n));
    std::vector<T> out(kind == kReal ? n + 2 : 2 * n);
    Spectrum expected = reference_dft(values(kind, in));
    if (!kFloat) expected = divided(expected, static_cast<double>(n));
    const auto with = [&](auto* plan) {
        timed(state, expected, out, kFloat ? 100 : 50,
              [&] { Fft<T>::run(out.data(), in.data(), plan, false, true); });
        Fft<T>::destroy(plan);
    };
    const auto length = static_cast<int32_t>(n);
    kind == kReal ? with(Fft<T>::alloc_r2c(length)) : with(Fft<T>::alloc_c2c(length));
}

/// The first n / 2 + 1 bins of a real signal, as interleaved parts.
std::vector<float> bins_of(const std::vector<float>& x) {
    const Spectrum bins = reference_dft(values(kReal, x));
    std::vector<float> parts;
    for (size_t k = 0; k <= x.size() / 2; ++k) {
        parts.push_back(static_cast<float>(bins[k].real()));
        parts.push_back(static_cast<float>(bins[k].imag()));
    }
    return parts;
}

void ours_back(benchmark::State& state, size_t n) {
    const auto x = random_values<float>(n, 1);
    const auto bins = bins_of(x);
    std::vector<float> out(n);
    auto* plan = Fft<float>::alloc_r2c(static_cast<int32_t>(n));
    timed(state, values(kComplex, x), out, 100,
          [&] { Fft<float>::run(out.data(), bins.data(), plan, true, false); });
    Fft<float>::destroy(plan);
}

void fftw(benchmark::State& state, Kind kind, bool back, size_t n) {
    const auto x = random_values<float>(kind == kReal ? n : 2 * n, 1);
    const auto from = back ? bins_of(x) : x;
    const auto exact = reference_dft(values(kind, x));
    std::vector<float> in(from.size()), out(back ? n : kind == kReal ? n + 2 : 2 * n);
    auto* in_bins = reinterpret_cast<fftwf_complex*>(in.data());
    auto* out_bins = reinterpret_cast<fftwf_complex*>(out.data());
    const auto length = static_cast<int>(n);
    const unsigned flags = FFTW_MEASURE | FFTW_PRESERVE_INPUT;
    fftwf_plan plan = kind == kComplex
                          ? fftwf_plan_dft_1d(length, in_bins, out_bins, FFTW_FORWARD, flags)
                      : back ? fftwf_plan_dft_c2r_1d(length, in_bins, out.data(), flags)
                             : fftwf_plan_dft_r2c_1d(length, in.data(), out_bins, flags);
    std::copy(from.begin(), from.end(), in.begin());  // measuring overwrites both arrays
    // FFTW's way back does not scale.
    const auto signal = divided(values(kComplex, x), 1 / static_cast<double>(n));
    timed(state, back ? signal : exact, out, 100, [plan] { fftwf_execute(plan); });
    fftwf_destroy_plan(plan);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const auto add = [](const std::string& name, size_t n, auto run) {
        benchmark::RegisterBenchmark((name + "/" + std::to_string(n)).c_str(), run);
    };
    for (const size_t n : {64, 120, 480, 512, 1024, 4096}) {
        add("c2c/float32", n, [n](auto& state) { ours<float>(state, kComplex, n); });
        add("c2c/fftw", n, [n](auto& state) { fftw(state, kComplex, false, n); });
        add("c2c/int32", n, [n](auto& state) { ours<int32_t>(state, kComplex, n); });
        add("c2c/int16", n, [n](auto& state) { ours<int16_t>(state, kComplex, n); });
    }
    for (const size_t n : {320, 512, 960, 1024, 2048}) {
        add("r2c/float32", n, [n](auto& state) { ours<float>(state, kReal, n); });
        add("r2c/fftw", n, [n](auto& state) { fftw(state, kReal, false, n); });
        add("r2c/int16", n, [n](auto& state) { ours<int16_t>(state, kReal, n); });
        add("c2r/float32", n, [n](auto& state) { ours_back(state, n); });
        add("c2r/fftw", n, [n](auto& state) { fftw(state, kReal, true, n); });
    }
    benchmark::RunSpecifiedBenchmarks();
}
