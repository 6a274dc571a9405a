/* SPDX-License-Identifier: MIT */
/* Contenders of several programs. */
#ifndef VEKLIB_BENCH_CONTENDERS_H
#define VEKLIB_BENCH_CONTENDERS_H

#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <variant>

#include <glib-object.h>
#include <veklib/vekintdict.h>
#include <veklib/vekname.h>
#include <veklib/vekstrdict.h>

namespace bench {

/** The base of contenders that own what they point at, so they cannot be copied. */
struct Owner {
    Owner() = default;
    Owner(const Owner &) = delete;
    Owner &operator=(const Owner &) = delete;
};

/** With std::equal_to<>, it finds texts without making a std::string of them. */
struct TextHash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

/* ---- Dictionaries: the values have several types, of which integers are stored ---- */

struct VekTexts : Owner {
    VekDict *dict = vek_str_dict_create(10);
    ~VekTexts() { vek_dict_destroy(dict); }
    void put(const char *key, int value = 1) { vek_str_dict_put_int(dict, key, value); }
    int get(const char *key) const { return vek_str_dict_get_int(dict, key); }
};

struct VekIntegers : Owner {
    VekDict *dict = vek_int_dict_create(10);
    ~VekIntegers() { vek_dict_destroy(dict); }
    void put(int key, int value = 1) { vek_int_dict_put_int(dict, key, value); }
    int get(int key) const { return vek_int_dict_get_int(dict, key); }
};

inline GValue *new_gvalue(int number)
{
    GValue *const value = g_value_init(g_new0(GValue, 1), G_TYPE_INT);
    g_value_set_int(value, number);
    return value;
}

inline void free_gvalue(void *value)
{
    g_value_unset(static_cast<GValue *>(value));
    g_free(value);
}

using Variant = std::variant<int, double, void *, std::string>;

/* ---- Names ---- */

struct VekNames : Owner {
    VekNameTable *table = vek_name_table_create(nullptr);
    ~VekNames() { vek_name_table_destroy(&table); }
    const void *intern(const char *text) { return vek_name_from_string(table, text, 0); }
};

struct StdNames {
    std::unordered_set<std::string, TextHash, std::equal_to<>> table;
    const void *intern(const char *text)
    {
        const auto found = table.find(std::string_view(text));
        return found != table.end() ? &*found : &*table.emplace(text).first;
    }
};

} // namespace bench

#endif
