// Times pieces of work side by side: in turn, in slices, by the processor time of this thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

/// Something to time. Its time is told for one unit of work, of which run() does `units`.
struct Work {
    std::function<void()> run;
    double units = 1;
};

/// Times all works in turn, in as many rounds as `seconds` of the clock on the wall have room for,
/// and prints a line for each but the first:
///   against NAME NS NS_OF_FIRST RATIO SPREAD
/// with medians over the rounds, a unit's nanoseconds, and as ratio the first's time over its own
/// in the same round. The spread is the distance of the ratios' quartiles, as a share of the
/// median.
void compare(const Work& first, const std::vector<std::pair<std::string, Work>>& others,
             double seconds);

/// Times works in turn and prints a line for each: cost NAME NS SPREAD.
void cost(const std::vector<std::pair<std::string, Work>>& works, double seconds);

/// The least nanoseconds of a unit in a few slices.
double least_time(const Work& work);

/// Ends the program with a line that says why: a result was wrong.
[[noreturn]] void refuse(const std::string& why);
inline void check(bool right, const std::string& what) {
    if (!right) refuse(what);
}
