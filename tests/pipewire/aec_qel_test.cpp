// The plugin through the interface that PipeWire's module echo-cancel calls, without the server.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <spa/interfaces/audio/aec.h>
#include <spa/support/plugin.h>

#include <cmath>
#include <map>

#include "qel/api/qel_api_aec.h"
#include "tests/support/signals.hpp"

static uint64_t allocations = 0;
#ifdef QEL_COUNT_ALLOCATIONS  // those of the plugin and of what it calls too
extern "C" void *__libc_malloc(size_t), *__libc_calloc(size_t, size_t);
extern "C" void* malloc(size_t n) { return ++allocations, __libc_malloc(n); }
extern "C" void* calloc(size_t n, size_t size) { return ++allocations, __libc_calloc(n, size); }
#endif

namespace {

using Floats = std::vector<float>;
using Arguments = std::map<std::string, std::string>;

class Aec {
  public:
    Aec(const Arguments& arguments, uint32_t rate, uint32_t channels) {
        const auto enumerate = reinterpret_cast<spa_handle_factory_enum_func_t>(
            dlsym(dlopen(QEL_PLUGIN, RTLD_NOW), SPA_HANDLE_FACTORY_ENUM_FUNC_NAME));
        const spa_handle_factory* factory = nullptr;
        uint32_t index = 0;
        enumerate(&factory, &index);
        memory_.resize(factory->get_size(factory, nullptr) / sizeof memory_[0] + 1);
        factory->init(factory, handle(), nullptr, nullptr, 0);
        handle()->get_interface(handle(), SPA_TYPE_INTERFACE_AUDIO_AEC, &face_);
        std::vector<spa_dict_item> items;
        for (const auto& [key, value] : arguments) items.push_back({key.c_str(), value.c_str()});
        const spa_dict dict = {0, static_cast<uint32_t>(items.size()), items.data()};
        spa_audio_info_raw info = {};
        info.rate = rate, info.channels = channels;
        EXPECT_EQ(spa_audio_aec_init(get(), &dict, &info), 0);
    }
    ~Aec() { handle()->clear(handle()); }
    std::vector<Floats> run(const std::vector<Floats>& mic, const std::vector<Floats>& ref,
                            size_t block) {
        std::vector<Floats> out(mic.size(), Floats(mic[0].size()));
        for (size_t at = 0; at + block <= mic[0].size(); at += block) {
            const float *mics[] = {&mic[0][at], &mic.back()[at]},
                        *refs[] = {&ref[0][at], &ref.back()[at]};
            float* outs[] = {&out[0][at], &out.back()[at]};
            const uint64_t before = allocations;
            spa_audio_aec_run(get(), mics, refs, outs, static_cast<uint32_t>(block));
            EXPECT_EQ(allocations, before);
        }
        return out;
    }
    spa_audio_aec* get() { return static_cast<spa_audio_aec*>(face_); }

  private:
    spa_handle* handle() { return reinterpret_cast<spa_handle*>(memory_.data()); }
    std::vector<std::max_align_t> memory_;
    void* face_;
};

Floats floats(const int16_t* x, size_t n, size_t later) {
    Floats y(later);
    std::transform(x, x + n - later, std::back_inserter(y), [](float v) { return v / 32768; });
    return y;
}

TEST(PipewirePlugin, GivesTheLibrarysSamplesForEveryChannelAndBlock) {
    const struct {
        uint32_t rate;
        size_t block, later;  // whole frames cost nothing, others one frame
        const char* sizes;
    } cases[] = {{16000, 512, 0, "freqs = 16000; frame_size = 512;"},
                 {16000, 1536, 0, "freqs = 16000; frame_size = 512;"},
                 {16000, 480, 512, "freqs = 16000; frame_size = 512;"},
                 {32000, 999, 1024, "freqs = 32000; frame_size = 1024;"},
                 {8000, 1, 256, "freqs = 8000; frame_size = 256;"}};
    for (const auto& c : cases) {
        const std::string text = std::string("aec = {") + c.sizes + "nlp = {" + c.sizes +
                                 "} use_vad = yes; use_kalman = yes; use_residual = yes;"
                                 "use_align = yes; mute = { mute_time = 0; } }";
        const auto n = static_cast<uint32_t>(2 * c.rate / c.block * c.block);
        std::vector<Floats> mics, refs, expected;
        for (uint32_t channel = 0; channel < 2; ++channel) {
            const int rate = static_cast<int>(c.rate);
            const Signal far = speech(channel, n, rate, 2000);
            const Pcm ref = to_pcm(far),
                      mic = to_pcm(echo(far, 1e9, room_response(channel, 0.002, 0.1, rate)));
            auto* const api = qel_api_aec_new_text(text.data(), static_cast<uint32_t>(text.size()));
            const void* out =
                qel_api_aec_feed_data(api, mic.data(), 2 * n, ref.data(), 2 * n, 1, nullptr);
            expected.push_back(floats(static_cast<const int16_t*>(out), n, c.later));
            mics.push_back(floats(mic.data(), n, 0)), refs.push_back(floats(ref.data(), n, 0));
            qel_api_aec_delete(api);
        }
        // The noise that fills in is a matter of chance.
        Aec aec({{"qel.use_comfort", "no"}}, c.rate, 2);
        auto got = aec.run(mics, refs, c.block);
        // What the last, unfinished frame holds comes with later blocks.
        for (auto* all : {&got, &expected}) {
            for (Floats& x : *all) x.resize(n - 1024);
        }
        EXPECT_EQ(got, expected) << c.rate << " Hz, blocks of " << c.block;
    }
}

TEST(PipewirePlugin, ResamplesToItsOwnRateAndKnowsItsLatency) {
    for (const uint32_t rate : {44100u, 48000u, 96000u}) {
        Aec aec({}, rate, 1);
        const float step = 6283.1853f / static_cast<float>(rate);  // of a tone of 1000 Hz
        Floats tone;
        for (uint32_t i = 0; i < rate; ++i) tone.push_back(std::sin(step * static_cast<float>(i)));
        const size_t block = std::stoul(aec.get()->latency);
        const size_t latency = std::stoul(spa_dict_lookup(aec.get()->info, "qel.latency"));
        const Floats out = aec.run({tone}, {Floats(rate)}, block)[0];
        float off = 0;
        for (size_t i = rate / 2; i < rate - block; ++i) {
            off = std::max(off, std::fabs(out[i] - tone[i - latency]));
        }
        EXPECT_LT(off, 0.51f * step) << "more than half a sample at " << rate << " Hz";
    }
}

}  // namespace
