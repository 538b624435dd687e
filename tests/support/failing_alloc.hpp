// Refuses memory on request. Test programs are linked so that the library's malloc, calloc and
// realloc pass through here; GoogleTest's own allocations do not.
#pragma once

#include <cstddef>
#include <cstdint>

/// For its lifetime, lets `allowed` allocations pass and refuses the following `refused` ones.
class FailingAlloc {
  public:
    explicit FailingAlloc(int64_t allowed, int64_t refused = 1);
    ~FailingAlloc();
    FailingAlloc(const FailingAlloc&) = delete;
    FailingAlloc& operator=(const FailingAlloc&) = delete;

    /// Allocations asked for since this object was made.
    static int64_t count();
    /// Bytes that the last of them asked for, and that all did.
    static size_t last_bytes();
    static size_t bytes();
};
