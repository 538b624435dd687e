# What the library calls: Lua 5.1's embedding API (headers only, its symbols come from the host
# interpreter) and cJSON. Both are looked up through the compiler's or toolchain's own paths.
find_path(LUA_INCLUDE_DIR lua.h PATH_SUFFIXES lua5.1 lua51 lua-5.1 lua luajit-2.1
          DOC "Directory of Lua 5.1's lua.h")
find_path(CJSON_INCLUDE_DIR cjson/cJSON.h DOC "Directory that holds cjson/cJSON.h")
find_library(CJSON_LIBRARY cjson DOC "The cJSON library")
foreach(needed LUA_INCLUDE_DIR CJSON_INCLUDE_DIR CJSON_LIBRARY)
    if(NOT ${needed})
        message(FATAL_ERROR "${needed} not found: install Lua 5.1's and cJSON's development files, "
                            "or pass -D${needed}=...")
    endif()
endforeach()

file(STRINGS ${LUA_INCLUDE_DIR}/lua.h lua_version REGEX "define[ \t]+LUA_VERSION_NUM")
if(NOT lua_version MATCHES "LUA_VERSION_NUM[ \t]+501")  # as LuaJIT says too
    set(found ${LUA_INCLUDE_DIR}/lua.h)
    unset(LUA_INCLUDE_DIR CACHE)
    message(FATAL_ERROR "${found} is not Lua 5.1's: pass -DLUA_INCLUDE_DIR=... with the directory "
                        "of one whose LUA_VERSION_NUM is 501")
endif()

if(QEL_TESTS)
    find_package(GTest REQUIRED)
    include(GoogleTest)
endif()
if(QEL_BENCH)
    find_package(benchmark REQUIRED)
endif()
