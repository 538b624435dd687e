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

/// Feeds a scene again and again, frame by frame, as a host does.
void run(benchmark::State& state, Canceller& canceller, const Scene& scene, size_t frame) {
    const auto bytes = static_cast<uint32_t>(2 * frame);
    size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(qel_aec_feed_data(canceller.get(), &scene.mic[at], bytes,
                                                   &scene.ref[at], bytes, 0, nullptr));
        at = (at + frame) % scene.mic.size();
    }
}

/// Times a scene of noise; counts the frames and the seconds of audio they stand for.
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
    run(state, canceller, scene, frame);
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

/// Frames of signals whose values might take longer than speech's, after a second of speech, every
/// one of them processed.
void frame_of(benchmark::State& state, double (*sample)(size_t i), double mic_share) {
    const Signal talk = speech(1, kRate, kRate, 2000);
    Signal x(100 * 512);
    for (size_t i = 0; i < x.size(); ++i) x[i] = sample ? sample(i) : talk[i % talk.size()];
    Signal mic = x;
    for (double& v : mic) v *= mic_share;
    const Scene scene = {to_pcm(mic), to_pcm(x)};
    Canceller canceller({.vad = false});
    canceller.feed(to_pcm(talk), to_pcm(talk));
    for (int i = 0; i < 20; ++i) canceller.feed(scene.mic, scene.ref);  // a minute: all has decayed
    run(state, canceller, scene, 512);
}
constexpr auto silence = [](size_t) { return 0.0; };
constexpr auto faint = [](size_t i) { return i * 2654435761u >> 31 & 1 ? 1.0 : 0.0; };
constexpr auto square = [](size_t i) { return i / 40 % 2 == 0 ? 32767.0 : -32768.0; };
constexpr auto one_side = [](size_t) { return 30000.0; };

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
BENCHMARK_CAPTURE(frame_of, speech, nullptr, 0.5);
BENCHMARK_CAPTURE(frame_of, silence, silence, 1);
BENCHMARK_CAPTURE(frame_of, faint_noise, faint, 1);
BENCHMARK_CAPTURE(frame_of, square, square, 0.5);
BENCHMARK_CAPTURE(frame_of, constant, one_side, 0.5);
BENCHMARK_CAPTURE(frame_of, constant_beside_a_silent_microphone, one_side, 0);
BENCHMARK(linear_frame)->Arg(512);
BENCHMARK(bypassed_frame)->Arg(512);
BENCHMARK(fftw_transforms_of_a_frame)->Arg(512)->Arg(160)->Arg(1024);

}  // namespace
