// Portable operations on int16 vectors, Q12.
#include "qel/math/vector/qel_vector.h"

#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/generic/operations.hpp"

namespace {

constexpr char kSource[] = "qel/math/vector/generic/qel_vector_int16";
// Lines that length mismatches are reported with.
constexpr int32_t kMulLine = 82, kSubLine = 96, kAddLine = 110;

using Vec = qel_vector_int16;

}  // namespace

Vec* qel_vector_int16_new_c(uint32_t len) { return qel::vector::make_vector<int16_t>(len); }
void qel_vector_int16_delete_c(Vec* vec) { std::free(vec); }
uint32_t qel_vector_int16_data_bytes_c(const Vec* vec) {
    return qel::vector::data_bytes<int16_t>(vec);
}
uint32_t qel_vector_int16_bytes_c(const Vec* vec) {
    return qel_vector_int16_data_bytes_c(vec) + QEL_VECTOR_HEADER_BYTES;
}
void qel_vector_int16_cpy_c(Vec* dst, const Vec* src) { qel::vector::copy<int16_t>(dst, src); }
void qel_vector_int16_zero_c(Vec* vec) {
    std::memset(vec->data, 0, qel_vector_int16_data_bytes_c(vec));
}
void qel_vector_int16_print_c(const Vec* vec) {
    constexpr uint32_t kPerLine = 32;  // twice the others', and not in the float form
    qel::vector::print<int16_t>(
        vec, "%4d ", [](int32_t x) { return x; }, kPerLine);
}
void qel_vector_int16_print_float_c(const Vec* vec) {
    qel::vector::print<int16_t>(vec, "%.6f ",
                                [](int32_t x) { return x / qel::vector::Element<int16_t>::kOne; });
}

int32_t qel_vector_int16_mul_nval_c(int16_t* dst, const int16_t* a, const int16_t* b, uint32_t n) {
    return qel::vector::mul(dst, a, b, n);
}
int32_t qel_vector_int16_sub_nval_c(int16_t* dst, const int16_t* a, const int16_t* b, uint32_t n) {
    return qel::vector::sub(dst, a, b, n);
}
int32_t qel_vector_int16_add_nval_c(int16_t* dst, const int16_t* a, const int16_t* b, uint32_t n) {
    return qel::vector::add(dst, a, b, n);
}
int32_t qel_vector_int16_mul_c(Vec* dst, const Vec* a, const Vec* b) {
    return qel::vector::binary(dst, a, b, qel_vector_int16_mul_nval_c,
                               {kSource, __func__, kMulLine});
}
int32_t qel_vector_int16_sub_c(Vec* dst, const Vec* a, const Vec* b) {
    return qel::vector::binary(dst, a, b, qel_vector_int16_sub_nval_c,
                               {kSource, __func__, kSubLine});
}
int32_t qel_vector_int16_add_c(Vec* dst, const Vec* a, const Vec* b) {
    return qel::vector::binary(dst, a, b, qel_vector_int16_add_nval_c,
                               {kSource, __func__, kAddLine});
}

int32_t qel_vector_int16_scale_nval_c(int16_t* data, uint32_t n, int16_t factor) {
    return qel::vector::scale(data, n, factor);
}
int32_t qel_vector_int16_set_nval_c(int16_t* data, uint32_t n, int16_t value) {
    return qel::vector::set(data, n, value);
}
void qel_vector_int16_scale_c(Vec* vec, int16_t factor) {
    qel_vector_int16_scale_nval_c(vec->data, vec->len, factor);
}

int16_t qel_vector_int16_sum_nval_c(const int16_t* data, uint32_t n) {
    return qel::vector::sum(data, n);
}
int16_t qel_vector_int16_avg_nval_c(const int16_t* data, uint32_t n) {
    return qel::vector::average(data, n);
}
int16_t qel_vector_int16_max_nval_c(const int16_t* data, uint32_t n) {
    return qel::vector::maximum(data, n);
}
int16_t qel_vector_int16_min_nval_c(const int16_t* data, uint32_t n) {
    return qel::vector::minimum(data, n);
}
int16_t qel_vector_int16_sum_c(const Vec* vec) {
    return qel_vector_int16_sum_nval_c(vec->data, vec->len);
}
int16_t qel_vector_int16_avg_c(const Vec* vec) {
    return qel_vector_int16_avg_nval_c(vec->data, vec->len);
}
int16_t qel_vector_int16_max_c(const Vec* vec) {
    return qel::vector::has_first(vec) ? qel_vector_int16_max_nval_c(vec->data, vec->len)
                                       : int16_t{0};
}
int16_t qel_vector_int16_min_c(const Vec* vec) {
    return qel::vector::has_first(vec) ? qel_vector_int16_min_nval_c(vec->data, vec->len)
                                       : int16_t{0};
}

int32_t qel_vector_int16_exp_nval_c(int16_t* data, uint32_t n) {
    return qel::vector::exponential(data, n);
}
int32_t qel_vector_int16_log_nval_c(int16_t* data, uint32_t n) {
    return qel::vector::logarithm(data, n);
}
int32_t qel_vector_int16_softmax_nval_c(int16_t* data, uint32_t n) {
    return qel::vector::softmax(data, n);
}
int32_t qel_vector_int16_sigmoid_nval_c(int16_t* data, uint32_t n) {
    return qel::vector::sigmoid(data, n);
}
void qel_vector_int16_exp_c(Vec* vec) { qel_vector_int16_exp_nval_c(vec->data, vec->len); }
void qel_vector_int16_log_c(Vec* vec) { qel_vector_int16_log_nval_c(vec->data, vec->len); }
void qel_vector_int16_softmax_c(Vec* vec) { qel_vector_int16_softmax_nval_c(vec->data, vec->len); }
void qel_vector_int16_sigmoid_c(Vec* vec) { qel_vector_int16_sigmoid_nval_c(vec->data, vec->len); }

int32_t qel_vector_int16_realft_nval_c(int16_t* out, const int16_t* in, uint32_t n,
                                       const qel_fft_r2c_cfg_int16* plan) {
    if (static_cast<uint32_t>(plan->ncfft) != n) return -1;
    qel_fft_r2c_1d_int16(reinterpret_cast<qel_fft_cpx_int16*>(out), in, plan, 1);
    return 0;
}
int32_t qel_vector_int16_realft_c(Vec* out, const Vec* in, const qel_fft_r2c_cfg_int16* plan) {
    return qel::vector::spectrum(out, in, plan, qel_vector_int16_realft_nval_c,
                                 {kSource, __func__, __LINE__});
}
