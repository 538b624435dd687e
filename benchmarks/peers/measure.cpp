#include "benchmarks/peers/measure.hpp"

#include <time.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr double kSlice = 2e5;  // ns that a slice lasts at least, but for what runs longer at once
constexpr size_t kFewest = 9, kMost = 401;  // rounds

double now(clockid_t clock = CLOCK_THREAD_CPUTIME_ID) {
    timespec t;
    clock_gettime(clock, &t);
    return 1e9 * static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec);
}

/// Nanoseconds of `calls` calls.
double time_of(const Work& work, int calls) {
    const double start = now();
    for (int i = 0; i < calls; ++i) work.run();
    return now() - start;
}

/// How many calls fill a slice.
int calls_of(const Work& work) {
    int calls = 1;
    while (time_of(work, calls) < kSlice && calls < 1 << 20) calls *= 2;
    return calls;
}

double quantile(std::vector<double> x, double share) {
    const auto at = static_cast<ptrdiff_t>(share * static_cast<double>(x.size() - 1) + 0.5);
    std::nth_element(x.begin(), x.begin() + at, x.end());
    return x[static_cast<size_t>(at)];
}

double spread(const std::vector<double>& x) {
    return (quantile(x, 0.75) - quantile(x, 0.25)) / quantile(x, 0.5);
}

/// The nanoseconds of a unit, by work and round.
std::vector<std::vector<double>> rounds_of(const std::vector<Work>& works, double seconds) {
    std::vector<int> calls;
    for (const Work& work : works) calls.push_back(calls_of(work));
    std::vector<std::vector<double>> times(works.size());
    const double end = now(CLOCK_MONOTONIC) + 1e9 * seconds;
    const auto goes_on = [end](size_t round) {
        return round < kFewest || (round < kMost && now(CLOCK_MONOTONIC) < end);
    };
    for (size_t round = 0; goes_on(round); ++round) {
        for (size_t i = 0; i < works.size(); ++i) {
            // Every other round backwards, so that nobody always follows the same neighbour.
            const size_t at = round % 2 == 0 ? i : works.size() - 1 - i;
            times[at].push_back(time_of(works[at], calls[at]) / (calls[at] * works[at].units));
        }
    }
    return times;
}

}  // namespace

void compare(const Work& first, const std::vector<std::pair<std::string, Work>>& others,
             double seconds) {
    std::vector<Work> works = {first};
    for (const auto& [name, work] : others) works.push_back(work);
    const auto times = rounds_of(works, seconds);
    for (size_t i = 1; i < works.size(); ++i) {
        std::vector<double> ratios;
        for (size_t k = 0; k < times[0].size(); ++k) ratios.push_back(times[0][k] / times[i][k]);
        std::printf("against\t%s\t%.4g\t%.4g\t%.4g\t%.3f\n", others[i - 1].first.c_str(),
                    quantile(times[i], 0.5), quantile(times[0], 0.5), quantile(ratios, 0.5),
                    spread(ratios));
    }
    std::fflush(stdout);
}

void cost(const std::vector<std::pair<std::string, Work>>& named, double seconds) {
    std::vector<Work> works;
    for (const auto& [name, work] : named) works.push_back(work);
    const auto times = rounds_of(works, seconds);
    for (size_t i = 0; i < works.size(); ++i)
        std::printf("cost\t%s\t%.4g\t%.3f\n", named[i].first.c_str(), quantile(times[i], 0.5),
                    spread(times[i]));
    std::fflush(stdout);
}

double least_time(const Work& work) {
    const int calls = calls_of(work);
    double least = time_of(work, calls);
    for (int i = 0; i < 20; ++i) least = std::min(least, time_of(work, calls));
    return least / (calls * work.units);
}

void refuse(const std::string& why) {
    std::printf("wrong\t%s\n", why.c_str());
    std::exit(1);
}
