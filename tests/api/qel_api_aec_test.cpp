// The canceller's handle: what makes one, what it refuses, and what it leaves when memory runs out.
#include "qel/api/qel_api_aec.h"

#include <gtest/gtest.h>

#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/temp_path.hpp"

namespace {

/// The path of a file with this text, for its lifetime; a path is taken as it is.
struct ConfigFile {
    explicit ConfigFile(const std::string& text)
        : path(text[0] == '/' ? text : folder.write("aec.conf", text)) {}
    const TempFolder folder;
    const std::string path;
};

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
        const LogCapture log;
        qel_api_aec_t* const api = qel_api_aec_new(ConfigFile(c.text).path.c_str(), c.is_bin);
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

// What is lost on the way out, the leak checker finds.
TEST(ApiAec, MemoryRefusedAnywhereGivesNullOrAWorkingHandle) {
    const ConfigFile file("aec = { use_vad = 1; vad = { amp_thresh = 5; } }");
    const LogCapture log;
    const std::vector<int16_t> mic(512, 7), silence(512);
    int refused = 0, made = 0;
    bool was_short = true;  // of memory, once
    testing::internal::CaptureStdout();
    for (int64_t allowed = 0; was_short; ++allowed) {
        auto failing = std::make_unique<FailingAlloc>(allowed);
        qel_api_aec_t* api = qel_api_aec_new(file.path.c_str(), 0);
        was_short = FailingAlloc::count() > allowed;
        failing.reset();
        ++(api == nullptr ? refused : made);
        const char* out = "";
        for (int frame = 0; api != nullptr && frame < 2; ++frame) {
            uint32_t bytes = 0;
            out = qel_api_aec_feed_data(api, mic.data(), 1022, silence.data(), 1022, 0, &bytes);
            EXPECT_EQ(bytes, 0u);  // two bytes short
            out = qel_api_aec_feed_data(api, &mic[511], 2, &silence[511], 2, 0, &bytes);
            ASSERT_EQ(bytes, 1024u);
            EXPECT_EQ(out[0], frame == 0 ? 0 : 7);  // one frame behind
            qel_aec_stats stats = {};
            EXPECT_EQ(qel_api_aec_get_stats(api, &stats), 0);
            EXPECT_EQ(stats.bypassed, 1u + static_cast<unsigned>(frame));
            if (frame == 1) qel_api_aec_reset(api);
        }
        qel_api_aec_delete(api);
    }
    EXPECT_GT(refused, 60);
    EXPECT_GT(made, 2) << "the suppressor's scratch and the review can be done without";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ptmpbuf alloc fail.\n");
    EXPECT_TRUE(log.has("out of memory."));
}

}  // namespace
