#include "cancel.h"

#include "qel/qel.h"

uint32_t cancel_silence(const char* config) {
    static const int16_t silence[512];
    uint32_t bytes = 0;
    qel_api_aec_t* api = qel_api_aec_new(config, 0);
    qel_api_aec_feed_data(api, silence, sizeof(silence), silence, sizeof(silence), 0, &bytes);
    qel_api_aec_delete(api);
    return bytes;
}
