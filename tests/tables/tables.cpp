// The operation tables, which loading the library fills in a program that has it.
#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/qel_vector.h"

[[maybe_unused]] static const bool kReady = (qel_fft_init_module(), qel_vector_init_module(), true);
