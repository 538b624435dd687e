// Whole files into memory.
#ifndef QEL_CORE_QEL_IO_H
#define QEL_CORE_QEL_IO_H

#include <stdint.h>
#include <stdio.h>

#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

/// Size of an open stream, which is left at its start. 0 for a null stream, and for one that has
/// no file descriptor or cannot seek.
QEL_API uint64_t qel_io_file_bytes(FILE* stream);

/// Reads the file `path` into a block that the caller frees, with a NUL behind the data; the bytes
/// read are stored in `out_length` unless that is null. Returns null for an empty file, and with a
/// log line for one that cannot be opened, read or held in memory.
QEL_API char* qel_io_read_all(const char* path, uint64_t* out_length);

QEL_END_DECLS

#endif
