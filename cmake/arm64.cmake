# Toolchain of the preset arm64: Debian's cross compiler for ARMv8, whose NEON is always there.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(architecture arm64)
set(compiler aarch64-linux-gnu)
set(emulator qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian_arm.cmake)
