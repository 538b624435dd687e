// The log: one process-wide destination and level mask, printf-style lines with a fixed header.
#ifndef QEL_CORE_QEL_DEBUG_H
#define QEL_CORE_QEL_DEBUG_H

#include <stdint.h>
#include <stdio.h>

#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

// Levels are single bits of a 16-bit mask. The mask starts as 0x000F: ERROR to INFO.
enum {
    QEL_LOG_ALWAYS = 0x00,  // no filtering, no header: the bare message and a newline
    QEL_LOG_ERROR = 0x01,
    QEL_LOG_WARNING = 0x02,
    QEL_LOG_NOTICE = 0x04,
    QEL_LOG_INFO = 0x08,
    QEL_LOG_DEBUG = 0x10,
    QEL_LOG_DEBUG1 = 0x20,
    QEL_LOG_DEBUG2 = 0x40,
    QEL_LOG_DEBUG3 = 0x80
};

/// Writes one line, "HH:MM:SS.uuuuuu [L] base:func:line: message", and flushes. The first line of
/// a calendar day is preceded by a date line. Only the low 16 bits of `level` count; of `file` the
/// part behind its last '/' is shown. Errors of the stream itself are ignored.
QEL_API void qel_debug_log(uint32_t level, const char* file, const char* func, int32_t line,
                           const char* format, ...) QEL_PRINTF(5, 6);

/// Makes `stream` the destination; null means standard output. The stream it replaces is not
/// closed; the last one set is, when the library is unloaded.
QEL_API void qel_debug_set_log_fp(FILE* stream);

/// Appends to the file `path` from now on. Changes nothing, silently, if it cannot be opened.
QEL_API void qel_debug_set_log_fn(const char* path);

/// Replaces the level mask; only the low 16 bits are kept.
QEL_API void qel_debug_set_level(uint32_t mask);

/// Adds `bits` to the mask and returns the new mask.
QEL_API uint32_t qel_debug_enable_level(uint32_t bits);

/// Exclusive-ors the whole of `bits` into the mask if any of them is set, else does nothing;
/// returns the new mask. So pass bits that are all set: a clear one among them is switched on.
QEL_API uint32_t qel_debug_disable_level(uint32_t bits);

/// Writes a coloured line to standard output, whatever the destination and mask of the log.
/// `colour` is 0 to 7: black, red, green, yellow, blue, magenta, cyan, white.
QEL_API void qel_debug_console_color(int32_t colour, const char* format, ...) QEL_PRINTF(2, 3);

QEL_END_DECLS

#endif
