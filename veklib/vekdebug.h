/* SPDX-License-Identifier: MIT */
/** @file vekdebug.h
 *  Debug output. A configuration decides which messages are printed, and where. An application
 *  registers domains with named flags; each flag is one bit and has its own output stream. A
 *  setting applies to all flags of one name: "0" or no setting (off), "1" (on, to the main file),
 *  "-" (on, to standard output), or a file name (on, to that file). The settings come from a
 *  configuration file and from the environment variable VEK_DEBUG_CONFIG, which a program with more
 *  rights than its user (set-user-id, set-group-id, file capabilities) ignores.
 *  docs/debug-output.md explains them by example, and tells how named pipes, limits on the size of
 *  files and fork() affect the output.
 *
 *      enum { NET_SEND = 1 << 0, NET_RECEIVE = 1 << 1 };
 *      static const char *const flags[] = {"send", "receive", NULL};
 *
 *      vek_debug_initialize("debug.conf", "/etc/gateway:/etc");
 *      vek_debug_add_domain("net", flags);
 *      VekDebugDomain *net = vek_debug_get_domain("net");
 *      VEK_DEBUG(net, NET_SEND, "%d bytes\n", size);
 *      vek_debug_finalize();
 *
 *  Functions that return int return a status: 0 for success, 1 for a failed check, 2 if there is no
 *  memory. (vek_debug_is_enabled() returns 1 or 0.) Even after 0 a flag may have no stream and
 *  print nothing: its file could not be opened, or there was no memory for the stream's name.
 *  Threads: the application serialises its calls; in particular, nothing may print while streams
 *  are opened again.
 */
#ifndef VEKLIB_VEKDEBUG_H
#define VEKLIB_VEKDEBUG_H

#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** Receives a message.
 *  @param text  the formatted message, at most 1023 characters; borrowed, valid during the call
 *  @param data  the data that was registered with the function
 */
typedef void (*VekDebugPrintFunction)(const char *text, void *data);

/** A named output stream. Records with the same name share one file, or none if it could not be
 *  opened. */
typedef struct VekDebugFilestream {
    char *name; /**< the file's name, "STDOUT" for standard output; null: no stream */
    FILE *file; /**< the open stream; null, with a name, when it could not be opened */
} VekDebugFilestream;

/** A domain, owned by the library. The fields are for reading. */
typedef struct VekDebugDomain {
    char *name;                           /**< as registered */
    uint32_t enabled;                     /**< bit i: flag i is enabled */
    const char *const *flag_names;        /**< the application's array, ended by null */
    int32_t flag_count;                   /**< number of flags; the first 32 have a bit */
    VekDebugFilestream *streams;          /**< one for each flag */
    VekDebugPrintFunction print_function; /**< gets the domain's messages; may be null */
    void *print_data;                     /**< passed to `print_function` */
} VekDebugDomain;

/* ---- Start, stop and configuration ---- */

/** Starts debug output and loads its configuration: first the file, then the environment. After
 *  each of the two that holds text, it prints a title and all settings so far to standard output.
 *  @param config_file  name of the configuration file, which is searched for as
 *                      vek_debug_set_config() describes; null: the environment alone is read;
 *                      copied
 *  @param search_path  directories, separated by ":"; may be null; copied
 *  @return  0. A file that does not exist, or cannot be read to its end, is not a failure and gives
 *           no settings
 *  Fails:   already started -> 1, with a warning; no memory -> 2, and debug output is not started
 */
VEK_API int vek_debug_initialize(const char *config_file, const char *search_path);

/** Stops debug output: closes all streams except standard output, and releases all domains and
 *  settings. If debug output was not started, it releases what was configured before a start. */
VEK_API void vek_debug_finalize(void);

/** Stores where the next vek_debug_reload_config() finds its file. Also works before the start.
 *  @param config_file  name of the file; null: no file; copied. If the name contains a "/", or
 *                      there is no search path, it is opened unchanged. Anything but a regular file
 *                      counts as missing
 *  @param search_path  directories that are tried in order, separated by ":"; may be null; copied.
 *                      The current directory is tried only if it is one of them
 *  @return  0
 *  Fails:   no memory -> 2, and the argument that could not be copied counts as null: the old one
 *           is released first. If the file's name could not be copied, the old search path stays
 */
VEK_API int vek_debug_set_config(const char *config_file, const char *search_path);

/** Loads the configuration again and prints it as vek_debug_initialize() does. All earlier settings
 *  are forgotten, and so is the main file if a configuration file is set. A main file that is
 *  named again, and each file that only one flag writes to, is opened again and thereby emptied.
 *  Also works before the start, but the start discards what was loaded.
 *  If there is no text to read, the domains keep their flags and streams. The settings are
 *  forgotten even then: the next vek_debug_set_output_setting() applies only its own setting and
 *  switches all other flags off.
 *  @return  0. A file that does not exist, or cannot be read to its end, is not a failure and gives
 *           no settings
 *  Fails:   no memory -> 2; settings and main file are forgotten as above, and the rest is not
 *           read. What was read before the failure is in force: the file, if the text of the
 *           environment could not be copied
 */
VEK_API int vek_debug_reload_config(void);

