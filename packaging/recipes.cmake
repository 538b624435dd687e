# Writes the recipes for LuaRocks, Buildroot, Yocto and OpenWrt, and the archive of the sources that
# they fetch, into build/recipes or OUT. Version, licence, homepage and checksums stand in none of
# the templates beside this file: the first three come from cmake/identity.cmake, or from the
# command line, the archive from git's last commit.
#   cmake [-DQEL_HOMEPAGE=URL] [-DQEL_LICENSE=NAME -DQEL_LICENSE_FILE=FILE] [-DOUT=FOLDER]
#         -P packaging/recipes.cmake
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/../cmake/identity.cmake)
set(OUT ${QEL_ROOT}/build/recipes CACHE PATH "Where the recipes go")
set(source ${OUT}/qel-${QEL_VERSION}.tar.gz)
file(REMOVE_RECURSE ${OUT})
file(MAKE_DIRECTORY ${OUT})

# The licence in each one's own terms.
set(license_file ${QEL_ROOT}/${QEL_LICENSE_FILE})
file(SHA256 ${license_file} license_sha256)
if(QEL_LICENSE)
    set(license_buildroot ${QEL_LICENSE})
    set(redistribute YES)
    file(MD5 ${license_file} license_md5)
    string(CONCAT license_yocto "LICENSE = \"${QEL_LICENSE}\"\n"
           "LIC_FILES_CHKSUM = \"file://${QEL_LICENSE_FILE};md5=${license_md5}\"")
    set(license_openwrt ${QEL_LICENSE})
    set(license_luarocks ${QEL_LICENSE})
else()
    set(license_buildroot PROPRIETARY)
    set(redistribute NO)
    set(license_yocto "LICENSE = \"CLOSED\"")
    set(license_openwrt LicenseRef-Proprietary)
    set(license_luarocks proprietary)
endif()

execute_process(COMMAND git -C ${QEL_ROOT} archive --prefix=qel-${QEL_VERSION}/ -o ${source} HEAD
                COMMAND_ERROR_IS_FATAL ANY)
file(SHA256 ${source} source_sha256)
foreach(kind luarocks buildroot yocto openwrt)
    file(GLOB_RECURSE templates RELATIVE ${CMAKE_CURRENT_LIST_DIR}
         ${CMAKE_CURRENT_LIST_DIR}/${kind}/*)
    foreach(template ${templates})
        string(CONFIGURE ${template} recipe @ONLY)
        configure_file(${CMAKE_CURRENT_LIST_DIR}/${template} ${OUT}/${recipe} @ONLY)
    endforeach()
endforeach()
message(STATUS "recipes of qel ${QEL_VERSION} in ${OUT}")
