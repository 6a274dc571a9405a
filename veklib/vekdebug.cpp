/* SPDX-License-Identifier: MIT */
#include "veklib/vekdebug.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekhash.h"
#include "veklib/vekmemory.h"
#include "veklib/vekmemory_internal.h"
#include "veklib/vekstrdict.h"
#include "veklib/vekstrfuncs.h"

#include <bit>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

namespace {

enum Status : int { status_done = 0, status_failed_check = 1, status_no_memory = 2 };

/** Everything that lives between start and stop. */
struct VekDebugGlobal {
    char *config_file;
    char *search_path;
    bool autoflush;
    VekDebugFilestream *default_stream; ///< what "mainfile" names; null without it
    VekDebugPrintFunction print_function;
    void *print_data;
    VekHash *domains;           ///< from its own name to each domain, owned
    VekDebugDomain *last_found; ///< spares the table when one domain is sought again and again
    VekDict *settings;          ///< from a flag's name to what to do with it; null before the first
    bool initialized;
};

constinit VekDebugGlobal global = {};

/* A domain on its way into the table, whose records are in use already. */
constinit VekDebugDomain *registering = nullptr;

constexpr const char *standard_output_name = "STDOUT";
constexpr int expected_settings = 10;

void replace_string(char *&variable, char *string)
{
    vek_free(variable);
    variable = string;
}

/* ---- Streams ----
 *
 * Records share a stream by its name, without counts: records of one name hold the same FILE, or
 * none if it could not be opened, and a FILE is closed when the record that lets it go is the last
 * that holds it. The default stream and the records of all domains are such records. Standard output
 * is never closed. */

/** One walk over the stream records of all domains, until `test` is true for one. */
template <typename Test>
struct Search {
    Test test;
    VekDebugFilestream *found = nullptr;

