/* SPDX-License-Identifier: MIT */
/* Debug output: start and stop, domains, printing.
 *
 * Domains exist only between start and stop. The hash table `domains` owns them; `last_found` is
 * one of them or null. A domain that is being registered is not in the table yet, but its records
 * are in use already, so searches find it through `registering`. When debug output is stopped, all
 * streams are closed before the first domain is released, because closing one looks at the records
 * of all. Printing changes nothing and does not allocate through the library. This source never
 * changes a record or a setting. */
#include "veklib/vekdebug_internal.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekmemory.h"
#include "veklib/vekmemory_internal.h"
#include "veklib/vekstrfuncs.h"

#include <bit>
#include <cstring>

constinit VekDebugGlobal vek_debug = {};

namespace {

/* ---- Domains ---- */

/** Releases a domain. Its streams must be closed already. */
void destroy_domain(void *element)
{
    auto *const domain = static_cast<VekDebugDomain *>(element);
    vek_free(domain->streams);
    vek_free(domain->name);
    vek_free(domain);
}

/** Makes a domain whose records are empty; null without memory. */
VekDebugDomain *new_domain(const char *name, const char *const *flag_names)
{
    auto *const domain = vek_new<VekDebugDomain>();
    if (domain == nullptr) {
        return nullptr;
    }
    *domain = {};
    domain->flag_names = flag_names;
    while (flag_names[domain->flag_count] != nullptr) {
        ++domain->flag_count;
    }
    const auto count = static_cast<size_t>(domain->flag_count);
    domain->name = vek_strdup(name);
    domain->streams =
        static_cast<VekDebugFilestream *>(vek_calloc(count, sizeof(VekDebugFilestream)));
    if (domain->name == nullptr || (domain->streams == nullptr && count != 0)) {
        destroy_domain(domain);
        return nullptr;
    }
    return domain;
}

VekDebugDomain *lookup_domain(const char *name)
{
    if (name == nullptr) {
        return nullptr;
    }
    if (vek_debug.last_found != nullptr && strcmp(vek_debug.last_found->name, name) == 0) {
        return vek_debug.last_found;
    }
    auto *const domain = static_cast<VekDebugDomain *>(vek_hash_lookup(vek_debug.domains, name));
    if (domain != nullptr) {
        vek_debug.last_found = domain;
    }
    return domain;
}

/* ---- Stop ---- */

int close_streams(void *, void *domain, void *)
{
    vek_debug_close_streams(static_cast<VekDebugDomain *>(domain));
    return 0; // go on
}

/** Releases everything; autoflush keeps its value. */
void release_everything()
{
    vek_debug_set_config(nullptr, nullptr);
    if (vek_debug.domains != nullptr) {
        vek_hash_foreach(vek_debug.domains, close_streams, nullptr);
        vek_hash_destroy(vek_debug.domains);
        vek_debug.domains = nullptr;
    }
    vek_debug_release_settings();
    vek_debug_close_main_file();
    vek_debug.print_function = nullptr;
    vek_debug.print_data = nullptr;
    vek_debug.last_found = nullptr;
    vek_debug.initialized = false;
}

/* ---- Printing ---- */

/** Returns the index of the stream that belongs to the highest bit of `flag`. */
int32_t index_of(uint32_t flag)
{
    return flag < 2 ? 0 : static_cast<int32_t>(std::bit_width(flag)) - 1;
}

bool is_wanted(const VekDebugDomain *domain, uint32_t flag)
{
    return (domain->enabled & flag) != 0 && index_of(flag) < domain->flag_count;
}

VEK_PRINTF(3, 0)
void call_print_function(VekDebugPrintFunction function, void *data, const char *format,
                         va_list args)
{
    char text[1024];
    if (vsnprintf(text, sizeof text, format, args) >= 0) {
        function(text, data);
    }
}

VEK_PRINTF(2, 0)
void print_to_stream(const VekDebugFilestream *stream, const char *format, va_list args)
{
    if (stream->file == nullptr) {
        return;
    }
    vfprintf(stream->file, format, args);
    if (vek_debug.autoflush) {
        fflush(stream->file);
    }
}

VEK_PRINTF(1, 0)
void print_without_domain(const char *format, va_list args)
{
    if (vek_debug.print_function != nullptr) {
        call_print_function(vek_debug.print_function, vek_debug.print_data, format, args);
    } else if (vek_debug.main_file != nullptr) {
        print_to_stream(vek_debug.main_file, format, args);
    } else {
        vprintf(format, args);
    }
}

} // namespace

/* ---- Start and stop ---- */

