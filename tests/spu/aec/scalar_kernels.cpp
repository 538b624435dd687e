// The canceller's kernels once more, as the plain loops that they read as: the build turns
// vectorisation off for this file, and divisions and roots are the processor's.
#define QEL_SCALAR
#define kernels scalar_kernels
#include "qel/spu/aec/kernels/kernels.cpp"
#include "qel/spu/aec/kernels/tracking.cpp"
#include "tests/spu/aec/kernel_calls.hpp"

const std::vector<KernelCall> scalar_calls = calls;
