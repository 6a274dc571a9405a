/* SPDX-License-Identifier: MIT */
/* What the three parts of debug output share. Calls go downwards: vekdebug.cpp (start and stop,
 * domains, printing), vekdebug_config.cpp (configuration, settings), vekdebug_streams.cpp (records
 * and their files). Each calls only those below it. */
#ifndef VEKLIB_VEKDEBUG_INTERNAL_H
#define VEKLIB_VEKDEBUG_INTERNAL_H

#include "veklib/vekdebug.h"
#include "veklib/vekdict.h"
#include "veklib/vekhash.h"

/** Statuses: what operations return that can fail. */
enum VekDebugStatus : int { status_done = 0, status_failed_check = 1, status_no_memory = 2 };

/* The compiler's option for visibility covers definitions only. Declared hidden, the state is read
 * directly, which keeps a message that is off cheap, and calls between the parts need no table. */
#pragma GCC visibility push(hidden)

/** The state of debug output. Every part reads it; the part that changes a field is named first. */
struct VekDebugGlobal {
    char *config_file;                    ///< config: as recorded, or null
    char *search_path;                    ///< config: as recorded, or null
    bool autoflush;                       ///< config: entries; vekdebug: start and public function
    VekDebugFilestream *default_stream;   ///< streams: the main file; null without one
    VekDebugPrintFunction print_function; ///< vekdebug: for all domains, or null
    void *print_data;                     ///< vekdebug: null without the function
    VekHash *domains;                     ///< vekdebug: from name to domain, owned; null if stopped
    VekDebugDomain *last_found;           ///< vekdebug: spares looking it up again; or null
    VekDict *settings;                    ///< config: from flag name to value; null: none
    bool initialized;                     ///< vekdebug: between start and stop
    VekDebugDomain *registering;          ///< vekdebug: in use, not in the table yet; or null
};

extern constinit VekDebugGlobal vek_debug;

/* ---- vekdebug_config.cpp ---- */

/** Applies the settings to the flags of a domain, up to the first flag that fails. Without a
 *  settings dictionary nothing changes. */
void _vek_debug_update_domain(VekDebugDomain *domain);

/** Releases all settings. What they did to flags and streams stays. */
void vek_debug_release_settings();

/* ---- vekdebug_streams.cpp ---- */

/** Leaves a record empty. Closes its file if no other record holds it. */
void _vek_debug_close_filestream(VekDebugFilestream *fs);

/** Points a flag's record at a stream.
 *  @param record  the record, which is empty
 *  @param file    the file's name, copied; "-" for standard output; null for the main file, or
 *                 standard output without one
 *  @return  status_done, also when another record has tried the file in vain
 *  Fails:   the file cannot be opened -> status_failed_check, with a warning, and the record has
 *           the name alone; no memory -> status_no_memory, and the record is empty
 */
int vek_debug_point_at_file(VekDebugFilestream *record, const char *file);

/** Closes the streams of a domain and leaves its records empty. */
void vek_debug_close_streams(VekDebugDomain *domain);

/** Replaces the main file. One that cannot be opened is a main file without a stream.
 *  @param filename  the file's name, copied; "-" for standard output
 *  Fails:   no memory -> the old main file stays
 */
void _vek_debug_set_default_file(const char *filename);

/** Closes the main file and forgets it, if there is one. Flags that write to it keep its stream. */
void vek_debug_close_main_file();

#pragma GCC visibility pop

#endif
