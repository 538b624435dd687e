// Keeps the numbers of a frame out of the subnormal range, where some processors take a hundred
// times as long and where values that decay would stay for ever.
#pragma once

#include <cstdint>

namespace qel {

/// For its lifetime the processor takes subnormal numbers for zero and makes none; then the
/// caller's floating-point mode and exception flags are back. Cheap to nest. Where a processor
/// cannot do it (or does nothing else), it does nothing.
class FlushSubnormals {
  public:
    FlushSubnormals() : before_(read_mode()) {
        if (changes()) write_mode(before_ | kFlush);
    }
    ~FlushSubnormals() {
        if (changes()) write_mode(before_);
    }
    FlushSubnormals(const FlushSubnormals&) = delete;
    FlushSubnormals& operator=(const FlushSubnormals&) = delete;

  private:
    // The memory clobber holds loads and stores, and with them the arithmetic on what is loaded, on
    // their side of the change.
#if defined(__SSE2_MATH__)
    using Mode = uint32_t;
    static constexpr Mode kFlush = 0x8040;  // MXCSR: flush to zero, denormals are zeros
    static Mode read_mode() {
        Mode mode;
        asm volatile("stmxcsr %0" : "=m"(mode));
        return mode;
    }
    static void write_mode(Mode mode) { asm volatile("ldmxcsr %0" : : "m"(mode) : "memory"); }
#elif defined(__aarch64__)
    using Mode = uint64_t;
    static constexpr Mode kFlush = 1u << 24;  // FPCR.FZ; above FPCR come FPSR's flags
    static Mode read_mode() {
        uint64_t control, status;
        asm volatile("mrs %0, fpcr\n\tmrs %1, fpsr" : "=r"(control), "=r"(status));
        return control | status << 32;
    }
    static void write_mode(Mode mode) {
        const uint64_t control = mode & UINT32_MAX, status = mode >> 32;
        asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" : : "r"(control), "r"(status) : "memory");
    }
#elif defined(__arm__) && defined(__ARM_FP) && !defined(__SOFTFP__)
    using Mode = uint32_t;
    static constexpr Mode kFlush = 1u << 24;  // FPSCR.FZ; NEON flushes in any case
    static Mode read_mode() {
        Mode mode;
        asm volatile("vmrs %0, fpscr" : "=r"(mode));
        return mode;
    }
    static void write_mode(Mode mode) {
        asm volatile("vmsr fpscr, %0" : : "r"(mode) : "memory", "cc");
    }
#else
    using Mode = uint32_t;
    static constexpr Mode kFlush = 0;
    static Mode read_mode() { return 0; }
    static void write_mode(Mode) {}
#endif

    bool changes() const { return (before_ & kFlush) != kFlush; }

    const Mode before_;
};

}  // namespace qel
