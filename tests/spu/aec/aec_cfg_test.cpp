// The canceller's configuration: defaults, keys, derived sizes, and what is refused.
#include "qel/spu/aec/qel_aec_cfg.h"

#include <gtest/gtest.h>

#include "qel/spu/aec/qel_aec.h"
#include "tests/spu/support.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using Keys = std::map<std::string, std::string>;

/// What a file with these keys in its "aec" section, and in sections inside it, configures.
struct Configured {
    explicit Configured(const Keys& keys, const std::map<std::string, Keys>& sections = {})
        : tree(make_section(keys)) {
        for (const auto& [name, inner] : sections)
            qel_config_items_add_subitems(tree.get(), name.c_str(), make_section(inner).release());
        qel_aec_cfg_init(&cfg);
        qel_aec_cfg_update_local(&cfg, tree.get());
        qel_aec_cfg_update(&cfg, nullptr);
    }
    Section tree;
    qel_aec_cfg cfg{};
};

/// The numbers of the main section, in one line; last the byte that holds the flags.
std::string numbers(const qel_aec_cfg& c) {
    std::string text;
    const auto flags = reinterpret_cast<const uint8_t*>(&c.num_bank)[sizeof c.num_bank];
    for (const int64_t value :
         std::initializer_list<int64_t>{c.freqs, c.frame_size, c.taps, c.offset_bins, c.nb_banks,
                                        c.fft_size, c.fft_bins, c.num_bank, c.md_type, flags})
        text += std::to_string(value) + ' ';
    return text;
}

TEST(AecCfg, ReadsItsKeys) {
    const struct {
        const char* what;
        Keys keys;
        const char* numbers;  // the last are the type and the flags
    } cases[] = {
        {"defaults", {}, "16000 512 4 0 24 1024 513 513 0 21 "},
        {"all sizes follow the frame, whatever their keys say",
         {{"frame_size", "256"}, {"fft_size", "4096"}, {"fft_bins", "9"}, {"num_bank", "9"}},
         "16000 256 4 0 24 512 257 257 0 21 "},
        {"integers are cut to 16 bits, and a text without digits is 0",
         {{"freqs", "8000"}, {"taps", "65541"}, {"offset_bins", "none"}, {"nb_banks", "0x1"}},
         "8000 512 5 0 0 1024 513 513 0 21 "},
        {"type overrides md_type; Yes and t are true",
         {{"type", "FIXED16"}, {"md_type", "0"}, {"use_vad", "Yes"}, {"use_hdr", "t"}},
         "16000 512 4 0 24 1024 513 513 2 31 "},
        {"an unknown type is float32; on and 0 are false",
         {{"type", "fixed"}, {"md_type", "1"}, {"use_nlp", "on"}, {"use_mute", "0"}},
         "16000 512 4 0 24 1024 513 513 0 4 "},
        {"md_type alone", {{"md_type", "1"}}, "16000 512 4 0 24 1024 513 513 1 21 "}};
    for (const auto& c : cases) EXPECT_EQ(numbers(Configured(c.keys).cfg), c.numbers) << c.what;
    Configured small({{"frame_size", "256"}, {"use_vad", "1"}}, {});
    EXPECT_EQ(small.cfg.nlp.frame_size, 512) << "the suppressor keeps its own";
    EXPECT_EQ(small.cfg.mute.mute_frames, 31u);
    small.cfg.flags_spare = 5;
    qel_aec_cfg_init(&small.cfg);
    EXPECT_EQ(numbers(small.cfg), "16000 512 4 0 24 1024 513 513 0 181 ") << "spare bits survive";
}

TEST(AecCfg, ReadsASectionOnlyWhenItsSwitchIsOn) {
    const std::map<std::string, Keys> sections = {{"nlp", {{"nb_banks", "30"}}},
                                                  {"vad", {{"amp_thresh", "7.5"}}},
                                                  {"mute", {{"mute_time", "2"}}}};
    const auto on = Configured({{"use_vad", "1"}}, sections).cfg;
    EXPECT_TRUE(on.nlp.nb_banks == 30 && on.mute.mute_frames == 62);
    EXPECT_TRUE(on.vad[0].amp_thresh == 7.5f && on.vad[1].amp_thresh == 7.5f);
    const auto off = Configured({{"use_nlp", "no"}, {"use_mute", "no"}}, sections).cfg;
    EXPECT_TRUE(off.nlp.nb_banks == 24 && off.vad[0].amp_thresh == 5 && off.mute.mute_time == 1);
}

TEST(AecCfg, RefusesWhatCannotWorkAndFitsTheRest) {
    const struct {
        std::string key;          // with "nlp", in that section
        const char *value, *log;  // part of the only message
    } cases[] = {
        {"frame_size", "0", "[E] qel_aec:in_range"},
        {"frame_size", "-512", "frame_size = -512"},
        {"frame_size", "16384", "frame_size = 16384"},
        {"taps", "0", "taps = 0"},
        {"freqs", "511", "freqs = 511"},
        {"freqs", "48000", "freqs = -17536"},
        {"nb_banks", "11", "nb_banks = 11"},
        {"offset_bins", "-1", "offset_bins = -1"},
        {"nlp nb_banks", "11", "nlp > nb_banks = 11"},
        {"nlp freqs", "0", "nlp > freqs = 0"},
        {"offset_bins", "600", ""},
        {"freqs", "512", ""},
        {"nlp frame_size", "-1", "nlp > frame_size = -1 differs from frame_size = 512"},
        {"type", "fixed16", "[W] qel_aec:fit_sub_configurations"},
    };
    for (const auto& c : cases) {
        const bool inner = c.key.starts_with("nlp ");
        const Keys keys = {{inner ? c.key.substr(4) : c.key, c.value}};
        const Configured configured(inner ? Keys{} : keys, {{"nlp", inner ? keys : Keys{}}});
        LogCapture log;
        qel_aec* aec = qel_aec_new(&configured.cfg);
        EXPECT_EQ(aec == nullptr, log.has("[E]")) << c.key;
        EXPECT_TRUE(log.has(c.log)) << log.text();
        EXPECT_EQ(log.text().empty(), *c.log == '\0') << log.text();
        qel_aec_delete(aec);
    }
}

}  // namespace
