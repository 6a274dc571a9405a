/* SPDX-License-Identifier: MIT */
/* Dictionaries with string keys. vektypeddict_internal.h has the bodies of the functions. */
#include "veklib/vekstrdict.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vektypeddict_internal.h"

#define DICT_TYPE_CHECK(dict) ((dict)->key_type == VEK_VALUE_STRING)

namespace {

struct StringKeys {
    using Key = const char *;

    static bool store(VekValue *record, Key key) { return vek_value_set_string(record, key) != 0; }

    static VekValue *find(const VekDict *dict, Key key)
    {
        return vek_dict_find(dict, vek_dict_match_string(key));
    }
};

using Dict = TypedDict<StringKeys>;

} // namespace

/* ---- Create ---- */

VekDict *vek_str_dict_create(int init_count)
{
    return _vek_dict_create(init_count, VEK_VALUE_STRING);
}

/* ---- put ---- */

int vek_str_dict_put_vekstr(VekDict *dict, const char *key, VekStr *value)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return Dict::put<vek_value_take_vekstr>(dict, key, value);
}

int vek_str_dict_dup_and_put_string(VekDict *dict, const char *key, const char *value)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return Dict::dup_and_put_string<vek_str_dict_put_vekstr>(dict, key, value);
}

int vek_str_dict_put_int(VekDict *dict, const char *key, int32_t value)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return Dict::put<vek_value_become_int>(dict, key, value);
}

int vek_str_dict_put_double(VekDict *dict, const char *key, double value)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return Dict::put<vek_value_set_double>(dict, key, value);
}

int vek_str_dict_put_persistent_pointer(VekDict *dict, const char *key, void *value)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return Dict::put<vek_value_set_pointer>(dict, key, value);
}

int vek_str_dict_put_value(VekDict *dict, const char *key, VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return Dict::put_value(dict, key, value);
}

/* ---- get ---- */

VekValue *vek_str_dict_get_value(const VekDict *dict, const char *key)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), nullptr);

    return StringKeys::find(dict, key);
}

void *vek_str_dict_get_pointer(const VekDict *dict, const char *key)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), nullptr);

    return Dict::read<vek_value_get_pointer, void *>(dict, key, nullptr);
}

VekStr *vek_str_dict_get_vekstr(const VekDict *dict, const char *key)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), nullptr);

    return Dict::read<vek_value_get_vekstr, VekStr *>(dict, key, nullptr);
}

const char *vek_str_dict_get_string(const VekDict *dict, const char *key)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), nullptr);

    return vek_str_to_c_str(vek_str_dict_get_vekstr(dict, key));
}

int32_t vek_str_dict_get_int(const VekDict *dict, const char *key)
{
    VEK_RETURN_VAL_IF_FAIL(dict, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return Dict::read<vek_value_get_int>(dict, key, int32_t{0});
}

double vek_str_dict_get_double(const VekDict *dict, const char *key)
{
    VEK_RETURN_VAL_IF_FAIL(dict, 0.0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0.0);

    return Dict::read<vek_value_get_double>(dict, key, 0.0);
}
