// The Lua module where a script cannot reach: memory refused to the module, userdata of others, the
// exported name of the metatable, the reason of a failure.
#include "qel/api/echo_lua.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
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
    Host() {
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

    /// Runs a chunk, which must not raise an error.
    void run(const std::string& chunk) {
        EXPECT_EQ(luaL_dostring(L_, chunk.c_str()), 0) << lua_tostring(L_, -1);
    }

  private:
    const TempFolder folder_;
    const int descriptor_ = free_descriptor();
    lua_State* L_ = luaL_newstate();
};

TEST(EchoLua, ModuleAnswersNilWithoutMemoryAndForStrangers) {
    Host host;
    testing::internal::CaptureStdout();
    host.run(
        "local m = getmetatable(echo.new(json)); m.__gc(stranger)\n"
        "debug.setmetatable(stranger, m); m.__gc(stranger)\n"
        "assert(m.feed(stranger, '', '') == nil)");
    {
        const FailingAlloc failing(0, INT64_MAX);  // cJSON's allocator is not this one
        host.run("assert(echo.separate_channel('abcd') == nil and echo.new(json) == nil)");
    }
    EXPECT_THAT(
        testing::internal::GetCapturedStdout(),
        testing::MatchesRegex("echo feed parameters error.\nseparate channel calloc failed.\n"
                              ".*echo new failed"));
}

TEST(EchoLua, MetatableNameIsReadAtEachCall) {
    const char* const kept = std::exchange(pux_echo_meta, "another.meta");
    Host host;
    host.run(
        "local m = debug.getregistry()['another.meta']\n"
        "object = echo.new(json); assert(m and getmetatable(object) == m)\n"
        "debug.getregistry()['third.meta'] = m");
    pux_echo_meta = "third.meta";  // those of the old name still work and are collected
    host.run(
        "local s = ('\\0'):rep(1024); assert(object:feed(s, s) and echo.new(json):feed(s, s))");
    pux_echo_meta = kept;
}

TEST(EchoLua, EveryNilHasItsReason) {
    Host host;
    const TempFolder folder;
    const std::string fifo = folder.path("fifo");
    mkfifo(fifo.c_str(), 0600);
    alarm(5);  // none of them may wait, or read for ever
    for (const std::string& file :
         {std::string("]"), std::string("7"), std::string(R"("/x")"), std::string(R"("/")"),
          std::string(R"("/dev/zero")"), std::string(R"("/etc/passwd", "isBin": 1)"),
          '"' + fifo + '"'}) {
        qel::set_reason("an old one");
        host.run(R"(assert(echo.new('{"frameLen": 1, "qelCfgFile": )" + file + "}') == nil)");
        EXPECT_STRNE(qel::last_reason(), "an old one") << file;
    }
    alarm(0);
}

}  // namespace
