/* SPDX-License-Identifier: MIT */
/* usage: operations [NAME COUNT] - performs the named operation COUNT times, so that its
 * instructions can be counted; without arguments it lists the names. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <veklib/vekdebug.h>
#include <veklib/vekerror.h>
#include <veklib/vekhash.h>
#include <veklib/vekintdict.h>
#include <veklib/vekmemory.h>
#include <veklib/vekname.h>
#include <veklib/vekslist.h>
#include <veklib/vekstr.h>
#include <veklib/vekstrdict.h>

static VekHash *hash, *texts;
static VekNameTable *names;
static VekDict *integers, *strings;
static VekStr *vekstr;
static VekSList *list;
static VekValue value;
static VekDebugDomain *domain;
static const char *const flags[] = {"on", "off", NULL};
static char keys[10][32];

static void malloc_free(void)
{
    void *volatile block = vek_malloc(64);
    vek_free(block);
}
static void libc_malloc_free(void)
{
    void *volatile block = malloc(64);
    free(block);
}
static void nothing(void) {}
static void list_prepend_free(void) { vek_slist_free(vek_slist_prepend(NULL, &hash), NULL); }
static void hash_hit(void) { vek_hash_lookup(hash, (void *)7); }
static void hash_hit_text(void) { vek_hash_lookup(texts, "interface-7.state"); }
static void hash_insert_remove(void)
{
    vek_hash_insert(hash, (void *)70, hash);
    vek_hash_remove(hash, (void *)70);
}
static void intern_existing(void) { vek_name_from_string(names, "interface-7.state", 0); }
static void get_by_integer(void) { vek_int_dict_get_int(integers, 7); }
static void get_by_string(void) { vek_str_dict_get_int(strings, "interface-7.state"); }
static void put_by_integer(void) { vek_int_dict_put_int(integers, 7, 1); }
static void put_by_string(void) { vek_str_dict_put_int(strings, "interface-7.state", 1); }
static void list_dup_free(void) { vek_slist_free(vek_slist_dup(list, NULL), NULL); }
static void str_append(void)
{
    VekStr *longer = vek_str_create("eth0,");
    vek_str_append_c_str(&longer, "eth1,");
    vek_str_unref(longer);
}
static void intern_new(void)
{
    VekNameTable *table = vek_name_table_create(NULL);
    for (int i = 0; i < 10; ++i) { vek_name_from_string(table, keys[i], i); }
    vek_name_table_destroy(&table);
}
static void value_copy(void)
{
    VekValue copy;
    vek_value_copy(&copy, &value);
    vek_value_equal(&copy, &value);
    vek_value_release(&copy);
}
static void str_ref_unref(void) { vek_str_unref(vek_str_ref(vekstr)); }
static void str_create_unref(void) { vek_str_unref(vek_str_create("interface-7.state")); }
static void str_printf_unref(void)
{
    vek_str_unref(vek_str_create_printf("%s-%d", "interface", 7));
}
static void error(void) { vek_error_destroy(VEK_ERROR_CREATE(VEK_ERROR_IO, "no file %d", 1)); }
static void debug_off(void) { vek_debug_print(domain, 2, "%d bytes\n", 1); }

static uint32_t hash_of_text(const void *key)
{
    uint32_t result = 2166136261;
    for (const unsigned char *c = key; *c != '\0'; ++c) { result = (result ^ *c) * 16777619; }
    return result;
}
static int is_same_text(const void *a, const void *b) { return strcmp(a, b) == 0; }

static const struct {
    const char *name;
    void (*run)(void);
} operations[] = {
    {"nothing", nothing}, /* the call alone, which is subtracted from the others */
    {"libc malloc+free", libc_malloc_free},
    {"malloc+free", malloc_free},
    {"list prepend+free", list_prepend_free},
    {"list dup+free (10)", list_dup_free},
    {"hash hit, integer", hash_hit},
    {"hash hit, string", hash_hit_text},
    {"hash insert+remove, integer", hash_insert_remove},
    {"string ref+unref", str_ref_unref},
    {"string create+unref", str_create_unref},
    {"printf-create+unref", str_printf_unref},
    {"create+append+unref", str_append},
    {"intern existing", intern_existing},
    {"intern new (10, with their table)", intern_new},
    {"dictionary get by integer (8th of 10)", get_by_integer},
    {"dictionary get by string (8th of 10)", get_by_string},
    {"dictionary replace by integer (8th of 10)", put_by_integer},
    {"dictionary replace by string (8th of 10)", put_by_string},
    {"value copy+compare+release, integer", value_copy},
    {"error create+destroy", error},
    {"debug print, off", debug_off},
};

static void prepare(void)
{
    hash = vek_hash_new();
    texts = vek_hash_new_full(hash_of_text, is_same_text, NULL, NULL);
    names = vek_name_table_create(NULL);
    integers = vek_int_dict_create(10);
    strings = vek_str_dict_create(10);
    vekstr = vek_str_create("text");
    vek_value_set_int(&value, 7);
    for (int i = 0; i < 10; ++i) {
        snprintf(keys[i], sizeof keys[i], "interface-%d.state", i);
        vek_hash_insert(hash, (void *)(intptr_t)i, hash);
        vek_hash_insert(texts, keys[i], hash);
        list = vek_slist_prepend(list, keys[i]);
        vek_name_from_string(names, keys[i], i);
        vek_int_dict_put_int(integers, i, i);
        vek_str_dict_put_int(strings, keys[i], i);
    }
    vek_debug_initialize(NULL, NULL);
    vek_debug_add_domain("bench", flags);
    domain = vek_debug_get_domain("bench");
}

int main(int argc, char **argv)
{
    const size_t count = sizeof operations / sizeof operations[0];
    if (argc != 3) {
        for (size_t i = 0; i < count; ++i) { puts(operations[i].name); }
        return 0;
    }
    prepare();
    for (size_t i = 0; i < count; ++i) {
        if (strcmp(operations[i].name, argv[1]) == 0) {
            for (long n = strtol(argv[2], NULL, 10); n > 0; --n) { operations[i].run(); }
            return 0;
        }
    }
    return 2;
}
