// The canceller's configuration: defaults, keys, derived sizes, and what is refused.
#include "qel/spu/aec/qel_aec_cfg.h"

#include <gtest/gtest.h>

#include "qel/spu/aec/qel_aec.h"
#include "tests/support/each.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/parsed.hpp"

namespace {

/// What a file with this text in its section "aec" configures.
struct Configured : qel_aec_cfg {
    explicit Configured(const std::string& text)
        : qel_aec_cfg{}, tree(parse("aec = {" + text + "}")) {
        qel_aec_cfg_init(this);
        cfg_tree = tree.get();
        qel_aec_cfg_update_local(this, qel_config_items_find_subitems(tree->root, "aec"));
        qel_aec_cfg_update(this, nullptr);
    }
    Parser tree;
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
        const char *what, *text, *numbers;  // of which the last are the type and the flags
    } cases[] = {{"defaults", "", "16000 512 4 0 24 1024 513 513 0 21 "},
                 {"all sizes follow the frame, whatever their keys say",
                  "frame_size = 256; fft_size = 4096; fft_bins = 9; num_bank = 9;",
                  "16000 256 4 0 24 512 257 257 0 21 "},
                 {"integers are cut to 16 bits, and a text without digits is 0",
                  "freqs = 8000; taps = 65541; offset_bins = none; nb_banks = 0x1;",
                  "8000 512 5 0 0 1024 513 513 0 21 "},
                 {"type overrides md_type; Yes and t are true",
                  "type = FIXED16; md_type = 0; use_vad = Yes; use_hdr = t;",
                  "16000 512 4 0 24 1024 513 513 2 31 "},
                 {"an unknown type is float32; on and 0 are false",
                  "type = fixed; md_type = 1; use_nlp = on; use_mute = 0;",
                  "16000 512 4 0 24 1024 513 513 0 4 "},
                 {"md_type alone", "md_type = 1;", "16000 512 4 0 24 1024 513 513 1 21 "}};
    for (const auto& c : cases) EXPECT_EQ(numbers(Configured(c.text)), c.numbers) << c.what;
    Configured small("frame_size = 256; use_vad = 1;");
    EXPECT_EQ(small.nlp.frame_size, 512) << "the suppressor keeps its own";
    EXPECT_EQ(small.mute.mute_frames, 31u);
    small.flags_spare = 5;
    qel_aec_cfg_init(&small);
    EXPECT_EQ(numbers(small), "16000 512 4 0 24 1024 513 513 0 181 ") << "spare bits survive";
}

TEST(AecCfg, ReadsASectionOnlyWhenItsSwitchIsOn) {
    const std::string sections =
        "nlp = { nb_banks = 30; } vad = { amp_thresh = 7.5; } mute = { mute_time = 2; }";
    const Configured on(sections + "use_vad = 1;"), off(sections + "use_nlp = no; use_mute = no;");
    const auto numbers = [](const Configured& c) {
        return each(c.nlp.nb_banks, c.vad[0].amp_thresh, c.vad[1].amp_thresh, c.mute.mute_time,
                    c.mute.mute_frames);
    };
    EXPECT_EQ(numbers(on), "30 7.500000 7.500000 2.000000 62");
    EXPECT_EQ(numbers(off), "24 5.000000 5.000000 1.000000 0");
}

TEST(AecCfg, RefusesWhatCannotWorkAndFitsTheRest) {
    const struct {
        const char *text, *log;  // part of the only message
        void (*change)(qel_aec_cfg&) = [](qel_aec_cfg&) {};
    } cases[] = {
        {"frame_size = 0;", "[E] qel_aec:in_range"},
        {"frame_size = -512;", "frame_size = -512"},
        {"frame_size = 16384;", "frame_size = 16384"},
        {"taps = 0;", "taps = 0"},
        {"freqs = 511;", "freqs = 511"},
        {"freqs = 48000;", "freqs = 48000"},
        {"nb_banks = 11;", "nb_banks = 11"},
        {"offset_bins = -1;", "offset_bins = -1"},
        {"nlp = { nb_banks = 11; }", "nlp > nb_banks = 11"},
        {"nlp = { freqs = 0; }", "nlp > freqs = 0"},
        {"offset_bins = 600;", ""},
        {"freqs = 512;", ""},
        {"nlp = { frame_size = -1; }", "nlp > frame_size = -1 differs from frame_size = 512"},
        {"use_nlp = no; frame_size = 256;", ""},
        {"type = fixed16;", "[W] qel_aec:fit_sub_configurations"},
        {"taps = 6;", "taps = 0 cannot work", [](qel_aec_cfg& c) { c.taps = 0; }},
        {"", "freqs = -17536", [](qel_aec_cfg& c) { c.cfg_tree = nullptr, c.freqs = -17536; }},
        {"", "fft_size = 7", [](qel_aec_cfg& c) { c.fft_size = 7; }},
        {"", "fft_bins = 7", [](qel_aec_cfg& c) { c.fft_bins = 7; }},
        {"", "num_bank = 7", [](qel_aec_cfg& c) { c.num_bank = 7; }},
    };
    for (const auto& c : cases) {
        Configured cfg(c.text);
        c.change(cfg);
        const LogCapture log;
        qel_aec* aec = qel_aec_new(&cfg);
        EXPECT_EQ(aec == nullptr, log.has("[E]")) << c.text;
        EXPECT_TRUE(log.has(c.log)) << log.text();
        EXPECT_EQ(log.text().empty(), *c.log == '\0') << log.text();
        qel_aec_delete(aec);
    }
}

}  // namespace
