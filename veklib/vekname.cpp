/* SPDX-License-Identifier: MIT */
/* Interned names.
 *
 * A table owns its names. The keys of its hash table are the names' own texts, its values the
 * names. Searches compare texts in place, as the table's own functions would. */
#include "veklib/vekname.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekhash_internal.h"
#include "veklib/vekmemory.h"
#include "veklib/vekmemory_internal.h"
#include "veklib/vekstr_internal.h"
#include "veklib/vekstrfuncs.h"

namespace {

void name_free_func(void *element)
{
    auto *const name = static_cast<VekName *>(element);
    if (name != nullptr) {
        vek_free(name->string);
        vek_free(name);
    }
}

/** Makes a name with a copy of the text; null without memory. */
VekName *new_name(const char *string, int32_t id)
{
    auto *const name = vek_new<VekName>();
    if (name == nullptr) {
        return nullptr;
    }
    name->string = vek_strdup(string);
    if (name->string == nullptr) {
        vek_free(name);
        return nullptr;
    }
    name->id = id;
    return name;
}

} // namespace

/* ---- Create and release ---- */

VEK_ENTRY VekNameTable *vek_name_table_create(VekNameTable **name_table)
{
    auto *table = vek_new_for<VekNameTable>(VEK_CALLER);
    if (table == nullptr) {
        return nullptr;
    }
    // The keys are the names' own strings.
    table->hash = vek_hash_new_full(vek_hash_string_hash_func, vek_hash_string_equal_func, nullptr,
                                    name_free_func);
    if (table->hash == nullptr) {
        vek_free(table);
        table = nullptr;
    }
    if (name_table != nullptr) {
        *name_table = table;
    }
    return table;
}

void vek_name_table_destroy(VekNameTable **name_table)
{
    VEK_RETURN_IF_FAIL(name_table != NULL);

    if (*name_table != nullptr) {
        vek_hash_destroy((*name_table)->hash);
        vek_free(*name_table);
        *name_table = nullptr;
    }
}

/* ---- Intern and look up ---- */

VekName *vek_name_from_string(VekNameTable *name_table, const char *string, int32_t id)
{
    VEK_RETURN_VAL_IF_FAIL(name_table != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(string != NULL, nullptr);

    const VekHashPlace place = vek_hash_find_string(name_table->hash, string);
    if (place.entry != nullptr) {
        return static_cast<VekName *>(place.entry->value);
    }
    VekName *const name = new_name(string, id);
    if (name == nullptr) {
        return nullptr;
    }
    auto *const entry = vek_new<VekHashEntry>();
    if (entry == nullptr) {
        name_free_func(name);
        return nullptr;
    }
    entry->key = name->string;
    entry->value = name;
    vek_hash_link(name_table->hash, place, entry);
    return name;
}

VekName *vek_name_from_vek_str(VekNameTable *name_table, const VekStr *vek_str, int32_t id)
{
    VEK_RETURN_VAL_IF_FAIL(name_table != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(vek_str != NULL, nullptr);

    return vek_name_from_string(name_table, vek_str_to_c_str(vek_str), id);
}

VekName *vek_name_try_string(const VekNameTable *name_table, const char *string)
{
    VEK_RETURN_VAL_IF_FAIL(name_table != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(string != NULL, nullptr);

    const VekHashEntry *const entry = vek_hash_find_string(name_table->hash, string).entry;
    return entry != nullptr ? static_cast<VekName *>(entry->value) : nullptr;
}

/* ---- Read ---- */

const char *vek_name_to_string(const VekName *name)
{
    VEK_RETURN_VAL_IF_FAIL(name, nullptr);

    return name->string;
}

VEK_ENTRY VekStr *vek_name_to_vek_str(const VekName *name)
{
    VEK_RETURN_VAL_IF_FAIL(name, nullptr);

    return vek_str_create_with_return(name->string, VEK_CALLER);
}

int32_t vek_name_get_id(const VekName *name)
{
    VEK_RETURN_VAL_IF_FAIL(name, 0);

    return name->id;
}
