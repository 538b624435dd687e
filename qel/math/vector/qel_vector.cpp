// The dispatch table of the vector operations, and vectors whose type is chosen at run time.
#include "qel/math/vector/qel_vector.h"

#include <cstdlib>

#include "qel/core/internal.hpp"
#include "qel/math/vector/qel_vector_neon.h"

// clang-format off
// Every operation that all types have in portable form, and those of them with a NEON variant.
#define QEL_EACH_OPERATION(X, type)                                                                \
    X(type, new) X(type, delete) X(type, data_bytes) X(type, bytes) X(type, cpy) X(type, zero)     \
    X(type, print) X(type, max) X(type, min) QEL_EACH_NEON_OPERATION(X, type)
#define QEL_EACH_NEON_OPERATION(X, type)                                                           \
    X(type, mul) X(type, sub) X(type, add) X(type, sum) X(type, avg) X(type, exp) X(type, log)     \
    X(type, scale) X(type, softmax) X(type, sigmoid) X(type, realft)

#define QEL_DEFINE(type, operation) \
    decltype(qel_vector_##type##_##operation) qel_vector_##type##_##operation;
#define QEL_STORE(type, operation) \
    qel_vector_##type##_##operation = qel_vector_##type##_##operation##_c;
#define QEL_STORE_NEON(type, operation) \
    qel_vector_##type##_##operation = qel_vector_##type##_##operation##_neon;

QEL_EACH_OPERATION(QEL_DEFINE, float32)
QEL_EACH_OPERATION(QEL_DEFINE, int32)
QEL_EACH_OPERATION(QEL_DEFINE, int16)
QEL_DEFINE(float32, set)
QEL_DEFINE(int32, set)
QEL_DEFINE(int16, set)
QEL_DEFINE(int16, avg_nval)

void qel_vector_init_generic() {
    QEL_EACH_OPERATION(QEL_STORE, float32)
    QEL_EACH_OPERATION(QEL_STORE, int32)
    QEL_EACH_OPERATION(QEL_STORE, int16)
    // The integer `set` stay null: callers test for that and use the `_nval` functions.
    QEL_STORE(float32, set)
    QEL_STORE(int16, avg_nval)
}

void qel_vector_init_neon() {
#ifdef QEL_NEON  // the build has the variants
    QEL_EACH_NEON_OPERATION(QEL_STORE_NEON, float32)
    QEL_EACH_NEON_OPERATION(QEL_STORE_NEON, int32)
    QEL_EACH_NEON_OPERATION(QEL_STORE_NEON, int16)
#endif
}
// clang-format on

void qel_vector_init_module() {
    static bool done = false;
    if (done) return;
    qel_vector_init_generic();
    qel_vector_init_neon();
    done = true;
}

void qel_vector_union_init(qel_vector_union* holder, int32_t type, uint32_t len) {
    holder->type = type;
    switch (type) {
        case QEL_VECTOR_FLOAT32: holder->vec = qel_vector_float32_new(len); break;
        case QEL_VECTOR_INT32: holder->vec = qel_vector_int32_new(len); break;
        case QEL_VECTOR_INT16: holder->vec = qel_vector_int16_new(len); break;
        default: break;
    }
}

void qel_vector_union_clean(qel_vector_union* holder) {
    switch (holder->type) {
        case QEL_VECTOR_FLOAT32:
            qel_vector_float32_delete(static_cast<qel_vector_float32*>(holder->vec));
            break;
        case QEL_VECTOR_INT32:
            qel_vector_int32_delete(static_cast<qel_vector_int32*>(holder->vec));
            break;
        case QEL_VECTOR_INT16:
            qel_vector_int16_delete(static_cast<qel_vector_int16*>(holder->vec));
            break;
        default: break;
    }
}

qel_vector_union* qel_vector_union_new(int32_t type, uint32_t len) {
    qel_vector_union* holder = qel::make_zeroed<qel_vector_union>().release();
    if (holder != nullptr) qel_vector_union_init(holder, type, len);
    return holder;
}

void qel_vector_union_delete(qel_vector_union* holder) {
    if (holder == nullptr) return;
    qel_vector_union_clean(holder);
    std::free(holder);
}
