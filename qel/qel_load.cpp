// Loading and unloading: every module's step, in their fixed order.
#include "qel/core/qel_debug.hpp"
#include "qel/core/qel_version.hpp"
#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/qel_vector.h"
#include "qel/spu/aec/qel_aec.hpp"

namespace {

[[gnu::constructor]] void load() {
    _g_version_init();
    _g_module_core();
    _g_module_aec();
    _g_version_print();
    qel_fft_init_module();
    qel_vector_init_module();
}

[[gnu::destructor]] void unload() {
    _g_debug_close_default_logfp();
    _g_version_release();
}

}  // namespace
