// The module in a real Lua: any JSON, any strings to feed and to separate, objects collected by
// hand or by Lua, strangers in their place.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "fuzz/fuzz.hpp"
#include "qel/api/echo_lua.h"

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

namespace {

constexpr int kFile = 100, kSlots = 4, kFrame = 16;
constexpr char kConfiguration[] =
    "aec = { frame_size = 16; freqs = 8000; taps = 2; use_vad = 1; vad = { spe2sil_num = 1; }\n"
    "nlp = { frame_size = 16; freqs = 8000; nb_banks = 12; } }";
#define GOOD_START "{\"qelCfgFile\":\"/proc/self/fd/100\",\"frameLen\":"

void make_file() {
    if (fcntl(kFile, F_GETFD) != -1) return;
    const int file = memfd_create("configuration", 0);
    require(dup2(file, kFile) == kFile);
    require(write(kFile, kConfiguration, strlen(kConfiguration)) > 0);
}

struct Host {
    lua_State* L = luaL_newstate();
    int slots[kSlots], create, separate, feed = LUA_NOREF, collect = LUA_NOREF;

    Host() {
        luaL_openlibs(L);
        luaopen_echo(L);
        lua_getfield(L, -1, "new");
        create = luaL_ref(L, LUA_REGISTRYINDEX);
        lua_getfield(L, -1, "separate_channel");
        separate = luaL_ref(L, LUA_REGISTRYINDEX);
        // By reference: a gain is written into the caller's string, which may be one of these
        // names.
        lua_getfield(L, LUA_REGISTRYINDEX, pux_echo_meta);
        lua_getfield(L, -1, "feed");
        feed = luaL_ref(L, LUA_REGISTRYINDEX);
        lua_getfield(L, -1, "__gc");
        collect = luaL_ref(L, LUA_REGISTRYINDEX);
        for (int& slot : slots) {
            lua_newuserdata(L, sizeof(void*) + 8);  // a stranger of the same size
            slot = luaL_ref(L, LUA_REGISTRYINDEX);
        }
    }
    ~Host() { lua_close(L); }

    void push(int reference) { lua_rawgeti(L, LUA_REGISTRYINDEX, reference); }
    void push(const std::string& s) { lua_pushlstring(L, s.data(), s.size()); }
    /// Calls what lies below the arguments; it must not raise an error.
    void call(int arguments, int results) { require(lua_pcall(L, arguments, results, 0) == 0); }
};

std::string json(FuzzedDataProvider* input) {
    if (input->ConsumeBool()) return input->ConsumeRandomLengthString(120);
    std::string text = GOOD_START;
    text += input->ConsumeBool() ? "16" : input->ConsumeRandomLengthString(12);
    if (input->ConsumeBool()) text += ",\"playGain\":" + input->ConsumeRandomLengthString(12);
    return text + "}";
}

/// A string of about as many bytes as a frame has, or of any number.
std::string pcm(FuzzedDataProvider* input) {
    std::string s = input->ConsumeRandomLengthString(80);
    if (input->ConsumeBool()) s.resize(2 * kFrame);
    return s;
}

void make(Host* host, int* slot, const std::string& text) {
    host->push(host->create);
    host->push(text);
    host->call(1, 1);
    require(lua_isnil(host->L, -1) || lua_objlen(host->L, -1) == sizeof(void*) + 8);
    require(text != GOOD_START "16}" || lua_isuserdata(host->L, -1));
    luaL_unref(host->L, LUA_REGISTRYINDEX, *slot);
    *slot = luaL_ref(host->L, LUA_REGISTRYINDEX);
}

void feed(Host* host, int slot, const std::string& mic, const std::string& ref) {
    host->push(host->feed);
    host->push(slot);
    host->push(mic);
    host->push(ref);
    host->call(3, 1);
    require(lua_isnil(host->L, -1) || lua_objlen(host->L, -1) == mic.size());
}

void separate(Host* host, const std::string& stereo) {
    lua_State* const L = host->L;
    host->push(host->separate);
    host->push(stereo);
    host->call(1, LUA_MULTRET);
    if (stereo.empty() || stereo.size() % 4 != 0) return require(lua_isnil(L, -1));
    require(lua_objlen(L, -1) == stereo.size() / 2 && lua_objlen(L, -2) == stereo.size() / 2);
    const char *const second = lua_tostring(L, -1), *const first = lua_tostring(L, -2);
    for (size_t i = 0; i < stereo.size() / 2; i += 2) {
        require(memcmp(&stereo[2 * i], first + i, 2) == 0);
        require(memcmp(&stereo[2 * i + 2], second + i, 2) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    make_file();
    Host host;
    lua_State* const L = host.L;
    for (int steps = 0; input.remaining_bytes() > 0 && steps < 40; ++steps) {
        const auto step = input.ConsumeIntegral<uint8_t>();
        int* const slot = &host.slots[step >> 4 & 3];
        lua_settop(L, 0);
        switch (step & 15) {
            case 0:
            case 1: make(&host, slot, json(&input)); break;
            case 2: make(&host, slot, GOOD_START "16}"); break;
            case 3:
            case 4:
            case 5: {
                const std::string mic = pcm(&input);
                feed(&host, *slot, mic, step & 64 ? mic : pcm(&input));
                break;
            }
            case 6: {  // a new object works, whatever ran before; collected by hand it answers nil
                make(&host, slot, GOOD_START "16}");
                const std::string frame(2 * kFrame, step & 64 ? '\x11' : '\0');
                feed(&host, *slot, frame, frame);
                require(lua_objlen(L, -1) == frame.size());
                if (!(step & 128)) break;
                host.push(host.collect);
                host.push(*slot);
                host.call(1, 0);
                feed(&host, *slot, frame, frame);
                require(lua_isnil(L, -1));
                break;
            }
            case 7:
                host.push(host.collect);
                host.push(*slot);
                host.call(1, 0);
                break;
            case 8: separate(&host, input.ConsumeRandomLengthString(99)); break;
            case 9: lua_gc(L, LUA_GCCOLLECT, 0); break;
            case 10:
                host.push(host.create);
                step & 16 ? lua_newtable(L) : lua_pushnumber(L, step);
                host.call(1, 1);
                require(lua_isnil(L, -1));
                break;
            case 11:  // whatever may stand in an object's place
                host.push(step & 16 ? host.feed : host.collect);
                switch (step >> 5) {
                    case 0: lua_pushnil(L); break;
                    case 1: lua_getglobal(L, "_G"); break;
                    case 2: lua_pushlightuserdata(L, &host); break;
                    case 3: lua_getfield(L, LUA_REGISTRYINDEX, LUA_FILEHANDLE); break;
                    case 4: host.push(input.ConsumeRandomLengthString(20)); break;
                    default: break;
                }
                host.call(lua_gettop(L) - 1, LUA_MULTRET);
                require(lua_gettop(L) == 0 || lua_isnil(L, -1));
                break;
            default:  // it does not take what is no string
                host.push(host.separate);
                lua_pushboolean(L, 1);
                require(lua_pcall(L, 1, LUA_MULTRET, 0) == LUA_ERRRUN);
                break;
        }
    }
    return 0;
}
