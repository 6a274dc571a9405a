/* SPDX-License-Identifier: MIT */
/* What the recorder's sources share. Each stands on the ones below it:
 *
 *   hooks.c     takes the allocator's table over; passes on each call and has it recorded
 *   events.c    the recording of this process: its beginning, its events, its end
 *   chains.c    who called: takes call chains and numbers them
 *   frames.c    walks the stack on x86-64
 *   modules.c   the loaded objects, and which of them came or went
 *   writer.c    bytes to the file
 *
 * The program must not notice any of it: errno stays, nothing is allocated through the library or
 * through malloc(), and no lock of the recorder is held while other code runs. One lock, in
 * events.c, guards all that the other sources keep, except where they say otherwise.
 */
#ifndef RECORD_H
#define RECORD_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "vekrecord_format.h"

/* ---- events.c ---- */

/* The fields that an event has after its chain, in this order. */
enum { HAS_BLOCK = 1, HAS_COUNT = 2, HAS_SIZE = 4, HAS_RESULT = 8 };

struct Chain;

struct Event {
    uint8_t type;
    uint8_t fields;
    const void *block;
    size_t count;
    size_t size;
    const void *result;
};

/* Whether an event can be recorded now: not if this thread is recording already, as in a signal
 * handler. If so, end_event() must follow. */
bool begin_event(void);

/* Has what was loaded or unloaded written. Returns how many modules have been unloaded since the
 * program began. */
unsigned long long look_at_modules(void);

/* Writes the event. */
void end_event(const struct Event *event, struct Chain *chain);

/* Whether this process is recorded. The first call reads the environment. */
bool is_recording(void);

/* Adds a note to the beginning of the recording. `note` must stay; the last one counts. */
void record_note_at_start(const char *note);

/* ---- chains.c ---- */

enum { MAX_DEPTH = 256, DEFAULT_DEPTH = 64 };

/* Enough for the recorder's own frames, and one more, which shows that a chain goes on. */
enum { OWN_FRAMES = 6 };

struct Chain {
    uint64_t hash; /* of the fields below; never 0 */
    unsigned flags;
    unsigned count;
    uintptr_t *addresses; /* the charged one, then those on the stack; in `room` */
    uintptr_t room[1 + OWN_FRAMES + MAX_DEPTH];
};

/* At load, before there are other threads. */
void chains_prepare(unsigned depth);

/* Needs no lock. `unloaded` counts the modules that were unloaded so far. */
void take_chain(struct Chain *chain, const void *charged, const void *caller,
                unsigned long long unloaded);

/* Needs no lock. Marks the chain if code without unwind tables ended it. */
void judge_chain(struct Chain *chain);

/* The number of the chain with this hash, or -1. */
long find_chain(uint64_t hash);
/* Remembers a chain. False if there is no memory. */
bool number_chain(uint64_t hash, long number);
void forget_chains(void);

/* ---- frames.c ---- */

/* Takes the return addresses of a chain, from that of the function with this frame (which has to be
 * __builtin_frame_address(0)) outwards. Returns their number, or -1 if there is something on the
 * stack that needs libgcc. Needs no lock. A thread must not call it while it is in it. */
int walk_frames(uintptr_t *addresses, int capacity, const void *frame, unsigned long long unloaded);

/* ---- modules.c ---- */

/* How many modules came and went since the program began. Needs no lock. */
struct ModuleChanges {
    unsigned long long loaded, unloaded;
};
struct ModuleChanges module_changes(void);

struct ModuleList; /* one moment's modules */

/* Needs no lock. Null if there is no memory. */
struct ModuleList *list_modules(void);
void release_modules(struct ModuleList *list);
/* Writes what is new in this list and what is missing in it, and takes it over. Returns whether
 * something was missing. */
bool write_modules(struct ModuleList *list);

/* ---- writer.c ---- */

/* Makes the file. `name` must stay. Says on standard error why it cannot. */
bool writer_open(const char *name);
/* The records: begin, fields, end. `room` is the most bytes that the fields can take. False if the
 * recording has ended, because there is no more space. */
bool begin_record(size_t room);
void put_number(uint64_t number);
void put_signed(int64_t number);
void put_text(const char *text, size_t size);
void put_bytes(const void *bytes, size_t size);
void end_record(enum VekRecordType type);
/* What may come afterwards is written directly. */
void writer_finish(void);
/* In a forked child: lets the parent's file alone. */
void writer_abandon(void);

enum { NUMBER_ROOM = 10 }; /* the most bytes that a number takes */

#endif
