// The canceller's handle: what makes one and what it refuses.
#include "qel/api/qel_api_aec.h"

#include <gtest/gtest.h>

#include "tests/support/log_capture.hpp"
#include "tests/support/temp_path.hpp"

namespace {

TEST(ApiAec, ConfigurationFileDecides) {
    const struct {
        const char* text;
        uint32_t is_bin;
        int16_t frame_size;  // 0: refused
        const char* log;     // part of what is logged; null: nothing at all
    } cases[] = {
        {"aec = { use_vad = 1; frame_size = 256; nlp = { frame_size = 256; } }", 0, 256, nullptr},
        {"aec = { }", 0, 512, nullptr},
        {"aec = 1; other = { frame_size = 256; }", 0, 512, "is a section"},
        {"aec = { frame_size = 256 ; }", 0, 0, "invalid format"},
        {"aec = { frame_size = 0; }", 0, 0, "frame_size"},
        {"", 0, 0, "empty: "},
        {"/nonexistent", 0, 0, "cannot open \"/nonexistent\"."},
        {"/nonexistent", 0x100, 0, nullptr}};  // any bit of is_bin; the file is not looked at
    for (const auto& c : cases) {
        const TempFolder folder;
        const std::string path = *c.text == '/' ? c.text : folder.write("aec.conf", c.text);
        const LogCapture log;
        qel_api_aec_t* const api = qel_api_aec_new(path.c_str(), c.is_bin);
        EXPECT_TRUE(c.log != nullptr ? log.has(c.log) : log.text().empty()) << log.text();
        EXPECT_EQ(api != nullptr ? api->cfg->frame_size : 0, c.frame_size) << c.text;
        EXPECT_EQ(api != nullptr ? api->cfg->fft_size : 0, 2 * c.frame_size) << c.text;
        qel_api_aec_delete(api);
    }
    EXPECT_EQ(qel_api_aec_new(nullptr, 0), nullptr);
    EXPECT_STREQ(qel_api_aec_get_version(), "spu/aec v1.0.8");
    uint32_t bytes = 9;
    EXPECT_EQ(qel_api_aec_feed_data(nullptr, "", 0, "", 0, 0, &bytes), nullptr);
    EXPECT_EQ(bytes, 0u);
    EXPECT_EQ(qel_api_aec_get_stats(nullptr, nullptr), -1);
    qel_api_aec_reset(nullptr);
}

}  // namespace
