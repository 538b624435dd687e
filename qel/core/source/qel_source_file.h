// A byte source that reads a file through a buffer of 4096 bytes.
#ifndef QEL_CORE_SOURCE_QEL_SOURCE_FILE_H
#define QEL_CORE_SOURCE_QEL_SOURCE_FILE_H

#include <stdint.h>
#include <stdio.h>

#include "qel/core/qel_export.h"
#include "qel/core/source/qel_source.h"

QEL_BEGIN_DECLS

// The `data` of a file source.
typedef struct qel_source_file_item {
    FILE* stream;
    uint8_t* buffer;
    uint8_t* end;  // of the valid bytes
    uint8_t* pos;  // of the next byte
    int32_t (*seek)(struct qel_source_file_item* item, int64_t offset);
    uint32_t buffer_size : 31;
    uint32_t eof : 1;
} qel_source_file_item;

/// Makes `source` read the file `path`; -1 if it cannot be opened (no log line) or when memory
/// runs out. qel_source_file_clean() may follow either way.
QEL_API int32_t qel_source_file_init(qel_source* source, const char* path);

/// Closes the file and releases all that qel_source_file_init() made; 0.
QEL_API int32_t qel_source_file_clean(qel_source* source);

/// Goes to `offset` bytes from the start, which may lie behind the end; 0, or -1 where that cannot
/// be, as in a pipe, before the start, or without a file.
QEL_API int32_t qel_source_file_seek(qel_source* source, int64_t offset);

/// Calls load(user, source) on a source of the file `path`, and returns its result; -1 if there is
/// no such source. Anything but 0 is logged. `ignored` makes it a qel_source_loader function.
QEL_API int32_t qel_source_file_load(void* ignored, void* user, qel_source_load_fn load,
                                     const char* path);

QEL_END_DECLS

#endif
