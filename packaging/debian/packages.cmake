# Debian packages, one of each component; packaging/debian/make builds them. Their names, what they
# need at run time (in Debian 12; nothing of it can be asked for another architecture), and words.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_SET_DESTDIR ON)  # the configuration lies outside the prefix
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${QEL_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${QEL_HOMEPAGE})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/complete.cmake)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_COMPONENTS_ALL)

# Debian's name of the architecture; a 32-bit package is for processors with NEON where it was
# compiled for them.
set(architectures x86_64-linux-gnu=amd64 aarch64-linux-gnu=arm64 arm-linux-gnueabihf=armhf)
list(FILTER architectures INCLUDE REGEX "^${CMAKE_LIBRARY_ARCHITECTURE}=")
string(REGEX REPLACE ".*=" "" CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${architectures}")
set(needs_neon)
if(QEL_HAVE_NEON AND CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(needs_neon "\nThis build needs a processor with NEON.")
endif()
# Only what comes with a licence can be part of Debian itself.
set(area)
if(NOT QEL_LICENSE)
    set(area non-free/)
endif()

# qel_package(<component> <name> <section> <dependencies> <summary> <description>)
macro(qel_package component name section depends summary description)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    string(TOUPPER ${component} key)
    set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${area}${section})
    set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${description}")
endmacro()

set(same_version "qel (= ${PROJECT_VERSION})")
qel_package(runtime qel libs "libc6 (>= 2.36), libcjson1 (>= 1.7.15)"
    "acoustic echo canceller for Lua 5.1 and C"
    "Takes microphone and loudspeaker samples and gives the microphone back
without the loudspeaker's echo: a module for Lua 5.1 and LuaJIT that C
programs can link too, its configuration, documents and examples.${needs_neon}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "lua5.1 | luajit")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/conffiles)
file(GLOB configurations RELATIVE ${PROJECT_SOURCE_DIR}/conf ${PROJECT_SOURCE_DIR}/conf/*.conf)
list(TRANSFORM configurations PREPEND /etc/qel/)
list(JOIN configurations "\n" conffiles)
file(CONFIGURE OUTPUT conffiles CONTENT "${conffiles}\n")
qel_package(dev qel-dev libdevel "${same_version}, libc6-dev"
    "acoustic echo canceller, for C and C++ programs"
    "The headers of the echo canceller qel, its CMake package and its qel.pc.")
set(cxx_runtime "libc6 (>= 2.36), libgcc-s1 (>= 12), libstdc++6 (>= 12)")
if(TARGET qel-aec)
    qel_package(tools qel-tools sound
        "${same_version}, ${cxx_runtime}, libcsv3, libfftw3-single3, libsamplerate0, libsndfile1"
        "acoustic echo canceller on the command line"
        "The program qel-aec checks configurations of the echo canceller qel, runs
it on recordings and reports what it does.")
endif()
if(TARGET spa-aec-qel)
    qel_package(pipewire qel-pipewire sound
        "${same_version}, ${cxx_runtime}, libsamplerate0, libpipewire-0.3-modules"
        "acoustic echo canceller for PipeWire"
        "The echo canceller qel as a plugin of the sound server's module echo-cancel.")
endif()
include(CPack)
