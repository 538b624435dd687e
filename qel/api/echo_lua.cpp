// The Lua 5.1 module "echo" on top of the canceller's handle.
#include "qel/api/echo_lua.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

#include "qel/api/echo_options.hpp"
#include "qel/api/qel_api_aec.h"
#include "qel/core/internal.hpp"

// All that the module calls of Lua. lua_objlen, lua_pcall and luaL_register tell 5.1 from what came
// later, where they are no functions.
// clang-format off
#define QEL_LUA_FUNCTIONS(use)                                                                 \
    use(luaL_checklstring) use(luaL_error) use(luaL_newmetatable) use(luaL_register)           \
    use(lua_createtable) use(lua_error) use(lua_getfield) use(lua_newuserdata) use(lua_objlen) \
    use(lua_pcall) use(lua_pushcclosure) use(lua_pushlightuserdata) use(lua_pushlstring)       \
    use(lua_pushnil) use(lua_pushvalue) use(lua_rawequal) use(lua_rawget) use(lua_rawset)      \
    use(lua_setfield) use(lua_setmetatable) use(lua_settop) use(lua_tolstring)                 \
    use(lua_touserdata) use(lua_type)
// clang-format on

// The host interpreter brings them. Weak, so that a program without Lua can link the library.
#define QEL_WEAK(name) extern decltype(name) name [[gnu::weak]];
extern "C" {
QEL_LUA_FUNCTIONS(QEL_WEAK)
}

const char* pux_echo_meta = "pux.echo.meta";

namespace {

constexpr char kSource[] = "qel/api/echo_lua";
constexpr size_t kSampleBytes = 2;

/// Its address is the registry's key for the table that knows the objects of a Lua state.
constexpr char kObjects = 0;

/// The userdata behind each object.
struct EchoObject {
    qel_api_aec_t* api;  // owned; null once collected
    int32_t frame_len;   // samples per channel in one feed
    int32_t play_gain;   // the low 16 bits scale the reference
};
static_assert(offsetof(EchoObject, frame_len) == sizeof(void*));
static_assert(offsetof(EchoObject, play_gain) == sizeof(void*) + 4);

int16_t low16(int32_t value) { return static_cast<int16_t>(value); }

int push_nil(lua_State* L) {
    lua_pushnil(L);
    return 1;
}

/// Prints a line and answers nil.
int fail(lua_State* L, const char* message) {
    std::puts(message);
    return push_nil(L);
}

/// Whether the host brings all of Lua that the module calls.
bool host_fits() {
    bool fits = true;
#define QEL_CHECK(name) fits = fits && name != nullptr;
    QEL_LUA_FUNCTIONS(QEL_CHECK)
    return fits;
}

/// Raises an error if the host has that much of Lua, else says it on standard error.
int refuse_host(lua_State* L) {
    constexpr char kMessage[] =
        "echo.so needs a host that exports Lua 5.1's API, as lua5.1 and luajit do; in a program of "
        "your own link Lua with -Wl,--export-dynamic or load it with RTLD_GLOBAL";
    if (luaL_error != nullptr) return luaL_error(L, "%s", kMessage);
    std::fprintf(stderr, "%s\n", kMessage);
    return 0;
}

/// Pushes the table of the objects; false if it is no table, since scripts can reach it.
bool push_objects(lua_State* L) {
    lua_pushlightuserdata(L, const_cast<char*>(&kObjects));
    lua_rawget(L, LUA_REGISTRYINDEX);
    return lua_type(L, -1) == LUA_TTABLE;
}

/// Makes that table unless there is one. It holds the address of every object that lives, under the
/// object itself, and keeps none alive; in the finaliser an object is still found.
void make_objects(lua_State* L) {
    if (!push_objects(L)) {
        lua_pushlightuserdata(L, const_cast<char*>(&kObjects));
        lua_createtable(L, 0, 1);
        lua_pushlstring(L, "k", 1);
        lua_setfield(L, -2, "__mode");
        lua_pushvalue(L, -1);
        lua_setmetatable(L, -2);
        lua_rawset(L, LUA_REGISTRYINDEX);
    }
    lua_settop(L, -2);
}

/// Adds the userdata on top of the stack to the objects; false if it cannot be.
bool remember(lua_State* L) {
    const bool known = push_objects(L);
    if (known) {
        lua_pushvalue(L, -2);
        lua_pushlightuserdata(L, lua_touserdata(L, -1));
        lua_rawset(L, -3);
    }
    lua_settop(L, -2);
    return known;
}

/// Argument 1 if it is an object of this module, else null; scripts can reach the methods and pass
/// them anything. What it is counts, not its metatable, which hosts and scripts can change.
EchoObject* to_object(lua_State* L) {
    if (lua_objlen(L, 1) != sizeof(EchoObject)) return nullptr;
    void* const block = lua_touserdata(L, 1);
    if (block == nullptr || !push_objects(L)) return nullptr;
    lua_pushvalue(L, 1);
    lua_rawget(L, -2);
    lua_pushlightuserdata(L, block);
    return lua_rawequal(L, -1, -2) != 0 ? static_cast<EchoObject*>(block) : nullptr;
}

/// Whether the file can be opened for reading; says so if not. What would make the opening wait or
/// act, a FIFO or a device, counts as there unopened: the loader refuses it.
bool file_exists(const char* path) {
    struct stat info;
    if (path != nullptr && stat(path, &info) == 0 &&
        (S_ISFIFO(info.st_mode) || S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode))) {
        return true;
    }
    std::FILE* const file = path != nullptr ? std::fopen(path, "r") : nullptr;
    if (file == nullptr) {
        const char* const why = std::strerror(errno);
        if (path != nullptr) QEL_REFUSE("%s cannot be read: %s.", path, why);
        std::printf("%s not exist", path != nullptr ? path : "(null)");
        return false;
    }
    std::fclose(file);
    return true;
}

