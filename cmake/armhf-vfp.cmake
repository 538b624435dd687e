# Toolchain of the preset armhf-vfp: as armhf, for the ARMv7 processors that have no NEON.
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_INIT "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=hard")
endforeach()
set(architecture armhf)
set(compiler arm-linux-gnueabihf)
set(emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian_arm.cmake)