/** Changes one setting, for the flags of that name in every domain, and applies all settings again.
 *  A file that only one flag writes to is thereby opened again and emptied.
 *  @param name   the flags' name; copied
 *  @param value  "0", "1", "-" or a file name; copied
 *  @return  0, even if a file cannot be opened (with a warning) or there is no memory for a
 *           stream's name: the flags after the affected one in that domain then keep their state
 *           and stream. A file whose name another flag or the main file already has is not tried
 *           again, and gives no warning. The result is also 0 if there is no memory for this
 *           setting: the old one stays. Before the start nothing is done
 *  Fails:   no memory to create the settings -> 2; null name or value -> 1, with a warning
 */
VEK_API int vek_debug_set_output_setting(const char *name, const char *value);

/** Sets whether each message is flushed at once. The start switches this on, unless the
 *  configuration says otherwise.
 *  A message without a domain is never flushed if it goes to standard output because there is no
 *  main file. Unflushed text stays in the stream's buffer until the buffer is full (some
 *  kilobytes), vek_debug_flush() is called, any file of debug output is opened, this file is
 *  closed, or the process ends normally. It is lost if the process ends by abort() or a signal. For
 *  standard output the C library decides when it writes such text.
 *  @param on  whether to flush
 *  Fails:   not started -> nothing changes, with a warning
 */
VEK_API void vek_debug_set_autoflush(bool on);

/* ---- Domains ---- */

/** Registers a domain and applies the settings to its flags. If there is a domain of that name
 *  already, it stays unchanged.
 *  @param name        the domain's name; copied
 *  @param flag_names  names of the flags, ended by null; array and names are borrowed until
 *                     vek_debug_finalize(). Flags after the 32nd have no bit and no file of their
 *                     own
 *  @return  0, even if a file cannot be opened (with a warning) or there is no memory for a
 *           stream's name: the flags after the affected one then get no stream. A file whose name
 *           another flag or the main file already has is not tried again, and gives no warning.
 *           Before the start nothing is done
 *  Fails:   no memory -> 2; null name or names -> 1, with a warning
 */
VEK_API int vek_debug_add_domain(const char *name, const char *const *flag_names);

/** Finds a domain.
 *  @param name  the domain's name; may be null, which no domain has; borrowed
 *  @return  the domain, borrowed until vek_debug_finalize(); null if there is none, or before the
 *           start
 */
VEK_API VekDebugDomain *vek_debug_get_domain(const char *name);

/** Enables flags. When the settings are next applied, they decide again. Bits beyond the domain's
 *  flags print nothing.
 *  @param domain  the domain; null does nothing
 *  @param mask    the flags' bits
 */
VEK_API void vek_debug_enable(VekDebugDomain *domain, uint32_t mask);

/** Disables flags. When the settings are next applied, they decide again.
 *  @param domain  the domain; null does nothing
 *  @param mask    the flags' bits
 */
VEK_API void vek_debug_disable(VekDebugDomain *domain, uint32_t mask);

/** Returns 1 if at least one of the flags is enabled, else 0; 0 for a null domain. */
VEK_API int vek_debug_is_enabled(const VekDebugDomain *domain, uint32_t mask);

/** Sets the function that gets the messages of enabled flags; they then no longer go to streams.
 *  Before the start nothing is done.
 *  @param domain    the domain; null: all domains that have no function of their own, and messages
 *                   without a domain
 *  @param function  the function; null removes it and forgets the data
 *  @param data      passed to the function; may be null; borrowed until the function is replaced
 */
VEK_API void vek_debug_set_print_function(VekDebugDomain *domain, VekDebugPrintFunction function,
                                          void *data);

/* ---- Printing ---- */

/** Prints a message exactly as formatted. A stream gets the whole message, a print function at most
 *  1023 characters. The message is dropped if its flag is not enabled, or if there is neither a
 *  print function nor an open stream for it. Before the start and after the stop every message is
 *  dropped.
 *  @param domain  the domain; null prints whatever the flag: to the print function for all domains,
 *                 else to the main file, else to standard output
 *  @param flag    the flag's bit. If there are several bits, at least one must be enabled, and the
 *                 stream of the highest is used, even if that one is not enabled
 *  @param format  printf format; borrowed
 */
VEK_API VEK_PRINTF(3, 4) void vek_debug_print(const VekDebugDomain *domain, uint32_t flag,
                                              const char *format, ...);

/** vek_debug_print() with an argument list, for which the caller calls va_end(). */
VEK_API VEK_PRINTF(3, 0) void vek_debug_vprint(const VekDebugDomain *domain, uint32_t flag,
                                               const char *format, va_list args);

/** vek_debug_print() that evaluates its values only if the flag is on:
 *  VEK_DEBUG(domain, flag, format, ...). A null domain prints nothing. Do not use it after
 *  vek_debug_finalize() with an old domain: it reads the domain, which has been released. */
#define VEK_DEBUG(domain, flag, ...)                                                               \
    do {                                                                                           \
        const VekDebugDomain *const vek_debug_domain_ = (domain);                                  \
        const uint32_t vek_debug_flag_ = (flag);                                                   \
        if (vek_debug_domain_ != NULL && (vek_debug_domain_->enabled & vek_debug_flag_) != 0)      \
            vek_debug_print(vek_debug_domain_, vek_debug_flag_, __VA_ARGS__);                      \
    } while (0)

/** Flushes a flag's stream.
 *  @param domain  the domain; null does nothing
 *  @param flag    the flag's bit; 0 does nothing
 */
VEK_API void vek_debug_flush(const VekDebugDomain *domain, uint32_t flag);

VEK_END_DECLS

#endif
