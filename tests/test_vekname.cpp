/* SPDX-License-Identifier: MIT */
#include <veklib/vekname.h>

#include "support/support.h"

using namespace vektest;

TEST(Name, InternsEachTextOnce)
{
    fail_each_allocation([](Allocator &allocator) {
        VekNameTable *table = nullptr;
        EXPECT_EQ(vek_name_table_create(&table), table);
        EXPECT_EQ(table == nullptr, allocator.just_failed());
        if (table == nullptr) { return; }
        EXPECT_EQ(table->hash->hash_func, vek_hash_string_hash_func);
        EXPECT_EQ(table->hash->equal_func, vek_hash_string_equal_func);
        char text[] = "alpha";
        VekName *const alpha = vek_name_from_string(table, text, 1);
        EXPECT_EQ(alpha == nullptr, allocator.just_failed());
        text[0] = '?'; // the table has its own copy
        EXPECT_EQ(vek_name_try_string(table, "alpha"), alpha);
        EXPECT_EQ(vek_hash_get_count(table->hash), alpha != nullptr ? 1u : 0u);
        EXPECT_EQ(vek_name_try_string(table, ""), nullptr);
        if (alpha != nullptr) {
            const unsigned allocations = allocator.allocations();
            EXPECT_EQ(vek_name_from_string(table, "alpha", 2), alpha);
            EXPECT_EQ(vek_name_get_id(alpha), 1);
            EXPECT_EQ(allocator.allocations(), allocations);
            VekStr *const vekstr = vek_name_to_vek_str(alpha);
            EXPECT_EQ(vekstr == nullptr, allocator.just_failed());
            if (vekstr != nullptr) {
                EXPECT_EQ(vek_name_from_vek_str(table, vekstr, 3), alpha);
                EXPECT_STREQ(vek_str_to_c_str(vekstr), vek_name_to_string(alpha));
                EXPECT_EQ(_vek_str_get_ref_count(vekstr), 1u);
                vek_str_unref(vekstr);
            }
        }
        VekStr empty = {1, ""};
        VekName *const none = vek_name_from_vek_str(table, &empty, 4);
        EXPECT_EQ(none == nullptr, allocator.just_failed());
        captured(2, [&] { // a table that cannot grow warns, and takes the name all the same
            for (char last = 'a'; last <= 'j'; ++last) {
                const char next[] = {'n', last, '\0'};
                const uint32_t size = table->hash->table_size;
                VekName *const made = vek_name_from_string(table, next, last);
                EXPECT_EQ(vek_name_try_string(table, next), made);
                const bool failed = allocator.just_failed();
                EXPECT_TRUE(made != nullptr || failed);
                EXPECT_TRUE(!failed || table->hash->table_size == size);
            }
        });
        vek_name_table_destroy(&table);
        EXPECT_EQ(table, nullptr);
        vek_name_table_destroy(&table);
    });
}

TEST(Name, ChecksNameTheFault)
{
    VekNameTable *table = vek_name_table_create(nullptr);
    EXPECT_REFUSE(nullptr, "name_table != NULL", vek_name_from_string, vek_name_try_string,
                  vek_name_from_vek_str, vek_name_table_destroy);
    EXPECT_REFUSE(nullptr, "name", vek_name_to_string, vek_name_to_vek_str, vek_name_get_id);
    EXPECT_REFUSE(table, "string != NULL", vek_name_from_string, vek_name_try_string);
    EXPECT_REFUSE(table, "vek_str != NULL", vek_name_from_vek_str);
    char none[] = "none";
    vek_hash_insert(table->hash, none, nullptr); // a null name is no name to release
    vek_name_table_destroy(&table);
}
