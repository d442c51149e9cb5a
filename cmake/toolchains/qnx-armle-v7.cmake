# QNX Neutrino 6.5 on 32-bit ARM (armle-v7) with the QNX SDP's qcc/QCC.
# Source the SDP's environment first (qnx650-env.sh sets QNX_HOST and
# QNX_TARGET). Nothing here can run on the build machine: docs/qnx.md says
# how to build, what to copy to a board and what to run there.
if(NOT DEFINED ENV{QNX_HOST} OR NOT DEFINED ENV{QNX_TARGET})
  message(FATAL_ERROR "QNX_HOST and QNX_TARGET are not set: source the QNX SDP's environment script")
endif()

set(CMAKE_SYSTEM_NAME QNX)
set(CMAKE_SYSTEM_VERSION 6.5.0)
set(CMAKE_SYSTEM_PROCESSOR armv7)

set(CMAKE_C_COMPILER $ENV{QNX_HOST}/usr/bin/qcc)
set(CMAKE_CXX_COMPILER $ENV{QNX_HOST}/usr/bin/QCC)
# qcc's -V: the compiler and the target variant.
set(CMAKE_C_COMPILER_TARGET gcc_ntoarmv7le)
set(CMAKE_CXX_COMPILER_TARGET gcc_ntoarmv7le)

set(CMAKE_SYSROOT $ENV{QNX_TARGET})
set(CMAKE_FIND_ROOT_PATH $ENV{QNX_TARGET} $ENV{QNX_TARGET}/armle-v7)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
