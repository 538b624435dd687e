################################################################################
#
# qel
#
################################################################################

QEL_VERSION = @QEL_VERSION@
QEL_SITE = @QEL_HOMEPAGE@
QEL_LICENSE = @license_buildroot@
QEL_LICENSE_FILES = @QEL_LICENSE_FILE@
QEL_REDISTRIBUTE = @redistribute@
QEL_INSTALL_STAGING = YES
QEL_DEPENDENCIES = cjson luainterpreter
QEL_CONF_OPTS = \
	-DCMAKE_CXX_FLAGS="$(TARGET_CXXFLAGS) -O3" \
	-DQEL_LUA_DIR=lib/lua/5.1 -DQEL_TOOL=OFF -DQEL_PIPEWIRE=OFF

$(eval $(cmake-package))
