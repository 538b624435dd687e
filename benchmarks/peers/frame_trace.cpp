// One piece of work a number of times between two marks, for tools/bench to count what an emulated
// processor executes: frame_trace processed|bypassed|r2c LENGTH TIMES [SWITCHES], the last those of
// the tracking mode, see AecSettings.
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "tests/support/canceller.hpp"

// Found in the trace by their names.
extern "C" {
[[gnu::noinline]] void work_starts() { asm volatile(""); }
[[gnu::noinline]] void work_ends() { asm volatile(""); }
}

namespace {

/// Noise at the loudspeaker, an echo of it and other noise at the microphone. Integers alone, since
/// each instruction of this is emulated and logged too.
struct Scene {
    Pcm mic, ref;
    Scene(size_t samples, bool sounding) : mic(samples), ref(samples) {
        uint32_t random = 1;
        const auto noise = [&random](int range) {
            random = random * 1664525 + 1013904223;
            return static_cast<int>(random >> 16) % range - range / 2;
        };
        for (size_t i = 0; i < samples; ++i) {
            if (sounding) ref[i] = static_cast<int16_t>(noise(8000));
            mic[i] = static_cast<int16_t>((i < 100 ? 0 : ref[i - 100] / 2) + noise(200));
        }
    }
};

/// Feeds frames until all histories are filled, then those that count.
void run_frames(bool sounding, size_t frame, size_t times, const char* switches) {
    constexpr size_t kBefore = 8;
    const Scene scene((kBefore + times) * frame, sounding);
    Canceller canceller({.frame = static_cast<int>(frame), .tracking = switches});
    const auto bytes = static_cast<uint32_t>(2 * frame);
    for (size_t i = 0; i < kBefore + times; ++i) {
        if (i == kBefore) work_starts();
        qel_aec_feed_data(canceller.get(), &scene.mic[i * frame], bytes, &scene.ref[i * frame],
                          bytes, 0, nullptr);
    }
    work_ends();
    const auto stats = canceller.stats();
    if ((sounding ? stats.bypassed : stats.processed) != 0) std::puts("frames took the other path");
}

void run_transforms(size_t points, size_t times) {
    qel_fft_init_module();
    auto* plan = qel_fft_alloc_r2c_float32(static_cast<int32_t>(points));
    std::vector<float> in(points);
    std::vector<qel_fft_cpx_float32> out(points / 2 + 1);
    for (size_t i = 0; i < points; ++i) in[i] = static_cast<float>(i % 100);
    work_starts();
    for (size_t i = 0; i < times; ++i) qel_fft_r2c_1d_float32(out.data(), in.data(), plan);
    work_ends();
    qel_fft_destroy_r2c_float32(plan);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4 && argc != 5) return 2;
    const std::string_view work = argv[1];
    const auto length = std::strtoul(argv[2], nullptr, 10);
    const auto times = std::strtoul(argv[3], nullptr, 10);
    if (work == "r2c") {
        run_transforms(length, times);
    } else {
        run_frames(work == "processed", length, times, argc == 5 ? argv[4] : nullptr);
    }
}
