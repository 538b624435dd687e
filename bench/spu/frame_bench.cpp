// One whole frame of the canceller, and the bare transforms of such a frame by FFTW beside it.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cmath>
#include <vector>

#include "qel/spu/aec/qel_aec.h"
#include "tests/support/canceller.hpp"
#include "tests/support/signals.hpp"

namespace {

constexpr int kRate = 16000;
constexpr size_t kFrames = 200;

struct Scene {
    Pcm mic, ref;
};

Scene make_scene(size_t frame, bool reference) {
    const size_t n = frame * kFrames;
    const Signal ref = reference ? white_noise(1, n, 8000) : Signal(n);
    const Signal near_end = white_noise(2, n, 500);
    return {to_pcm(echo(ref, 1e9, room_response(3, 0.01, 0.1, kRate)) + near_end), to_pcm(ref)};
}

/// Feeds frame by frame, as a host does; counts the frames and the seconds of audio they stand for.
void feed(benchmark::State& state, const AecSettings& settings, bool reference) {
    const auto frame = static_cast<size_t>(settings.frame);
    const Scene scene = make_scene(frame, reference);
    Canceller canceller(settings);
    const Pcm out = canceller.feed(scene.mic, scene.ref);
    const auto level =
        erle_db(part(scene.mic, 100 * frame, out.size()), part(out, 100 * frame, out.size()));
    if (reference ? level < 6 : out != delayed(scene.mic, frame)) {
        state.SkipWithError("the canceller does not do its work");
    }
    const auto bytes = static_cast<uint32_t>(2 * frame);
    size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(qel_aec_feed_data(canceller.get(), &scene.mic[at], bytes,
                                                   &scene.ref[at], bytes, 0, nullptr));
        at = (at + frame) % scene.mic.size();
    }
    state.counters["s_per_audio_s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * frame) / kRate,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void processed_frame(benchmark::State& state) {
    feed(state, {.frame = static_cast<int>(state.range(0))}, true);
}
void linear_frame(benchmark::State& state) {
    feed(state, {.frame = static_cast<int>(state.range(0)), .nlp = false}, true);
}
void bypassed_frame(benchmark::State& state) {
    feed(state, {.frame = static_cast<int>(state.range(0))}, false);
}

/// Two transforms forward and one back, nothing else: what the fastest canceller of this kind would
/// have to spend with that library.
void fftw_transforms_of_a_frame(benchmark::State& state) {
    const int n = 2 * static_cast<int>(state.range(0));
    std::vector<float> time(static_cast<size_t>(n));
    std::vector<fftwf_complex> spec(static_cast<size_t>(n / 2 + 1));
    fftwf_plan forward = fftwf_plan_dft_r2c_1d(n, time.data(), spec.data(), FFTW_MEASURE);
    fftwf_plan back = fftwf_plan_dft_c2r_1d(n, spec.data(), time.data(), FFTW_MEASURE);
    for (auto _ : state) {
        fftwf_execute(forward);
        fftwf_execute(forward);
        fftwf_execute(back);
        for (float& x : time) x = 0.5f;  // what is fed back would grow without bound
        benchmark::ClobberMemory();
    }
    fftwf_destroy_plan(forward);
    fftwf_destroy_plan(back);
}

BENCHMARK(processed_frame)->Arg(512)->Arg(160)->Arg(1024);
BENCHMARK(linear_frame)->Arg(512);
BENCHMARK(bypassed_frame)->Arg(512);
BENCHMARK(fftw_transforms_of_a_frame)->Arg(512)->Arg(160)->Arg(1024);

}  // namespace
