// Builds a piece of code once for each vector width of the processor family and runs the widest.
#pragma once

// Marks what such a piece calls, and, behind a lambda's parameters, the piece itself: only inlined
// code is compiled for the width at hand.
#define QEL_KERNEL [[gnu::always_inline]] inline
#define QEL_INLINED __attribute__((always_inline))

// Before a loop: what it stores in one round, no other round reads; eight rounds at a time.
#if defined(__clang__)
#define QEL_UNROLLED _Pragma("clang loop unroll_count(8)")
#define QEL_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#define QEL_AVX512 "avx512f"
#else
#define QEL_AVX512 "avx512f,prefer-vector-width=512"
#define QEL_UNROLLED _Pragma("GCC unroll 8")
#define QEL_INDEPENDENT _Pragma("GCC ivdep")
#endif

namespace qel::simd {

/// The widths of x86 beside that of the baseline; any other family has the baseline alone.
enum class Width { kBaseline, kAvx2, kAvx512 };

/// The widest one that the processor has.
inline Width widest() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f")) return Width::kAvx512;
    if (__builtin_cpu_supports("avx2")) return Width::kAvx2;
#endif
    return Width::kBaseline;
}

#if defined(__x86_64__)
template <class Job>
[[gnu::target(QEL_AVX512)]] void run_avx512(Job job) {
    job();
}

template <class Job>
[[gnu::target("avx2")]] void run_avx2(Job job) {
    job();
}
#endif

/// Runs `job`, a lambda marked QEL_INLINED that takes nothing, at a width that the processor has.
/// It travels by value: what it captured then cannot change by what it stores. Every width does the
/// same arithmetic in the same order: they differ in speed alone.
template <class Job>
void run_at([[maybe_unused]] Width width, Job job) {
#if defined(__x86_64__)
    if (width == Width::kAvx512) return run_avx512(job);
    if (width == Width::kAvx2) return run_avx2(job);
#endif
    job();
}

/// Runs it at the widest one.
template <class Job>
void run_widest(Job job) {
    run_at(widest(), job);
}

}  // namespace qel::simd
