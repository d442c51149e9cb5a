# 32-bit ARM (EABI5, hard float) cross build with Debian's cross compiler.
# Test programs run under user-mode qemu with the cross C library as root.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(quendal_target_triple arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${quendal_target_triple}-gcc)
set(CMAKE_CXX_COMPILER ${quendal_target_triple}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${quendal_target_triple})
# Programs from the host, the rest from the target's root unless the caller
# widens the search (the package tests do, to find an installed copy).
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  if(NOT DEFINED CMAKE_FIND_ROOT_PATH_MODE_${kind})
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
  endif()
endforeach()

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/${quendal_target_triple})
