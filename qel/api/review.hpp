// The review of a configuration that is being loaded.
#pragma once

#include "qel/api/qel_api_review.h"
#include "qel/core/config/journal.hpp"
#include "qel/spu/aec/qel_aec_cfg.h"

namespace qel {

/// Who hears the findings.
struct Listener {
    qel_api_finding_fn fn;
    void* user;
};

/// Tells why nothing was loaded.
void report_fault(const Journal& journal, Listener listener);

/// Tells what of a loaded configuration is not as its text says; the number of findings.
int32_t review(const Journal& journal, const qel_aec_cfg& cfg, int32_t frame_len,
               Listener listener);

}  // namespace qel
