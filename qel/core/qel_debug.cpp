// The log: destination, level mask, line header and date lines.
#include "qel/core/qel_debug.h"

#include <sys/time.h>

#include <cstdarg>
#include <cstring>
#include <ctime>

#include "qel/core/qel_debug.hpp"

namespace {

// Level names in the order of their bits, of which a line shows the first letter, then the colours.
constexpr const char* kNames[16] = {
    "ERROR",        "WARNING",      "NOTICE",       "INFO",         "DEBUG",        "DEBUG1",
    "DEBUG2",       "DEBUG3",       "\033[1;1;30m", "\033[1;1;31m", "\033[1;1;32m", "\033[1;1;33m",
    "\033[1;1;34m", "\033[1;1;35m", "\033[1;1;36m", "\033[1;1;37m",
};
constexpr int32_t kFirstColour = 8;
constexpr char kResetColour[] = "\033[0m";

struct Date {
    int16_t year, month, day;
    bool operator==(const Date&) const = default;
};

uint16_t level_mask = QEL_LOG_ERROR | QEL_LOG_WARNING | QEL_LOG_NOTICE | QEL_LOG_INFO;
FILE* log_stream = nullptr;  // null: standard output
Date last_date = {};

/// Combined bits go through the same table as single ones: 0x03 shows as an error. What lies
/// beyond the table shows as a debug level.
const char* level_name(uint16_t level) {
    constexpr uint8_t kIndex[9] = {0, 0, 1, 0, 2, 0, 0, 0, 3};
    if (level <= 8) return kNames[kIndex[level]];
    const uint32_t high = level >> 4;
    return kNames[4 + (high <= 8 ? kIndex[high] : 0)];
}

void write_header(FILE* out, uint16_t level, const char* file, const char* func, int32_t line) {
    timeval now;
    gettimeofday(&now, nullptr);
    tm local;
    localtime_r(&now.tv_sec, &local);

    const Date today = {static_cast<int16_t>(local.tm_year + 1900),
                        static_cast<int16_t>(local.tm_mon + 1),
                        static_cast<int16_t>(local.tm_mday)};
    if (today != last_date) {
        fprintf(out, "================= %d-%02d-%02d =================\n", today.year, today.month,
                today.day);
        last_date = today;
    }
    const char* slash = strrchr(file, '/');
    fprintf(out, "%02d:%02d:%02d.%06d [%.1s] %s:%s:%d: ", local.tm_hour, local.tm_min, local.tm_sec,
            static_cast<int>(now.tv_usec), level_name(level), slash ? slash + 1 : file, func, line);
}

}  // namespace

void qel_debug_log(uint32_t level, const char* file, const char* func, int32_t line,
                   const char* format, ...) {
    FILE* out = log_stream ? log_stream : stdout;
    const uint16_t bits = static_cast<uint16_t>(level);
    if (bits != QEL_LOG_ALWAYS) {
        if ((level_mask & bits) == 0) return;
        write_header(out, bits, file, func, line);
    }
    va_list args;
    va_start(args, format);
    vfprintf(out, format, args);
    va_end(args);
    fputc('\n', out);
    fflush(out);
}

// The replaced stream stays open: it belongs to whoever opened it.
void qel_debug_set_log_fp(FILE* stream) { log_stream = stream; }

void qel_debug_set_log_fn(const char* path) {
    if (FILE* stream = fopen(path, "ab")) qel_debug_set_log_fp(stream);
}

void qel_debug_set_level(uint32_t mask) { level_mask = static_cast<uint16_t>(mask); }

uint32_t qel_debug_enable_level(uint32_t bits) {
    level_mask = static_cast<uint16_t>(level_mask | bits);
    return level_mask;
}

uint32_t qel_debug_disable_level(uint32_t bits) {
    // An exclusive-or with all of `bits`, as callers pass bits that are set.
    if (level_mask & bits) level_mask = static_cast<uint16_t>(level_mask ^ bits);
    return level_mask;
}

void qel_debug_console_color(int32_t colour, const char* format, ...) {
    if (colour >= 0 && colour < 8) fputs(kNames[kFirstColour + colour], stdout);
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    printf("%s\n", kResetColour);
    fflush(stdout);
}

void _g_debug_close_default_logfp() {
    if (log_stream && log_stream != stdout) fclose(log_stream);
    log_stream = nullptr;  // whatever is still logged goes to standard output
}
