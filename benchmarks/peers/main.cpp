// This library side by side with its peers, in one process: ./bench runs it and reads its lines.
//   vectors NAME                            the widest vectors of the processor
//   against NAME NS NS_OF_OURS RATIO SPREAD
//   cost NAME NS SPREAD
//   bytes NAME COUNT
//   reduction WHOSE DB                      how far the scene's echo came down
//   wrong WHAT                              and it ends: nothing is timed that is not right
#include <cstdio>

#include "benchmarks/peers/elementary.hpp"
#include "benchmarks/peers/frames.hpp"
#include "benchmarks/peers/transforms.hpp"
#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/qel_vector.h"

int main() {
    qel_fft_init_module();
    qel_vector_init_module();
#if defined(__x86_64__)
    std::printf("vectors\t%s\n", __builtin_cpu_supports("avx512f") ? "AVX-512"
                                 : __builtin_cpu_supports("avx2")  ? "AVX2"
                                                                   : "SSE2");
#endif
    for (const FftKind kind : {FftKind::kR2c, FftKind::kC2r})
        for (const size_t n : {256, 512, 1024, 2048, 4096}) compare_transform(kind, n);
    for (const size_t n : {512, 1024, 24, 120, 1000}) compare_transform(FftKind::kC2c, n);
    compare_canceller();
    compare_signals();
    compare_tracking();
    compare_instances();
    print_memory();
    compare_elementary();
    cost_by_settings();
}
