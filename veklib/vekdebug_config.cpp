/* SPDX-License-Identifier: MIT */
/* Debug output: the configuration.
 *
 * An entry of the file or of the environment sets the main file, autoflush or a setting. The
 * settings are those that the last load read and those that were set since; the dictionary is null
 * if there are none. All settings are applied together, to one domain or to all. Only this source
 * changes the settings and the stored names; apart from vek_debug_enable() and vek_debug_disable(),
 * only this source changes which flags are enabled. It never changes a record. A reload keeps
 * autoflush unless an entry names it. */
#include "veklib/vekdebug_internal.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekmemory.h"
#include "veklib/vekmemory_internal.h"
#include "veklib/vekstrdict.h"
#include "veklib/vekstrfuncs.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

namespace {

constexpr int expected_settings = 10;

/* ---- Applying the settings ---- */

/** Returns the bit of a flag; 0 for flags after the 32nd, which have none. */
uint32_t bit_of(int32_t index)
{
    return index < 32 ? uint32_t{1} << index : 0;
}

/** Points a flag at a file and enables it, whether or not the file can be opened. */
int _vek_debug_set_filestream(VekDebugDomain *domain, int32_t index, const char *file)
{
    const uint32_t flag = bit_of(index);
    const bool vek_debug_is_initialized = vek_debug.initialized; // the check prints this name
    VEK_RETURN_VAL_IF_FAIL(vek_debug_is_initialized, status_failed_check);
    VEK_RETURN_VAL_IF_FAIL(flag, status_failed_check);

    VekDebugFilestream *const record = &domain->streams[index];
    _vek_debug_close_filestream(record);
    const int status = vek_debug_point_at_file(record, file);
    domain->enabled |= flag;
    return status;
}

/** Applies a setting (null: there is none) to a flag of a domain. A flag that is off also points at
 *  the main file. */
int apply_setting(VekDebugDomain *domain, int32_t index, const char *value)
{
    const bool off = value == nullptr || strcmp(value, "0") == 0;
    const bool to_main_file = off || strcmp(value, "1") == 0;
    if (!to_main_file && strcmp(value, "-") != 0) {
        return _vek_debug_set_filestream(domain, index, value);
    }
    VekDebugFilestream *const record = &domain->streams[index];
    _vek_debug_close_filestream(record);
    domain->enabled = off ? domain->enabled & ~bit_of(index) : domain->enabled | bit_of(index);
    return vek_debug_point_at_file(record, to_main_file ? nullptr : value);
}

int update_one(void *, void *domain, void *)
{
    _vek_debug_update_domain(static_cast<VekDebugDomain *>(domain));
    return 0; // go on, even if a flag of this domain failed
}

void update_all_domains()
{
    if (vek_debug.domains != nullptr) {
        vek_hash_foreach(vek_debug.domains, update_one, nullptr);
    }
}

/* ---- Settings ---- */

/** Creates the settings dictionary if there is none; returns false without memory. */
bool ensure_settings()
{
    if (vek_debug.settings == nullptr) {
        vek_debug.settings = vek_str_dict_create(expected_settings);
    }
    return vek_debug.settings != nullptr;
}

/** Stores a setting. Without memory the old one stays. */
void store_setting(const char *name, const char *value)
{
    VekStr *const text = vek_str_create(value);
    if (text != nullptr && !vek_str_dict_put_vekstr(vek_debug.settings, name, text)) {
        vek_str_unref(text);
    }
}

/* ---- Entries ---- */

/** Removes all white space from a text, in place. */
char *without_space(char *text)
{
    char *out = text;
    for (const char *in = text; *in != '\0'; ++in) {
        if (!isspace(static_cast<unsigned char>(*in))) {
            *out++ = *in;
        }
    }
    *out = '\0';
    return text;
}

/** Applies one entry, "key=value" or "key"; modifies the text. */
void handle_entry(char *entry)
{
    const char *value = "1";
    char *const separator = strchr(entry, '=');
    if (separator != nullptr) {
        *separator = '\0';
        if (separator[1] == '\0') {
            return;
        }
        value = without_space(separator + 1);
    }
    const char *const key = without_space(entry);
    if (*key == '\0') {
        return;
    }
    if (strcmp(key, "mainfile") == 0) {
        _vek_debug_set_default_file(value);
    } else if (strcmp(key, "autoflush") == 0) {
        vek_debug.autoflush = strcmp(value, "0") != 0;
    } else {
        store_setting(key, value);
    }
}

/** Handles the entries of a source, prints all settings and applies them; modifies the text. */
int parse_config(char *text, const char *separators)
{
    if (!ensure_settings()) {
        return status_no_memory;
    }
    char *rest;
    for (char *entry = strtok_r(text, separators, &rest); entry != nullptr;
         entry = strtok_r(nullptr, separators, &rest)) {
        handle_entry(entry);
    }
    fputs("======== VekDebug Config file ============\n", stdout);
    vek_dict_print(vek_debug.settings);
    update_all_domains();
    return status_done;
}

/* ---- Finding the file ---- */

/** Opens a configuration for reading; null if there is none. Only a regular file counts: opening a
 *  pipe could wait for ever. */
FILE *open_configuration(const char *path)
{
    struct stat information;
    const bool other = stat(path, &information) == 0 && !S_ISREG(information.st_mode);
    return other ? nullptr : vek_open_file(path, "r");
}

/** Opens the configuration file and stores it in `file`; stores null if there is none. */
int _vek_debug_find_file(FILE **file)
{
    const char *const filename = vek_debug.config_file;
    *file = nullptr;
    VEK_RETURN_VAL_IF_FAIL(filename, status_done);

    if (vek_debug.search_path == nullptr || strchr(filename, '/') != nullptr) {
        *file = open_configuration(filename);
        return status_done;
    }
    for (const char *element = vek_debug.search_path; *file == nullptr && *element != '\0';) {
        const char *const colon = strchr(element, ':');
        const size_t length =
            colon != nullptr ? static_cast<size_t>(colon - element) : strlen(element);
        if (length > 0) {
            char *const path =
                vek_strdup_printf("%.*s/%s", static_cast<int>(length), element, filename);
            if (path == nullptr) {
                return status_no_memory;
            }
            *file = open_configuration(path);
            vek_free(path);
        }
        element += colon != nullptr ? length + 1 : length;
    }
    return status_done;
}

/* ---- Reading the file ---- */

/** Cuts each line at a comment, at a NUL or at a carriage return that precedes its newline, and
 *  terminates the text. The buffer must hold one byte more than `size`. */
void drop_comments(char *text, size_t size)
{
    char *out = text;
    bool dropping = false;
    text[size] = '\n'; // the last line may lack its end
    for (size_t i = 0; i < size; ++i) {
        const char c = text[i];
        if (c == '\n') {
            dropping = false;
        } else if (c == '#' || c == '\0' || (c == '\r' && text[i + 1] == '\n')) {
            dropping = true;
        }
        if (!dropping) {
            *out++ = c;
        }
    }
    *out = '\0';
}

/** Reads a file without its comments and closes it. Stores the text in `text`, to be released with
 *  vek_free(); stores null if the file cannot be read. */
int _vek_debug_file_to_string(FILE *input, char **text)
{
    *text = nullptr;
    struct stat information;
    if (fstat(fileno(input), &information) != 0) {
        fclose(input);
        return status_done;
    }
    const auto size = static_cast<uint64_t>(information.st_size);
    char *const content =
        size < SIZE_MAX ? static_cast<char *>(vek_malloc(static_cast<size_t>(size) + 1)) : nullptr;
    if (content == nullptr) {
        fclose(input);
        return status_no_memory;
    }
    drop_comments(content, fread(content, 1, static_cast<size_t>(size), input));
    const bool whole = !ferror(input); // a line that was cut short would be a wrong setting
    if (fclose(input) != 0) {
        // The printed text is interface.
        vek_warn_failed_assertion(__FILE__, __LINE__, __func__, "!fclose(input)");
    } else if (whole) {
        *text = content;
        return status_done;
    }
    vek_free(content);
    return status_done;
}

/* ---- Loading ---- */

int load_file()
{
    FILE *file;
    char *text = nullptr;
    vek_debug_close_main_file();
    int status = _vek_debug_find_file(&file);
    if (status == status_done && file != nullptr) {
        status = _vek_debug_file_to_string(file, &text);
    }
    if (status == status_done && text != nullptr && *text != '\0') {
        status = parse_config(text, "\n");
    }
    vek_free(text);
    return status;
}

int load_environment()
{
    const char *const value = secure_getenv("VEK_DEBUG_CONFIG");
    if (value == nullptr || *value == '\0') {
        return status_done;
    }
    char *const text = vek_strdup(value);
    if (text == nullptr) {
        return status_no_memory;
    }
    const int status = parse_config(text, ",");
    vek_free(text);
    return status;
}

/** Releases a stored name, then copies the new one, if any; returns false without memory. */
bool record_name(char *&recorded, const char *name)
{
    vek_free(recorded);
    recorded = nullptr;
    if (name != nullptr) {
        recorded = vek_strdup(name);
    }
    return recorded != nullptr || name == nullptr;
}

} // namespace

