# SPDX-License-Identifier: MIT
# s390x, which is big-endian with 64 bits.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(veklib_architecture s390x)
set(veklib_multiarch s390x-linux-gnu)
set(veklib_compiler s390x-linux-gnu)
set(veklib_qemu s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
