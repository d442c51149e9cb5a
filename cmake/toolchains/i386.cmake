# 32-bit x86 build with Debian's i686 cross compiler. The host kernel need not
# run 32-bit programs, so tests run under user-mode qemu with the cross C
# library as root, as on ARM. A host may also have i386 libraries of its own
# (libc6-i386 in /lib32, listed in its loader cache); the programs name the
# cross loader and search the cross libraries first so that those are never
# mixed in.
set(quendal_target_triple i686-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(quendal_target_libdir /usr/${quendal_target_triple}/lib)
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT
  " -Wl,--dynamic-linker=${quendal_target_libdir}/ld-linux.so.2 -Wl,-rpath,${quendal_target_libdir}")
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath,${quendal_target_libdir}")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-i386 -L /usr/${quendal_target_triple})
