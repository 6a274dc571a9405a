/* SPDX-License-Identifier: MIT */
/* Hints to the compiler. */
#ifndef VEKLIB_VEKCOMPILER_INTERNAL_H
#define VEKLIB_VEKCOMPILER_INTERNAL_H

/** A function or object that sources of the library share. The compiler's option for visibility
 *  applies to definitions; with this on its declaration, no linkage table is needed to reach it. */
#define VEK_HIDDEN __attribute__((visibility("hidden")))

/** Marks a condition that seldom holds. The compiler then moves the code for that case away, and
 *  the loop of a search keeps a single jump. With more jumps, the loop may take twice as long,
 *  depending on where they lie. */
inline bool vek_is_rare(bool condition)
{
    return __builtin_expect(condition, false);
}

#endif