    static int visit(void *, void *value, void *user_data)
    {
        auto *const search = static_cast<Search *>(user_data);
        const auto *const domain = static_cast<const VekDebugDomain *>(value);
        for (int32_t i = 0; i < domain->flag_count && search->found == nullptr; ++i) {
            if (search->test(domain->streams[i])) {
                search->found = &domain->streams[i];
            }
        }
        return search->found != nullptr;
    }
};

/** The first record of a domain for which `test` is true, or null. */
template <typename Test>
VekDebugFilestream *find_record(Test test)
{
    Search<Test> search = {test};
    if (registering != nullptr) {
        Search<Test>::visit(nullptr, registering, &search);
    }
    if (search.found == nullptr && global.domains != nullptr) {
        vek_hash_foreach(global.domains, Search<Test>::visit, &search);
    }
    return search.found;
}

/** Another record of a domain that has the name of `fs`, open or not: what could not be opened for
 *  one flag is not tried again for the next. */
VekDebugFilestream *_vek_debug_share_filestream(const VekDebugFilestream *fs)
{
    return find_record([fs](const VekDebugFilestream &other) {
        return &other != fs && other.name != nullptr && strcmp(other.name, fs->name) == 0;
    });
}

bool is_held_elsewhere(const VekDebugFilestream *fs)
{
    const VekDebugFilestream *const main = global.default_stream;
    if (main != nullptr && main != fs && main->file == fs->file) {
        return true;
    }
    return find_record([fs](const VekDebugFilestream &other) {
               return &other != fs && other.file == fs->file;
           }) != nullptr;
}

/** Opens a file for writing, emptied. What open streams hold back is written first: it must not land in
 *  the file afterwards, should one of them have the same file. */
FILE *open_emptied(const char *name)
{
    const auto flush = [](const VekDebugFilestream &record) {
        if (record.file != nullptr && record.file != stdout) {
            fflush(record.file);
        }
        return false; // go on
    };
    if (global.default_stream != nullptr) {
        flush(*global.default_stream);
    }
    find_record(flush);
    return vek_open_file(name, "w");
}

/** Lets go of a record's stream, closes it if nobody else holds it, and leaves the record empty. */
int _vek_debug_close_filestream(VekDebugFilestream *fs)
{
    VEK_RETURN_VAL_IF_FAIL(fs, status_failed_check);

    if (fs->file != nullptr && fs->file != stdout && !is_held_elsewhere(fs)) {
        fclose(fs->file);
    }
    fs->file = nullptr;
    replace_string(fs->name, nullptr);
    return status_done;
}

int _vek_debug_open_filestream(VekDebugFilestream *fs)
{
    fs->file = open_emptied(fs->name);
    VEK_RETURN_VAL_IF_FAIL(fs->file, status_failed_check);

    return status_done;
}

/** The file that is meant by a name without being opened: standard output has one, too. */
FILE *file_of_name(const char *name)
{
    return strcmp(name, standard_output_name) == 0 ? stdout : nullptr;
}

/** Points a record, which is empty, at a stream of that name. */
int take_stream(VekDebugFilestream *fs, const char *name, FILE *file)
{
    fs->name = vek_strdup(name);
    if (fs->name == nullptr) {
        return status_no_memory;
    }
    fs->file = file;
    return status_done;
}

/** Points a record, which is empty, at the default stream, or at standard output without one. */
int take_default_stream(VekDebugFilestream *fs)
{
    const VekDebugFilestream *const main = global.default_stream;
    return main != nullptr ? take_stream(fs, main->name, main->file)
                           : take_stream(fs, standard_output_name, stdout);
}

/* ---- Applying the settings ---- */

/** The index of a flag value's stream: that of its highest bit. */
int32_t index_of(uint32_t flag)
{
    return flag < 2 ? 0 : static_cast<int32_t>(std::bit_width(flag)) - 1;
}

/** Points a flag at a file: the default stream's, one that another flag has open, or a new one. */
int point_at_file(VekDebugFilestream *slot, const char *name)
{
    const int status = take_stream(slot, name, file_of_name(name));
    if (status != status_done || slot->file != nullptr) {
        return status;
    }
    const VekDebugFilestream *const main = global.default_stream;
    if (main != nullptr && strcmp(main->name, name) == 0) {
        slot->file = main->file;
        return status_done;
    }
    const VekDebugFilestream *const sharer = _vek_debug_share_filestream(slot);
    if (sharer != nullptr) {
        slot->file = sharer->file;
        return status_done;
    }
    return _vek_debug_open_filestream(slot);
}

/** Points a flag at a file and enables it, whether or not the file can be opened. */
int _vek_debug_set_filestream(VekDebugDomain *domain, uint32_t flag, const char *name)
{
    const bool vek_debug_is_initialized = global.initialized;
    VEK_RETURN_VAL_IF_FAIL(vek_debug_is_initialized, status_failed_check);
    VEK_RETURN_VAL_IF_FAIL(flag, status_failed_check);

    VekDebugFilestream *const slot = &domain->streams[index_of(flag)];
    _vek_debug_close_filestream(slot);
    const int status = point_at_file(slot, name);
    domain->enabled |= flag;
    return status;
}

/** Applies a setting (null: there is none) to a flag of a domain. */
int apply_setting(VekDebugDomain *domain, int32_t index, const char *value)
{
    const uint32_t bit = index < 32 ? uint32_t{1} << index : 0;
    VekDebugFilestream *const slot = &domain->streams[index];
    const bool off = value == nullptr || strcmp(value, "0") == 0;
    const bool standard_output = !off && strcmp(value, "-") == 0;
    if (!off && !standard_output && strcmp(value, "1") != 0) {
        return _vek_debug_set_filestream(domain, bit, value);
    }

    _vek_debug_close_filestream(slot);
    domain->enabled = off ? domain->enabled & ~bit : domain->enabled | bit;
    return standard_output ? take_stream(slot, standard_output_name, stdout)
                           : take_default_stream(slot);
}

/** Applies the settings to all flags of a domain, up to the first that fails. */
int _vek_debug_update_domain(VekDebugDomain *domain)
{
    const bool vek_debug_is_initialized = global.initialized;
    VEK_RETURN_VAL_IF_FAIL(vek_debug_is_initialized, status_failed_check);

    if (global.settings == nullptr) {
        return status_failed_check;
    }
    int status = status_done;
    for (int32_t i = 0; i < domain->flag_count && status == status_done; ++i) {
        status = apply_setting(domain, i,
                               vek_str_dict_get_string(global.settings, domain->flag_names[i]));
    }
    return status;
}

int _vek_debug_update_domain_cb(void *, void *domain, void *)
{
    _vek_debug_update_domain(static_cast<VekDebugDomain *>(domain));
    return 0;
}

void update_all_domains()
{
    if (global.domains != nullptr) {
        vek_hash_foreach(global.domains, _vek_debug_update_domain_cb, nullptr);
    }
}

/** Makes the settings dictionary if there is none; false without memory. */
bool have_settings()
{
    if (global.settings == nullptr) {
        global.settings = vek_str_dict_create(expected_settings);
    }
    return global.settings != nullptr;
}

/** Stores a setting, or leaves the old one without memory. */
void store_setting(const char *name, const char *value)
{
    VekStr *const text = vek_str_create(value);
    if (text != nullptr && !vek_str_dict_put_vekstr(global.settings, name, text)) {
        vek_str_unref(text);
    }
}

/* ---- The default stream ---- */

void drop_default_stream()
{
    if (global.default_stream != nullptr) {
        _vek_debug_close_filestream(global.default_stream);
        vek_free(global.default_stream);
        global.default_stream = nullptr;
    }
}

/** Opens the default stream's file, emptied. Records that have a file of that name open go over to the
 *  new stream, so that there is one for the name. */
void open_default_stream(VekDebugFilestream *main)
{
    main->file = open_emptied(main->name);
    if (main->file == nullptr) {
        return;
    }
    const VekDebugFilestream *const old = find_record([main](const VekDebugFilestream &record) {
        return record.file != nullptr && strcmp(record.name, main->name) == 0;
    });
    if (old == nullptr) {
        return;
    }
    FILE *const old_file = old->file;
    find_record([main, old_file](VekDebugFilestream &record) {
        if (record.file == old_file) {
            record.file = main->file;
        }
        return false;
    });
    fclose(old_file);
}

void _vek_debug_set_default_file(const char *filename)
{
    VEK_RETURN_IF_FAIL(filename);

    // Without memory for the new stream the old one stays.
    void *const block = vek_calloc(1, sizeof(VekDebugFilestream));
    if (block == nullptr) {
        return;
    }
    auto *const main = static_cast<VekDebugFilestream *>(block);
    const char *const name = strcmp(filename, "-") == 0 ? standard_output_name : filename;
    if (take_stream(main, name, file_of_name(name)) != status_done) {
        vek_free(main);
        return;
    }
    drop_default_stream();
    if (main->file == nullptr) {
        open_default_stream(main);
    }
    global.default_stream = main;
}

/* ---- Reading the configuration ---- */

/** Opens a configuration for reading; null when there is none. What is no regular file is none: to
 *  open a pipe could wait for ever. */
FILE *open_configuration(const char *path)
{
    struct stat information;
    const bool other = stat(path, &information) == 0 && !S_ISREG(information.st_mode);
    return other ? nullptr : vek_open_file(path, "r");
}

/** Opens the configuration file; null in `file` when there is none. */
int _vek_debug_find_file(FILE **file)
{
    const char *const filename = global.config_file;
    *file = nullptr;
    VEK_RETURN_VAL_IF_FAIL(filename, status_done);

    if (global.search_path == nullptr || strchr(filename, '/') != nullptr) {
        *file = open_configuration(filename);
        return status_done;
    }
    for (const char *element = global.search_path; *file == nullptr && *element != '\0';) {
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

/** Ends each line at its comment, at a carriage return in front of its end, or at a NUL among its bytes,
 *  and terminates the text, which has room for one byte more than its size. */
void drop_comments(char *text, size_t size)
{
    char *out = text;
    bool dropping = false;
    text[size] = '\n'; // ends a last line that has no end
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

/** Reads a file without its comments into `text`, and closes it; null in `text` when it cannot be read.
 *  The text is released with vek_free(). */
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
    const bool whole = !ferror(input); // half a line would be a wrong setting
    if (fclose(input) != 0) {
        vek_warn_failed_assertion(__FILE__, __LINE__, __func__, "!fclose(input)");
    } else if (whole) {
        *text = content;
        return status_done;
    }
    vek_free(content);
    return status_done;
}

/** Removes the white space of a text, in place. */
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

/** Takes an entry "key=value" or "key" to heart; the text is changed. */
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
        global.autoflush = strcmp(value, "0") != 0;
    } else {
        store_setting(key, value);
    }
}

/** Reads the entries of a source, which is changed, tells the settings and applies them. */
int _vek_debug_parse_config(char *text, const char *separators)
{
    if (!have_settings()) {
        return status_no_memory;
    }
    char *rest;
    for (char *entry = strtok_r(text, separators, &rest); entry != nullptr;
         entry = strtok_r(nullptr, separators, &rest)) {
        handle_entry(entry);
    }
    fputs("======== VekDebug Config file ============\n", stdout);
    vek_dict_print(global.settings);
    update_all_domains();
    return status_done;
}

int load_file()
{
    FILE *file;
    char *text = nullptr;
    drop_default_stream();
    int status = _vek_debug_find_file(&file);
    if (status == status_done && file != nullptr) {
        status = _vek_debug_file_to_string(file, &text);
    }
    if (status == status_done && text != nullptr && *text != '\0') {
        status = _vek_debug_parse_config(text, "\n");
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
    const int status = _vek_debug_parse_config(text, ",");
    vek_free(text);
    return status;
}

void drop_settings()
{
    vek_dict_destroy(global.settings);
    global.settings = nullptr;
}

/* ---- Domains ---- */

void close_streams(VekDebugDomain *domain)
{
    for (int32_t i = 0; i < domain->flag_count; ++i) {
        _vek_debug_close_filestream(&domain->streams[i]);
    }
}

int _vek_debug_close_domain_filestreams(void *, void *domain, void *)
{
    close_streams(static_cast<VekDebugDomain *>(domain));
    return 0;
}

/** Releases a domain; its streams are closed already. */
void _vek_debug_domain_destroy(void *element)
{
    auto *const domain = static_cast<VekDebugDomain *>(element);
    vek_free(domain->streams);
    vek_free(domain->name);
    vek_free(domain);
}

/** A domain without streams, or null. */
VekDebugDomain *new_domain(const char *name, const char *const *flag_names)
{
    auto *const domain = static_cast<VekDebugDomain *>(vek_malloc(sizeof(VekDebugDomain)));
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
        _vek_debug_domain_destroy(domain);
        return nullptr;
    }
    return domain;
}

VekDebugDomain *_vek_debug_lookup_domain(const char *name)
{
    if (name == nullptr) {
        return nullptr;
    }
    if (global.last_found != nullptr && strcmp(global.last_found->name, name) == 0) {
        return global.last_found;
    }
    auto *const domain = static_cast<VekDebugDomain *>(vek_hash_lookup(global.domains, name));
    if (domain != nullptr) {
        global.last_found = domain;
    }
    return domain;
}

/** Gives back everything; autoflush keeps its value. */
void release_everything()
{
    replace_string(global.config_file, nullptr);
    replace_string(global.search_path, nullptr);
    if (global.domains != nullptr) {
        vek_hash_foreach(global.domains, _vek_debug_close_domain_filestreams, nullptr);
        vek_hash_destroy(global.domains);
        global.domains = nullptr;
    }
    drop_settings();
    drop_default_stream();
    global.print_function = nullptr;
    global.print_data = nullptr;
    global.last_found = nullptr;
    global.initialized = false;
}

/* ---- Printing ---- */

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
    if (global.autoflush) {
        fflush(stream->file);
    }
}

