// The canceller behind a handle: loads its configuration and owns it together with the instance.
#include "qel/api/qel_api_aec.h"

#include <cstdio>

#include "qel/api/review.hpp"
#include "qel/core/config/journal.hpp"
#include "qel/core/config/qel_config_base.h"
#include "qel/core/config/qel_config_ryl.h"
#include "qel/core/internal.hpp"
#include "qel/core/qel_debug.hpp"
#include "qel/core/reason.hpp"
#include "qel/core/source/qel_source.h"
#include "qel/core/source/qel_source_file.h"

namespace {

constexpr char kSource[] = "qel/api/qel_api_aec";
constexpr char kSection[] = "aec";

/// A zeroed record, or null with a log line.
template <class T>
T* make_record() {
    T* const record = qel::make_zeroed<T>().release();
    if (record == nullptr) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        qel::set_reason("out of memory");
    }
    return record;
}

/// Writes a finding as one line: "FILE:LINE:COLUMN: KEY = VALUE: text", without what it lacks.
void explain(void* /*user*/, const qel_api_finding* f) {
    char line[1200], place[32] = "";
    if (f->line > 0) snprintf(place, sizeof(place), ":%d:%d", f->line, f->column);
    snprintf(line, sizeof(line), "%s%s%s%s%s%s%s%s", f->file, place, *f->file ? ": " : "", f->key,
             *f->written ? " = " : "", f->written, *f->key ? ": " : "", f->text);
    QEL_EXPLAIN("%s", line);
    if (f->level == QEL_LOG_ERROR) qel::set_reason("%s", line);
}

/// Completes a record from a parsed tree, which it takes over. Null, with the reason told, for a
/// tree that could not be parsed and when memory runs out.
qel_aec_cfg* complete(qel_config_ryl* tree, const qel::Journal& journal, qel::Listener listener) {
    if (tree == nullptr) {
        qel::report_fault(journal, listener);
        return nullptr;
    }
    qel_aec_cfg* const cfg = make_record<qel_aec_cfg>();
    if (cfg == nullptr) {
        qel_config_ryl_delete(tree);
        return nullptr;
    }
    cfg->cfg_tree = tree;
    qel_aec_cfg_init(cfg);
    qel_aec_cfg_update_local(cfg, qel_config_items_find_subitems(tree->root, kSection));
    qel_source_loader loader = {nullptr, qel_source_file_load};
    qel_aec_cfg_update(cfg, &loader);
    return cfg;
}

/// complete(), with the review told to the user.
qel_aec_cfg* complete_and_explain(qel_config_ryl* tree, const qel::Journal& journal) {
    constexpr qel::Listener kUser = {explain, nullptr};
    qel_aec_cfg* const cfg = complete(tree, journal, kUser);
    if (cfg != nullptr) qel::review(journal, *cfg, 0, kUser);
    return cfg;
}

/// A handle that owns `cfg`; null, with `cfg` released, when there is none or it cannot work.
qel_api_aec_t* make_handle(qel_aec_cfg* cfg) {
    qel_api_aec_t* const api = cfg != nullptr ? make_record<qel_api_aec_t>() : nullptr;
    qel_aec_tracking_cfg tracking = {};
    qel_aec_tracking_cfg_init(&tracking);
    if (api != nullptr) {
        qel_config_items* root = cfg->cfg_tree->root;
        qel_aec_tracking_cfg_update_local(&tracking,
                                          qel_config_items_find_subitems(root, kSection));
    }
    qel_aec* const aec = api != nullptr ? qel_aec_new_tracking(cfg, &tracking) : nullptr;
    if (aec == nullptr) {
        qel_api_aec_cfg_delete_fn(cfg);
        std::free(api);
        return nullptr;
    }
    api->cfg = cfg;
    api->aec = aec;
    return api;
}

}  // namespace

qel_aec_cfg* qel_api_aec_cfg_new_fn(const char* path) {
    if (path == nullptr) {
        qel::set_reason("there is no path");
        return nullptr;
    }
    qel::Journal journal;
    return complete_and_explain(qel::config_parse_file(path, &journal), journal);
}

void qel_api_aec_cfg_delete_fn(qel_aec_cfg* cfg) {
    if (cfg == nullptr) return;
    qel_config_ryl_delete(cfg->cfg_tree);
    qel_aec_cfg_clean(cfg);
    std::free(cfg);
}

qel_api_aec_t* qel_api_aec_new(const char* path, uint32_t is_bin) {
    if (is_bin != 0) {
        qel::set_reason("binary configurations do not exist in this build");
        return nullptr;
    }
    return make_handle(qel_api_aec_cfg_new_fn(path));
}

qel_api_aec_t* qel_api_aec_new_text(const char* text, uint32_t bytes) {
    qel::Journal journal;
    if (text == nullptr) bytes = 0;
    qel_config_ryl* const tree = qel::config_parse_text("(text)", text, bytes, &journal);
    return make_handle(complete_and_explain(tree, journal));
}

int32_t qel_api_aec_review(const char* path, int32_t frame_len, qel_api_finding_fn fn, void* user) {
    const qel::Listener listener = {fn, user};
    qel::Journal journal;
    qel_aec_cfg* const cfg = complete(qel::config_parse_file(path, &journal), journal, listener);
    if (cfg == nullptr) return -1;
    const int32_t count = qel::review(journal, *cfg, frame_len, listener);
    qel_api_aec_cfg_delete_fn(cfg);
    return count;
}

const char* qel_api_aec_last_error() { return qel::last_reason(); }

void qel_api_aec_delete(qel_api_aec_t* api) {
    if (api == nullptr) return;
    qel_aec_delete(api->aec);
    if (!api->cfg_is_binary) qel_api_aec_cfg_delete_fn(api->cfg);
    std::free(api);
}

void qel_api_aec_reset(qel_api_aec_t* api) {
    if (api != nullptr) qel_aec_reset(api->aec);
}

const char* qel_api_aec_feed_data(qel_api_aec_t* api, const void* mic, uint32_t mic_bytes,
                                  const void* ref, uint32_t ref_bytes, uintptr_t is_end,
                                  uint32_t* out_bytes) {
    if (api == nullptr) {
        if (out_bytes != nullptr) *out_bytes = 0;
        return nullptr;
    }
    return qel_aec_feed_data(api->aec, mic, mic_bytes, ref, ref_bytes, is_end, out_bytes);
}

int32_t qel_api_aec_get_tracking_stats(const qel_api_aec_t* api, qel_aec_tracking_stats* stats) {
    return api != nullptr ? qel_aec_get_tracking_stats(api->aec, stats) : -1;
}

int32_t qel_api_aec_get_stats(const qel_api_aec_t* api, qel_aec_stats* stats) {
    return api != nullptr ? qel_aec_get_stats(api->aec, stats) : -1;
}

const char* qel_api_aec_get_version(void) { return qel_aec_get_version(); }
