// What qel_array and the arrays built on it share.
#pragma once

#include "qel/core/array/qel_array.h"

namespace qel {

/// An array on the heap, or null when memory runs out; logs nothing.
qel_array* make_array(uint32_t capacity, uint32_t item_size);

/// Sees to it that slot `count` exists, and moves `*item` along if it lies in the array. 1 if the
/// array grew, 0 if there was room, -1 when memory runs out.
int32_t make_room(qel_array* a, const void** item);

}  // namespace qel
