// The log's step of unloading; qel_load.cpp runs it.
#pragma once

#include "qel/core/qel_debug.h"

/// Closes the stream that the application set, unless it is standard output.
void _g_debug_close_default_logfp();
