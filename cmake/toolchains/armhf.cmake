# 32-bit ARM (EABI5, hard float) cross build with Debian's cross compiler.
# Test programs run under user-mode qemu with the cross C library as root.
set(quendal_target_triple arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/${quendal_target_triple})
