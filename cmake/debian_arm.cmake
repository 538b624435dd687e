# What the presets for ARM share: Debian's cross compiler, the sysroot that tools/sysroot.sh makes,
# and QEMU to run what comes out. An SDK brings its own toolchain file instead; see docs/porting.md.
set(CMAKE_SYSTEM_NAME Linux)
cmake_path(SET CMAKE_SYSROOT NORMALIZE
           ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-${architecture})
if(NOT EXISTS ${CMAKE_SYSROOT})
    message(FATAL_ERROR "no ${CMAKE_SYSROOT}: run tools/sysroot.sh ${architecture} first")
endif()

set(CMAKE_C_COMPILER ${compiler}-gcc)
set(CMAKE_CXX_COMPILER ${compiler}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L ${CMAKE_SYSROOT})

# Programs that build are this machine's, all else is the sysroot's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
