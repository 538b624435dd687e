#include <stdint.h>

/* Cancels one frame of silence by the configuration file; the bytes that come back. */
uint32_t cancel_silence(const char* config);
