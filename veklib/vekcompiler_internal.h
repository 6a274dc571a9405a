/* SPDX-License-Identifier: MIT */
/* What the library tells the compiler. */
#ifndef VEKLIB_VEKCOMPILER_INTERNAL_H
#define VEKLIB_VEKCOMPILER_INTERNAL_H

/** A condition that seldom holds. Told so, the compiler moves what follows it out of the way: a
 *  search's loop keeps a single jump, and does not double its time by where more of them lie. */
inline bool vek_is_rare(bool condition)
{
    return __builtin_expect(condition, false);
}

#endif
