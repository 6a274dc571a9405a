/* SPDX-License-Identifier: MIT */
/* Whom an allocation or release is charged to: the code that calls the function that makes it, in builds of every
 * type. */
#include <veklib/vekdebug.h>
#include <veklib/vekdict.h>
#include <veklib/vekerror.h>
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekname.h>
#include <veklib/vekstack.h>
#include <veklib/vekstr.h>
#include <veklib/vekstrdict.h>
#include <veklib/vekstrfuncs.h>
#include <veklib/vekvalue.h>

#include "support/support.h"

#include <cstdlib>
#include <string>

#include <dlfcn.h>

namespace {

std::string
    charges; ///< "+" an allocation, "-" a release; "a" charged to the application, "l" to the library

void note(char what, void *return_address)
{
    Dl_info of_address;
    Dl_info of_library;
    ASSERT_NE(dladdr(return_address, &of_address), 0);
    ASSERT_NE(dladdr(reinterpret_cast<void *>(vek_hash_new), &of_library), 0);
    charges += {what, of_address.dli_fbase == of_library.dli_fbase ? 'l' : 'a'};
}

/** A table of the platform's functions that notes who asked. */
VekMemoryVtable noting_table()
{
    VekMemoryVtable table = {};
    table.malloc = [](size_t size, void *address) { return note('+', address), malloc(size); };
    table.calloc = [](size_t n, size_t size, void *address) {
        return note('+', address), calloc(n, size);
    };
    table.free = [](void *block, void *address) { note('-', address), free(block); };
    return table;
}

VekValue value_of(const char *text)
{
    VekValue value = {};
    vek_value_set_string(&value, text);
    return value;
}

/** The value of a list with one element. */
VekValue value_of_list()
{
    VekValue value = {};
    vek_value_take_slist_of_str(&value, vek_slist_append(nullptr, vek_str_create("s")));
    return value;
}

VekValue value_of(double number)
{
    VekValue value = {};
    vek_value_set_double(&value, number);
    return value;
}

VekDict *new_dict()
{
    VekDict *const dict = vek_str_dict_create(1);
    vek_str_dict_put_int(dict, "s", 1);
    return dict;
}

} // namespace

TEST(Charges, GoToWhoeverCallsWhatAllocatesOrReleases)
{
    static VekStr *vekstr;
    static VekValue value;
    const struct {
        const char *name;
        const char *expected;
        void (*operation)();
    } rows[] = {
        {"copies of a text", "+a-a+a-a",
         [] { vek_free(vek_strdup("s")), vek_free(vek_strdup_printf("%d", 1)); }},
        {"stack", "+l-l+l-l",
         [] {
             VekStack stack = {};
             vek_stack_push(&stack, nullptr);
             vek_stack_pop(&stack);
             vek_stack_push(&stack, nullptr);
             vek_stack_free(&stack, nullptr);
         }},
        {"hash", "+l+l+a-l-l-l",
         [] {
             VekHash *const hash = vek_hash_new();
             vek_hash_insert(hash, hash, nullptr);
             vek_hash_destroy(hash);
         }},
        {"name", "+a+l+l+l+l+l-l-l-l-l-l-l",
         [] {
             VekNameTable *names = vek_name_table_create(nullptr);
             vek_name_from_string(names, "s", 1);
             vek_name_table_destroy(&names);
         }},
        {"shared string, edited", "+a+a-l-l",
         [] {
             vekstr = vek_str_create("s");
             vek_str_append_c_str(&vekstr, "t");
             vek_str_unref(vekstr);
         }},
        {"shared string, persistent", "+a-l",
         [] {
             vekstr = vek_str_create("s");
             vek_str_make_persistent(vekstr);
             vek_str_force_destroy(vekstr);
         }},
        {"texts of a string", "+l+l-a+l-a+l-l-l",
         [] {
             value = value_of("s");
             vek_free(vek_value_dup_string(&value));
             vek_free(vek_value_get_as_string(&value));
             vek_str_unref(vek_value_get_as_vekstr(&value));
             vek_value_release(&value);
         }},
        {"texts of a number", "+l-a+l-l",
         [] {
             value = value_of(1.5);
             vek_free(vek_value_get_as_string(&value));
             vek_str_unref(vek_value_get_as_vekstr(&value));
         }},
        {"copy of a string", "+l+l+l-l-l-l",
         [] {
             value = value_of("s");
             vek_value_destroy(vek_value_dup(&value));
             vek_value_release(&value);
         }},
        {"copy of a list", "+a+a+l-l-l-l",
         [] {
             value = value_of_list();
             vek_slist_free(vek_value_dup_slist(&value),
                            [](void *s) { vek_str_unref(static_cast<VekStr *>(s)); });
             vek_value_release(&value);
         }},
        {"dictionary, printed and copied", "+l+l+l+l+l-l-l-l+l+l+l-l-l-l-l-l",
         [] {
             VekDict *const dict = new_dict();
             vektest::captured(1, [dict] { vek_dict_print(dict); });
             vek_dict_destroy(vek_dict_copy(dict, 1));
             vek_dict_destroy(dict);
         }},
        {"error", "+l-l", [] { vek_error_destroy(vek_error_create(1, "f", "f.c", 1, "%s", "s")); }},
    };
    const VekMemoryVtable table = noting_table();
    vek_set_memory_vtable(&table);
    for (const auto &row : rows) {
        charges.clear();
        row.operation();
        EXPECT_EQ(charges, row.expected) << row.name;
    }
    vek_set_memory_vtable(nullptr);
}
