/* SPDX-License-Identifier: MIT */
/* Debug output: its streams.
 *
 * The main file is a record, and every flag of every domain has one. A record that holds a FILE has
 * a name, and search_all() finds it: a FILE has no reference count, and a record that gives up its
 * FILE closes it if no other record holds it. Records of one name never hold two different FILEs; a
 * record whose file could not be opened holds none. Standard output is never closed. Only this
 * source opens and closes output files and changes records. Of the settings it knows only "-", the
 * name for standard output. */
#include "veklib/vekdebug_internal.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekmemory.h"
#include "veklib/vekmemory_internal.h"
#include "veklib/vekstrfuncs.h"

#include <cstring>

namespace {

constexpr const char *standard_output_name = "STDOUT";

/* ---- Records ---- */

/** A walk over all records, until `test` is true for one. */
struct Search {
    bool (*test)(void *context, VekDebugFilestream &record);
    void *context;
    VekDebugFilestream *found;
};

bool search_record(Search *search, VekDebugFilestream *record)
{
    if (search->test(search->context, *record)) {
        search->found = record;
    }
    return search->found != nullptr;
}

int search_domain(void *, void *value, void *search)
{
    const auto *const domain = static_cast<const VekDebugDomain *>(value);
    bool found = false;
    for (int32_t i = 0; i < domain->flag_count && !found; ++i) {
        found = search_record(static_cast<Search *>(search), &domain->streams[i]);
    }
    return found;
}

/** Looks at the main file, then at a domain that is being registered, then at all in the table. */
void search_all(Search *search)
{
    VekDebugFilestream *const main = vek_debug.main_file;
    VekDebugDomain *const registering = vek_debug.registering;
    if ((main != nullptr && search_record(search, main)) ||
        (registering != nullptr && search_domain(nullptr, registering, search))) {
        return;
    }
    if (vek_debug.domains != nullptr) {
        vek_hash_foreach(vek_debug.domains, search_domain, search);
    }
}

/** Finds the first record for which `test` is true; null if there is none. */
template <typename Test>
VekDebugFilestream *find_record(Test test)
{
    const auto call = [](void *context, VekDebugFilestream &record) {
        return (*static_cast<Test *>(context))(record);
    };
    Search search = {call, &test, nullptr};
    search_all(&search);
    return search.found;
}

template <typename Visit>
void for_each_record(Visit visit)
{
    find_record([&visit](VekDebugFilestream &record) {
        visit(record);
        return false; // go on
    });
}

/** Finds another record of the same name, open or not: a file that could not be opened for one
 *  record is not tried again for the next. */
const VekDebugFilestream *find_sharer(const VekDebugFilestream *record)
{
    return find_record([record](const VekDebugFilestream &other) {
        return &other != record && other.name != nullptr && strcmp(other.name, record->name) == 0;
    });
}

bool is_held_elsewhere(const VekDebugFilestream *record)
{
    return find_record([record](const VekDebugFilestream &other) {
               return &other != record && other.file == record->file;
           }) != nullptr;
}

/* ---- Opening and closing ---- */

/** Returns the name that a record gets for a file's name in a setting. */
const char *stream_name(const char *file)
{
    return strcmp(file, "-") == 0 ? standard_output_name : file;
}

/** Names an empty record. Standard output needs no opening: the record holds it at once. Returns
 *  false without memory. */
bool take_name(VekDebugFilestream *record, const char *name)
{
    record->name = vek_strdup(name);
    if (record->name == nullptr) {
        return false;
    }
    record->file = strcmp(name, standard_output_name) == 0 ? stdout : nullptr;
    return true;
}

/** Opens a file for writing and empties it. Flushes all open streams first: one of them may have
 *  the same file open, and its unwritten text must not get into the file afterwards. */
FILE *open_emptied(const char *name)
{
    for_each_record([](const VekDebugFilestream &record) {
        if (record.file != nullptr && record.file != stdout) {
            fflush(record.file);
        }
    });
    return vek_open_file(name, "w");
}

int _vek_debug_open_filestream(VekDebugFilestream *fs)
{
    fs->file = open_emptied(fs->name);
    VEK_RETURN_VAL_IF_FAIL(fs->file, status_failed_check);

    return status_done;
}

/* ---- The main file ---- */

/** Opens the file of the next main file and empties it. Records that have a file of that name open
 *  change to the new stream, so that the name has one stream. */
void open_main_file(VekDebugFilestream *main)
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
    for_each_record([main, old_file](VekDebugFilestream &record) {
        if (record.file == old_file) {
            record.file = main->file;
        }
    });
    fclose(old_file);
}

} // namespace

/* ---- What the other sources call ---- */

void _vek_debug_close_filestream(VekDebugFilestream *fs)
{
    VEK_RETURN_IF_FAIL(fs);

    if (fs->file != nullptr && fs->file != stdout && !is_held_elsewhere(fs)) {
        fclose(fs->file);
    }
    fs->file = nullptr;
    vek_free(fs->name);
    fs->name = nullptr;
}

int vek_debug_point_at_file(VekDebugFilestream *record, const char *file)
{
    const VekDebugFilestream *const main = vek_debug.main_file;
    const char *const main_name = main != nullptr ? main->name : standard_output_name;
    if (!take_name(record, file != nullptr ? stream_name(file) : main_name)) {
        return status_no_memory;
    }
    if (record->file != nullptr) {
        return status_done;
    }
    const VekDebugFilestream *const sharer = find_sharer(record);
    if (sharer != nullptr) {
        record->file = sharer->file;
        return status_done;
    }
    return _vek_debug_open_filestream(record);
}

void vek_debug_close_streams(VekDebugDomain *domain)
{
    for (int32_t i = 0; i < domain->flag_count; ++i) {
        _vek_debug_close_filestream(&domain->streams[i]);
    }
}

void _vek_debug_set_default_file(const char *filename)
{
    VEK_RETURN_IF_FAIL(filename);

    // Without memory for the new main file the old one stays.
    auto *const main = static_cast<VekDebugFilestream *>(vek_calloc(1, sizeof(VekDebugFilestream)));
    if (main == nullptr) {
        return;
    }
    if (!take_name(main, stream_name(filename))) {
        vek_free(main);
        return;
    }
    vek_debug_close_main_file();
    if (main->file == nullptr) {
        open_main_file(main);
    }
    vek_debug.main_file = main;
}

void vek_debug_close_main_file()
{
    if (vek_debug.main_file != nullptr) {
        _vek_debug_close_filestream(vek_debug.main_file);
        vek_free(vek_debug.main_file);
        vek_debug.main_file = nullptr;
    }
}
