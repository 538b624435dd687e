// The dispatch table, its initialisation, and the real plan of a run-time type.
#include "qel/math/fft/qel_fft.h"

#include "qel/math/fft/qel_fft_neon.h"

namespace {

bool initialised = false;

}  // namespace

decltype(qel_fft_alloc_c2c_float32) qel_fft_alloc_c2c_float32 = nullptr;
decltype(qel_fft_alloc_c2c_int32) qel_fft_alloc_c2c_int32 = nullptr;
decltype(qel_fft_alloc_c2c_int16) qel_fft_alloc_c2c_int16 = nullptr;
decltype(qel_fft_alloc_r2c_float32) qel_fft_alloc_r2c_float32 = nullptr;
decltype(qel_fft_alloc_r2c_int32) qel_fft_alloc_r2c_int32 = nullptr;
decltype(qel_fft_alloc_r2c_int16) qel_fft_alloc_r2c_int16 = nullptr;
decltype(qel_fft_destroy_c2c_float32) qel_fft_destroy_c2c_float32 = nullptr;
decltype(qel_fft_destroy_c2c_int32) qel_fft_destroy_c2c_int32 = nullptr;
decltype(qel_fft_destroy_c2c_int16) qel_fft_destroy_c2c_int16 = nullptr;
decltype(qel_fft_destroy_r2c_float32) qel_fft_destroy_r2c_float32 = nullptr;
decltype(qel_fft_destroy_r2c_int32) qel_fft_destroy_r2c_int32 = nullptr;
decltype(qel_fft_destroy_r2c_int16) qel_fft_destroy_r2c_int16 = nullptr;
decltype(qel_fft_c2c_1d_float32) qel_fft_c2c_1d_float32 = nullptr;
decltype(qel_fft_r2c_1d_float32) qel_fft_r2c_1d_float32 = nullptr;
decltype(qel_fft_c2r_1d_float32) qel_fft_c2r_1d_float32 = nullptr;
decltype(qel_fft_c2c_1d_int32) qel_fft_c2c_1d_int32 = nullptr;
decltype(qel_fft_r2c_1d_int32) qel_fft_r2c_1d_int32 = nullptr;
decltype(qel_fft_c2r_1d_int32) qel_fft_c2r_1d_int32 = nullptr;
decltype(qel_fft_c2c_1d_int16) qel_fft_c2c_1d_int16 = nullptr;
decltype(qel_fft_r2c_1d_int16) qel_fft_r2c_1d_int16 = nullptr;
decltype(qel_fft_c2r_1d_int16) qel_fft_c2r_1d_int16 = nullptr;

void qel_fft_init_module(void) {
    if (initialised) return;
    qel_fft_init_generic();
    qel_fft_init_neon();
    initialised = true;
}

void qel_fft_init_generic(void) {
    qel_fft_alloc_c2c_float32 = qel_fft_alloc_c2c_float32_c;
    qel_fft_alloc_c2c_int32 = qel_fft_alloc_c2c_int32_c;
    qel_fft_alloc_c2c_int16 = qel_fft_alloc_c2c_int16_c;
    qel_fft_alloc_r2c_float32 = qel_fft_alloc_r2c_float32_c;
    qel_fft_alloc_r2c_int32 = qel_fft_alloc_r2c_int32_c;
    qel_fft_alloc_r2c_int16 = qel_fft_alloc_r2c_int16_c;
    qel_fft_destroy_c2c_float32 = qel_fft_destroy_c2c_float32_c;
    qel_fft_destroy_c2c_int32 = qel_fft_destroy_c2c_int32_c;
    qel_fft_destroy_c2c_int16 = qel_fft_destroy_c2c_int16_c;
    qel_fft_destroy_r2c_float32 = qel_fft_destroy_r2c_float32_c;
    qel_fft_destroy_r2c_int32 = qel_fft_destroy_r2c_int32_c;
    qel_fft_destroy_r2c_int16 = qel_fft_destroy_r2c_int16_c;
    qel_fft_c2c_1d_float32 = qel_fft_c2c_1d_float32_c;
    qel_fft_r2c_1d_float32 = qel_fft_r2c_1d_float32_c;
    qel_fft_c2r_1d_float32 = qel_fft_c2r_1d_float32_c;
    qel_fft_c2c_1d_int32 = qel_fft_c2c_1d_int32_c;
    qel_fft_r2c_1d_int32 = qel_fft_r2c_1d_int32_c;
    qel_fft_c2r_1d_int32 = qel_fft_c2r_1d_int32_c;
    qel_fft_c2c_1d_int16 = qel_fft_c2c_1d_int16_c;
    qel_fft_r2c_1d_int16 = qel_fft_r2c_1d_int16_c;
    qel_fft_c2r_1d_int16 = qel_fft_c2r_1d_int16_c;
}

void qel_fft_init_neon(void) {
#ifdef QEL_NEON  // the build has the NEON variants
    qel_fft_alloc_c2c_float32 = qel_fft_alloc_c2c_float32_neon;
    qel_fft_alloc_c2c_int32 = qel_fft_alloc_c2c_int32_neon;
    qel_fft_alloc_c2c_int16 = qel_fft_alloc_c2c_int16_neon;
    qel_fft_destroy_c2c_float32 = qel_fft_destroy_c2c_float32_neon;
    qel_fft_destroy_c2c_int32 = qel_fft_destroy_c2c_int32_neon;
    qel_fft_destroy_c2c_int16 = qel_fft_destroy_c2c_int16_neon;
    qel_fft_c2c_1d_float32 = qel_fft_c2c_1d_float32_neon;
    qel_fft_r2c_1d_float32 = qel_fft_r2c_1d_float32_neon;
    qel_fft_c2r_1d_float32 = qel_fft_c2r_1d_float32_neon;
    qel_fft_c2c_1d_int32 = qel_fft_c2c_1d_int32_neon;
    qel_fft_r2c_1d_int32 = qel_fft_r2c_1d_int32_neon;
    qel_fft_c2r_1d_int32 = qel_fft_c2r_1d_int32_neon;
    qel_fft_c2c_1d_int16 = qel_fft_c2c_1d_int16_neon;
    qel_fft_r2c_1d_int16 = qel_fft_r2c_1d_int16_neon;
    qel_fft_c2r_1d_int16 = qel_fft_c2r_1d_int16_neon;
#endif
}

void qel_fft_r2c_state_union_init(qel_fft_r2c_state_union* state, int32_t type, int32_t nfft) {
    state->type = type;
    switch (type) {
        case QEL_FFT_FLOAT32: state->plan = qel_fft_alloc_r2c_float32(nfft); break;
        case QEL_FFT_INT32: state->plan = qel_fft_alloc_r2c_int32(nfft); break;
        case QEL_FFT_INT16: state->plan = qel_fft_alloc_r2c_int16(nfft); break;
    }
}

void qel_fft_r2c_state_union_clean(qel_fft_r2c_state_union* state) {
    void* plan = state->plan;
    switch (state->type) {
        case QEL_FFT_FLOAT32:
            qel_fft_destroy_r2c_float32(static_cast<qel_fft_r2c_cfg_float32*>(plan));
            break;
        case QEL_FFT_INT32:
            qel_fft_destroy_r2c_int32(static_cast<qel_fft_r2c_cfg_int32*>(plan));
            break;
        case QEL_FFT_INT16:
            qel_fft_destroy_r2c_int16(static_cast<qel_fft_r2c_cfg_int16*>(plan));
            break;
    }
}
