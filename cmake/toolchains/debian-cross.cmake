# What the Debian cross toolchains share: the compilers named by
# quendal_target_triple, the target's root under /usr/<triple>, and find
# modes that take programs from the host and everything else from that root.
# The including toolchain file sets quendal_target_triple first.
set(CMAKE_SYSTEM_NAME Linux)

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
