SUMMARY = "Acoustic echo canceller for Lua 5.1 and C"
DESCRIPTION = "Takes microphone and loudspeaker samples and gives the microphone \
back without the loudspeaker's echo: a module for Lua 5.1 and LuaJIT that C \
programs can link too."
HOMEPAGE = "@QEL_HOMEPAGE@"
SECTION = "multimedia"
@license_yocto@

DEPENDS = "cjson"

SRC_URI = "@QEL_HOMEPAGE@/${BP}.tar.gz"
SRC_URI[sha256sum] = "@source_sha256@"

inherit cmake

PACKAGECONFIG ??= "luajit"
PACKAGECONFIG[luajit] = ",,luajit,luajit"
PACKAGECONFIG[lua51] = ",,lua5.1,lua5.1"

EXTRA_OECMAKE = "-DQEL_LUA_DIR=${libdir}/lua/5.1 -DQEL_TOOL=OFF -DQEL_PIPEWIRE=OFF"
OECMAKE_CXX_FLAGS_RELEASE = "-O3 -DNDEBUG"

FILES:${PN} += "${libdir}/lua/5.1/echo.so"
CONFFILES:${PN} = "${sysconfdir}/qel/aec.conf ${sysconfdir}/qel/aec-tracking.conf"
