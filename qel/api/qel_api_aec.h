// The canceller behind a handle: a configuration file's path in, frames without echo out.
#ifndef QEL_API_QEL_API_AEC_H
#define QEL_API_QEL_API_AEC_H

#include <stdint.h>

#include "qel/core/qel_export.h"
#include "qel/spu/aec/qel_aec.h"
#include "qel/spu/aec/qel_aec_cfg.h"
#include "qel/spu/aec/qel_aec_stats.h"
#include "qel/spu/aec/qel_aec_tracking.h"

QEL_BEGIN_DECLS

typedef struct qel_api_aec_t {
    qel_aec_cfg* cfg;            // owned unless cfg_is_binary
    qel_aec* aec;                // owned; borrows `cfg`
    void* reserved;              // not used
    uint32_t cfg_is_binary : 1;  // the configuration belongs to the caller
    uint32_t flags_spare : 7;    // not used; the flags fill one byte
} qel_api_aec_t;

// Whatever loads a configuration reviews it (see qel_api_aec_review()): a WARNING line each tells
// what its text says and the canceller will not do, where the application sends its log, else on
// standard error.

/// Reads the text configuration `path`, takes its section "aec" (the defaults if there is none)
/// and completes the record, which then owns the parsed tree. Null when the file cannot be opened,
/// is empty or does not parse (logged), or when memory runs out.
QEL_API qel_aec_cfg* qel_api_aec_cfg_new_fn(const char* path);

/// Releases a record of qel_api_aec_cfg_new_fn() with its tree; null is accepted.
QEL_API void qel_api_aec_cfg_delete_fn(qel_aec_cfg* cfg);

/// Makes a canceller from the text configuration `path`. Null for a configuration that cannot be
/// read or cannot work (see qel_aec_new()), when memory runs out, and whenever `is_bin` is not 0:
/// binary configurations are refused before `path` is looked at.
QEL_API qel_api_aec_t* qel_api_aec_new(const char* path, uint32_t is_bin);

/// The same for a configuration in memory, `bytes` bytes of text; ${pwd} is "." in it.
QEL_API qel_api_aec_t* qel_api_aec_new_text(const char* text, uint32_t bytes);

/// Why the last call of the process that failed did so, in words; "" before the first. The text
/// stays readable while a few others fail.
QEL_API const char* qel_api_aec_last_error(void);

/// Releases the canceller, its configuration and the handle; null is accepted.
QEL_API void qel_api_aec_delete(qel_api_aec_t* api);

/// Returns the canceller to the state after qel_api_aec_new(); a null handle does nothing.
QEL_API void qel_api_aec_reset(qel_api_aec_t* api);

/// Feeds bytes of both signals and returns the output they complete, possibly none, valid until
/// the next feed or reset; see qel_aec_feed_data(). `out_bytes` may be null. A null handle gives
/// null and no bytes.
QEL_API const char* qel_api_aec_feed_data(qel_api_aec_t* api, const void* mic, uint32_t mic_bytes,
                                          const void* ref, uint32_t ref_bytes, uintptr_t is_end,
                                          uint32_t* out_bytes);

/// What the canceller did since it was made or last reset; see qel_aec_get_stats(). Returns 0, or
/// -1 for a null argument.
QEL_API int32_t qel_api_aec_get_stats(const qel_api_aec_t* api, qel_aec_stats* stats);

/// What the tracking mode found out; see qel_aec_get_tracking_stats(). Returns 0, or -1 for a null
/// argument.
QEL_API int32_t qel_api_aec_get_tracking_stats(const qel_api_aec_t* api,
                                               qel_aec_tracking_stats* stats);

/// "spu/aec v1.0.8".
QEL_API const char* qel_api_aec_get_version(void);

QEL_END_DECLS

#endif
