# SPDX-License-Identifier: MIT
# 32-bit x86. Programs run on this machine itself, because fork() hangs in qemu-i386 7.2: they name
# the cross compiler's loader and its libraries.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(veklib_architecture i386)
set(veklib_multiarch i386-linux-gnu)
set(veklib_compiler i686-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--disable-new-dtags" # libraries' libraries, too
       " -Wl,--dynamic-linker=/usr/${veklib_compiler}/lib/ld-linux.so.2")
set(CMAKE_BUILD_RPATH ${veklib_sysroot_libs} /usr/${veklib_compiler}/lib)
