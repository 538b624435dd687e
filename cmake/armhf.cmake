# Toolchain of the preset armhf: Debian's cross compiler for ARMv7 with NEON and hard floats, and
# qemu-arm to run what it makes. tools/sysroot.sh makes the sysroot. An SDK brings its own toolchain
# file instead; see docs/porting.md.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
cmake_path(SET CMAKE_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armhf)
if(NOT EXISTS ${CMAKE_SYSROOT})
    message(FATAL_ERROR "no ${CMAKE_SYSROOT}: run tools/sysroot.sh first")
endif()

foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_INIT "-march=armv7-a -mfpu=neon -mfloat-abi=hard")
endforeach()
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})

# Programs that build are this machine's, all else is the sysroot's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
