// What every fuzzer starts from: input taken apart, and a log that formats every line for nobody.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qel/core/qel_debug.h"

/// Stops the fuzzer with the input that broke a promise.
inline void require(bool promise, int line = __builtin_LINE()) {
    if (promise) return;
    fprintf(stderr, "a promise is broken: line %d\n", line);
    abort();
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    qel_debug_set_log_fn("/dev/null");
    qel_debug_set_level(0xffff);
    return freopen("/dev/null", "w", stdout) ? 0 : 1;  // libFuzzer itself writes to standard error
}
