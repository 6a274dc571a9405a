/* SPDX-License-Identifier: MIT */
/** @file vekdebug.h
 *  Debug output, switched on and routed by a configuration. An application registers domains with
 *  named flags; each flag is one bit and has an output stream of its own. Settings decide for all
 *  flags of one name whether they are enabled and where they write: "0" or nothing (off), "1" (on,
 *  to the main file), "-" (on, to standard output), or a file name (on, to that file). The settings
 *  come from a configuration file and from VEK_DEBUG_CONFIG, which a program with more rights than
 *  its user (set-user-id, set-group-id, file capabilities) ignores; docs/debug-output.md explains
 *  them by example, and says what named pipes, limits on files and fork() do to the output.
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
 *  Functions that return int return a status: 0 done, 1 a failed check, 2 no memory. 0 does not say
 *  that every flag has a stream: one whose file cannot be opened, or for whose stream's name there
 *  is no memory, has none and prints nothing.
 *  Threads: the application serialises its calls; printing must not run while streams are
 *  re-opened.
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
 *  @param data  what was registered with the function
 */
typedef void (*VekDebugPrintFunction)(const char *text, void *data);

/** A named output stream. Records of equal names share one file. */
typedef struct VekDebugFilestream {
    char *name; /**< the file's name, "STDOUT" for standard output; null: no stream */
    FILE *file; /**< the open stream; null, with a name, when it could not be opened */
} VekDebugFilestream;

/** A domain, owned by the library. The fields are for reading. */
typedef struct VekDebugDomain {
    char *name;                           /**< as registered */
    uint32_t enabled;                     /**< bit i: flag i is enabled */
    const char *const *flag_names;        /**< the application's array, ended by null */
    int32_t flag_count;                   /**< its entries; the first 32 have a bit */
    VekDebugFilestream *streams;          /**< one for each flag */
    VekDebugPrintFunction print_function; /**< gets the domain's messages; may be null */
    void *print_data;                     /**< handed to it */
} VekDebugDomain;

/* ---- Start, stop and configuration ---- */

/** Starts debug output and loads its configuration. For each source that holds text (the file,
 *  then the environment) it prints a title and the settings so far to standard output.
 *  @param config_file  name of the configuration file, searched as vek_debug_set_config() says; may
 *                      be null: the environment alone; copied
 *  @param search_path  directories, separated by ":"; may be null; copied
 *  @return  0. A file that does not exist, or cannot be read to its end, is no failure and gives no
 *           setting
 *  Fails:   already started -> 1, with a warning; no memory -> 2, not started
 */
VEK_API int vek_debug_initialize(const char *config_file, const char *search_path);

/** Stops debug output: closes all streams but standard output and releases all domains and
 *  settings. Without a start it releases what was configured ahead of one. */
VEK_API void vek_debug_finalize(void);

/** Records where the next vek_debug_reload_config() finds its file. Works without a start as well.
 *  @param config_file  name of the file; may be null: none; copied. With a "/" in it, or without a
 *                      search path, the name is opened unchanged. Anything but a regular file
 *                      counts as missing
 *  @param search_path  directories that are tried in order, separated by ":"; may be null; copied.
 *                      The current directory is tried only if it is one of them
 *  @return  0
 *  Fails:   no memory -> 2, and the name that could not be copied is null: the old one is released
 *           first. Without memory for the file's name the old search path stays
 */
VEK_API int vek_debug_set_config(const char *config_file, const char *search_path);

/** Loads the configuration again and prints it as vek_debug_initialize() does. All settings made
 *  before are forgotten, and so is the main file if a configuration file is set. Files that the
 *  settings name are opened again and thereby emptied, except those that several flags write to.
 *  Works without a start as well, but a start begins from nothing.
 *  If there is no text to read, the domains keep their flags and streams. The settings are
 *  forgotten even so: the next vek_debug_set_output_setting() applies its own alone and switches
 *  all other flags off.
 *  @return  0. A file that does not exist, or cannot be read to its end, is no failure and gives no
 *           setting
 *  Fails:   no memory -> 2; settings and main file are forgotten as above, and the rest is not
 *           read. What was read by then (the file, when the environment's text cannot be copied) is
 *           in force
 */
VEK_API int vek_debug_reload_config(void);

