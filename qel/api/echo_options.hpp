// The options of echo.new(): what its JSON text asks for, and what a user should know about it.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>

#include "qel/core/qel_debug.hpp"
#include "qel/core/reason.hpp"
#include "qel/spu/aec/qel_aec_cfg.h"

// An explanation that is the reason of a failure, too; see QEL_EXPLAIN.
#define QEL_REFUSE(...) (QEL_EXPLAIN(__VA_ARGS__), qel::set_reason(__VA_ARGS__))

namespace qel {

struct EchoOptions {
    const char* path = nullptr;  // borrowed from the tree; null if it is no string
    int32_t is_bin = 0, frame_len = 0, play_gain = 1;
};

/// The tree of a JSON text, to be released by cJSON_Delete(). Null with an explanation of where the
/// text goes wrong; null is accepted.
cJSON* parse_options(const char* json);

/// Reads the options and explains what cannot be meant; false if one that is needed is missing.
/// Types are not examined: cJSON holds an integer for every kind, 1 for true and 0 for what is no
/// number.
bool read_options(const cJSON* root, EchoOptions* options);

/// Explains why no feed of such an object can work, if that is so.
void review_frames(const EchoOptions& options, const qel_aec_cfg& cfg);

}  // namespace qel
