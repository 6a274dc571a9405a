# SPDX-License-Identifier: MIT
# 64-bit ARM.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(veklib_architecture arm64)
set(veklib_multiarch aarch64-linux-gnu)
set(veklib_compiler aarch64-linux-gnu)
set(veklib_qemu aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
