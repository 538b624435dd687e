// Where the time of a processed frame goes: frame_profile SECONDS interrupts itself by a timer and
// prints the call chain at each interruption, addresses from main() inwards, for ./bench to name.
#include <execinfo.h>
#include <signal.h>
#include <sys/time.h>
#include <ucontext.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "tests/support/canceller.hpp"
#include "tests/support/signals.hpp"

namespace {

constexpr int kRate = 16000;
constexpr size_t kFrame = 512, kFrames = 400;
constexpr int kInterval = 499;   // microseconds
constexpr time_t kLongest = 15;  // seconds, where others use the processor too

struct Sample {
    std::array<void*, 40> chain;  // the innermost first
    int first, end;               // what lies before is the handler's own
};
std::array<Sample, 20000> samples;
volatile size_t taken = 0;

/// Keeps the chain from where the program was interrupted.
void take(int, siginfo_t*, void* context) {
    if (taken == samples.size()) return;
    Sample& sample = samples[taken];
    auto& chain = sample.chain;
    sample.end = backtrace(chain.data(), static_cast<int>(chain.size()));
    const auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    void* const at = reinterpret_cast<void*>(registers[REG_RIP]);
    sample.first = 0;
    while (sample.first < sample.end && chain[static_cast<size_t>(sample.first)] != at)
        ++sample.first;
    taken = taken + 1;
}

void set_timer(int microseconds) {
    const itimerval every = {{0, microseconds}, {0, microseconds}};
    setitimer(ITIMER_REAL, &every, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    const size_t wanted =
        static_cast<size_t>((argc > 1 ? std::atof(argv[1]) : 4) * 1e6 / kInterval);
    const Signal ref = speech(1, kFrames * kFrame, kRate, 2000);
    const Pcm far = to_pcm(ref);
    const Pcm mic =
        to_pcm(echo(ref, 1e9, room_response(3, 0.01, 0.1, kRate)) + white_noise(2, ref.size(), 30));
    Canceller canceller;
    canceller.feed(mic, far);

    void* here[1];
    backtrace(here, 1);  // the first call loads a library
    struct sigaction action = {};
    action.sa_sigaction = take;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    const time_t latest = time(nullptr) + kLongest;
    set_timer(kInterval);
    for (size_t at = 0; taken < std::min(wanted, samples.size()) && time(nullptr) < latest;
         at = (at + kFrame) % mic.size())
        qel_aec_feed_data(canceller.get(), &mic[at], 2 * kFrame, &far[at], 2 * kFrame, 0, nullptr);
    set_timer(0);

    for (size_t i = 0; i < taken; ++i) {
        const auto& [chain, inner, end] = samples[i];
        // Behind a call stands the address after it; one less is inside.
        for (int k = end - 1; k >= inner; --k)
            std::printf("%zx ", reinterpret_cast<size_t>(chain[static_cast<size_t>(k)]) -
                                    (k > inner ? 1 : 0));
        std::puts("");
    }
}
