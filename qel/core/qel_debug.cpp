// The log: destination, level mask, line header and date lines.
#include "qel/core/qel_debug.h"

#include <sys/time.h>
#include <unistd.h>

#include <atomic>
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

// Atomic, for several threads may log; a line is kept whole by its stream's own lock.
std::atomic<uint16_t> level_mask = QEL_LOG_ERROR | QEL_LOG_WARNING | QEL_LOG_NOTICE | QEL_LOG_INFO;
std::atomic<FILE*> log_stream = nullptr;  // null: standard output
std::atomic<uint32_t> last_date = 0;      // of the last date line: year, month and day in one

/// Combined bits go through the same table as single ones: 0x03 shows as an error. What lies
/// beyond the table shows as a debug level.
const char* level_name(uint16_t level) {
    constexpr uint8_t kIndex[9] = {0, 0, 1, 0, 2, 0, 0, 0, 3};
    if (level <= 8) return kNames[kIndex[level]];
    const uint32_t high = level >> 4;
    return kNames[4 + (high <= 8 ? kIndex[high] : 0)];
}

/// The date line of a day's first log line.
void write_date(FILE* out, const tm& local) {
    const int32_t year = local.tm_year + 1900, month = local.tm_mon + 1;
    const auto today = static_cast<uint32_t>(year << 16 | month << 8 | local.tm_mday);
    if (last_date.exchange(today) == today) return;
    fprintf(out, "================= %d-%02d-%02d =================\n", year, month, local.tm_mday);
}

/// Writes one line; its header and the date line before it are left out for level 0, the date line
/// also where `dated` is false.
void write_line(FILE* out, uint16_t level, bool dated, const char* file, const char* func,
                int32_t line, const char* format, va_list args) {
    flockfile(out);
    if (level != QEL_LOG_ALWAYS) {
        timeval now;
        gettimeofday(&now, nullptr);
        tm local;
        localtime_r(&now.tv_sec, &local);
        if (dated) write_date(out, local);
        const char* slash = strrchr(file, '/');
        fprintf(out, "%02d:%02d:%02d.%06d [%.1s] %s:%s:%d: ", local.tm_hour, local.tm_min,
                local.tm_sec, static_cast<int>(now.tv_usec), level_name(level),
                slash ? slash + 1 : file, func, line);
    }
    vfprintf(out, format, args);
    fputc('\n', out);
    fflush(out);
    funlockfile(out);
}

}  // namespace

void qel_debug_log(uint32_t level, const char* file, const char* func, int32_t line,
                   const char* format, ...) {
    const uint16_t bits = static_cast<uint16_t>(level);
    if (bits != QEL_LOG_ALWAYS && (level_mask & bits) == 0) return;
    FILE* stream = log_stream;
    va_list args;
    va_start(args, format);
    write_line(stream ? stream : stdout, bits, true, file, func, line, format, args);
    va_end(args);
}

void qel::explain(const char* file, const char* func, int32_t line, const char* format, ...) {
    if ((level_mask & QEL_LOG_WARNING) == 0) return;
    FILE* stream = log_stream;
    const bool applications = stream && fileno(stream) != STDOUT_FILENO;
    va_list args;
    va_start(args, format);
    // No date line on standard error: the log's own first line is to have it still.
    write_line(applications ? stream : stderr, QEL_LOG_WARNING, applications, file, func, line,
               format, args);
    va_end(args);
}

// The replaced stream stays open: it belongs to whoever opened it.
void qel_debug_set_log_fp(FILE* stream) { log_stream = stream; }

void qel_debug_set_log_fn(const char* path) {
    if (FILE* stream = fopen(path, "ab")) qel_debug_set_log_fp(stream);
}

void qel_debug_set_level(uint32_t mask) { level_mask = static_cast<uint16_t>(mask); }

uint32_t qel_debug_enable_level(uint32_t bits) { return level_mask |= static_cast<uint16_t>(bits); }

uint32_t qel_debug_disable_level(uint32_t bits) {
    // An exclusive-or with all of `bits`, as callers pass bits that are set.
    return level_mask & bits ? level_mask ^= static_cast<uint16_t>(bits) : level_mask.load();
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
    FILE* stream = log_stream.exchange(nullptr);  // what is still logged goes to standard output
    if (stream && stream != stdout) fclose(stream);
}
