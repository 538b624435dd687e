// The canceller's configuration: defaults, keys, derived sizes, and what is refused.
#include "qel/spu/aec/qel_aec_cfg.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "qel/spu/aec/qel_aec.h"
#include "tests/spu/support.hpp"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using Keys = std::map<std::string, std::string>;

/// What a file with these keys in its "aec" section, and in sections inside it, configures.
struct Configured {
    explicit Configured(const Keys& keys, const std::map<std::string, Keys>& sections)
        : tree(make_section(keys)) {
        for (const auto& [name, inner] : sections) {
            qel_config_items_add_subitems(tree.get(), name.c_str(), make_section(inner).release());
        }
        qel_aec_cfg_init(&cfg);
        qel_aec_cfg_update_local(&cfg, tree.get());
        qel_aec_cfg_update(&cfg, nullptr);
    }
    Section tree;
    qel_aec_cfg cfg{};
};

/// The byte behind num_bank that holds the flags.
int flags(const qel_aec_cfg& cfg) {
    uint8_t byte;
    std::memcpy(&byte, reinterpret_cast<const char*>(&cfg.num_bank) + sizeof cfg.num_bank, 1);
    return byte;
}

/// The numbers of the main section, in one line.
std::string numbers(const qel_aec_cfg& c) {
    std::ostringstream text;
    for (const int value : {c.freqs + 0, c.frame_size + 0, c.taps + 0, c.offset_bins + 0,
                            c.nb_banks + 0, c.fft_size + 0, c.fft_bins + 0, c.num_bank + 0}) {
        text << value << ' ';
    }
    text << "type " << c.md_type << " flags " << flags(c);
    return text.str();
}

TEST(AecCfg, ReadsItsKeys) {
    const struct {
        const char* what;
        Keys keys;
        const char* numbers;
    } cases[] = {
        {"defaults", {}, "16000 512 4 0 24 1024 513 513 type 0 flags 21"},
        {"all sizes follow the frame, whatever their keys say",
         {{"frame_size", "256"}, {"fft_size", "4096"}, {"fft_bins", "9"}, {"num_bank", "9"}},
         "16000 256 4 0 24 512 257 257 type 0 flags 21"},
        {"integers are cut to 16 bits, and a text without digits is 0",
         {{"freqs", "8000"}, {"taps", "65541"}, {"offset_bins", "none"}, {"nb_banks", "0x1"}},
         "8000 512 5 0 0 1024 513 513 type 0 flags 21"},
        {"type overrides md_type; Yes and t are true",
         {{"type", "FIXED16"}, {"md_type", "0"}, {"use_vad", "Yes"}, {"use_hdr", "t"}},
         "16000 512 4 0 24 1024 513 513 type 2 flags 31"},
        {"an unknown type is float32; on and 0 are false",
         {{"type", "fixed"}, {"md_type", "1"}, {"use_nlp", "on"}, {"use_mute", "0"}},
         "16000 512 4 0 24 1024 513 513 type 0 flags 4"},
        {"md_type alone", {{"md_type", "1"}}, "16000 512 4 0 24 1024 513 513 type 1 flags 21"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(numbers(Configured(c.keys, {}).cfg), c.numbers) << c.what;
    }
    Configured small({{"frame_size", "256"}, {"use_vad", "1"}}, {});
    EXPECT_EQ(small.cfg.nlp.frame_size, 512) << "the suppressor keeps its own";
    EXPECT_EQ(small.cfg.mute.mute_frames, 31u);
    small.cfg.flags_spare = 5;
    qel_aec_cfg_init(&small.cfg);
    EXPECT_EQ(flags(small.cfg), 5 * 32 + 21) << "spare bits survive";
}

TEST(AecCfg, ReadsASectionOnlyWhenItsSwitchIsOn) {
    const std::map<std::string, Keys> sections = {{"nlp", {{"nb_banks", "30"}}},
                                                  {"vad", {{"amp_thresh", "7.5"}}},
                                                  {"mute", {{"mute_time", "2"}}}};
    const Configured on({{"use_vad", "1"}}, sections);
    EXPECT_EQ(on.cfg.nlp.nb_banks, 30);
    EXPECT_EQ(on.cfg.vad[0].amp_thresh, 7.5f);
    EXPECT_EQ(on.cfg.vad[1].amp_thresh, 7.5f);
    EXPECT_EQ(on.cfg.mute.mute_frames, 62u);
    const Configured off({{"use_nlp", "no"}, {"use_mute", "no"}}, sections);
    EXPECT_EQ(off.cfg.nlp.nb_banks, 24);
    EXPECT_EQ(off.cfg.vad[0].amp_thresh, 5.0f);
    EXPECT_EQ(off.cfg.mute.mute_time, 1.0f);
}

TEST(AecCfg, RefusesWhatCannotWorkAndFitsTheRest) {
    const struct {
        const char* key;  // with "nlp", in that section
        const char* value;
        const char* log;  // part of the only message
    } cases[] = {
        {"frame_size", "0", "[E] qel_aec:in_range"},
        {"frame_size", "-512", "frame_size = -512"},
        {"frame_size", "16384", "frame_size = 16384"},
        {"frame_size", "many", "frame_size = 0"},
        {"freqs", "511", "freqs = 511"},
        {"freqs", "48000", "freqs = -17536"},
        {"taps", "0", "taps = 0"},
        {"nb_banks", "11", "nb_banks = 11"},
        {"offset_bins", "-1", "offset_bins = -1"},
        {"nlp nb_banks", "11", "nlp > nb_banks = 11"},
        {"nlp freqs", "0", "nlp > freqs = 0"},
        {"nlp frame_size", "256", "[W] qel_aec:fit_sub_configurations"},
        {"nlp frame_size", "-1", "nlp > frame_size = -1 differs from frame_size = 512"},
        {"type", "fixed16", "[W] qel_aec:fit_sub_configurations"},
        {"offset_bins", "600", ""},
        {"freqs", "512", ""},
    };
    for (const auto& c : cases) {
        const std::string key = c.key;
        const bool inner = key.starts_with("nlp ");
        const Keys keys = {{inner ? key.substr(4) : key, c.value}};
        const Configured configured(inner ? Keys{} : keys, {{"nlp", inner ? keys : Keys{}}});
        LogCapture log;
        qel_aec* aec = qel_aec_new(&configured.cfg);
        EXPECT_EQ(aec == nullptr, log.has("[E]")) << key;
        EXPECT_TRUE(log.has(c.log)) << log.text();
        EXPECT_EQ(log.text().empty(), *c.log == '\0') << log.text();
        qel_aec_delete(aec);
    }
}

TEST(AecCfg, MakesAllOfACancellerOrNothing) {
    const Configured configured({{"use_vad", "yes"}}, {});
    int64_t allocations;
    {
        FailingAlloc count(INT64_MAX, 0);
        qel_aec_delete(qel_aec_new(&configured.cfg));
        allocations = FailingAlloc::count();
    }
    ASSERT_GT(allocations, 40);
    int made = 0;
    LogCapture log;
    testing::internal::CaptureStdout();
    for (int64_t i = 0; i < allocations; ++i) {  // leaks are the sanitizer's to find
        FailingAlloc refuse(i);
        qel_aec* aec = qel_aec_new(&configured.cfg);
        if (aec) ++made;
        qel_aec_delete(aec);
    }
    EXPECT_EQ(made, 1);  // the suppressor's scratch alone can be done without
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ptmpbuf alloc fail.\n");
    EXPECT_TRUE(log.has("out of memory."));
}

}  // namespace
