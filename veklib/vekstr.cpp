/* SPDX-License-Identifier: MIT */
/* Shared strings.
 *
 * A string is one block with its count and its text. A count of 0 marks a persistent string, which
 * vek_str_unref() never releases. A replacing edit makes the new string first, so that the old one
 * stays if there is no memory, and releases the old one last, because the texts that are passed may
 * be part of it. */
#include "veklib/vekstr.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekmemory.h"
#include "veklib/vekmemory_internal.h"
#include "veklib/vekstr_internal.h"
#include "veklib/vekstrfuncs_internal.h"

#include <cctype>
#include <climits>
#include <cstring>

namespace {

constexpr size_t header_size = offsetof(VekStr, text);

/** Makes a string with one reference and space for `length` characters, which the caller fills in.
 *  Fails: no memory, or more than INT_MAX characters -> null
 */
VekStr *new_str(uint64_t length, void *return_address)
{
    if (length > INT_MAX) {
        return nullptr;
    }
    const size_t size = header_size + static_cast<size_t>(length) + 1;
    void *const block = vek_malloc_with_return(size, return_address);
    if (block == nullptr) {
        return nullptr;
    }
    auto *const vekstr = static_cast<VekStr *>(block);
    vekstr->count = 1;
    return vekstr;
}

/** Joins `head` and `tail` to a new string in the caller's variable. The old string is released
 *  last, because the texts may be its own. */
int replace(VekStr **variable, const char *head, size_t head_length, const char *tail,
            size_t tail_length, void *return_address)
{
    VekStr *const joined = new_str(uint64_t{head_length} + tail_length, return_address);
    if (joined == nullptr) {
        return 0;
    }
    memcpy(joined->text, head, head_length);
    memcpy(joined->text + head_length, tail, tail_length);
    joined->text[head_length + tail_length] = '\0';
    vek_str_unref(*variable);
    *variable = joined;
    return 1;
}

int append(VekStr **variable, const char *text, void *return_address)
{
    const size_t length = vek_strlen(*variable); // warns about a null string
    return *variable != nullptr
               ? replace(variable, (*variable)->text, length, text, strlen(text), return_address)
               : 0;
}

int prepend(VekStr **variable, const char *text, size_t text_length, void *return_address)
{
    const size_t length = vek_strlen(*variable); // warns about a null string
    return *variable != nullptr
               ? replace(variable, text, text_length, (*variable)->text, length, return_address)
               : 0;
}

/* The functions of <cctype> need unsigned characters. Those above 0x7f are negative where char is
 * signed. */

char upper(char c)
{
    return static_cast<char>(toupper(static_cast<unsigned char>(c)));
}

char lower(char c)
{
    return static_cast<char>(tolower(static_cast<unsigned char>(c)));
}

bool is_space(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

/** The function's name is interface because its check prints it. */
VEK_PRINTF(1, 0)
VekStr *vek_str_create_vprintf_with_return(const char *format, va_list args, void *return_address)
{
    VEK_RETURN_VAL_IF_FAIL(format != NULL, nullptr);

    char *const block = vek_format_block(header_size, 0, format, args, return_address);
    if (block == nullptr) {
        return nullptr;
    }
    auto *const vekstr = reinterpret_cast<VekStr *>(block);
    vekstr->count = 1;
    return vekstr;
}

} // namespace

/* ---- Create ---- */

VekStr *vek_str_create_with_return(const char *cstr, void *return_address)
{
    if (cstr == nullptr) {
        return nullptr;
    }
    const size_t length = strlen(cstr);
    VekStr *const vekstr = new_str(length, return_address);
    if (vekstr != nullptr) {
        memcpy(vekstr->text, cstr, length + 1);
    }
    return vekstr;
}

VEK_ENTRY VekStr *vek_str_ncreate(const char *cstr, int len)
{
    VEK_RETURN_VAL_IF_FAIL(len >= 0, nullptr);
    VEK_RETURN_VAL_IF_FAIL(len == 0 || cstr != NULL, nullptr);

    const auto room = static_cast<size_t>(len);
    VekStr *const vekstr = new_str(room, VEK_CALLER);
    if (vekstr != nullptr) {
        const size_t length = len != 0 ? strnlen(cstr, room) : 0; // null is a text of length 0
        memcpy(vekstr->text, len != 0 ? cstr : "", length);
        memset(vekstr->text + length, '\0', room - length + 1);
    }
    return vekstr;
}

VEK_ENTRY VekStr *vek_str_create(const char *cstr)
{
    return vek_str_create_with_return(cstr, VEK_CALLER);
}

VEK_ENTRY VekStr *vek_str_create_printf(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    VekStr *const vekstr = vek_str_create_vprintf_with_return(format, args, VEK_CALLER);
    va_end(args);
    return vekstr;
}

VEK_ENTRY VekStr *vek_str_create_vprintf(const char *format, va_list args)
{
    return vek_str_create_vprintf_with_return(format, args, VEK_CALLER);
}

/* ---- References ---- */

VekStr *vek_str_ref(VekStr *vekstr)
{
    if (vekstr == nullptr || vekstr->count == 0) {
        return vekstr;
    }
    VEK_RETURN_VAL_IF_FAIL(UINT_MAX > vekstr->count + 1, nullptr);

    ++vekstr->count;
    return vekstr;
}

VekStr *vek_str_unref(VekStr *vekstr)
{
    if (vekstr == nullptr || vekstr->count == 0) {
        return nullptr;
    }
    if (vekstr->count == 1) {
        vek_free(vekstr);
    } else {
        --vekstr->count;
    }
    return nullptr;
}

void vek_str_make_persistent(VekStr *str)
{
    VEK_RETURN_IF_FAIL(str != NULL);

    str->count = 0;
}

void vek_str_force_destroy(VekStr *vekstr)
{
    if (vekstr != nullptr && vekstr->count == 0) {
        vek_free(vekstr);
    } else {
        vek_str_unref(vekstr);
    }
}

VekStr *vek_str_assign(VekStr **dest, VekStr *const *src)
{
    VekStr *const assigned = vek_str_ref(*src);
    vek_str_unref(*dest);
    *dest = assigned;
    return assigned;
}

/* ---- Read and compare ---- */

const char *vek_str_to_c_str(const VekStr *vekstr)
{
    return vekstr != nullptr ? vekstr->text : nullptr;
}

unsigned int vek_strlen(const VekStr *vekstr)
{
    VEK_RETURN_VAL_IF_FAIL(vekstr, 0);

    return static_cast<unsigned int>(strlen(vekstr->text));
}

int vek_strcmp(const VekStr *s1, const VekStr *s2)
{
    if (s1 == s2) {
        return 0;
    }
    if (s1 == nullptr) {
        return -1;
    }
    return s2 != nullptr ? strcmp(s1->text, s2->text) : 1;
}

int vek_strncmp(const VekStr *s1, const VekStr *s2, size_t n)
{
    if (s1 == s2) {
        return 0;
    }
    if (s1 == nullptr) {
        return -1;
    }
    return s2 != nullptr ? strncmp(s1->text, s2->text, n) : 1;
}

int vek_str_eq(const VekStr *s1, const VekStr *s2)
{
    return vek_strcmp(s1, s2) == 0;
}

int vek_str_eq_c_str(const VekStr *s1, const char *s2)
{
    VEK_RETURN_VAL_IF_FAIL(s1 != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(s2 != NULL, 0);

    return strcmp(s1->text, s2) == 0;
}

int vek_str_neq_c_str(const VekStr *s1, const char *s2, size_t n)
{
    VEK_RETURN_VAL_IF_FAIL(s1 != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(n==0 || s2 != NULL, 0);

    return n == 0 || strncmp(s1->text, s2, n) == 0;
}

/* ---- Change in place, for every holder ---- */

void vek_str_toupper(VekStr *vekstr)
{
    VEK_RETURN_IF_FAIL(vekstr);

    for (char *c = vekstr->text; *c != '\0'; ++c) {
        *c = upper(*c);
    }
}

void vek_str_tolower(VekStr *vekstr)
{
    VEK_RETURN_IF_FAIL(vekstr);

    for (char *c = vekstr->text; *c != '\0'; ++c) {
        *c = lower(*c);
    }
}

void vek_str_capitalize(VekStr *vekstr)
{
    VEK_RETURN_IF_FAIL(vekstr);

    bool starts_word = true;
    for (char *c = vekstr->text; *c != '\0'; ++c) {
        if (starts_word) {
            *c = upper(*c);
        }
        starts_word = is_space(*c);
    }
}

void vek_str_char_swap(VekStr *vekstr, char from, char to)
{
    if (vekstr == nullptr) {
        return;
    }
    // The loop is past any NUL that it has written, so it ends at the old terminator.
    for (char *c = vekstr->text; *c != '\0'; ++c) {
        if (*c == from) {
            *c = to;
        }
    }
}

/* ---- Change by replacement: a new string in the caller's variable ---- */

VEK_ENTRY int vek_str_prepend_char(VekStr **vekstr, char c)
{
    VEK_RETURN_VAL_IF_FAIL(vekstr != NULL, 0);

    return prepend(vekstr, &c, 1, VEK_CALLER);
}

VEK_ENTRY int vek_str_prepend_c_str(VekStr **vekstr, const char *c)
{
    VEK_RETURN_VAL_IF_FAIL(vekstr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(c != NULL, 0);

    return prepend(vekstr, c, strlen(c), VEK_CALLER);
}

VEK_ENTRY int vek_str_append_c_str(VekStr **vekstr, const char *c)
{
    VEK_RETURN_VAL_IF_FAIL(vekstr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(c != NULL, 0);

    return append(vekstr, c, VEK_CALLER);
}

VEK_ENTRY int vek_str_append_vek_str(VekStr **vekstr1, const VekStr *vekstr)
{
    VEK_RETURN_VAL_IF_FAIL(vekstr1 != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(vekstr != NULL, 0);

    return append(vekstr1, vekstr->text, VEK_CALLER);
}

/* ---- Diagnostics ---- */

unsigned int _vek_str_get_ref_count(const VekStr *vekstr)
{
    VEK_RETURN_VAL_IF_FAIL(vekstr, 0);

    return vekstr->count;
}
