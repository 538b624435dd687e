# Toolchain of the preset armhf-vfp: as armhf, for the ARMv7 processors that have no NEON.
set(fpu vfpv3-d16)
include(${CMAKE_CURRENT_LIST_DIR}/armhf.cmake)
