/* SPDX-License-Identifier: MIT */
/* Call chains: taking them, and the table of those that have a number.
 *
 * On x86-64, frames.c takes them. libgcc takes those that it cannot take, and those on other
 * machines. The copy of libgcc in here is private.
 *
 * The table holds hashes alone. With a million chains, two of them have the same 64 bits with a
 * probability of 1 to 37 million.
 */
#include <dlfcn.h>
#include <link.h>
#include <string.h>

#include <sys/auxv.h>
#include <sys/mman.h>
#include <unistd.h>

#include <unwind.h>

#include "record.h"

static unsigned max_depth = DEFAULT_DEPTH;

/* Return addresses as the unwinders give them, without the mark of Thumb code. */
static uintptr_t plain(uintptr_t address)
{
#ifdef __arm__
    return address & ~(uintptr_t)1;
#else
    return address;
#endif
}

/* ---- libgcc's way ---- */

struct Walk {
    uintptr_t *addresses;
    int count, capacity;
};

static _Unwind_Reason_Code visit(struct _Unwind_Context *context, void *data)
{
    struct Walk *const walk = data;
    const uintptr_t address = _Unwind_GetIP(context);
    if (walk->count == walk->capacity || address == 0) { /* 0: nobody called the last one */
        return _URC_END_OF_STACK;
    }
    walk->addresses[walk->count++] = address;
    return _URC_NO_REASON;
}

static int slow_backtrace(uintptr_t *addresses, int capacity)
{
    struct Walk walk = {addresses, 0, capacity};
    _Unwind_Backtrace(visit, &walk);
    return walk.count;
}

/* ---- Where chains end ---- */

/* The loader, which calls constructors. Its own entry has no unwind tables. */
static uintptr_t loader_start, loader_end;

static int find_loader(struct dl_phdr_info *info, size_t size, void *data)
{
    (void)size;
    (void)data;
    if (info->dlpi_addr == 0 || info->dlpi_addr != getauxval(AT_BASE)) {
        return 0;
    }
    loader_start = info->dlpi_addr;
    for (size_t i = 0; i != info->dlpi_phnum; ++i) {
        const ElfW(Phdr) *const part = &info->dlpi_phdr[i];
        const uintptr_t end = loader_start + part->p_vaddr + part->p_memsz;
        if (part->p_type == PT_LOAD && end > loader_end) {
            loader_end = end;
        }
    }
    return 1;
}

static bool is_in_loader(uintptr_t address)
{
    return address >= loader_start && address < loader_end;
}

#ifdef __arm__
/* The unwinder shows neither code without unwind tables nor what starts a program or a thread. A
 * complete chain of the main thread ends in the code that calls main(), which lies next to this
 * function. What calls a thread's function has no tables itself, so the ends of other threads'
 * chains all look the same and count as complete. */
static uintptr_t program_start;

static void find_ends(void)
{
    program_start = plain((uintptr_t)dlsym(RTLD_DEFAULT, "__libc_start_main"));
}

static bool is_end_of_stack(uintptr_t address)
{
    const uintptr_t low = address < program_start ? address : program_start;
    return address + program_start - 2 * low < 4096 || gettid() != getpid();
}
#else
static void find_ends(void) {}

/* Chains end with the first function of the thread, or at code without unwind tables. */
static bool is_end_of_stack(uintptr_t address)
{
    return _Unwind_FindEnclosingFunction((void *)address) != NULL;
}
#endif

/* ---- Taking a chain ---- */

static uint64_t mix(uint64_t hash, uint64_t word)
{
    hash = (hash ^ word) * UINT64_C(0x9e3779b97f4a7c15);
    return hash ^ hash >> 32;
}

