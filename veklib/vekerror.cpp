/* SPDX-License-Identifier: MIT */
/* Error objects.
 *
 * An error is one block: text and places are added without allocating. `msg_pos` is always the
 * length of `msg`, and less than its size. The shared error for exhausted memory is constant: every
 * function that changes or releases an error tests `is_allocated` first.
 */
#include "veklib/vekerror.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekmemory_internal.h"

#include <cstdarg>
#include <cstring>

#include "veklib/vekassert_internal.h"

namespace {

constexpr const char *unknown = "--unknown--";

/* The bytes that the message and its terminator may use: all but the last one. */
constexpr uint32_t usable_msg_size = VEK_ERROR_MSG_SIZE - 1;

constexpr VekError vek_error_out_of_memory = {
    .is_allocated = 0,
    .type = VEK_ERROR_OUT_OF_MEMORY,
    .msg_pos = sizeof "Out of Memory" - 1,
    .msg = "Out of Memory",
    .callstack_count = 0,
    .callstack = {},
};

const char *or_unknown(const char *text)
{
    return text != nullptr ? text : unknown;
}

VEK_PRINTF(2, 0)
VekError *append_msg_va(VekError *err, const char *format, va_list args)
{
    VEK_ASSERT(((void *)0) != err); // the printed text is interface, even this form of null
    if (!err->is_allocated) {
        return err;
    }
    VEK_ASSERT(err->msg_pos < sizeof(err->msg));
    VEK_ASSERT(err->msg_pos == strlen(err->msg));
    if (format == nullptr || *format == '\0' || err->msg_pos >= usable_msg_size) {
        return err;
    }
    const uint32_t room = usable_msg_size - err->msg_pos;
    if (vsnprintf(err->msg + err->msg_pos, room, format, args) >= 0) {
        // Not the count returned: the text may be cut, or end at a NUL among its characters.
        err->msg_pos += static_cast<uint32_t>(strlen(err->msg + err->msg_pos));
    }
    err->msg[err->msg_pos] = '\0';
    VEK_ASSERT(err->msg_pos < sizeof(err->msg));
    VEK_ASSERT(err->msg_pos == strlen(err->msg));
    return err;
}

const VekErrorCallstackEntry *entry_at(const VekError *err, int index)
{
    const bool in_use = err != nullptr && index >= 0 && index < err->callstack_count;
    return in_use ? &err->callstack[index] : nullptr;
}

} // namespace

VekError *vek_error_create(int type, const char *func, const char *file, int line,
                           const char *format, ...)
{
    // Charged to the library itself: the error's first place shows who called.
    auto *const err = vek_new<VekError>();
    if (err == nullptr) {
        // Never written to: whatever changes an error tests is_allocated first.
        return const_cast<VekError *>(&vek_error_out_of_memory);
    }
    memset(err, 0, sizeof *err);
    err->is_allocated = 1;
    err->type = type;
    _vek_error_add_callstack_entry(err, func, file, line);

    va_list args;
    va_start(args, format);
    append_msg_va(err, format, args);
    va_end(args);
    return err;
}

void vek_error_destroy(VekError *err)
{
    if (err != nullptr && err->is_allocated) {
        vek_free(err);
    }
}

VekError *vek_error_append_msg(VekError *err, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    append_msg_va(err, format, args);
    va_end(args);
    return err;
}

void _vek_error_add_callstack_entry(VekError *err, const char *func, const char *file, int line)
{
    VEK_ASSERT(((void *)0) != err); // the printed text is interface
    if (!err->is_allocated || err->callstack_count == VEK_ERROR_CALLSTACK_SIZE) {
        return;
    }
    err->callstack[err->callstack_count++] = {or_unknown(func), or_unknown(file), line};
}

int vek_error_get_type(const VekError *err)
{
    return err != nullptr ? err->type : VEK_ERROR_SUCCESS;
}

const char *vek_error_get_msg(const VekError *err)
{
    return err != nullptr ? err->msg : "";
}

int vek_error_get_callstack_count(const VekError *err)
{
    return err != nullptr ? err->callstack_count : 0;
}

const char *vek_error_get_callstack_func(const VekError *err, int index)
{
    const VekErrorCallstackEntry *const entry = entry_at(err, index);
    return entry != nullptr ? entry->func : unknown;
}

const char *vek_error_get_callstack_file(const VekError *err, int index)
{
    const VekErrorCallstackEntry *const entry = entry_at(err, index);
    return entry != nullptr ? entry->file : unknown;
}

int vek_error_get_callstack_line(const VekError *err, int index)
{
    const VekErrorCallstackEntry *const entry = entry_at(err, index);
    return entry != nullptr ? entry->line : 0;
}

void vek_error_print(const VekError *err, FILE *stream)
{
    if (err == nullptr) {
        return;
    }
    FILE *const out = stream != nullptr ? stream : stdout;
    fprintf(out, "** Error %d: %s\n", err->type, _vek_error_get_string(err->type));
    if (err->msg_pos != 0) {
        fprintf(out, "%.*s\n", static_cast<int>(err->msg_pos), err->msg);
    }
    if (err->callstack_count > 0) {
        fprintf(out, "------ Call Stack: ------\n");
    }
    for (int i = 0; i < err->callstack_count; ++i) {
        const VekErrorCallstackEntry &entry = err->callstack[i];
        fprintf(out, "%2d: %s() in %s:%d\n", i, entry.func, entry.file, entry.line);
    }
}

const char *_vek_error_get_string(int type)
{
    switch (type) {
    case VEK_ERROR_SUCCESS:
        return "Success";
    case VEK_ERROR_OUT_OF_MEMORY:
        return "Out of Memory Error";
    case VEK_ERROR_IO:
        return "I/O Error";
    case VEK_ERROR_BAD_INPUT:
        return "Bad Input Data";
    default:
        return "Unknown Error";
    }
}
