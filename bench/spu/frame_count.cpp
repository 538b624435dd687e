// Runs frames of 512 samples through a canceller, for tools/count_instructions to count what one
// executes: frame_count processed|bypassed c|neon FRAMES.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/qel_vector.h"
#include "qel/spu/aec/qel_aec.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::puts("usage: frame_count processed|bypassed c|neon FRAMES");
        return 2;
    }
    qel_fft_init_generic();
    qel_vector_init_generic();
    if (std::string_view(argv[2]) == "neon") {
        qel_fft_init_neon();
        qel_vector_init_neon();
    }
    // The same noise for any number of frames: what makes it is not to be counted.
    static std::array<int16_t, 16 * 512> mic, ref;
    uint32_t noise = 1;
    for (size_t i = 0; i < mic.size(); ++i) {
        noise = 1664525 * noise + 1013904223;
        ref[i] = std::string_view(argv[1]) == "processed" ? static_cast<int16_t>(noise >> 18) : 0;
        mic[i] = static_cast<int16_t>(ref[i] / 2 + static_cast<int8_t>(noise >> 24));
    }

    qel_aec_cfg cfg;
    qel_aec_cfg_init(&cfg);
    cfg.use_vad = 1;
    cfg.mute.mute_time = 0;
    qel_aec_cfg_update(&cfg, nullptr);
    qel_aec* aec = qel_aec_new(&cfg);
    if (!aec) return 2;
    for (int frame = 0; frame < std::atoi(argv[3]); ++frame) {
        const size_t at = static_cast<size_t>(frame) % 16 * 512;
        qel_aec_feed_data(aec, &mic[at], 1024, &ref[at], 1024, 0, nullptr);
    }
    qel_aec_delete(aec);
    qel_aec_cfg_clean(&cfg);
    return 0;
}
