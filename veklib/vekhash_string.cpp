/* SPDX-License-Identifier: MIT */
/* The hash and equality functions for string keys.
 *
 * The hash of a text is the same on every platform and in every version. A null key hashes to 0 and
 * is equal to null only. vekhash_internal.h compares the same way, in place. */
#include "veklib/vekhash.h"

#include "veklib/vekstrfuncs_internal.h"

#include <bit>
#include <cstring>

namespace {

/** The three words of Jenkins' lookup2. */
struct Mixer {
    uint32_t a = 0x9e3779b9;
    uint32_t b = 0x9e3779b9;
    uint32_t c = 0x9e3779b9;

    void mix()
    {
        a = (a - b - c) ^ (c >> 13);
        b = (b - c - a) ^ (a << 8);
        c = (c - a - b) ^ (b >> 13);
        a = (a - b - c) ^ (c >> 12);
        b = (b - c - a) ^ (a << 16);
        c = (c - a - b) ^ (b >> 5);
        a = (a - b - c) ^ (c >> 3);
        b = (b - c - a) ^ (a << 10);
        c = (c - a - b) ^ (b >> 15);
    }
};

/** Up to three bytes, read as a little-endian number. */
uint32_t last_bytes(const unsigned char *bytes, size_t count)
{
    uint32_t number = count > 0 ? bytes[0] : 0;
    if (count > 1) {
        number |= uint32_t{bytes[1]} << 8;
    }
    if (count > 2) {
        number |= uint32_t{bytes[2]} << 16;
    }
    return number;
}

/** Four bytes, read as a little-endian number on every platform. */
uint32_t four_bytes(const unsigned char *bytes)
{
    uint32_t number;
    memcpy(&number, bytes, sizeof number);
    if constexpr (std::endian::native == std::endian::big) {
        number = __builtin_bswap32(number);
    }
    return number;
}

} // namespace

uint32_t vek_hash_string_hash_func(const void *key)
{
    if (key == nullptr) {
        return 0;
    }
    const auto *bytes = static_cast<const unsigned char *>(key);
    const size_t length = strlen(static_cast<const char *>(key));
    size_t rest = length;
    Mixer words;
    for (; rest >= 12; rest -= 12, bytes += 12) {
        words.a += four_bytes(bytes);
        words.b += four_bytes(bytes + 4);
        words.c += four_bytes(bytes + 8);
        words.mix();
    }
    // The lowest byte of c receives only the length, so the last bytes are added above it.
    words.c += static_cast<uint32_t>(length);
    if (rest >= 8) {
        words.a += four_bytes(bytes);
        words.b += four_bytes(bytes + 4);
        words.c += last_bytes(bytes + 8, rest - 8) << 8;
    } else if (rest >= 4) {
        words.a += four_bytes(bytes);
        words.b += last_bytes(bytes + 4, rest - 4);
    } else {
        words.a += last_bytes(bytes, rest);
    }
    words.mix();
    const bool negative = (words.c >> 31) != 0;
    return negative ? 0 - words.c : words.c;
}

int vek_hash_string_equal_func(const void *a, const void *b)
{
    return vek_is_same_text(static_cast<const char *>(a), static_cast<const char *>(b));
}
