// The Lua module where a script cannot reach: memory refused to Lua or to the module, userdata of
// others, the exported name of the metatable, the reason of a failure.
#include "qel/api/echo_lua.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>

// Lua's own memory: FailingAlloc is for the module's.
void* __real_realloc(void* block, size_t bytes);
}

#include "qel/core/reason.hpp"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/temp_path.hpp"

namespace {

int free_descriptor() {
    const int descriptor = dup(0);
    close(descriptor);
    return descriptor;
}

/// A Lua state with the module, options for echo.new() in the global `json`, and a userdata as
/// large as an object in `stranger`.
class Host {
  public:
    Host() : L_(lua_newstate(allocate, &budget_)) {
        luaL_openlibs(L_);
        luaopen_echo(L_);
        const std::string conf = folder_.write("aec.conf", "aec = { use_vad = 1; }");
        lua_pushfstring(L_, "{\"qelCfgFile\":\"%s\",\"frameLen\":512}", conf.c_str());
        lua_setglobal(L_, "json");
        memset(lua_newuserdata(L_, sizeof(void*) + 8), 0x55, sizeof(void*) + 8);
        lua_setglobal(L_, "stranger");
    }
    ~Host() {
        lua_close(L_);
        EXPECT_EQ(free_descriptor(), descriptor_) << "a file stayed open";
    }

    /// Runs a chunk with that many of Lua's allocations granted; "" or the error's message.
    std::string run(const char* chunk, int64_t budget = INT64_MAX) {
        EXPECT_EQ(luaL_loadstring(L_, chunk), 0);
        budget_ = budget;
        const int status = lua_pcall(L_, 0, 0, 0);
        budget_ = INT64_MAX;
        return status == 0 ? "" : lua_tostring(L_, -1);
    }

  private:
    static void* allocate(void* budget, void* block, size_t old_bytes, size_t bytes) {
        if (bytes > old_bytes && --*static_cast<int64_t*>(budget) < 0) return nullptr;
        if (bytes != 0) return __real_realloc(block, bytes);
        free(block);
        return nullptr;
    }

    const TempFolder folder_;
    const int descriptor_ = free_descriptor();
    int64_t budget_ = INT64_MAX;
    lua_State* L_;
};

// What is lost on the way out, the leak checker finds.
TEST(EchoLua, LuaWithoutMemoryRaisesItsErrorAndLosesNothing) {
    Host host;
    for (const char* chunk : {
             "local o = echo.new(json); local s = ('\\1\\2'):rep(512); assert(o:feed(s, s))",
             "local a, b = echo.separate_channel(('abcd'):rep(999)); assert(#a == 1998 and #b)",
         }) {
        int64_t budget = 0;
        while (host.run(chunk, budget) == "not enough memory") ++budget;
        EXPECT_GT(budget, 2) << chunk;
        EXPECT_EQ(host.run(chunk, budget), "") << chunk;
    }
}

TEST(EchoLua, ModuleAnswersNilWithoutMemoryAndForStrangers) {
    Host host;
    testing::internal::CaptureStdout();
    EXPECT_EQ(host.run("local m = getmetatable(echo.new(json)); m.__gc(stranger)\n"
                       "debug.setmetatable(stranger, m); m.__gc(stranger)\n"
                       "assert(m.feed(stranger, '', '') == nil)"),
              "");
    {
        const FailingAlloc failing(0, INT64_MAX);  // cJSON's allocator is not this one
        EXPECT_EQ(host.run("assert(echo.separate_channel('abcd') == nil)"), "");
        EXPECT_EQ(host.run("assert(echo.new(json) == nil)"), "");
    }
    EXPECT_THAT(
        testing::internal::GetCapturedStdout(),
        testing::MatchesRegex("echo feed parameters error.\nseparate channel calloc failed.\n"
                              ".*echo new failed"));
}

TEST(EchoLua, MetatableNameIsReadAtEachCall) {
    Host before;
    EXPECT_EQ(before.run("object = echo.new(json)"), "");
    const char* const kept = std::exchange(pux_echo_meta, "another.meta");
    Host after;
    EXPECT_EQ(after.run("local m = debug.getregistry()['another.meta']\n"
                        "assert(m and getmetatable(echo.new(json)) == m)"),
              "");
    // Objects of the old name still work and are collected.
    EXPECT_EQ(before.run("local s = ('\\0'):rep(1024); assert(object:feed(s, s))\n"
                         "debug.getregistry()['another.meta'] = getmetatable(object)\n"
                         "assert(echo.new(json):feed(s, s))"),
              "");
    pux_echo_meta = kept;
}

TEST(EchoLua, EveryNilHasItsReason) {
    Host host;
    const std::string fifo = testing::TempDir() + "echo_lua_fifo." + std::to_string(getpid());
    mkfifo(fifo.c_str(), 0600);
    alarm(5);  // none of them may wait, or read for ever
    for (const std::string& file :
         std::initializer_list<std::string>{"]", "7", "\"/x\"", "\"/etc/passwd\", \"isBin\": 1",
                                            "\"/\"", "\"/dev/zero\"", "\"" + fifo + "\""}) {
        qel::set_reason("an old one");
        const std::string json = "{\"frameLen\": 1, \"qelCfgFile\": " + file + "}";
        EXPECT_EQ(host.run(("assert(echo.new('" + json + "') == nil)").c_str()), "") << json;
        EXPECT_STRNE(qel::last_reason(), "an old one") << json;
    }
    alarm(0);
    unlink(fifo.c_str());
}

}  // namespace
