// The canceller's handle: what makes one, what it refuses and what it says about that.
#include "qel/api/qel_api_aec.h"

#include <gmock/gmock.h>

#include "tests/support/log_capture.hpp"
#include "tests/support/temp_path.hpp"

namespace {

using testing::HasSubstr;

TEST(ApiAec, ConfigurationDecidesAndIsExplained) {
    const struct {
        const char* text;
        int16_t frame_size;  // 0: refused
        const char* log;     // of which this is a part; "": nothing at all
        const char* reason = "";
    } cases[] = {
        {"aec = { use_vad = 1; frame_size = 256; nlp = { frame_size = 256; } }", 256, ""},
        {"aec = { }", 512, ""},
        {"aec = 1; other = { frame_size = 256; }", 512, "is a section"},
        {"aec = {\n tpas = on; }", 512,
         ":2:2: aec > tpas = on: there is no such key and it is not read; the nearest known one is "
         "taps\n"},
        {"aec = { frame_lze = 1; }", 512, "the nearest known one is frame_size\n"},
        {"aec = { vad = { frame_lze = 1; } }", 512, "the nearest known one is frame_len\n"},
        {"aec = { taps = 6 }", 0, ":1:17: expected ';' right behind a plain value",
         "found a blank"},
        {"aec = { taps = 6 ; }", 0, "invalid format: [aec = { taps = 6] at 4", "expected ';'"},
        {"/* far */ aec = {}", 0, ":1:2: only '#' begins a comment; found '*'", "begins a comment"},
        {"aec = { freqs = 48000; }", 0, "does not fit and is taken as -17536",
         "freqs = 48000 cannot work: must be 512 to 32767."},
        {"", 0, "empty: ", "empty: "}};
    for (const auto& c : cases) {
        const TempFolder folder;
        const std::string path = folder.write("aec.conf", c.text);
        for (const bool in_memory : {false, true}) {
            const LogCapture log;
            qel_api_aec_t* const api =
                in_memory ? qel_api_aec_new_text(c.text, static_cast<uint32_t>(strlen(c.text)))
                          : qel_api_aec_new(path.c_str(), 0);
            EXPECT_EQ(api ? api->cfg->frame_size : 0, c.frame_size) << c.text;
            EXPECT_EQ(api ? api->cfg->fft_size : 0, 2 * c.frame_size) << c.text;
            EXPECT_THAT(log.text(), HasSubstr(c.log));
            EXPECT_EQ(log.has(in_memory ? "(text)" : path), *c.log != '\0') << log.text();
            EXPECT_THAT(qel_api_aec_last_error(), HasSubstr(c.reason));
            qel_api_aec_delete(api);
        }
    }
}

TEST(ApiAec, NamesTheFilesThatIncludeABadOne) {
    const LogCapture log;
    const TempFolder folder;
    folder.write("bad", "b = 1 ;");
    const std::string path = folder.write("aec.conf", "\n#include ${pwd}/bad;");
    EXPECT_EQ(qel_api_aec_new(path.c_str(), 0), nullptr);
    EXPECT_THAT(qel_api_aec_last_error(), HasSubstr(" (included from " + path + ":2)"));
}

TEST(ApiAec, SurvivesWhatIsNotThere) {
    const LogCapture log;
    EXPECT_EQ(qel_api_aec_new("/nonexistent", 0x100), nullptr);  // any bit: it is not looked at
    EXPECT_EQ(log.text(), "");
    EXPECT_THAT(qel_api_aec_last_error(), HasSubstr("binary"));
    EXPECT_EQ(qel_api_aec_new(nullptr, 0), nullptr);
    EXPECT_THAT(qel_api_aec_last_error(), HasSubstr("path"));
    EXPECT_EQ(qel_api_aec_new("/nonexistent", 0), nullptr);
    EXPECT_TRUE(log.has("cannot open \"/nonexistent\"."));
    EXPECT_EQ(qel_api_aec_new_text(nullptr, 9), nullptr);
    EXPECT_STREQ(qel_api_aec_get_version(), "spu/aec v1.0.8");
    uint32_t bytes = 9;
    EXPECT_EQ(qel_api_aec_feed_data(nullptr, "", 0, "", 0, 0, &bytes), nullptr);
    EXPECT_EQ(bytes, 0u);
    EXPECT_EQ(qel_api_aec_get_stats(nullptr, nullptr), -1);
    qel_api_aec_reset(nullptr);
}

}  // namespace