VEK_PRINTF(1, 0)
void print_without_domain(const char *format, va_list args)
{
    if (global.print_function != nullptr) {
        call_print_function(global.print_function, global.print_data, format, args);
    } else if (global.default_stream != nullptr) {
        print_to_stream(global.default_stream, format, args);
    } else {
        vprintf(format, args);
    }
}

bool is_wanted(const VekDebugDomain *domain, uint32_t flag)
{
    return (domain->enabled & flag) != 0 && index_of(flag) < domain->flag_count;
}

} // namespace

/* ---- Start, stop and configuration ---- */

int vek_debug_initialize(const char *config_file, const char *search_path)
{
    if (global.initialized) {
        VEK_WARNING("%s:%i:vek_debug global already initialized", __FILE__, __LINE__);
        return status_failed_check;
    }
    release_everything(); // a configuration may have been set and loaded ahead of the start
    global.autoflush = true;
    global.domains = vek_hash_new_full(vek_hash_string_hash_func, vek_hash_string_equal_func,
                                       nullptr, _vek_debug_domain_destroy);
    int status = global.domains != nullptr ? status_done : status_no_memory;
    if (status == status_done) {
        status = vek_debug_set_config(config_file, search_path);
    }
    if (status == status_done) {
        status = vek_debug_reload_config();
    }
    global.initialized = status == status_done;
    if (!global.initialized) {
        release_everything();
    }
    return status;
}

