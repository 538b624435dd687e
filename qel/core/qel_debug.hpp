// The log inside the library: lines for the user's eyes, and its step of unloading.
#pragma once

#include "qel/core/qel_debug.h"

// An explanation with the caller's function and line; see QEL_LOG for `kSource`.
#define QEL_EXPLAIN(...) qel::explain(kSource, __func__, __LINE__, __VA_ARGS__)

namespace qel {

/// Writes one WARNING line for whoever set the system up, never on standard output, which belongs
/// to the host: to the stream that the application logs to, else to standard error.
void explain(const char* file, const char* func, int32_t line, const char* format, ...)
    QEL_PRINTF(4, 5);

}  // namespace qel

/// Closes the stream that the application set, unless it is standard output.
void _g_debug_close_default_logfp();