/// Fills `object` with a canceller in its initial state, as the JSON object `root` asks for; false
/// on failure.
bool create_from(const cJSON* root, EchoObject* object) {
    qel::EchoOptions options;
    if (!qel::read_options(root, &options) || !file_exists(options.path)) return false;
    qel_api_aec_t* const api = qel_api_aec_new(options.path, static_cast<uint32_t>(options.is_bin));
    if (api == nullptr) return false;
    qel_api_aec_reset(api);
    qel::review_frames(options, *api->cfg);
    *object = {api, options.frame_len, options.play_gain};
    return true;
}

/// The same from the JSON text.
bool create(const char* json, EchoObject* object) {
    cJSON* const root = qel::parse_options(json);
    if (root == nullptr) return false;
    const bool made = create_from(root, object);
    cJSON_Delete(root);
    return made;
}

/// Pushes the metatable that objects get, or the nil that the host put in its place; false for
/// anything else.
bool push_metatable(lua_State* L) {
    lua_getfield(L, LUA_REGISTRYINDEX, pux_echo_meta);
    const int type = lua_type(L, -1);
    if (type == LUA_TTABLE || type == LUA_TNIL) return true;
    QEL_REFUSE("\"%s\" of Lua's registry is no table: objects have no methods.", pux_echo_meta);
    return false;
}

/// Multiplies `count` samples in place; products wrap to 16 bits.
void scale(char* samples, int32_t count, int16_t gain) {
    for (int32_t i = 0; i < count; ++i) {
        char* const at = samples + static_cast<size_t>(i) * kSampleBytes;
        int16_t sample;
        std::memcpy(&sample, at, kSampleBytes);
        sample = low16(sample * gain);
        std::memcpy(at, &sample, kSampleBytes);
    }
}

/// Interleaved stereo, and room for one of its channels.
struct Stereo {
    const char* pcm;
    char* channel;
    size_t pairs;
};

/// Pushes both channels of the Stereo that argument 1 points to.
int push_channels(lua_State* L) {
    const auto* const stereo = static_cast<const Stereo*>(lua_touserdata(L, 1));
    for (size_t first = 0; first < 2; ++first) {
        for (size_t i = 0; i < stereo->pairs; ++i) {
            std::memcpy(stereo->channel + i * kSampleBytes,
                        stereo->pcm + (2 * i + first) * kSampleBytes, kSampleBytes);
        }
        lua_pushlstring(L, stereo->channel, stereo->pairs * kSampleBytes);
    }
    return 2;
}

