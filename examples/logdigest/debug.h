/* SPDX-License-Identifier: MIT */
/* The debug output of logdigest: two domains, switched on by a configuration file or the
 * environment. */
#ifndef LOGDIGEST_DEBUG_H
#define LOGDIGEST_DEBUG_H

#include <veklib/vekdebug.h>

/** Flags of the domain "parse": each line that could be read, each line that could not. */
enum { DEBUG_LINES = 1 << 0, DEBUG_FAULTS = 1 << 1 };

/** Flags of the domain "report": what the digest holds, and how its names rank. */
enum { DEBUG_SUMMARY = 1 << 0, DEBUG_RANKING = 1 << 1 };

/* The domains; before debug_start() they are null and print nothing. */
extern VekDebugDomain *debug_parse;
extern VekDebugDomain *debug_report;

/** Starts debug output.
 *  @param config_file   configuration file, or null; VEK_DEBUG_CONFIG adds to it
 *  @param own_function  not 0: messages of "report" go to a function of the program, which writes
 *                       them to the standard error stream
 *  @return  0, or not 0 without memory
 */
int debug_start(const char *config_file, int own_function);
void debug_stop(void);

#endif
