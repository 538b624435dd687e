// How plans are laid out and which factors they hold.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "qel/math/fft/qel_fft.h"

namespace qel::fft {

/// Fills a factor table for `n` >= 0. At most 19 stages (n = 3^19), so the table always has room.
/// `end_in_8` lets the mixed-radix engine start with one radix-8 stage.
void factorise(int32_t* factors, int32_t n, bool end_in_8);

/// The word after the last stage: whether the fast engine runs, or the mixed-radix one.
inline int32_t algorithm_flag(const int32_t* factors) { return factors[2 * (factors[0] + 1)]; }
inline bool is_fast(const int32_t* factors) { return algorithm_flag(factors) == 0; }

/// Areas and the places in a block where they start: multiples of 8 bytes.
constexpr int64_t area_bytes(int64_t bytes) { return (bytes + 7) / 8 * 8; }

template <class T>
T* take_area(char** cursor, int64_t count) {
    T* area = reinterpret_cast<T*>(*cursor);
    *cursor += area_bytes(count * static_cast<int64_t>(sizeof(T)));
    return area;
}

/// One block for a record, its factor table and `points_bytes` of other areas; null if it would
/// reach 2 GiB, the same limit on every processor. `cursor` is set behind the factor table, so that
/// the work space, `tables_bytes` further, starts a line of the cache: whole registers are stored
/// there.
template <class Plan>
Plan* new_block(int64_t tables_bytes, int64_t points_bytes, char** cursor) {
    constexpr int64_t kFactorBytes = QEL_FFT_FACTOR_WORDS * sizeof(int32_t), kLineBytes = 64;
    const int64_t bytes = sizeof(Plan) + kLineBytes + kFactorBytes + points_bytes;
    if (bytes > INT32_MAX) return nullptr;
    auto* plan = static_cast<Plan*>(std::malloc(static_cast<size_t>(bytes)));
    if (plan == nullptr) return nullptr;
    *plan = {};
    *cursor = reinterpret_cast<char*>(plan) + area_bytes(sizeof(Plan));
    const auto work_space = reinterpret_cast<uintptr_t>(*cursor + kFactorBytes + tables_bytes);
    *cursor += -work_space % kLineBytes;
    plan->factors = take_area<int32_t>(cursor, QEL_FFT_FACTOR_WORDS);
    return plan;
}

/// A complex plan, factors and twiddles filled, with room for `extra` more twiddles; null when
/// refused.
template <class Plan, class Point>
Plan* new_c2c_plan(int32_t nfft, qel_fft_twiddles_line line, int32_t extra = 0) {
    if (nfft <= 0) return nullptr;
    char* cursor;
    constexpr int64_t kPoint = sizeof(Point);
    const int64_t area = area_bytes(nfft * kPoint);
    auto* plan = new_block<Plan>(area, 2 * area + area_bytes(extra * kPoint), &cursor);
    if (plan == nullptr) return nullptr;
    plan->nfft = nfft;
    plan->backward_scaled = 1;
    plan->twiddles = take_area<Point>(&cursor, nfft);
    plan->buffer = take_area<Point>(&cursor, nfft);
    if (extra > 0) plan->extra_twiddles = take_area<Point>(&cursor, extra);
    factorise(plan->factors, nfft, false);
    if (!is_fast(plan->factors)) factorise(plan->factors, nfft, true);
    qel_fft_generate_twiddles_impl_float32(plan->twiddles, plan->factors, nfft, line);
    return plan;
}

/// A real plan with its factors; both twiddle tables are left to the caller. Null when refused. An
/// odd length loses its last point, and one point leaves an inner transform of none.
template <class Plan, class Point>
Plan* new_r2c_plan(int32_t nfft) {
    if (nfft <= 0) return nullptr;
    const int32_t ncfft = nfft >> 1;
    constexpr int64_t kPoint = sizeof(Point);
    char* cursor;
    const int64_t tables = area_bytes(ncfft * kPoint) + area_bytes(ncfft / 2 * kPoint);
    auto* plan = new_block<Plan>(tables, tables + area_bytes(nfft * kPoint), &cursor);
    if (plan == nullptr) return nullptr;
    plan->ncfft = ncfft;
    plan->twiddles = take_area<Point>(&cursor, ncfft);
    plan->super_twiddles = take_area<Point>(&cursor, ncfft / 2);
    plan->buffer = take_area<Point>(&cursor, nfft);
    factorise(plan->factors, ncfft, false);
    return plan;
}

}  // namespace qel::fft
