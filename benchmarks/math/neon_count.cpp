// Runs one operation through the dispatch table a number of times, for tools/count_instructions to
// count what it executes: neon_count OPERATION TYPE LENGTH c|neon TIMES. What cannot be run is told
// on standard output, as standard error is qemu's.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "qel/math/fft/qel_fft.h"
#include "qel/math/vector/qel_vector.h"

namespace {

[[noreturn]] void refuse(const char* why) {
    std::puts(why);
    std::exit(2);
}

/// Calls `operation` with 0, 1, 0, ... if it is the one named; returns whether it is.
template <class Operation>
bool repeat(bool named, int times, Operation operation) {
    for (int i = 0; named && i < times; ++i) operation(i % 2);
    return named;
}

/// A vector of small positive numbers, which every operation has a plain answer for.
template <class Vector>
Vector* ramp(Vector* (*make)(uint32_t), uint32_t n, double one) {
    Vector* vec = make(n);
    if (!vec) refuse("no memory for vectors of that length");
    using Element = std::remove_reference_t<decltype(vec->data[0])>;
    for (uint32_t i = 0; i < n; ++i) vec->data[i] = static_cast<Element>(one * (i + 1) / n);
    return vec;
}

// Two vectors in turn: what works in place then finds the same numbers twice.
#define QEL_BINARY(type, operation)   \
    repeat(name == #operation, times, \
           [=](int i) { qel_vector_##type##_##operation(a[i], a[i], b); })
#define QEL_UNARY(type, operation) \
    repeat(name == #operation, times, [=](int i) { qel_vector_##type##_##operation(a[i]); })
#define QEL_RUN_VECTOR(type, one)                                                              \
    bool run_vector_##type(std::string_view name, uint32_t n, int times) {                     \
        const auto make = qel_vector_##type##_new;                                             \
        const std::array a = {ramp(make, n, one), ramp(make, n, one)};                         \
        const auto b = ramp(make, n, one);                                                     \
        return QEL_BINARY(type, add) || QEL_BINARY(type, sub) || QEL_BINARY(type, mul) ||      \
               QEL_UNARY(type, sum) || QEL_UNARY(type, avg) || QEL_UNARY(type, exp) ||         \
               QEL_UNARY(type, log) || QEL_UNARY(type, softmax) || QEL_UNARY(type, sigmoid) || \
               repeat(name == "scale", times,                                                  \
                      [=](int i) { qel_vector_##type##_scale(a[i], b->data[0]); });            \
    }
QEL_RUN_VECTOR(float32, 1)
QEL_RUN_VECTOR(int32, 1 << 20)
QEL_RUN_VECTOR(int16, 1 << 12)

// The integer transforms take a last argument, whether they scale.
#define QEL_RUN_FFT(type, T, ...)                                                                  \
    bool run_fft_##type(std::string_view name, uint32_t n, int times) {                            \
        if (name != "c2c" && name != "r2c" && name != "c2r") return false;                         \
        const auto points = static_cast<int32_t>(n);                                               \
        const auto c2c = name == "c2c" ? qel_fft_alloc_c2c_##type(points) : nullptr;               \
        const auto r2c = name != "c2c" ? qel_fft_alloc_r2c_##type(points) : nullptr;               \
        if (!c2c && !r2c) refuse("there is no plan of that length");                               \
        const auto in = static_cast<T*>(std::calloc(2 * n + 2, sizeof(T)));                        \
        const auto out = static_cast<T*>(std::calloc(2 * n + 2, sizeof(T)));                       \
        for (uint32_t i = 0; i < 2 * n; ++i) in[i] = static_cast<T>(i % 100);                      \
        const auto from = reinterpret_cast<qel_fft_cpx_##type*>(in);                               \
        const auto to = reinterpret_cast<qel_fft_cpx_##type*>(out);                                \
        return repeat(name == "c2c", times,                                                        \
                      [=](int) {                                                                   \
                          qel_fft_c2c_1d_##type(to, from, c2c, 0 __VA_OPT__(, ) __VA_ARGS__);      \
                      }) ||                                                                        \
               repeat(                                                                             \
                   name == "r2c", times,                                                           \
                   [=](int) { qel_fft_r2c_1d_##type(to, in, r2c __VA_OPT__(, ) __VA_ARGS__); }) || \
               repeat(name == "c2r", times, [=](int) {                                             \
                   qel_fft_c2r_1d_##type(out, from, r2c __VA_OPT__(, ) __VA_ARGS__);               \
               });                                                                                 \
    }
QEL_RUN_FFT(float32, float)
QEL_RUN_FFT(int32, int32_t, 1)
QEL_RUN_FFT(int16, int16_t, 1)

}  // namespace

int main(int argc, char** argv) {
    if (argc == 6) {
        const std::string_view name = argv[1], type = argv[2];
        const auto n = static_cast<uint32_t>(std::max(std::atoi(argv[3]), 0));
        const int times = std::atoi(argv[5]);
        qel_fft_init_generic();
        qel_vector_init_generic();
        if (std::strcmp(argv[4], "neon") == 0) {
            qel_fft_init_neon();
            qel_vector_init_neon();
        }
#define QEL_RUN(t) (type == #t && (run_vector_##t(name, n, times) || run_fft_##t(name, n, times)))
        if (n == 0) refuse("a length is a number above 0");
        if (QEL_RUN(float32) || QEL_RUN(int32) || QEL_RUN(int16)) return 0;
    }
    refuse("the program knows no such operation");
}
