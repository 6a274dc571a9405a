/* SPDX-License-Identifier: MIT */
/* Dictionaries with integer keys. vektypeddict_internal.h has the bodies of the functions. */
#include "veklib/vekintdict.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vektypeddict_internal.h"

#define DICT_TYPE_CHECK(dict) ((dict)->key_type == VEK_VALUE_INT)

namespace {

struct IntKeys {
    using Key = int32_t;

    static bool store(VekValue *record, Key key)
    {
        vek_value_become_int(record, key);
        return true;
    }

    static VekValue *find(const VekDict *dict, Key key) { return vek_dict_find_int(dict, key); }
};

using Dict = TypedDict<IntKeys>;

} // namespace

/* ---- Create ---- */

VekDict *vek_int_dict_create(int init_count)
{
    return _vek_dict_create(init_count, VEK_VALUE_INT);
}

/* ---- put ---- */

int vek_int_dict_put_vekstr(VekDict *vekdict_ptr, int32_t key, VekStr *value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put<vek_value_take_vekstr>(vekdict_ptr, key, value);
}

int vek_int_dict_dup_and_put_string(VekDict *vekdict_ptr, int32_t key, const char *value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::dup_and_put_string<vek_int_dict_put_vekstr>(vekdict_ptr, key, value);
}

int vek_int_dict_put_int(VekDict *vekdict_ptr, int32_t key, int32_t value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put<vek_value_become_int>(vekdict_ptr, key, value);
}

int vek_int_dict_put_double(VekDict *vekdict_ptr, int32_t key, double value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put<vek_value_set_double>(vekdict_ptr, key, value);
}

int vek_int_dict_put_persistent_pointer(VekDict *vekdict_ptr, int32_t key, void *value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put<vek_value_set_pointer>(vekdict_ptr, key, value);
}

int vek_int_dict_put_value(VekDict *vekdict_ptr, int32_t key, VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), 0);

    return Dict::put_value(vekdict_ptr, key, value);
}

/* ---- get ---- */

VekValue *vek_int_dict_get_value(const VekDict *vekdict_ptr, int32_t key)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), nullptr);

    return IntKeys::find(vekdict_ptr, key);
}

void *vek_int_dict_get_pointer(const VekDict *vekdict_ptr, int32_t key)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), nullptr);

    return Dict::read<vek_value_pointer_of, void *>(vekdict_ptr, key, nullptr);
}

VekStr *vek_int_dict_get_vekstr(const VekDict *vekdict_ptr, int32_t key)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), nullptr);

    return Dict::read<vek_value_vekstr_of, VekStr *>(vekdict_ptr, key, nullptr);
}

const char *vek_int_dict_get_string(const VekDict *vekdict_ptr, int32_t key)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(vekdict_ptr), nullptr);

    return vek_str_to_c_str(vek_int_dict_get_vekstr(vekdict_ptr, key));
}

int32_t vek_int_dict_get_int(const VekDict *dict, int32_t key)
{
    VEK_RETURN_VAL_IF_FAIL(dict, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return Dict::read<vek_value_int_of>(dict, key, int32_t{0});
}

double vek_int_dict_get_double(const VekDict *dict, int32_t key)
{
    VEK_RETURN_VAL_IF_FAIL(dict, 0.0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0.0);

    return Dict::read<vek_value_double_of>(dict, key, 0.0);
}

int vek_int_dict_key_exists(const VekDict *dict, int32_t key)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(DICT_TYPE_CHECK(dict), 0);

    return IntKeys::find(dict, key) != nullptr;
}
