// The canceller behind a handle: loads its configuration and owns it together with the instance.
#include "qel/api/qel_api_aec.h"

#include "qel/core/config/qel_config_base.h"
#include "qel/core/config/qel_config_ryl.h"
#include "qel/core/internal.hpp"
#include "qel/core/source/qel_source.h"
#include "qel/core/source/qel_source_file.h"

namespace {

constexpr char kSource[] = "qel/api/qel_api_aec";
constexpr char kSection[] = "aec";

/// A zeroed record, or null with a log line.
template <class T>
T* make_record() {
    T* const record = qel::make_zeroed<T>().release();
    if (record == nullptr) QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    return record;
}

}  // namespace

qel_aec_cfg* qel_api_aec_cfg_new_fn(const char* path) {
    if (path == nullptr) return nullptr;
    qel_aec_cfg* const cfg = make_record<qel_aec_cfg>();
    if (cfg == nullptr) return nullptr;
    qel_config_ryl* const tree = qel_config_ryl_new_fn(path);
    if (tree == nullptr) {
        std::free(cfg);
        return nullptr;
    }
    qel_config_items* const section = qel_config_items_find_subitems(tree->root, kSection);
    cfg->cfg_tree = tree;
    qel_aec_cfg_init(cfg);
    qel_aec_cfg_update_local(cfg, section);
    qel_source_loader loader = {nullptr, qel_source_file_load};
    qel_aec_cfg_update(cfg, &loader);
    return cfg;
}

void qel_api_aec_cfg_delete_fn(qel_aec_cfg* cfg) {
    if (cfg == nullptr) return;
    qel_config_ryl_delete(cfg->cfg_tree);
    qel_aec_cfg_clean(cfg);
    std::free(cfg);
}

qel_api_aec_t* qel_api_aec_new(const char* path, uint32_t is_bin) {
    // The binary form does not exist in this build.
    if (is_bin != 0) return nullptr;
    qel_api_aec_t* const api = make_record<qel_api_aec_t>();
    if (api == nullptr) return nullptr;
    api->cfg = qel_api_aec_cfg_new_fn(path);
    if (api->cfg != nullptr) api->aec = qel_aec_new(api->cfg);
    if (api->aec == nullptr) {
        qel_api_aec_delete(api);
        return nullptr;
    }
    return api;
}

void qel_api_aec_delete(qel_api_aec_t* api) {
    if (api == nullptr) return;
    qel_aec_delete(api->aec);
    if (!api->cfg_is_binary) qel_api_aec_cfg_delete_fn(api->cfg);
    std::free(api);
}

void qel_api_aec_reset(qel_api_aec_t* api) { qel_aec_reset(api->aec); }

const char* qel_api_aec_feed_data(qel_api_aec_t* api, const void* mic, uint32_t mic_bytes,
                                  const void* ref, uint32_t ref_bytes, uintptr_t is_end,
                                  uint32_t* out_bytes) {
    return qel_aec_feed_data(api->aec, mic, mic_bytes, ref, ref_bytes, is_end, out_bytes);
}

const char* qel_api_aec_get_version(void) { return qel_aec_get_version(); }
