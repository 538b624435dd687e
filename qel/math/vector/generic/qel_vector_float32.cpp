// Portable operations on float32 vectors.
#include "qel/math/vector/qel_vector.h"

#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/generic/operations.hpp"

namespace {

constexpr char kSource[] = "qel/math/vector/generic/qel_vector_float32";
// Lines that length mismatches are reported with.
constexpr int32_t kMulLine = 69, kSubLine = 83, kAddLine = 97;

using Vec = qel_vector_float32;

}  // namespace

Vec* qel_vector_float32_new_c(uint32_t len) { return qel::vector::make_vector<float>(len); }
void qel_vector_float32_delete_c(Vec* vec) { std::free(vec); }
uint32_t qel_vector_float32_data_bytes_c(const Vec* vec) {
    return qel::vector::data_bytes<float>(vec);
}
uint32_t qel_vector_float32_bytes_c(const Vec* vec) {
    return qel_vector_float32_data_bytes_c(vec) + QEL_VECTOR_HEADER_BYTES;
}
void qel_vector_float32_cpy_c(Vec* dst, const Vec* src) { qel::vector::copy<float>(dst, src); }
void qel_vector_float32_zero_c(Vec* vec) {
    std::memset(vec->data, 0, qel_vector_float32_data_bytes_c(vec));
}
void qel_vector_float32_print_c(const Vec* vec) {
    qel::vector::print<float>(vec, "%.6f ", [](float x) { return x; });
}

int32_t qel_vector_float32_mul_nval_c(float* dst, const float* a, const float* b, uint32_t n) {
    return qel::vector::mul(dst, a, b, n);
}
int32_t qel_vector_float32_sub_nval_c(float* dst, const float* a, const float* b, uint32_t n) {
    return qel::vector::sub(dst, a, b, n);
}
int32_t qel_vector_float32_add_nval_c(float* dst, const float* a, const float* b, uint32_t n) {
    return qel::vector::add(dst, a, b, n);
}
int32_t qel_vector_float32_mul_c(Vec* dst, const Vec* a, const Vec* b) {
    return qel::vector::binary(dst, a, b, qel_vector_float32_mul_nval_c,
                               {kSource, __func__, kMulLine});
}
int32_t qel_vector_float32_sub_c(Vec* dst, const Vec* a, const Vec* b) {
    return qel::vector::binary(dst, a, b, qel_vector_float32_sub_nval_c,
                               {kSource, __func__, kSubLine});
}
int32_t qel_vector_float32_add_c(Vec* dst, const Vec* a, const Vec* b) {
    return qel::vector::binary(dst, a, b, qel_vector_float32_add_nval_c,
                               {kSource, __func__, kAddLine});
}

int32_t qel_vector_float32_scale_nval_c(float* data, uint32_t n, float factor) {
    return qel::vector::scale(data, n, factor);
}
int32_t qel_vector_float32_set_nval_c(float* data, uint32_t n, float value) {
    return qel::vector::set(data, n, value);
}
void qel_vector_float32_scale_c(Vec* vec, float factor) {
    qel_vector_float32_scale_nval_c(vec->data, vec->len, factor);
}
void qel_vector_float32_set_c(Vec* vec, float value) {
    qel_vector_float32_set_nval_c(vec->data, vec->len, value);
}

float qel_vector_float32_sum_nval_c(const float* data, uint32_t n) {
    return qel::vector::sum(data, n);
}
float qel_vector_float32_avg_nval_c(const float* data, uint32_t n) {
    return qel::vector::average(data, n);
}
float qel_vector_float32_max_nval_c(const float* data, uint32_t n) {
    return qel::vector::maximum(data, n);
}
float qel_vector_float32_min_nval_c(const float* data, uint32_t n) {
    return qel::vector::minimum(data, n);
}
float qel_vector_float32_sum_c(const Vec* vec) {
    return qel_vector_float32_sum_nval_c(vec->data, vec->len);
}
float qel_vector_float32_avg_c(const Vec* vec) {
    return qel_vector_float32_avg_nval_c(vec->data, vec->len);
}
float qel_vector_float32_max_c(const Vec* vec) {
    return qel::vector::has_first(vec) ? qel_vector_float32_max_nval_c(vec->data, vec->len)
                                       : float{0};
}
float qel_vector_float32_min_c(const Vec* vec) {
    return qel::vector::has_first(vec) ? qel_vector_float32_min_nval_c(vec->data, vec->len)
                                       : float{0};
}

int32_t qel_vector_float32_exp_nval_c(float* data, uint32_t n) {
    return qel::vector::exponential(data, n);
}
int32_t qel_vector_float32_log_nval_c(float* data, uint32_t n) {
    return qel::vector::logarithm(data, n);
}
int32_t qel_vector_float32_softmax_nval_c(float* data, uint32_t n) {
    return qel::vector::softmax(data, n);
}
int32_t qel_vector_float32_sigmoid_nval_c(float* data, uint32_t n) {
    return qel::vector::sigmoid(data, n);
}
void qel_vector_float32_exp_c(Vec* vec) { qel_vector_float32_exp_nval_c(vec->data, vec->len); }
void qel_vector_float32_log_c(Vec* vec) { qel_vector_float32_log_nval_c(vec->data, vec->len); }
void qel_vector_float32_softmax_c(Vec* vec) {
    qel_vector_float32_softmax_nval_c(vec->data, vec->len);
}
void qel_vector_float32_sigmoid_c(Vec* vec) {
    qel_vector_float32_sigmoid_nval_c(vec->data, vec->len);
}

int32_t qel_vector_float32_realft_nval_c(float* out, const float* in, uint32_t n,
                                         const qel_fft_r2c_cfg_float32* plan) {
    if (static_cast<uint32_t>(plan->ncfft) != n) return -1;
    qel_fft_r2c_1d_float32(reinterpret_cast<qel_fft_cpx_float32*>(out), in, plan);
    return 0;
}
int32_t qel_vector_float32_realft_c(Vec* out, const Vec* in, const qel_fft_r2c_cfg_float32* plan) {
    return qel::vector::spectrum(out, in, plan, qel_vector_float32_realft_nval_c,
                                 {kSource, __func__, __LINE__});
}
