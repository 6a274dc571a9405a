/* SPDX-License-Identifier: MIT */
/** @file vekname.h
 *  Interned names. A name table holds one VekName for each distinct text, so two names of one table
 *  are equal if and only if their pointers are equal. The table owns its names for its whole life.
 *
 *      VekNameTable *table = vek_name_table_create(NULL);
 *      VekName *eth0 = vek_name_from_string(table, "eth0", 7);
 *      assert(vek_name_try_string(table, "eth0") == eth0);
 *      vek_name_table_destroy(&table);
 *
 *  A name table keeps its names in a hash table (vekhash.h). If the hash table is due to double but
 *  there is no memory for its slots, it warns, and warns again at each new name that would double
 *  it. If warnings are fatal, the process then ends although the name was interned. The hash of
 *  texts is not secret: whoever chooses the texts can make them share a slot. 20,000 texts chosen
 *  in this way took 0.5 s to intern, 70 times as long as others, and the time grows with the square
 *  of their number. Limit how many names are made from texts that come from outside.
 *
 *  Threads: a table is used by one thread at a time, look-ups included.
 */
#ifndef VEKLIB_VEKNAME_H
#define VEKLIB_VEKNAME_H

#include <stdint.h>

#include <veklib/vekhash.h>
#include <veklib/vekstr.h>

VEK_BEGIN_DECLS

/** A name, owned by its table; for reading. */
typedef struct VekName {
    int32_t id;   /**< the number that was passed when the text was first interned */
    char *string; /**< the table's own copy of the text */
} VekName;

/** A table of names. */
typedef struct VekNameTable {
    VekHash *hash; /**< from the text of each name to its VekName */
} VekNameTable;

/* ---- Create and release ---- */

/** Makes an empty table.
 *  @param name_table  address of a variable that also receives the table; may be null
 *  @return  the table; release with vek_name_table_destroy()
 *  Fails:   no memory -> null (the variable is then unchanged or null)
 */
VEK_API VekNameTable *vek_name_table_create(VekNameTable **name_table);

/** Releases a table and all its names, and sets the caller's variable to null. Names and texts that
 *  were borrowed from it, also by values and dictionaries, are invalid afterwards.
 *  @param name_table  address of the variable; not null. If the variable holds null, nothing
 *                     happens
 *  Fails: null address -> nothing done, with a warning
 */
VEK_API void vek_name_table_destroy(VekNameTable **name_table);

/* ---- Intern and look up ---- */

/** Interns a text.
 *  @param name_table  the table
 *  @param string      the text; copied if it is new
 *  @param id          number for a new name; ignored if the text has a name already
 *  @return  the name, existing or new, borrowed from the table
 *  Fails:   no memory -> null, and the table is unchanged; null table or text -> null, with a
 *           warning
 */
VEK_API VekName *vek_name_from_string(VekNameTable *name_table, const char *string, int32_t id);

/** Interns the text of a VekStr, which is only read.
 *  Fails: as vek_name_from_string(); null table or `vek_str` -> null, with a warning
 */
VEK_API VekName *vek_name_from_vek_str(VekNameTable *name_table, const VekStr *vek_str, int32_t id);

/** Finds the name of a text, without creating one.
 *  @param name_table  the table
 *  @param string      the text; borrowed
 *  @return  the name, borrowed from the table; null if the text has none
 *  Fails:   null table or text -> null, with a warning
 */
VEK_API VekName *vek_name_try_string(const VekNameTable *name_table, const char *string);

/* ---- Read ---- */

/** Returns the text of a name, borrowed from its table.
 *  Fails: null `name` -> null, with a warning
 */
VEK_API const char *vek_name_to_string(const VekName *name);

/** Makes a new string from the text of a name.
 *  @return  the string, with one reference for the caller; release with vek_str_unref()
 *  Fails:   no memory -> null; null `name` -> null, with a warning
 */
VEK_API VEK_NEW VekStr *vek_name_to_vek_str(const VekName *name);

/** Returns the number of a name.
 *  Fails: null `name` -> 0, with a warning
 */
VEK_API int32_t vek_name_get_id(const VekName *name);

VEK_END_DECLS

#endif
