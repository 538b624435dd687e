#include "qel/spu/svad/qel_svad.h"

#include <gtest/gtest.h>

#include <cmath>

#include "qel/spu/sigp/frames.hpp"
#include "qel/spu/svad/qel_svad.hpp"
#include "tests/support/each.hpp"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/parsed.hpp"

namespace {

using Detector = std::unique_ptr<qel_svad, void (*)(qel_svad*)>;

/// The defaults, overridden by the keys of a section.
qel_svad_cfg make_cfg(const std::string& keys) {
    qel_svad_cfg cfg{};
    qel_svad_cfg_init(&cfg);
    qel_svad_cfg_update_local(&cfg, parse(keys + "use_16bit = [ 0 ]")->root);
    qel_svad_cfg_update_local(&cfg, nullptr);
    qel_svad_cfg_update(&cfg, nullptr);
    return cfg;
}

TEST(SvadCfg, ReadsPlainStringsOnly) {
    const auto cfg =
        make_cfg("frame_len = 20x; spe2sil_num = -4; amp_thresh = 2.5e1x; bit_extends = -;");
    EXPECT_EQ(each(cfg.frame_len, cfg.framing.frame_len, cfg.framing.use_16bit,
                   cfg.framing.bit_extends, cfg.spe2sil_num, cfg.sil2spe_num, cfg.amp_thresh),
              "20 20 1 0 -4 1 25.000000");
    EXPECT_EQ(make_cfg("bit_extends = 65537;").framing.bit_extends, 1);
    const auto widths = [](const std::string& text) {
        const auto f = make_cfg("use_24bit = y; use_32bit = \"" + text + "\";").framing;
        return 100 * f.use_16bit + 10 * f.use_24bit + f.use_32bit;
    };
    const std::string tail(256, 'x'), yes_tail = "yes" + tail;  // lengths count modulo 256
    for (const auto& yes : {"1", "t", "T", "y", "Y", "yEs", "TRUe", yes_tail.c_str()})
        EXPECT_EQ(widths(yes), 1u) << yes;
    for (const auto& no : {"", "0", "on", "11", "yet", "tree", "yesx", tail.c_str()})
        EXPECT_EQ(widths(no), 10u) << no;
}

TEST(Svad, StateFollowsRunsOfWindows) {  // each window: half at 100 + d, half at 100 - d
    const char* const twos = "spe2sil_num = 2; sil2spe_num = 2;";
    const struct {
        const char *what, *keys;
        std::vector<float> d;  // of each window; the threshold is 5
        std::string states;    // one digit per window
    } cases[] = {
        {"the threshold itself is quiet", "spe2sil_num = 2;", {5, 6, 5, 5}, "0110"},
        {"a loud window restarts the quiet run", "spe2sil_num = 2;", {6, 0, 6, 0, 0}, "11110"},
        {"a quiet window restarts the loud run",
         "spe2sil_num = 1; sil2spe_num = 2;",
         {6, 0, 6, 6},
         "0001"},
        {"a flip starts both counts anew", twos, {6, 6, 0, 0, 6, 6}, "011001"},
        {"a limit of 0 acts as 1", "spe2sil_num = 0; sil2spe_num = 0;", {0, 6, 6, 0}, "0110"},
        {"a reset (-2) forgets it all", twos, {6, 6, 0, -2, 6, 6, 0, 0}, "01100110"},
        {"NaN neither starts nor ends speech", "spe2sil_num = 1;", {NAN, 6, NAN, 0}, "0110"}};
    for (const auto& c : cases) {
        const qel_svad_cfg cfg = make_cfg("frame_len = 2;" + std::string(c.keys));
        const Detector det(qel_svad_new(&cfg), qel_svad_delete);
        std::string states;
        for (const float d : c.d) {
            const float window[] = {100 + d, 100 - d, 100 - d, 100 + d, 9e9f};
            if (d < 0) qel_svad_reset(det.get());
            states += static_cast<char>('0' + qel_svad_judge(det.get(), window));
        }
        EXPECT_EQ(states, c.states) << c.what;
    }
}

TEST(Svad, JudgesPcmAsAnyNumbers) {  // only a mean that was rounded is not that of equal samples
    const qel_svad_cfg cfg = make_cfg("amp_thresh = 0;");
    for (const uint32_t n : {1, 511, 512, 1024, 1500}) {
        for (const float level : {0.0f, 32767.0f, -32768.0f}) {
            const std::vector<float> x(n, level);
            const Detector any(qel_svad_new(&cfg), qel_svad_delete);
            const Detector pcm(qel_svad_new(&cfg), qel_svad_delete);
            EXPECT_EQ(qel::svad_judge_pcm(pcm.get(), x.data(), n),
                      qel::svad_judge_count(any.get(), x.data(), n))
                << n << " times " << level;
            EXPECT_EQ(any->state, n > 512 && level > 0) << n << " times " << level;
        }
    }
}

/// Frames of 4 samples: loud, two silent, loud, half a loud one.
constexpr char kBytes[] =
    "\xe8\3\x18\xfc\xe8\3\x18\xfc\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
    "\xe8\3\x18\xfc\xe8\3\x18\xfc\xe8\3\x18\xfc";

TEST(SvadStream, JudgesFramesUnderTheRisingHalfWindow) {
    qel_svad_cfg cfg = make_cfg("frame_len = 4; spe2sil_num = 1;");
    const Detector det(qel_svad_new(&cfg), qel_svad_delete);
    EXPECT_EQ(qel_svad_feed_data(det.get(), kBytes, 7, 0), -1);
    EXPECT_EQ(qel_svad_feed_data(det.get(), kBytes + 7, 26, 0), 0);
    auto* link = det->frames.head;
    const auto* first = qel::frame_of<qel_framing_frame>(link);
    EXPECT_EQ(first->judged->len, 4u);
    EXPECT_EQ(first->windowed, nullptr);
    const float sine[] = {195.0903f, -555.5702f, 831.4696f, -980.7853f};  // (i + 0.5) pi / 8
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(first->judged->data[i], sine[i], 1e-3);
    std::string tags;
    for (; link; link = link->next) tags += "01?-"[qel::frame_of<qel_framing_frame>(link)->tag];
    EXPECT_EQ(tags, "1001");
    qel_svad_reset(det.get());
    EXPECT_EQ(det->framing->pool.used_q.count + static_cast<uint32_t>(det->state), 0u);
    EXPECT_EQ(qel_svad_feed_data(det.get(), kBytes + 33, 3, 1), 0) << "with the byte that waits";
    EXPECT_EQ(qel::frame_of<qel_framing_frame>(det->frames.head)->sequence, 5u);
    {
        const LogCapture log;
        const FailingAlloc refuse(0);  // the windowed samples of a frame that the pool has
        EXPECT_EQ(qel_svad_feed_data(det.get(), kBytes, 8, 0), -1);
        EXPECT_TRUE(log.has("[W] qel_svad:qel_svad_feed_data:136: feed svad failed."));
        EXPECT_EQ(det->framing->pool.used_q.count, det->frames.count);
    }
    det->frames.count = 2;
    EXPECT_DEATH((qel_debug_set_log_fp(stderr), qel_svad_reset(&*det)),
                 "\\[E\\] qel_svad:qel_svad_reset:98: never be here\\.");
    det->frames.count = 1;

    cfg.frame_len = 6;  // longer than the frames that are cut: zeros fill the window
    const Detector wide(qel_svad_new(&cfg), qel_svad_delete);
    EXPECT_EQ(qel_svad_feed_data(wide.get(), kBytes, 8, 0), 0);
    const auto* padded = qel::frame_of<qel_framing_frame>(wide->frames.head)->judged;
    EXPECT_EQ(padded->len, 6u);
    EXPECT_EQ(padded->data[4] + padded->data[5], 0);
}

}  // namespace
