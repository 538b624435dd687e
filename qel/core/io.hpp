// Whole files into memory, for the rooms inside.
#pragma once

#include <cstdint>

#include "qel/core/internal.hpp"
#include "qel/core/qel_io.h"

namespace qel {

enum class FileRead { kDone, kNone, kNotRegular, kEmpty, kTooLarge, kFailed, kNoMemory };

/// Reads a regular file of at most `most` bytes; opens it once, never waits for a FIFO or a device,
/// and logs nothing. On kDone `bytes` holds `*n` bytes and a NUL in a block of (size + 4) & ~3.
FileRead read_file(const char* path, uint64_t most, heap_ptr<char>* bytes, uint64_t* n);

}  // namespace qel