void vek_debug_finalize()
{
    release_everything(); // also what was configured without a start
}

int vek_debug_set_config(const char *config_file, const char *search_path)
{
    const auto record = [](char *&variable, const char *text) {
        replace_string(variable, nullptr);
        variable = text != nullptr ? vek_strdup(text) : nullptr;
        return variable != nullptr || text == nullptr;
    };
    const bool recorded =
        record(global.config_file, config_file) && record(global.search_path, search_path);
    return recorded ? status_done : status_no_memory;
}

int vek_debug_reload_config()
{
    drop_settings();
    if (global.config_file != nullptr) {
        const int status = load_file();
        if (status != status_done) {
            return status;
        }
    }
    return load_environment();
}

int vek_debug_set_output_setting(const char *name, const char *value)
{
    if (!global.initialized) {
        return status_done;
    }
    VEK_RETURN_VAL_IF_FAIL(name != NULL, status_failed_check);
    VEK_RETURN_VAL_IF_FAIL(value != NULL, status_failed_check);

    if (!have_settings()) {
        return status_no_memory;
    }
    store_setting(name, value);
    update_all_domains();
    return status_done;
}

void vek_debug_set_autoflush(bool on)
{
    if (!global.initialized) {
        VEK_WARNING("%s:%i:%s:vek_debug global has not been initialized\n", __FILE__, __LINE__,
                    __func__);
        return;
    }
    global.autoflush = on;
}

