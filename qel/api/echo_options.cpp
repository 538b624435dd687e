// The options of echo.new(): reading them from JSON and explaining what is wrong with them.
#include "qel/api/echo_options.hpp"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "qel/api/nearest.hpp"
#include "qel/core/internal.hpp"

using qel::EchoOptions;

namespace {

constexpr char kSource[] = "qel/api/echo_options";

struct Key {
    const char* name;
    const char* remedy;
    bool needed;
    int32_t EchoOptions::*number;  // null: text
    int32_t (*acts_as)(int32_t value);
    bool (*spoils)(int32_t acting);  // whether it does what `effect` says
    const char* effect;
};

int32_t itself(int32_t value) { return value; }

constexpr Key kKeys[] = {
    {"qelCfgFile", "the path of the configuration file", true, nullptr, nullptr, nullptr, nullptr},
    {"isBin", "0, or leave it out", false, &EchoOptions::is_bin, itself,
     [](int32_t acting) { return acting != 0; },
     "is refused, for there are no binary configurations"},
    {"frameLen", "how many samples one feed takes, such as the configuration's frame_size", true,
     &EchoOptions::frame_len, itself, [](int32_t acting) { return acting <= 0; },
     "leaves no samples to feed"},
    {"playGain", "a whole number from -32768 to 32767, other than 0", false,
     &EchoOptions::play_gain, [](int32_t value) { return int32_t{static_cast<int16_t>(value)}; },
     [](int32_t acting) { return acting == 0; }, "silences the reference, so no echo is removed"},
};

/// Explains a number that does not act as it is written, or does no good; one that makes the call
/// fail is the reason of that.
void review_number(const Key& key, const cJSON& item) {
    const int32_t acting = key.acts_as(item.valueint);
    const bool as_written = cJSON_IsNumber(&item) && item.valuedouble == acting;
    const bool spoils = key.spoils(acting);
    if (as_written && !spoils) return;
    char how[32] = "", line[320];
    if (!as_written) std::snprintf(how, sizeof(how), ", taken as %d,", acting);
    char* const written = cJSON_PrintUnformatted(&item);
    std::snprintf(line, sizeof(line), "\"%s\": %.40s%s %s; write %s.", key.name,
                  written != nullptr ? written : "?", how,
                  spoils ? key.effect : "is no whole number in range", key.remedy);
    cJSON_free(written);
    QEL_EXPLAIN("%s", line);
    if (spoils && key.number == &EchoOptions::is_bin) qel::set_reason("%s", line);
}

/// Explains a key that is none of ours but looks like a slip; others are the host's own affair.
void review_name(const char* name) {
    const char* nearest = nullptr;
    int least = INT_MAX;
    for (const Key& key : kKeys) {
        const int distance = qel::edit_distance(name, key.name);
        if (distance == 0) return;  // in any case: cJSON finds it
        if (distance >= least || !qel::is_near(name, key.name, distance)) continue;
        nearest = key.name;
        least = distance;
    }
    if (nearest == nullptr) return;
    QEL_EXPLAIN("\"%s\" is no option and does nothing; write \"%s\" if that is meant.", name,
                nearest);
}

}  // namespace

cJSON* qel::parse_options(const char* json) {
    const char* fault = json;
    cJSON* const root = cJSON_ParseWithOpts(json, &fault, 0);
    if (root != nullptr) return root;
    if (json == nullptr) {
        QEL_REFUSE("echo.new takes a string that holds a JSON object.");
        return nullptr;
    }
    size_t line = 1;
    const char* start = json;
    for (const char* at = json; at < fault && *at != '\0'; ++at) {
        if (*at != '\n') continue;
        ++line;
        start = at + 1;
    }
    constexpr ptrdiff_t kBefore = 20, kShown = 40;
    const char* const from = fault - std::min(fault - start, kBefore);
    const auto shown = std::min(static_cast<ptrdiff_t>(std::strcspn(from, "\n")), kShown);
    QEL_REFUSE("malformed JSON at line %zu, column %td, near '%.*s'.", line, fault - start + 1,
               static_cast<int>(shown), from);
    return nullptr;
}

bool qel::read_options(const cJSON* root, EchoOptions* options) {
    bool complete = true;
    for (const Key& key : kKeys) {
        const cJSON* const item = cJSON_GetObjectItem(root, key.name);
        if (item == nullptr) {
            if (!key.needed) continue;
            QEL_REFUSE("\"%s\" is missing; write %s.", key.name, key.remedy);
            complete = false;
        } else if (key.number != nullptr) {
            options->*key.number = item->valueint;
            review_number(key, *item);
        } else {
            options->path = item->valuestring;
            if (options->path != nullptr) continue;
            QEL_REFUSE("\"%s\" is no string; write %s.", key.name, key.remedy);
        }
    }
    const cJSON* item;
    cJSON_ArrayForEach(item, root) {
        if (item->string != nullptr) review_name(item->string);
    }
    return complete;
}

void qel::review_frames(const EchoOptions& options, const qel_aec_cfg& cfg) {
    if (cfg.use_hdr) {
        QEL_EXPLAIN(
            "%s: use_hdr is for 32-bit samples, but those of Lua have 16 bits: no feed can "
            "work as meant; write use_hdr = no.",
            options.path);
    } else if (options.frame_len > 0 && options.frame_len % cfg.frame_size != 0) {
        QEL_EXPLAIN(
            "\"frameLen\": %d is no whole multiple of frame_size = %d of %s: every feed "
            "will fail; make them equal.",
            options.frame_len, cfg.frame_size, options.path);
    }
}