int vek_debug_initialize(const char *config_file, const char *search_path)
{
    if (vek_debug.initialized) {
        VEK_WARNING("%s:%i:vek_debug global already initialized", __FILE__, __LINE__);
        return status_failed_check;
    }
    release_everything(); // a configuration may have been set and loaded before the start
    vek_debug.autoflush = true;
    vek_debug.domains = vek_hash_new_full(vek_hash_string_hash_func, vek_hash_string_equal_func,
                                          nullptr, destroy_domain);
    int status = vek_debug.domains != nullptr ? status_done : status_no_memory;
    if (status == status_done) {
        status = vek_debug_set_config(config_file, search_path);
    }
    if (status == status_done) {
        status = vek_debug_reload_config();
    }
    vek_debug.initialized = status == status_done;
    if (!vek_debug.initialized) {
        release_everything();
    }
    return status;
}

void vek_debug_finalize()
{
    release_everything(); // also what was configured without a start
}

void vek_debug_set_autoflush(bool on)
{
    if (!vek_debug.initialized) {
        VEK_WARNING("%s:%i:%s:vek_debug global has not been initialized\n", __FILE__, __LINE__,
                    __func__);
        return;
    }
    vek_debug.autoflush = on;
}

/* ---- Domains ---- */

int vek_debug_add_domain(const char *name, const char *const *flag_names)
{
    if (!vek_debug.initialized) {
        return status_done;
    }
    if (name == nullptr || flag_names == nullptr) {
        VEK_RETURN_VAL_IF_FAIL(0, status_failed_check); // the printed condition is interface
    }

    if (lookup_domain(name) != nullptr) {
        return status_done;
    }
    VekDebugDomain *const domain = new_domain(name, flag_names);
    if (domain == nullptr) {
        return status_no_memory;
    }
    vek_debug.registering = domain;
    _vek_debug_update_domain(domain);
    const bool registered = vek_hash_insert(vek_debug.domains, domain->name, domain) != 0;
    if (!registered) {
        vek_debug_close_streams(domain);
        destroy_domain(domain);
    }
    vek_debug.registering = nullptr;
    return registered ? status_done : status_no_memory;
}

VekDebugDomain *vek_debug_get_domain(const char *name)
{
    return vek_debug.initialized ? lookup_domain(name) : nullptr;
}

void vek_debug_enable(VekDebugDomain *domain, uint32_t mask)
{
    if (domain != nullptr) {
        domain->enabled |= mask;
    }
}

void vek_debug_disable(VekDebugDomain *domain, uint32_t mask)
{
    if (domain != nullptr) {
        domain->enabled &= ~mask;
    }
}

int vek_debug_is_enabled(const VekDebugDomain *domain, uint32_t mask)
{
    return domain != nullptr && (domain->enabled & mask) != 0;
}

void vek_debug_set_print_function(VekDebugDomain *domain, VekDebugPrintFunction function,
                                  void *data)
{
    if (!vek_debug.initialized) {
        return;
    }
    (domain != nullptr ? domain->print_function : vek_debug.print_function) = function;
    (domain != nullptr ? domain->print_data : vek_debug.print_data) =
        function != nullptr ? data : nullptr;
}

/* ---- Printing ---- */

void vek_debug_print(const VekDebugDomain *domain, uint32_t flag, const char *format, ...)
{
    // Most messages are off: they return here, before their values are touched.
    if (!vek_debug.initialized || (domain != nullptr && (domain->enabled & flag) == 0)) {
        return;
    }
    va_list args;
    va_start(args, format);
    vek_debug_vprint(domain, flag, format, args);
    va_end(args);
}

void vek_debug_vprint(const VekDebugDomain *domain, uint32_t flag, const char *format, va_list args)
{
    if (!vek_debug.initialized) {
        return;
    }
    if (domain == nullptr) {
        print_without_domain(format, args);
    } else if (!is_wanted(domain, flag)) {
        return;
    } else if (domain->print_function != nullptr) {
        call_print_function(domain->print_function, domain->print_data, format, args);
    } else if (vek_debug.print_function != nullptr) {
        call_print_function(vek_debug.print_function, vek_debug.print_data, format, args);
    } else {
        print_to_stream(&domain->streams[index_of(flag)], format, args);
    }
}

void vek_debug_flush(const VekDebugDomain *domain, uint32_t flag)
{
    if (domain == nullptr || flag == 0) {
        return;
    }
    const int32_t index = index_of(flag);
    if (index < domain->flag_count && domain->streams[index].file != nullptr) {
        fflush(domain->streams[index].file);
    }
}
