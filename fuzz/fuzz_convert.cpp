/* SPDX-License-Identifier: MIT */
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static_cast<void>(data);
    static_cast<void>(size);
    return 0;
}
