# SPDX-License-Identifier: MIT
# 32-bit ARM EABI with the soft-float calling convention, built with Debian's cross compiler and run
# under qemu. libunwind for ARM is in a separate folder, which `./dev cross` fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)

cmake_path(SET veklib_sysroot NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armel")
set(veklib_sysroot_libs "${veklib_sysroot}/usr/lib/arm-linux-gnueabi"
    "${veklib_sysroot}/lib/arm-linux-gnueabi")
set(CMAKE_FIND_ROOT_PATH "${veklib_sysroot}" /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabi)

list(JOIN veklib_sysroot_libs ":" veklib_library_path)
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${veklib_library_path}")
set(CMAKE_CROSSCOMPILING_EMULATOR
    "qemu-arm-static;-L;/usr/arm-linux-gnueabi;-E;LD_LIBRARY_PATH=${veklib_library_path}")
