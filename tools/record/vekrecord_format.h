/* SPDX-License-Identifier: MIT */
/* The format of a recording, shared by the recorder, which writes it on the device, and the reader
 * of the host tool. docs/trace.md describes it for others.
 *
 * A recording is a folder. It holds a file for each process that used the library,
 * COMMAND.PID.vekrec (COMMAND.PID.2.vekrec and so on if a process of the same number made one
 * before, as after exec), and a file `status`, which vek-record writes at the end: the number of
 * the process that it started, a blank, and its exit status as a shell shows it (128 + signal).
 *
 * A .vekrec file begins with a header; records follow without gaps. A record is one byte, its type,
 * and its fields. Fields are unsigned LEB128 numbers, unless they are said to be signed (zigzag,
 * then LEB128), or texts (a number, the length, then so many bytes). A null byte in place of a type
 * ends the recording: the file has been allocated further than it was written. The type is written
 * after all fields of its record, so a process that is killed leaves no half a record.
 *
 * Chains are numbered from 0 in the order of their records. When a module is unloaded, the
 * numbering starts again, because another module may take its addresses.
 */
#ifndef VEKRECORD_FORMAT_H
#define VEKRECORD_FORMAT_H

#include <stdint.h>

/* The header, in the byte order of the device. */
#define VEKRECORD_MAGIC "VEKREC1\n" /* 8 bytes, without the null */
struct VekRecordHeader {
    char magic[8];
    uint8_t byte_order;   /* 1: little-endian, 2: big-endian */
    uint8_t address_size; /* bytes of a pointer: 4 or 8 */
    uint16_t machine;     /* e_machine of the ELF header: 62 x86-64, 40 ARM, ... */
    uint32_t pid;
    uint64_t start; /* seconds since 1970 */
};

enum VekRecordType {
    VEKRECORD_END = 0, /* nothing follows */
    VEKRECORD_PAD = 1, /* no fields; skipped */

    VEKRECORD_COMMAND = 2, /* number of texts, then the texts: the command and its arguments */
    /* Load bias (what was added to the addresses in the file), lowest address, number of bytes up
     * to the highest, build-id (a text of raw bytes, empty if there is none), path (a text). The
     * first one is the program. */
    VEKRECORD_MODULE = 3,
    VEKRECORD_UNLOADED = 4, /* lowest address of a module; chains are numbered from 0 again */
    /* Flags (VEKRECORD_CUT...), number of addresses, then the addresses: the first one is the
     * return address that the library passed to the table (to whom the call is charged), the others
     * are the return addresses on the stack, innermost first, from the caller of the table's
     * operation on; each signed, relative to the one before (the first to 0). Only the first one is
     * there if the recording has depth 1. */
    VEKRECORD_CHAIN = 5,
    VEKRECORD_TIME = 6,   /* milliseconds since the start */
    VEKRECORD_NOTE = 7,   /* a text for the report: what this recording does not contain */
    VEKRECORD_EXIT = 8,   /* the argument of exit() */
    VEKRECORD_BROKEN = 9, /* a text: why the recording ends here, before the process did */

    /* The events: a chain, then the fields named here. `address`: signed, relative to the last
     * `address` before it, in this event or an earlier one (at first 0). Allocations and resizes
     * are written after the operation, releases before it. */
    VEKRECORD_MALLOC = 16,              /* size, result address */
    VEKRECORD_CALLOC = 17,              /* count, size, result address */
    VEKRECORD_REALLOC = 18,             /* block address, size, result address */
    VEKRECORD_FREE = 19,                /* block address */
    VEKRECORD_MALLOC_IF_POSSIBLE = 20,  /* as MALLOC */
    VEKRECORD_MALLOC_IF_AVAILABLE = 21, /* as MALLOC */
    VEKRECORD_REALLOC_NEW = 22          /* realloc of null: size, result address */
};

/* Added to the type of an event that has a result, if that was null (there is then no result
 * address). A realloc to size 0 that returned null has released the block. */
enum {
    VEKRECORD_FAILED = 16,
    VEKRECORD_REFUSED = 32 /* and the table was in the error state */
};

/* Flags of a chain. */
enum {
    VEKRECORD_CUT = 1,    /* code without unwind tables ended it */
    VEKRECORD_LIMITED = 2 /* the recording's depth ended it */
};

#endif
