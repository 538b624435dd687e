#include "qel/spu/sigp/qel_sigp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "qel/spu/aec/qel_aec_nlp.h"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace std::string_literals;
/// The bytes of the frames that are ready after `bytes`, each followed by '|'; the frames go back.
std::string cut(qel_sigp_frame_separator* sep, const std::string& bytes, uint32_t flags = 0) {
    const auto len = static_cast<uint32_t>(bytes.size());
    qel_sigp_frame_separator_feed(sep, len ? bytes.data() : nullptr, len ? len : 9, flags);
    std::string out;
    while (qel_sigp_frame* frame = qel_sigp_frame_separator_pop(sep)) {
        out.append(reinterpret_cast<const char*>(frame->samples), sep->frame_bytes) += '|';
        qel_sigp_frame_separator_push(sep, frame);
    }
    return out;
}

TEST(FrameSeparator, CutsTheStreamWhateverThePieces) {
    const struct {
        const char* what;
        uint32_t frame_bytes, flags;  // flags of the last piece
        std::string first, last, frames;
    } cases[] = {
        {"a byte short waits", 4, 0xfe, "a", "bc", ""},
        {"the end pads it, in a used frame too", 4, 1, "abcd", "efg", "abcd|efg\0|"s},
        {"whole frames leave nothing for the end", 4, 1, "abcdefgh", "", "abcd|efgh|"},
        {"more than the buffer holds", 4, 0, "abc", "defghijklmnop", "abcd|efgh|ijkl|mnop|"},
        {"32-bit samples", 8, 1, "abcdefg", "hi", "abcdefgh|i\0\0\0\0\0\0\0|"s}};
    for (const auto& c : cases) {
        qel_sigp_frame_separator* sep = qel_sigp_frame_separator_new(2);
        sep->frame_bytes = c.frame_bytes;
        for (int round = 0; round < 2; ++round, qel_sigp_frame_separator_reset(sep)) {
            std::string frames = cut(sep, c.first);
            frames += cut(sep, c.last, c.flags);
            EXPECT_EQ(frames += cut(sep, ""), c.frames) << c.what << ", round " << round;
            qel_sigp_frame_separator_feed(sep, "left over", 9, 0);
        }
        EXPECT_EQ(sep->pool.used_q.count, 0u) << c.what;
        qel_sigp_frame_separator_delete(sep);
    }
}

TEST(FrameSeparator, NeedsMemoryForItsFirstFramesOnly) {
    const LogCapture log;
    EXPECT_EQ(qel_sigp_frame_separator_new(0), nullptr);
    for (int allowed = 0; allowed < 2; ++allowed) {  // a record, then its bytes
        qel_sigp_frame_separator* sep = qel_sigp_frame_separator_new(2);
        const FailingAlloc refuse(allowed);
        EXPECT_EQ(qel_sigp_frame_separator_new(2), nullptr) << allowed;
        const FailingAlloc refuse_frame(allowed);
        EXPECT_EQ(cut(sep, "lostkeptx"), "kept|") << allowed;
        const FailingAlloc watch(0, 99);
        for (int i = 0; i < 9; ++i) EXPECT_EQ(cut(sep, "abcx").size(), 5u);
        qel_sigp_frame_separator_delete(sep);
    }
}

TEST(Sigp, CurvesFollowTheirFormulas) {
    qel_vector_union vec{};
    qel_vector_union_init(&vec, QEL_VECTOR_FLOAT32, 6);
    float* x = static_cast<qel_vector_float32*>(vec.vec)->data;
    for (const uint32_t n : {1u, 6u, 1024u}) {
        std::fill_n(x, 6, -1.0f);
        qel_sigp_hanning_window_with_sqrt(&vec, n);
        for (uint32_t i = 0; i < 6; ++i) {  // a Hann window is a squared half sine
            const double sine = i < n ? std::sin(std::numbers::pi * (i + 0.5) / n) : -1.0;
            EXPECT_NEAR(std::fabs(x[i]) * x[i], std::fabs(sine) * sine, 2e-7) << n << ' ' << i;
        }
    }
    std::fill_n(x, 6, -1.0f);
    qel_sigp_gen_delta_floor(&vec, 5, 4, 2.5f);
    qel_vector_union integers{vec.vec, QEL_VECTOR_INT32};  // stay as they are
    qel_sigp_gen_delta_floor(&integers, 6, 4, 1.0f);
    qel_sigp_hanning_window_with_sqrt(&integers, 6);
    EXPECT_EQ(std::vector<float>(x, x + 6), (std::vector<float>{10, 8, 6, 5, 5, -1}));
    qel_vector_union_clean(&vec);
}

TEST(Sigp, HypergeomGainInterpolatesTheSeries) {
    const std::pair<float, double> edges[] = {
        {-0.1f, 1},
        {0, 82.157},
        {9.9f, (0.2 * 3.12431 + 0.8 * 3.20326) / std::sqrt(9.9001)},
        {10.5f, 1 + 0.1296 / 10.5},
        {1e30f, 1},
        {NAN, 1}};
    for (const auto& [x, gain] : edges) EXPECT_NEAR(HypergeomGain(x), gain, 2e-6 * gain) << x;
    const auto series = [](double x) {  // (Gamma(5/4) M(-1/4; 1; -x))^2 by Kummer's formula
        double term = 1.0, sum = 1.0;
        for (int n = 0; n < 100; ++n) sum += term *= (1.25 + n) * x / ((n + 1.0) * (n + 1.0));
        return std::pow(std::tgamma(1.25) * std::exp(-x) * sum, 2.0);
    };
    for (float x = 0.125f; x < 10.0f; x += 0.5f) {
        const double t = 0.75 * series(x - 0.125) + 0.25 * series(x + 0.375);
        EXPECT_NEAR(qel_sigp_hypergeom_gain(x) * std::sqrt(x + 0.0001) / t, 1.0, 5e-5) << x;
    }
}

}  // namespace
