/* SPDX-License-Identifier: MIT */
/* Dictionaries with name keys. vektypeddict_internal.h has the bodies of the functions. */
#include "veklib/veknamedict.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vektypeddict_internal.h"

#define DICT_TYPE_CHECK(dict) ((dict)->key_type == VEK_VALUE_NAME)

namespace {

struct NameKeys {
    using Key = VekName *;

    static bool store(VekValue *record, Key key)
    {
        vek_value_become(record, VEK_VALUE_NAME, key);
        return true;
    }

    static VekValue *find(const VekDict *dict, Key key)
    {
        return vek_dict_find(dict, vek_dict_match_name(key));
    }
};

using Dict = TypedDict<NameKeys>;

} // namespace

/* ---- Create ---- */

VekDict *vek_name_dict_create(int init_count)
{
    return vek_name_dict_create_full(init_count, nullptr, nullptr);
}

VekDict *vek_name_dict_create_full(int init_count, VekDictForeachFunc destroy_func, void *user_data)
{
    return _vek_dict_create_full(init_count, VEK_VALUE_NAME, destroy_func, user_data);
}

/* ---- put ---- */

int vek_name_dict_put_vekstr(VekDict *vekdict_ptr, VekName *key, VekStr *value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put<vek_value_take_vekstr>(vekdict_ptr, key, value);
}

int vek_name_dict_dup_and_put_string(VekDict *vekdict_ptr, VekName *key, const char *value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::dup_and_put_string<vek_name_dict_put_vekstr>(vekdict_ptr, key, value);
}

int vek_name_dict_put_int(VekDict *vekdict_ptr, VekName *key, int32_t value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put<vek_value_become_int>(vekdict_ptr, key, value);
}

int vek_name_dict_put_double(VekDict *vekdict_ptr, VekName *key, double value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put<vek_value_set_double>(vekdict_ptr, key, value);
}

int vek_name_dict_put_persistent_pointer(VekDict *vekdict_ptr, VekName *key, void *value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put<vek_value_set_pointer>(vekdict_ptr, key, value);
}

int vek_name_dict_put_value(VekDict *vekdict_ptr, VekName *key, VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put_value(vekdict_ptr, key, value);
}

/* ---- get ---- */

VekValue *vek_name_dict_get_value(const VekDict *vekdict_ptr, VekName *key)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), nullptr);

    return NameKeys::find(vekdict_ptr, key);
}

void *vek_name_dict_get_pointer(const VekDict *vekdict_ptr, VekName *key)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), nullptr);

    return Dict::read<vek_value_get_pointer, void *>(vekdict_ptr, key, nullptr);
}

VekStr *vek_name_dict_get_vekstr(const VekDict *vekdict_ptr, VekName *key)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), nullptr);

    return Dict::read<vek_value_get_vekstr, VekStr *>(vekdict_ptr, key, nullptr);
}

const char *vek_name_dict_get_string(const VekDict *vekdict_ptr, VekName *key)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), nullptr);

    return vek_str_to_c_str(vek_name_dict_get_vekstr(vekdict_ptr, key));
}

int32_t vek_name_dict_get_int(const VekDict *dict, VekName *key)
{
    VEK_RETURN_VAL_IF_FAIL(dict, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return Dict::read<vek_value_get_int>(dict, key, int32_t{0});
}

double vek_name_dict_get_double(const VekDict *dict, VekName *key)
{
    VEK_RETURN_VAL_IF_FAIL(dict, 0.0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0.0);

    return Dict::read<vek_value_get_double>(dict, key, 0.0);
}

int vek_name_dict_key_exists(const VekDict *dict, VekName *key)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return NameKeys::find(dict, key) != nullptr;
}
