// How far a long job is, on standard error: one line that changes on a terminal, else lines.
#pragma once

#include <unistd.h>

#include <cstdio>

namespace app {

class Progress {
  public:
    /// Jobs of less than a minute of audio are over before anybody wonders.
    Progress(const char* job, double seconds) : job_(job), shown_(seconds >= 60 ? 0 : 10) {}

    void show(double part) {
        const int tenths = static_cast<int>(10 * part);
        if (tenths <= shown_) return;
        shown_ = tenths;
        const bool terminal = isatty(STDERR_FILENO) != 0;
        std::fprintf(stderr, "%s%s: %3d %%%s", terminal ? "\r" : "", job_, 10 * tenths,
                     terminal && tenths < 10 ? "" : "\n");
    }

  private:
    const char* job_;
    int shown_;  // tenths
};

}  // namespace app
