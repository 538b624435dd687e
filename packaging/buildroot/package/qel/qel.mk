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
	-DQEL_LUA_DIR=lib/lua/5.1

define QEL_REMOVE_DOCUMENTS
	rm -rf $(TARGET_DIR)/usr/share/doc/qel
endef
QEL_POST_INSTALL_TARGET_HOOKS += QEL_REMOVE_DOCUMENTS

$(eval $(cmake-package))
