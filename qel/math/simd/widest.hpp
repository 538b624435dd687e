// Builds a piece of code once for each vector width of the processor family and runs the widest.
#pragma once

// Marks what such a piece calls, and, behind a lambda's parameters, the piece itself: only inlined
// code is compiled for the width at hand.
#define QEL_KERNEL [[gnu::always_inline]] inline
#define QEL_INLINED __attribute__((always_inline))

namespace qel::simd {

#if defined(__x86_64__)
template <class Job>
[[gnu::target("avx512f")]] void run_avx512(Job job) {
    job();
}

template <class Job>
[[gnu::target("avx2")]] void run_avx2(Job job) {
    job();
}
#endif

/// Runs `job`, a lambda marked QEL_INLINED that takes nothing. It travels by value: what it
/// captured then cannot change by what it stores. Every width does the same arithmetic in the same
/// order: they differ in speed alone.
template <class Job>
void run_widest(Job job) {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f")) return run_avx512(job);
    if (__builtin_cpu_supports("avx2")) return run_avx2(job);
#endif
    job();
}

}  // namespace qel::simd
