// The review of a configuration: what its text says that the canceller will not do.
#ifndef QEL_API_QEL_API_REVIEW_H
#define QEL_API_QEL_API_REVIEW_H

#include <stdint.h>

#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

// One finding; its texts last until the callback returns.
typedef struct qel_api_finding {
    const char* code;     // short and fixed, such as "unknown-key", for programs
    uint32_t level;       // QEL_LOG_WARNING; QEL_LOG_ERROR: the configuration cannot be used
    const char* file;     // as it was named; "" where the text names it
    int32_t line;         // from 1; 0 where the finding is about the file as a whole
    int32_t column;       // from 1, in bytes; 0 likewise
    const char* key;      // with its sections, "aec > vad > amp_thresh"; "" for none
    const char* written;  // the value as the text has it; "" for none
    const char* text;     // what is wrong and what it means, in words
} qel_api_finding;

typedef void (*qel_api_finding_fn)(void* user, const qel_api_finding* finding);

/// Reviews the configuration `path` and what it includes: calls fn(user, finding) for everything
/// that is not what whoever wrote it must think, file by file and line by line. `frame_len` is the
/// number of samples that each feed will hold; 0 leaves it out. Returns the number of findings, or
/// -1 after one of level ERROR if the configuration cannot be used. The parser's own log lines are
/// written as they are when the file is loaded.
QEL_API int32_t qel_api_aec_review(const char* path, int32_t frame_len, qel_api_finding_fn fn,
                                   void* user);

QEL_END_DECLS

#endif
