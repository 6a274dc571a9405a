/* SPDX-License-Identifier: MIT */
/* What the three sources of vekdebug share: vekdebug.cpp (start and stop, domains, printing),
 * vekdebug_config.cpp (configuration, settings) and vekdebug_streams.cpp (records and their files).
 * Each calls only those named after it. */
#ifndef VEKLIB_VEKDEBUG_INTERNAL_H
#define VEKLIB_VEKDEBUG_INTERNAL_H

#include "veklib/vekdebug.h"
#include "veklib/vekdict.h"
#include "veklib/vekhash.h"

/** The status that operations return. */
enum VekDebugStatus : int { status_done = 0, status_failed_check = 1, status_no_memory = 2 };

/* The compiler's option for visibility applies to definitions only. Because the declarations are
 * hidden too, the state is read directly, so that a message that is off costs little, and calls
 * between the sources need no linkage table. */
#pragma GCC visibility push(hidden)

/** The state of debug output. All three sources read it. The comment of a field begins with the
 *  source that changes it. */
struct VekDebugGlobal {
    char *config_file;                    ///< config: as set, or null
    char *search_path;                    ///< config: as set, or null
    bool autoflush;                       ///< config: entries; vekdebug: start and public function
    VekDebugFilestream *main_file;        ///< streams: the main file; null without one
    VekDebugPrintFunction print_function; ///< vekdebug: for all domains, or null
    void *print_data;                     ///< vekdebug: null without the function
    VekHash *domains;                     ///< vekdebug: from name to domain, owned; null if stopped
    VekDebugDomain *last_found;           ///< vekdebug: the one found last, or null
    VekDict *settings;                    ///< config: from flag name to value; null: none
    bool initialized;                     ///< vekdebug: between start and stop
    VekDebugDomain *registering;          ///< vekdebug: not in the table yet; or null
};

extern constinit VekDebugGlobal vek_debug;

/* ---- vekdebug_config.cpp ---- */

/** Applies the settings to the flags of a domain; the first flag that fails is the last. Without a
 *  settings dictionary nothing changes. */
void _vek_debug_update_domain(VekDebugDomain *domain);

/** Releases all settings. Flags and streams stay as they are. */
void vek_debug_release_settings();

/* ---- vekdebug_streams.cpp ---- */

/** Leaves a record empty. Closes its file if no other record holds it. */
void _vek_debug_close_filestream(VekDebugFilestream *fs);

/** Points a flag's record at a stream.
 *  @param record  the record, which is empty
 *  @param file    the file's name, copied; "-" for standard output; null for the main file, or for
 *                 standard output if there is none
 *  @return  status_done, also if another record has the name but could not open the file
 *  Fails:   the file cannot be opened -> status_failed_check, with a warning, and the record holds
 *           only the name; no memory -> status_no_memory, and the record is empty
 */
int vek_debug_point_at_file(VekDebugFilestream *record, const char *file);

/** Closes the streams of a domain and leaves its records empty. */
void vek_debug_close_streams(VekDebugDomain *domain);

/** Replaces the main file. If the new one cannot be opened, it is a main file without a stream.
 *  @param filename  the file's name, copied; "-" for standard output
 *  Fails:   no memory -> the old main file stays
 */
void _vek_debug_set_default_file(const char *filename);

/** Forgets the main file, if there is one. Closes its stream unless flags write to it. */
void vek_debug_close_main_file();

#pragma GCC visibility pop

#endif