/** Changes one setting, for the flags of that name in every domain, and applies all settings again:
 *  a file that one flag alone writes to is opened anew and thereby emptied.
 *  @param name   the flags' name; copied
 *  @param value  "0", "1", "-" or a file name; copied
 *  @return  0. Also when a file cannot be opened (with a warning) or there is no memory for a
 *           stream's name: the domain's later flags then keep what they had. A file whose name
 *           another flag has already is not tried again, and gives no warning. Also when there is
 *           no memory for this setting: the old one stays. Before the start nothing is done
 *  Fails:   no memory for the first settings -> 2; null name or value -> 1, with a warning
 */
VEK_API int vek_debug_set_output_setting(const char *name, const char *value);

/** Decides whether each message is flushed to its stream at once. The start switches this on,
 *  unless the configuration says otherwise.
 *  A message without a domain that goes to standard output because there is no main file is never
 *  flushed. Text that is held back waits until the stream's buffer is full (some kilobytes), until
 *  vek_debug_flush(), until any file of debug output is opened or this one is closed, or until the
 *  process ends normally; abort() and signals lose it. On standard output the C library decides.
 *  @param on  whether to flush
 *  Fails:   not started -> nothing changes, with a warning
 */
VEK_API void vek_debug_set_autoflush(bool on);

/* ---- Domains ---- */

/** Registers a domain and applies the settings to its flags. A domain that has the name already
 *  stays unchanged.
 *  @param name        the domain; copied
 *  @param flag_names  names of the flags, ended by null; array and names are borrowed until
 *                     vek_debug_finalize(). Flags after the 32nd have no bit and no file of their
 *                     own
 *  @return  0. Also when a file cannot be opened (with a warning) or there is no memory for a
 *           stream's name: the later flags then get no stream. A file whose name another flag has
 *           already is not tried again, and gives no warning. Before the start nothing is done
 *  Fails:   no memory -> 2; null name or names -> 1, with a warning
 */
VEK_API int vek_debug_add_domain(const char *name, const char *const *flag_names);

/** Finds a domain.
 *  @param name  the domain; may be null, which is none; borrowed
 *  @return  the domain, borrowed until vek_debug_finalize(); null when there is none, or before the
 *           start
 */
VEK_API VekDebugDomain *vek_debug_get_domain(const char *name);

/** Enables flags until the settings are applied again, which then decide. Bits beyond the domain's
 *  flags print nothing.
 *  @param domain  the domain; null does nothing
 *  @param mask    the flags' bits
 */
VEK_API void vek_debug_enable(VekDebugDomain *domain, uint32_t mask);

/** Disables flags until the settings are applied again.
 *  @param domain  the domain; null does nothing
 *  @param mask    the flags' bits
 */
VEK_API void vek_debug_disable(VekDebugDomain *domain, uint32_t mask);

/** Returns 1 when one of the flags is enabled, else 0, also for a null domain. */
VEK_API int vek_debug_is_enabled(const VekDebugDomain *domain, uint32_t mask);

/** Sets the function that gets the messages of enabled flags instead of their streams.
 *  Before the start nothing is done.
 *  @param domain    the domain; null: all domains that have no function of their own, and messages
 *                   without a domain
 *  @param function  the function; null removes it and forgets the data
 *  @param data      handed to it; may be null; borrowed until the function is replaced
 */
VEK_API void vek_debug_set_print_function(VekDebugDomain *domain, VekDebugPrintFunction function,
                                          void *data);

/* ---- Printing ---- */

/** Prints a message exactly as formatted: whole to a stream, at most 1023 characters to a print
 *  function. A message whose flag is not enabled, or that has no open stream, is dropped; before
 *  the start and after the stop all are.
 *  @param domain  the domain; null prints whatever the flag, to the global print function, else the
 *                 main file, else standard output
 *  @param flag    the flag's bit. Of several, one must be enabled, and the highest one's stream is
 *                 used
 *  @param format  printf format; borrowed
 */
VEK_API VEK_PRINTF(3, 4) void vek_debug_print(const VekDebugDomain *domain, uint32_t flag,
                                              const char *format, ...);

/** vek_debug_print() with an argument list, which the caller ends. */
VEK_API VEK_PRINTF(3, 0) void vek_debug_vprint(const VekDebugDomain *domain, uint32_t flag,
                                               const char *format, va_list args);

/** vek_debug_print() that evaluates its values only if the flag is on:
 *  VEK_DEBUG(domain, flag, format, ...). A null domain prints nothing. It reads the domain, which
 *  no longer exists after vek_debug_finalize(). */
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
