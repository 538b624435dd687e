// Collects what the library logs, for tests to compare.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "qel/core/qel_debug.h"

/// Redirects the log into memory for its lifetime, then back to standard output.
class LogCapture {
  public:
    LogCapture() : stream_(open_memstream(&text_, &size_)) { qel_debug_set_log_fp(stream_); }
    ~LogCapture() {
        qel_debug_set_log_fp(nullptr);
        fclose(stream_);
        free(text_);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All lines so far, headers included.
    std::string text() const {
        fflush(stream_);
        return {text_, size_};
    }
    /// Whether `part` was logged: a message, or a piece of the header such as
    /// "[W] qel_string:qel_string_merge:".
    bool has(const std::string& part) const { return text().find(part) != std::string::npos; }

  private:
    char* text_ = nullptr;
    size_t size_ = 0;
    FILE* stream_;
};
