# SPDX-License-Identifier: MIT
# 32-bit ARM EABI with the soft-float calling convention.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(veklib_architecture armel)
set(veklib_multiarch arm-linux-gnueabi)
set(veklib_compiler arm-linux-gnueabi)
set(veklib_qemu arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