/* ---- What vekdebug.cpp calls ---- */

void _vek_debug_update_domain(VekDebugDomain *domain)
{
    const bool vek_debug_is_initialized = vek_debug.initialized; // the check prints this name
    VEK_RETURN_IF_FAIL(vek_debug_is_initialized);

    if (vek_debug.settings == nullptr) {
        return;
    }
    int status = status_done;
    for (int32_t i = 0; i < domain->flag_count && status == status_done; ++i) {
        const char *const name = domain->flag_names[i];
        const char *const value = vek_str_dict_get_string(vek_debug.settings, name);
        status = apply_setting(domain, i, value);
    }
}

void vek_debug_release_settings()
{
    vek_dict_destroy(vek_debug.settings);
    vek_debug.settings = nullptr;
}

/* ---- Configuration ---- */

int vek_debug_set_config(const char *config_file, const char *search_path)
{
    const bool recorded = record_name(vek_debug.config_file, config_file) &&
                          record_name(vek_debug.search_path, search_path);
    return recorded ? status_done : status_no_memory;
}

int vek_debug_reload_config()
{
    vek_debug_release_settings();
    if (vek_debug.config_file != nullptr) {
        const int status = load_file();
        if (status != status_done) {
            return status;
        }
    }
    return load_environment();
}

int vek_debug_set_output_setting(const char *name, const char *value)
{
    if (!vek_debug.initialized) {
        return status_done;
    }
    VEK_RETURN_VAL_IF_FAIL(name != NULL, status_failed_check);
    VEK_RETURN_VAL_IF_FAIL(value != NULL, status_failed_check);

    if (!ensure_settings()) {
        return status_no_memory;
    }
    store_setting(name, value);
    update_all_domains();
    return status_done;
}