/* ---- Domains ---- */

int vek_debug_add_domain(const char *name, const char *const *flag_names)
{
    if (!global.initialized) {
        return status_done;
    }
    if (name == nullptr || flag_names == nullptr) {
        VEK_RETURN_VAL_IF_FAIL(0, status_failed_check);
    }

    if (_vek_debug_lookup_domain(name) != nullptr) {
        return status_done;
    }
    VekDebugDomain *const domain = new_domain(name, flag_names);
    if (domain == nullptr) {
        return status_no_memory;
    }
    registering = domain;
    _vek_debug_update_domain(domain);
    const bool registered = vek_hash_insert(global.domains, domain->name, domain) != 0;
    if (!registered) {
        close_streams(domain);
        _vek_debug_domain_destroy(domain);
    }
    registering = nullptr;
    return registered ? status_done : status_no_memory;
}

VekDebugDomain *vek_debug_get_domain(const char *name)
{
    return global.initialized ? _vek_debug_lookup_domain(name) : nullptr;
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
    if (!global.initialized) {
        return;
    }
    (domain != nullptr ? domain->print_function : global.print_function) = function;
    (domain != nullptr ? domain->print_data : global.print_data) =
        function != nullptr ? data : nullptr;
}

/* ---- Printing ---- */

void vek_debug_print(const VekDebugDomain *domain, uint32_t flag, const char *format, ...)
{
    // Most messages are off, and end here before their values are touched.
    if (!global.initialized || (domain != nullptr && (domain->enabled & flag) == 0)) {
        return;
    }
    va_list args;
    va_start(args, format);
    vek_debug_vprint(domain, flag, format, args);
    va_end(args);
}

void vek_debug_vprint(const VekDebugDomain *domain, uint32_t flag, const char *format, va_list args)
{
    if (!global.initialized) {
        return;
    }
    if (domain == nullptr) {
        print_without_domain(format, args);
    } else if (!is_wanted(domain, flag)) {
        return;
    } else if (domain->print_function != nullptr) {
        call_print_function(domain->print_function, domain->print_data, format, args);
    } else if (global.print_function != nullptr) {
        call_print_function(global.print_function, global.print_data, format, args);
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
