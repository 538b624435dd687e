// What only time shows: hours of audio, thousands of objects, threads side by side. The short forms
// run with every test; QEL_SOAK=1 in the environment chooses the long ones.
#include <gtest/gtest.h>
#include <malloc.h>

#include <thread>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>

#pragma weak __sanitizer_get_current_allocated_bytes
size_t __sanitizer_get_current_allocated_bytes(void);
}

#include "qel/api/echo_lua.h"
#include "qel/api/qel_api_aec.h"
#include "qel/core/qel_debug.h"
#include "tests/support/signals.hpp"
#include "tests/support/states.hpp"
#include "tests/support/temp_path.hpp"

namespace {

constexpr size_t kRate = 16000, kFrame = 512;

/// How often to do what a test repeats.
size_t times(size_t in_short, size_t in_long) {
    return std::getenv("QEL_SOAK") ? in_long : in_short;
}

/// What the program holds, in bytes: exact with a sanitizer. Else glibc counts the freed blocks
/// that a thread keeps, and the resident pages count too, unless they are an emulator's.
struct Memory {
    static bool exact() { return __sanitizer_get_current_allocated_bytes != nullptr; }
    size_t heap = exact() ? __sanitizer_get_current_allocated_bytes()
                          : mallinfo2().uordblks + mallinfo2().hblkhd;
    size_t pages = 0;
    Memory() {
#ifndef QEL_EMULATED
        std::ifstream file("/proc/self/statm");
        if (!exact()) file >> pages >> pages;  // the second number: the resident ones
#endif
    }
    bool is_as(const Memory& before) const {
        return heap <= before.heap + (exact() ? 0 : 1 << 18) && pages <= before.pages + 256;
    }
};

/// A lap of a call: echo alone, then its last quarter with a near end, too.
struct Call {
    const size_t samples = times(8, 96) * kRate / kFrame * kFrame;
    Pcm ref, mic;
    Call() {
        const Signal far = speech(1, samples, kRate, 2000);
        Signal near = speech(2, samples, kRate, 800);
        std::fill_n(near.begin(), samples * 3 / 4, 0.0);
        ref = to_pcm(far);
        mic = to_pcm(echo(far, 1e9, room_response(3, 0.01, 0.03, kRate)) + near);
    }
    /// What the canceller makes of the samples [at, at + n).
    Pcm through(qel_api_aec_t* api, size_t at, size_t n) const {
        uint32_t bytes = 0;
        const auto size = static_cast<uint32_t>(2 * n);
        const auto* out = reinterpret_cast<const int16_t*>(
            qel_api_aec_feed_data(api, &mic[at], size, &ref[at], size, 0, &bytes));
        return {out, out + bytes / 2};
    }
};

class Soak : public testing::Test {
  protected:
    const TempFolder folder;
    const std::string path = folder.write("aec.conf", "aec = { use_vad = 1; use_mute = 0; }");
    inline static const Call call;

    Pcm life() const {
        qel_api_aec_t* const api = qel_api_aec_new(path.c_str(), 0);
        const Pcm out = api ? call.through(api, 0, 20 * kFrame) : Pcm();
        qel_api_aec_delete(api);
        return out;
    }
};

TEST_F(Soak, HoursOfAudioLeaveAllAsItWas) {
    qel_api_aec_t* const api = qel_api_aec_new(path.c_str(), 0);
    const Pcm first = call.through(api, 0, call.samples);
    const size_t laps = times(3, 24 * 3600 * kRate / call.samples);
    Pcm out = first;
    const Memory before;
    for (size_t lap = 1; lap < laps; ++lap) {
        out.clear();
        for (size_t at = 0; at < call.samples; at += kFrame) {
            const Pcm frame = call.through(api, at, kFrame);
            ASSERT_EQ(frame.size(), kFrame);
            out.insert(out.end(), frame.begin(), frame.end());
            ASSERT_TRUE(at % (99 * kFrame) != 0 || all_states(*api->aec, is_finite)) << lap;
        }
    }
    EXPECT_TRUE(Memory().is_as(before));
    const size_t alone = call.samples * 3 / 4;
    EXPECT_GT(erle_db(part(call.mic, 0, alone), part(out, 0, alone)), 25);
    const size_t frames = laps * call.samples / kFrame;
    EXPECT_EQ(api->aec->nlp->adapt_count, std::min<size_t>(frames, 20000)) << "it stops, not wraps";
    qel_api_aec_reset(api);
    EXPECT_EQ(call.through(api, 0, call.samples), first);
    qel_api_aec_delete(api);
}

TEST_F(Soak, InstancesInTurnAreAlikeAndLeaveNothing) {
    const Pcm first = life();
    const Memory before;
    for (size_t i = times(20, 1000); i > 0; --i) ASSERT_EQ(life(), first) << i;
    EXPECT_TRUE(Memory().is_as(before));
}

TEST_F(Soak, LuaObjectsLeaveNothing) {
    lua_State* const L = luaL_newstate();
    luaL_openlibs(L);
    luaopen_echo(L);
    ASSERT_EQ(luaL_loadstring(L,
                              "local json, s = ..., ('\\1\\2'):rep(512)\n"
                              "for i = 1, 10 do assert(#echo.new(json):feed(s, s) == 1024) end\n"
                              "collectgarbage() collectgarbage()"),
              0);
    const auto run = [&](size_t tens) {
        for (; tens > 0; --tens) {
            lua_pushvalue(L, -1);
            lua_pushfstring(L, "{\"qelCfgFile\":\"%s\",\"frameLen\":512}", path.c_str());
            ASSERT_EQ(lua_pcall(L, 1, 0, 0), 0) << lua_tostring(L, -1);
        }
    };
    run(3);
    const Memory before;
    run(times(3, 1000));
    EXPECT_TRUE(Memory().is_as(before));
    lua_close(L);
}

TEST_F(Soak, ThreadsWithTheirOwnInstancesDoNotMeet) {
    const Pcm alone = life();
    const std::string log = folder.path("log"), bad = folder.write("bad", "aec = { taps = ; }");
    FILE* const stream = std::fopen(log.c_str(), "w");
    qel_debug_set_log_fp(stream);
    setenv("TZ", std::time(nullptr) / 3600 % 24 < 12 ? "XXX12" : "XXX-12", 1);  // another day
    tzset();
    constexpr size_t kThreads = 4;
    size_t alike[kThreads] = {}, lives = times(4, 500), whole = 0, dates = 0;
    std::vector<std::thread> threads;
    for (size_t& n : alike) {
        threads.emplace_back([&] {
            for (size_t i = 0; i < lives; ++i) {
                n += life() == alone && !qel_api_aec_new(bad.c_str(), 0);
                for (int k = 0; k < 99; ++k)
                    qel_debug_log(QEL_LOG_INFO, "soak", "thread", 1, "%d.", k);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const size_t n : alike) EXPECT_EQ(n, lives);
    qel_debug_set_log_fp(nullptr);
    std::fclose(stream);
    std::ifstream lines(log);
    for (std::string line; std::getline(lines, line); dates += line[0] == '=')
        whole += line.find("[I] soak:thread:1: ") == 16 && line.back() == '.';
    EXPECT_EQ(whole, kThreads * lives * 99);
    EXPECT_EQ(dates, 1u);
}

}  // namespace
