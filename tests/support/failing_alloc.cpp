// The wrapped allocator behind FailingAlloc; see tests/CMakeLists.txt for the link option.
#include "tests/support/failing_alloc.hpp"

extern "C" {
void* __real_malloc(size_t bytes);
void* __real_calloc(size_t count, size_t bytes);
void* __real_realloc(void* block, size_t bytes);
}

namespace {

bool active = false;
int64_t asked = 0, first_refused = 0, end_refused = 0;
size_t last_asked = 0, bytes_asked = 0;

/// Notes one allocation; true when it must fail.
bool refuse(size_t bytes) {
    if (!active) return false;
    last_asked = bytes;
    bytes_asked += bytes;
    const int64_t index = asked++;
    return index >= first_refused && index < end_refused;
}

}  // namespace

FailingAlloc::FailingAlloc(int64_t allowed, int64_t refused) {
    asked = 0;
    bytes_asked = 0;
    first_refused = allowed;
    end_refused = allowed + refused;
    active = true;
}

FailingAlloc::~FailingAlloc() { active = false; }

int64_t FailingAlloc::count() { return asked; }
size_t FailingAlloc::last_bytes() { return last_asked; }
size_t FailingAlloc::bytes() { return bytes_asked; }

extern "C" {
void* __wrap_malloc(size_t bytes) { return refuse(bytes) ? nullptr : __real_malloc(bytes); }
void* __wrap_calloc(size_t count, size_t bytes) {
    return refuse(count * bytes) ? nullptr : __real_calloc(count, bytes);
}
void* __wrap_realloc(void* block, size_t bytes) {
    return refuse(bytes) ? nullptr : __real_realloc(block, bytes);
}
}
