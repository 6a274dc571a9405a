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
 *  that every flag has a stream: one whose file cannot be opened, or whose stream's name cannot be
 *  copied, has none and prints nothing.
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

/** A named output stream. Records of equal names share one file, or none if it could not be
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
    int32_t flag_count;                   /**< its entries; the first 32 have a bit */
    VekDebugFilestream *streams;          /**< one for each flag */
    VekDebugPrintFunction print_function; /**< takes the domain's messages; may be null */
    void *print_data;                     /**< handed to it */
} VekDebugDomain;

/* ---- Start, stop and configuration ---- */

/** Starts debug output and loads its configuration. Each source that holds text (file, then
 *  environment) is told on standard output: a line of its own and the settings so far.
 *  @param config_file  name of the configuration file, searched as vek_debug_set_config() says; may
 *                      be null: the environment alone; copied
 *  @param search_path  directories, separated by ":"; may be null; copied
 *  @return  0. A file that is not there, or cannot be read to its end, is no failure and gives no
 *           setting
 *  Fails:   already started -> 1, with a warning; no memory -> 2, not started
 */
VEK_API int vek_debug_initialize(const char *config_file, const char *search_path);

/** Stops debug output: closes all streams but standard output and releases all domains and
 *  settings. Without a start it releases what was configured ahead of one. */
VEK_API void vek_debug_finalize(void);

/** Tells where the next vek_debug_reload_config() finds its file, with or without a start.
 *  @param config_file  name of the file; may be null: none; copied. With a "/" in it, or without a
 *                      search path, it is opened as it is. What is no regular file counts as not
 *                      there
 *  @param search_path  directories that are tried in order, separated by ":"; may be null; copied.
 *                      The current directory is tried only if it is one of them
 *  @return  0
 *  Fails:   no memory -> 2; a recorded name is released before the new one is copied, so there is
 *           none then. Without memory for the file's name the search path stays as it was
 */
VEK_API int vek_debug_set_config(const char *config_file, const char *search_path);

/** Loads the configuration again and tells it as vek_debug_initialize() does. Settings that were
 *  made meanwhile are forgotten, the main file too if a configuration file is set. Files that are
 *  named are opened anew and thereby emptied, but for those that several flags write to. Ahead of a
 *  start it works, but the start begins anew.
 *  Without any text to read, flags and streams of the domains stay as they are. But the settings
 *  are forgotten: the next vek_debug_set_output_setting() applies its own alone and switches all
 *  other flags off.
 *  @return  0. A file that is not there, or cannot be read to its end, is no failure and gives no
 *           setting
 *  Fails:   no memory -> 2; settings and main file are forgotten as above, and the rest is not
 *           read. What was read before it (the file, when the environment's text cannot be copied)
 *           is in force
 */
VEK_API int vek_debug_reload_config(void);

/** Changes one setting, for the flags of that name in every domain, and applies all settings again:
 *  a file that one flag alone writes to is opened anew and thereby emptied.
 *  @param name   the flags' name; copied
 *  @param value  "0", "1", "-" or a file name; copied
 *  @return  0, also in these cases: a file cannot be opened (a warning, unless another flag has its
 *           name already) or a stream's name cannot be copied, and the flags behind that one keep
 *           what they had; there is no memory for the setting, and the old one stays. Nothing is
 *           done before the start
 *  Fails:   no memory for the settings -> 2; null name or value -> 1, with a warning
 */
VEK_API int vek_debug_set_output_setting(const char *name, const char *value);

/** Decides whether every message is flushed to its stream at once, as it is after the start.
 *  Messages without a domain that go to standard output because there is no main file are never
 *  flushed. What is held back waits until the stream's buffer is full (some kilobytes), until
 *  vek_debug_flush(), until any file of debug output is opened or this one is closed, or until the
 *  process ends normally; abort() and signals lose it. On standard output the C library alone
 *  decides.
 *  Fails: not started -> nothing changed, with a warning
 */
VEK_API void vek_debug_set_autoflush(bool on);

/* ---- Domains ---- */

/** Registers a domain and applies the settings to its flags. A name that is registered stays as it
 *  is.
 *  @param name        the domain; copied
 *  @param flag_names  names of the flags, ended by null; array and names are borrowed until
 *                     vek_debug_finalize(). Flags after the 32nd have no bit and no file of their
 *                     own
 *  @return  0, also when a file cannot be opened (a warning, unless another flag has its name
 *           already) or a stream's name cannot be copied, and the flags behind that one get no
 *           stream. Nothing is done before the start
 *  Fails:   no memory -> 2; null name or names -> 1, with a warning
 */
VEK_API int vek_debug_add_domain(const char *name, const char *const *flag_names);

/** Finds a domain.
 *  @param name  the domain; may be null, which is none; borrowed
 *  @return  the domain, borrowed until vek_debug_finalize(); null when there is none, or before the
 *           start
 */
VEK_API VekDebugDomain *vek_debug_get_domain(const char *name);

/** Enables flags, in addition to the settings; when settings are applied again, they decide anew.
 *  Bits beyond the domain's flags print nothing.
 *  @param domain  the domain; null does nothing
 *  @param mask    the flags' bits
 */
VEK_API void vek_debug_enable(VekDebugDomain *domain, uint32_t mask);

/** Disables flags, as vek_debug_enable() enables them. */
VEK_API void vek_debug_disable(VekDebugDomain *domain, uint32_t mask);

/** Returns 1 when one of the flags is enabled, else 0, also for a null domain. */
VEK_API int vek_debug_is_enabled(const VekDebugDomain *domain, uint32_t mask);

/** Sets the function that takes the messages of enabled flags instead of their streams.
 *  @param domain    the domain; null: for all domains that have none of their own, and for messages
 *                   without a domain
 *  @param function  the function; null removes it and forgets the data
 *  @param data      handed to it; may be null; borrowed until the function is replaced
 *  Nothing is done before the start.
 */
VEK_API void vek_debug_set_print_function(VekDebugDomain *domain, VekDebugPrintFunction function,
                                          void *data);

/* ---- Printing ---- */

/** Prints a message as it is formatted, without anything added: whole to a stream, at most 1023
 *  characters to a print function.
 *  @param domain  the domain; null prints whatever the flag, to the global print function, else the
 *                 main file, else standard output
 *  @param flag    the flag's bit. Of several, one must be enabled, and the highest one's stream is
 *                 used
 *  @param format  printf format; borrowed
 *  A message whose flag is not enabled, or that has no open stream, is dropped; before the start
 *  and after the end all are.
 */
VEK_API VEK_PRINTF(3, 4) void vek_debug_print(const VekDebugDomain *domain, uint32_t flag,
                                              const char *format, ...);

/** vek_debug_print() with an argument list, which the caller ends. */
VEK_API VEK_PRINTF(3, 0) void vek_debug_vprint(const VekDebugDomain *domain, uint32_t flag,
                                               const char *format, va_list args);

/** vek_debug_print() that does not evaluate the values of a message whose flag is off:
 *  VEK_DEBUG(domain, flag, format, ...). A null domain prints nothing. It reads the domain, which
 *  is gone after vek_debug_finalize(). */
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