/* In four lanes, because each step of one waits for the step before it. */
static uint64_t hash_chain(const struct Chain *chain)
{
    const uintptr_t *at = chain->addresses;
    const uintptr_t *const end = at + chain->count;
    uint64_t lanes[4] = {chain->flags, chain->count, 2, 3};
    for (; end - at >= 4; at += 4) {
        lanes[0] = mix(lanes[0], at[0]);
        lanes[1] = mix(lanes[1], at[1]);
        lanes[2] = mix(lanes[2], at[2]);
        lanes[3] = mix(lanes[3], at[3]);
    }
    for (; at != end; ++at) {
        lanes[0] = mix(lanes[0], *at);
    }
    const uint64_t hash = mix(mix(mix(lanes[0], lanes[1]), lanes[2]), lanes[3]);
    return hash != 0 ? hash : 1; /* 0 is a free slot */
}

void take_chain(struct Chain *chain, const void *charged, const void *caller,
                unsigned long long unloaded)
{
    uintptr_t *const stack = &chain->room[1];
    const unsigned wanted = max_depth > 1 ? max_depth + OWN_FRAMES : 0;
    unsigned end = 0;
    if (wanted != 0) {
        const int taken = walk_frames(stack, (int)wanted, __builtin_frame_address(0), unloaded);
        end = (unsigned)(taken >= 0 ? taken : slow_backtrace(stack, (int)wanted));
    }
    unsigned own = 0;
    while (own != end && own != OWN_FRAMES && plain(stack[own]) != plain((uintptr_t)caller)) {
        ++own;
    }
    if (own == end ||
        own == OWN_FRAMES) { /* depth 1, or not even the recorder's frames were left */
        stack[own = 0] = (uintptr_t)caller;
        end = wanted != 0;
    }
    /* The charged address takes the place of the recorder's last frame. */
    chain->room[own] = (uintptr_t)charged;
    chain->addresses = &chain->room[own];
    chain->count = 1 + end - own;
    chain->flags = max_depth == 1 ? VEKRECORD_LIMITED : 0;
    if (chain->count > 1 + max_depth) {
        chain->count = 1 + max_depth;
        chain->flags = VEKRECORD_LIMITED;
    }
    chain->hash = hash_chain(chain);
}

void judge_chain(struct Chain *chain)
{
    const uintptr_t last = chain->addresses[chain->count - 1];
    if (chain->flags == 0 && !is_in_loader(last) && !is_end_of_stack(last)) {
        chain->flags = VEKRECORD_CUT;
        chain->hash = hash_chain(chain);
    }
}

/* ---- The table of numbered chains ---- */

struct Slot {
    uint64_t hash; /* 0: free */
    uint64_t number;
};

static struct Slot *slots;
static size_t slot_count, slots_used; /* a power of two; at most half of it is used */

void chains_prepare(unsigned depth)
{
    max_depth = depth;
    if (depth > 1) {
        dl_iterate_phdr(find_loader, NULL);
        find_ends();
    }
}

static struct Slot *slot_of(uint64_t hash)
{
    size_t i = (size_t)hash & (slot_count - 1);
    while (slots[i].hash != 0 && slots[i].hash != hash) {
        i = (i + 1) & (slot_count - 1);
    }
    return &slots[i];
}

static bool grow_slots(void)
{
    struct Slot *const old = slots;
    const size_t old_count = slot_count;
    const size_t count = old_count != 0 ? 2 * old_count : 4096;
    void *const memory = mmap(NULL, count * sizeof *slots, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return false;
    }
    slots = memory;
    slot_count = count;
    for (size_t i = 0; i != old_count; ++i) {
        if (old[i].hash != 0) {
            *slot_of(old[i].hash) = old[i];
        }
    }
    if (old != NULL) {
        munmap(old, old_count * sizeof *old);
    }
    return true;
}

long find_chain(uint64_t hash)
{
    if (slots == NULL) {
        return -1;
    }
    const struct Slot *const slot = slot_of(hash);
    return slot->hash != 0 ? (long)slot->number : -1;
}

bool number_chain(uint64_t hash, long number)
{
    if (2 * (slots_used + 1) > slot_count && !grow_slots()) {
        return false;
    }
    struct Slot *const slot = slot_of(hash);
    slots_used += slot->hash == 0;
    slot->hash = hash;
    slot->number = (uint64_t)number;
    return true;
}

void forget_chains(void)
{
    if (slots != NULL) {
        memset(slots, 0, slot_count * sizeof *slots);
        slots_used = 0;
    }
}
