/* SPDX-License-Identifier: MIT */
/* An allocation or release is charged to the code that calls the function that makes it, in builds
 * of every type. */
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

#include <dlfcn.h>

using namespace vektest;

/** "+" is an allocation, "-" a release; "a": charged to the application, "l": to the library. */
static std::string charges;

static void note(char what, void *return_address)
{
    Dl_info caller;
    Dl_info application;
    ASSERT_NE(dladdr(return_address, &caller), 0);
    ASSERT_NE(dladdr(&charges, &application), 0);
    charges += {what, caller.dli_fbase == application.dli_fbase ? 'a' : 'l'};
}

/** A table of the platform's functions that notes who is charged. */
static VekMemoryVtable noting_table()
{
    VekMemoryVtable table = {};
    table.malloc = [](size_t size, void *address) { return note('+', address), malloc(size); };
    table.malloc_if_possible = table.malloc_if_available = table.malloc;
    table.calloc = [](size_t n, size_t size, void *address) {
        return note('+', address), calloc(n, size);
    };
    table.realloc = [](void *block, size_t size, void *address) {
        return note('+', address), realloc(block, size);
    };
    table.free = [](void *block, void *address) { note('-', address), free(block); };
    return table;
}

TEST(Charges, GoToWhoeverCallsWhatAllocatesOrReleases)
{
    static VekStr *vekstr;
    static VekValue value;
    const struct {
        const char *expected;
        void (*operation)();
    } rows[] = {
        {"+a-a", [] { vek_free(vek_malloc(1)); }},
        {"+a-a", [] { vek_free(vek_calloc(1, 1)); }},
        {"+a-a", [] { vek_free(vek_realloc(nullptr, 1)); }},
        {"+a-a", [] { vek_free(vek_malloc_if_possible(1)); }},
        {"+a-a", [] { vek_free(vek_malloc_if_available(1)); }},
        {"+a-a", [] { vek_free(vek_memdup("x", 2)); }},
        {"+a-a", [] { vek_free(vek_strdup("x")); }},
        {"+a-a", [] { vek_free(vek_strndup("x", 1)); }},
        {"+a-a", [] { vek_free(vek_strdup_printf("%d", 1)); }},
        {"+a-a", [] { vek_free(vek_strdup_printf("%300d", 1)); }},
        {"+a-a", [] { vek_free(with_list<vek_strdup_vprintf>("%d", 1)); }},
        {"+a+a+a+l+l+l-l-l-l-l-l-l",
         [] {
             VekSList *const list = vek_slist_append(vek_slist_prepend(nullptr, nullptr), nullptr);
             vek_slist_insert_after(list, nullptr);
             vek_slist_free(vek_slist_dup(list, nullptr), nullptr);
             vek_slist_free(list, nullptr);
         }},
        {"+l-l+l-l",
         [] {
             VekStack stack = {};
             vek_stack_push(&stack, nullptr);
             vek_stack_pop(&stack);
             vek_stack_push(&stack, nullptr);
             vek_stack_free(&stack, nullptr);
         }},
        {"+l+l+a-l-l-l",
         [] {
             VekHash *const hash = vek_hash_new();
             vek_hash_insert(hash, hash, nullptr);
             vek_hash_destroy(hash);
         }},
        {"+a+l+l+l+l+l+a-l-l-l-l-l-l-l",
         [] {
             VekNameTable *names = vek_name_table_create(nullptr);
             vek_str_unref(vek_name_to_vek_str(vek_name_from_string(names, "s", 1)));
             vek_name_table_destroy(&names);
         }},
        {"+a-l", [] { vek_str_unref(vek_str_ncreate("s", 1)); }},
        {"+a-l", [] { vek_str_unref(vek_str_create_printf("%d", 1)); }},
        {"+a-l", [] { vek_str_unref(vek_str_create_printf("%300d", 1)); }},
        {"+a-l", [] { vek_str_unref(with_list<vek_str_create_vprintf>("%d", 1)); }},
        {"+a+a-l+a-l+a-l+a-l-l",
         [] {
             vekstr = vek_str_create("s");
             vek_str_prepend_char(&vekstr, 'x');
             vek_str_prepend_c_str(&vekstr, "x");
             vek_str_append_c_str(&vekstr, "x");
             vek_str_append_vek_str(&vekstr, vekstr);
             vek_str_make_persistent(vekstr);
             vek_str_force_destroy(vekstr);
         }},
        // A value's string: its texts and its copy.
        {"+l+l-a+l-a+l-l+l+l-l-l-l",
         [] {
             vek_value_set_string(&value, "s");
             vek_free(vek_value_dup_string(&value));
             vek_free(vek_value_get_as_string(&value));
             vek_str_unref(vek_value_get_as_vekstr(&value));
             vek_value_destroy(vek_value_dup(&value));
             vek_value_release(&value);
         }},
        // A value's number as texts.
        {"+l-a+l-l",
         [] {
             vek_value_set_double(&value, 1.5);
             vek_free(vek_value_get_as_string(&value));
             vek_str_unref(vek_value_get_as_vekstr(&value));
         }},
        // A value's list, copied.
        {"+a+a+l-l-l-l",
         [] {
             vek_value_take_slist_of_str(&value, vek_slist_append(nullptr, vek_str_create("s")));
             vek_slist_free(vek_value_dup_slist(&value),
                            [](void *s) { vek_str_unref(static_cast<VekStr *>(s)); });
             vek_value_release(&value);
         }},
        // A dictionary, printed and copied.
        {"+l+l+l+l+l-l-l-l+l+l+l-l-l-l-l-l",
         [] {
             VekDict *const dict = vek_str_dict_create(1);
             vek_str_dict_put_int(dict, "s", 1);
             captured(1, [dict] { vek_dict_print(dict); });
             vek_dict_destroy(vek_dict_copy(dict, 1));
             vek_dict_destroy(dict);
         }},
        {"+l-l", [] { vek_error_destroy(vek_error_create(1, "f", "f.c", 1, "%s", "s")); }},
    };
    const VekMemoryVtable table = noting_table();
    vek_set_memory_vtable(&table);
    vek_memory_enable_trace(); // the wrappers must hand on the address
    captured(2, [&] {
        for (const auto &row : rows) {
            SCOPED_TRACE(testing::Message() << "row " << &row - rows);
            charges.clear();
            row.operation();
            EXPECT_EQ(charges, row.expected);
        }
    });
    vek_set_memory_vtable(nullptr);
}