int echo_new(lua_State* L) {
    const char* const reason = qel::last_reason();
    const char* const json = lua_tolstring(L, 1, nullptr);
    auto* const object = static_cast<EchoObject*>(lua_newuserdata(L, sizeof(EchoObject)));
    if (object != nullptr) {
        *object = {};
        // All that may raise an error comes before the canceller, which would be lost.
        if (remember(L) && push_metatable(L) && create(json, object)) {
            lua_setmetatable(L, -2);
            return 1;
        }
    }
    if (qel::last_reason() == reason) qel::set_reason("echo.new failed: the log tells more.");
    std::printf("echo new failed");
    return push_nil(L);
}

int echo_feed(lua_State* L) {
    size_t mic_bytes = 0, ref_bytes = 0;
    lua_settop(L, 3);
    EchoObject* const object = to_object(L);
    const char* const mic = lua_tolstring(L, 2, &mic_bytes);
    const char* const ref = lua_tolstring(L, 3, &ref_bytes);
    if (object == nullptr || mic == nullptr || ref == nullptr || mic_bytes != ref_bytes ||
        static_cast<int64_t>(mic_bytes) != int64_t{object->frame_len} * 2) {
        return fail(L, "echo feed parameters error.");
    }
    // Hosts rely on finding the scaled samples in their own string, constant or not.
    const int16_t gain = low16(object->play_gain);
    if (gain != 1) scale(const_cast<char*>(ref), object->frame_len, gain);

    const auto bytes = static_cast<uint32_t>(mic_bytes);
    uint32_t out_bytes = 0;
    const char* const out =
        object->api != nullptr
            ? qel_api_aec_feed_data(object->api, mic, bytes, ref, bytes, 0, &out_bytes)
            : nullptr;
    if (out == nullptr || out_bytes != bytes) return fail(L, "echo out error.");
    lua_pushlstring(L, out, bytes);
    return 1;
}

int echo_gc(lua_State* L) {
    EchoObject* const object = to_object(L);
    if (object == nullptr) return 0;
    qel_api_aec_delete(object->api);
    object->api = nullptr;  // scripts can reach this function and call it twice
    return 0;
}

int echo_separate_channel(lua_State* L) {
    size_t bytes = 0;
    const char* const pcm = luaL_checklstring(L, 1, &bytes);
    const size_t pairs = bytes / (2 * kSampleBytes);
    if (pcm == nullptr || bytes == 0 || bytes % (2 * kSampleBytes) != 0) {
        return fail(L, "separate channel failed.");
    }
    Stereo stereo = {pcm, nullptr, pairs};
    lua_pushcclosure(L, push_channels, 0);
    lua_pushlightuserdata(L, &stereo);
    stereo.channel = static_cast<char*>(std::calloc(pairs, kSampleBytes));
    if (stereo.channel == nullptr) return fail(L, "separate channel calloc failed.");
    // Protected: if Lua runs out of memory the buffer must not be lost.
    const int status = lua_pcall(L, 1, 2, 0);
    std::free(stereo.channel);
    return status == 0 ? 2 : lua_error(L);
}

}  // namespace

int luaopen_echo(lua_State* L) {
    if (!host_fits()) return refuse_host(L);
    const luaL_Reg functions[] = {
        {"new", echo_new}, {"separate_channel", echo_separate_channel}, {nullptr, nullptr}};
    const luaL_Reg methods[] = {{"feed", echo_feed}, {"__gc", echo_gc}};
    make_objects(L);
    luaL_newmetatable(L, pux_echo_meta);
    for (const luaL_Reg& method : methods) {
        lua_pushcclosure(L, method.func, 0);
        lua_setfield(L, -2, method.name);
    }
    lua_pushvalue(L, -1);
    lua_setfield(L, -2, "__index");
    luaL_register(L, "echo", functions);
    return 1;  // the metatable stays below the module table
}
