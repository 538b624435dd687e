// Complex products of the adaptive filter in SIMD registers: each call handles as many bins as fill
// whole ones and returns their number. The caller's loop, which is the definition, does the rest;
// without NEON, all. Results equal the loop's but for subnormals, which ARMv7's NEON flushes.
#pragma once

#include <cstdint>

namespace qel::neon {

#ifdef QEL_NEON
int32_t add_products(float* dst, const float* a, const float* b, int32_t bins);
int32_t add_conj_products(float* dst, float mu, const float* g, const float* x, int32_t bins);
#else
inline int32_t add_products(float*, const float*, const float*, int32_t) { return 0; }
inline int32_t add_conj_products(float*, float, const float*, const float*, int32_t) { return 0; }
#endif

}  // namespace qel::neon
