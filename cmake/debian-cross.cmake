# SPDX-License-Identifier: MIT
# What the toolchain files of this folder share: Debian's cross compiler, libunwind from the sysroot
# that `./dev cross` or `./dev prove` unpacks, and qemu. A toolchain file sets before:
#   veklib_architecture  Debian's name of the architecture
#   veklib_multiarch     the folder of its libraries in Debian
#   veklib_compiler      the prefix of the cross compiler
#   veklib_qemu          qemu's name of the processor; without it, programs run on this machine
set(CMAKE_SYSTEM_NAME Linux)

set(CMAKE_C_COMPILER ${veklib_compiler}-gcc)
set(CMAKE_CXX_COMPILER ${veklib_compiler}-g++)

cmake_path(SET veklib_sysroot NORMALIZE
           "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-${veklib_architecture}")
set(veklib_sysroot_libs "${veklib_sysroot}/usr/lib/${veklib_multiarch}"
    "${veklib_sysroot}/lib/${veklib_multiarch}")
set(CMAKE_FIND_ROOT_PATH "${veklib_sysroot}" /usr/${veklib_compiler})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE ${veklib_multiarch})

list(JOIN veklib_sysroot_libs ":" veklib_library_path)
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${veklib_library_path}")
if(veklib_qemu)
  set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-${veklib_qemu}-static;-L;/usr/${veklib_compiler}"
      "-E;LD_LIBRARY_PATH=${veklib_library_path}")
endif()
