rockspec_format = "3.0"
package = "qel"
version = "@QEL_VERSION@-1"
source = {url = "@QEL_HOMEPAGE@/qel-@QEL_VERSION@.tar.gz"}
description = {
    summary = "@QEL_DESCRIPTION@",
    detailed = [[
Takes microphone and loudspeaker samples and gives the microphone back without
the loudspeaker's echo. Compiled by GCC 12 or Clang 14, and CMake 3.25.]],
    homepage = "@QEL_HOMEPAGE@",
    maintainer = "@QEL_MAINTAINER@",
    license = "@license_luarocks@",
}
supported_platforms = {"linux"}
dependencies = {"lua >= 5.1, < 5.2"}
external_dependencies = {CJSON = {header = "cjson/cJSON.h", library = "cjson"}}
build = {
    type = "cmake",
    variables = {
        CMAKE_INSTALL_PREFIX = "$(PREFIX)",
        QEL_LUA_DIR = "$(LIBDIR)",
        QEL_TOOL = "OFF",
        QEL_PIPEWIRE = "OFF",
        LUA_INCLUDE_DIR = "$(LUA_INCDIR)",
        CJSON_INCLUDE_DIR = "$(CJSON_INCDIR)",
    },
}
