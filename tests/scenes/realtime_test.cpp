// The steady frame step keeps away from everything that may block: memory, streams, the kernel.
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/support/canceller.hpp"
#include "tests/support/failing_alloc.hpp"

namespace {

/// From here on any system call of this thread but the end of the process kills the process. So
/// does waiting for a standard stream, for another thread keeps them locked.
bool forbid_system_calls() {
    static std::atomic<bool> locked = false;
    std::thread([] {
        for (FILE* stream : {stdout, stderr}) flockfile(stream);
        for (locked = true;;) pause();
    }).detach();
    while (!locked) std::this_thread::yield();
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const sock_fprog program = {std::size(filter), filter};
#ifdef __SANITIZE_ADDRESS__
    return true;  // the sanitizer has calls of its own
#endif
    if (prctl(PR_GET_SECCOMP) < 0) return true;  // an emulator has no such filter
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// Feeds frame by frame, from the very first one, and ends the process: with 0 if nothing was
/// forbidden. What remains is the lock that rand() takes for comfort noise, free in this process.
[[noreturn]] void feed_confined(Canceller& canceller, const Pcm& mic, const Pcm& ref, size_t n) {
    if (!forbid_system_calls()) _exit(2);
    const FailingAlloc count(INT64_MAX, 0);
    for (size_t at = 0; at + n <= mic.size(); at += n) {
        const auto bytes = static_cast<uint32_t>(2 * n);
        qel_aec_feed_data(canceller.get(), &mic[at], bytes, &ref[at], bytes, 0, nullptr);
    }
    const qel_aec_stats s = canceller.stats();
    _exit(FailingAlloc::count() == 0 && s.bypassed > 0 && s.muted > 0 && s.processed > 0 ? 0 : 1);
}

TEST(RealTime, AFrameNeedsNoMemoryNoStreamAndNoSystemCall) {
    const Pcm mic = to_pcm(white_noise(1, 160000, 9000));
    Pcm ref = mic;
    std::fill_n(ref.begin(), 10240, int16_t{0});
    for (const char* tracking : {static_cast<const char*>(nullptr), "KRAN"}) {
        for (const int frame : {160, 512, 2048}) {
            Canceller canceller({.frame = frame, .tracking = tracking}, with_mute);
            EXPECT_EXIT(feed_confined(canceller, mic, ref, static_cast<size_t>(frame)),
                        testing::ExitedWithCode(0), "");
        }
    }
}

}  // namespace
