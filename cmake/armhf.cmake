# Toolchain of the preset armhf: Debian's cross compiler for ARMv7 with NEON and hard floats.
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_INIT "-march=armv7-a -mfpu=neon -mfloat-abi=hard")
endforeach()
set(architecture armhf)
set(compiler arm-linux-gnueabihf)
set(emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian_arm.cmake)
