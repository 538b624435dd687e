// Why the last call failed, as text, for callers who get a null pointer and no more.
#pragma once

#include "qel/core/qel_export.h"

namespace qel {

/// Keeps a printf-style text, cut to 511 bytes, as the last reason of the process.
void set_reason(const char* format, ...) QEL_PRINTF(1, 2);

/// The text kept last, "" before the first; readable while 15 more are set, from any thread.
const char* last_reason();

}  // namespace qel
