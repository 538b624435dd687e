// Conversion of samples in SIMD registers: each call handles as many as fill whole ones and returns
// their number. The caller's loop, which is the definition, does the rest; without NEON, all.
#pragma once

#include <cstdint>

namespace qel::neon {

#ifdef QEL_NEON
int32_t from_samples(const int16_t* src, float* dst, int32_t n);
/// 32-bit samples at any address, shifted down by `shift` bits.
int32_t from_wide_samples(const void* src, int32_t shift, float* dst, int32_t n);
int32_t to_samples(const float* src, int16_t* dst, int32_t n);
#else
inline int32_t from_samples(const int16_t*, float*, int32_t) { return 0; }
inline int32_t from_wide_samples(const void*, int32_t, float*, int32_t) { return 0; }
inline int32_t to_samples(const float*, int16_t*, int32_t) { return 0; }
#endif

}  // namespace qel::neon
