// Two hosts that the module does not fit: Lua 5.1 linked in without exported names and, built with
// QEL_LUA_FILE, Lua 5.1 loaded for the program alone. Either runs the chunk that is its argument.
#include <dlfcn.h>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#ifdef QEL_LUA_FILE
#define LUA(name) reinterpret_cast<decltype(&name)>(dlsym(library, #name))
#else
#define LUA(name) name
#endif

int main(int, char** argv) {
#ifdef QEL_LUA_FILE
    void* const library = dlopen(QEL_LUA_FILE, RTLD_NOW | RTLD_LOCAL);
#endif
    lua_State* const L = LUA(luaL_newstate)();
    LUA(luaL_openlibs)(L);
    LUA(luaL_loadstring)(L, argv[1]);
    LUA(lua_pcall)(L, 0, 0, 0);
    LUA(lua_close)(L);
}
