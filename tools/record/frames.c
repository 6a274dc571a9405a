/* SPDX-License-Identifier: MIT */
/* Call chains on x86-64, from the unwind tables of the code.
 *
 * From a frame's return address, stack pointer and rbp, the frame of its caller follows by a rule
 * that depends on the return address alone, and by one or two words of the stack. Two things make
 * that fast:
 *
 * - Rules are kept, because the tables are small programs that take long to run.
 * - Each thread keeps the frames of its last chain. Most of them are still there. Where a frame is
 *   the same as then, and the stack still holds the words that led to its caller, the caller's
 *   frame is known, too. The processor compares many such words at once, whereas each rule has to
 *   wait for the frame before it. No word is read that the rules would not read.
 *
 * Both are forgotten when a module was unloaded. Rare rules, as for the callers of signal
 * handlers and for lazy binding, are left to libgcc.
 */
#include <string.h>

#include "record.h"

#if defined __x86_64__ && defined __LP64__

/* ---- Rules ---- */

/* A rule fits in 28 bits, from the lowest: its kind; how many words above the frame's stack
 * pointer, or above its rbp, the caller's stack pointer is; and how many words below that one rbp
 * was saved, 0 if it was not. The return address is one word below it. */
typedef uint32_t Rule;

enum { KIND_BITS = 2, SP_BITS = 17, BP_BITS = 9, RULE_BITS = KIND_BITS + SP_BITS + BP_BITS };
enum { FROM_SP = 1, FROM_BP = 2, OTHER = 3, KINDS = 3 };

/* Rules of their own: nobody called this frame, or its caller cannot be found in here. */
static const Rule end_of_chain = OTHER;
static const Rule unsupported = OTHER | 1 << KIND_BITS;

/* The numbers of registers in the tables, and the rule of those that play no part. */
enum { BP = 6, SP = 7, RETURN_ADDRESS = 16 };

enum How { UNSAVED, AT_OFFSET, UNDEFINED, ELSEWHERE };

struct Saved {
    enum How how;
    int64_t offset; /* from the caller's stack pointer */
};

struct Row {
    uint64_t base; /* a register, or NO_REGISTER */
    int64_t offset;
    struct Saved bp, sp, return_address, ignored;
};

#define NO_REGISTER UINT64_MAX

/* A program of the tables, and how far it has run. */
struct Program {
    const uint8_t *at, *end;
    uint64_t code_factor;
    int64_t data_factor;
    uintptr_t location, target;
    unsigned remembered_count;
    struct Row row, initial, remembered[4];
};

static uint64_t read_bytes(const uint8_t **at, unsigned size)
{
    uint64_t value = 0;
    memcpy(&value, *at, size);
    *at += size;
    return value;
}

static uint64_t read_unsigned(const uint8_t **at)
{
    uint64_t value = 0;
    unsigned shift = 0;
    uint8_t byte;
    do {
        byte = *(*at)++;
        value |= shift < 64 ? (uint64_t)(byte & 0x7f) << shift : 0;
        shift += 7;
    } while ((byte & 0x80) != 0);
    return value;
}

static int64_t read_signed(const uint8_t **at)
{
    const uint8_t *const start = *at;
    const uint64_t value = read_unsigned(at);
    const unsigned bits = 7 * (unsigned)(*at - start);
    const bool is_negative = ((*at)[-1] & 0x40) != 0;
    return (int64_t)(is_negative && bits < 64 ? value | UINT64_MAX << bits : value);
}

static struct Saved *saved_of(struct Row *row, uint64_t reg)
{
    return reg == BP               ? &row->bp
           : reg == SP             ? &row->sp
           : reg == RETURN_ADDRESS ? &row->return_address
                                   : &row->ignored;
}

static bool save(struct Program *program, uint64_t reg, int64_t factored)
{
    *saved_of(&program->row, reg) = (struct Saved){AT_OFFSET, factored * program->data_factor};
    return true;
}

static bool restore(struct Program *program, uint64_t reg)
{
    *saved_of(&program->row, reg) = *saved_of(&program->initial, reg);
    return true;
}

static bool mark(struct Program *program, enum How how)
{
    saved_of(&program->row, read_unsigned(&program->at))->how = how;
    return true;
}

static bool set_base(struct Program *program, uint64_t reg)
{
    program->row.base = reg;
    return true;
}

static bool set_offset(struct Program *program, int64_t offset)
{
    program->row.offset = offset;
    return true;
}

static bool advance(struct Program *program, uint64_t factored)
{
    program->location += factored * program->code_factor;
    return true;
}

static bool remember(struct Program *program)
{
    if (program->remembered_count == sizeof program->remembered / sizeof *program->remembered) {
        return false;
    }
    program->remembered[program->remembered_count++] = program->row;
    return true;
}

static bool recall(struct Program *program)
{
    if (program->remembered_count == 0) {
        return false;
    }
    program->row = program->remembered[--program->remembered_count];
    return true;
}

static bool skip_expression(struct Program *program)
{
    const uint64_t size = read_unsigned(&program->at);
    program->at += size;
    return true;
}

/* Runs an instruction whose operands are not in its first byte. False if it is unknown. */
static bool run_long(struct Program *program, unsigned instruction)
{
    const uint8_t **const at = &program->at;
    uint64_t reg;
    switch (instruction) {
    case 0x00: /* nop */
        return true;
    case 0x02: /* advance_loc1, 2 and 4 */
        return advance(program, read_bytes(at, 1));
    case 0x03:
        return advance(program, read_bytes(at, 2));
    case 0x04:
        return advance(program, read_bytes(at, 4));
    case 0x05: /* offset_extended */
        reg = read_unsigned(at);
        return save(program, reg, (int64_t)read_unsigned(at));
    case 0x06: /* restore_extended */
        return restore(program, read_unsigned(at));
    case 0x07: /* undefined */
        return mark(program, UNDEFINED);
    case 0x08: /* same_value */
        return mark(program, UNSAVED);
    case 0x09: /* register */
        return mark(program, ELSEWHERE) && (read_unsigned(at), true);
    case 0x0a: /* remember_state */
        return remember(program);
    case 0x0b: /* restore_state */
        return recall(program);
    case 0x0c: /* def_cfa */
        return set_base(program, read_unsigned(at)) &&
               set_offset(program, (int64_t)read_unsigned(at));
    case 0x0d: /* def_cfa_register */
        return set_base(program, read_unsigned(at));
    case 0x0e: /* def_cfa_offset */
        return set_offset(program, (int64_t)read_unsigned(at));
    case 0x0f: /* def_cfa_expression */
        return set_base(program, NO_REGISTER) && skip_expression(program);
    case 0x10: /* expression, val_expression */
    case 0x16:
        return mark(program, ELSEWHERE) && skip_expression(program);
    case 0x11: /* offset_extended_sf */
        reg = read_unsigned(at);
        return save(program, reg, read_signed(at));
    case 0x12: /* def_cfa_sf */
        return set_base(program, read_unsigned(at)) &&
               set_offset(program, read_signed(at) * program->data_factor);
    case 0x13: /* def_cfa_offset_sf */
        return set_offset(program, read_signed(at) * program->data_factor);
    case 0x14: /* val_offset and val_offset_sf: their operands end alike */
    case 0x15:
        return mark(program, ELSEWHERE) && (read_unsigned(at), true);
    case 0x2e: /* GNU_args_size */
        return read_unsigned(at), true;
    default:
        return false;
    }
}

/* Runs the instructions up to the target. False if one is unknown. */
static bool run(struct Program *program, const uint8_t *start, const uint8_t *end)
{
    program->at = start;
    while (program->at < end && program->location <= program->target) {
        const uint8_t byte = *program->at++;
        const unsigned operand = byte & 0x3f;
        const bool is_known = byte >> 6 == 0   ? run_long(program, operand)
                              : byte >> 6 == 1 ? advance(program, operand)
                              : byte >> 6 == 2
                                  ? save(program, operand, (int64_t)read_unsigned(&program->at))
                                  : restore(program, operand);
        if (!is_known) {
            return false;
        }
    }
    return true;
}

/* ---- Tables ---- */

/* libgcc's, which finds the entry that covers an address. */
struct Entry {
    uint32_t size;    /* of what follows it */
    int32_t distance; /* from here back to the head that it shares with others; 0 in a head */
    uint8_t data[];
};

struct Bases {
    void *text, *data, *function;
};

extern const struct Entry *_Unwind_Find_FDE(void *address, struct Bases *bases);

static const uint8_t *end_of(const struct Entry *entry)
{
    return (const uint8_t *)&entry->distance + entry->size;
}

/* How many bytes an address takes in this encoding; 0 if that is unusual. */
static unsigned size_of_address(uint8_t encoding)
{
    static const uint8_t sizes[8] = {8, 0, 2, 4, 8, 0, 0, 0};
    return (encoding & 0x70) == 0x50 ? 0 : sizes[encoding & 7]; /* 0x50: aligned */
}

/* Reads what the head says about its entries' addresses. False if the head says something else that
 * matters. */
static bool read_augmentation(const char *text, const uint8_t **at, unsigned *address_size)
{
    const uint64_t size = read_unsigned(at);
    const uint8_t *field = *at;
    *at += size;
    for (; *text != '\0'; ++text) {
        const uint8_t encoding = *field++;
        const unsigned bytes = size_of_address(encoding);
        if (*text == 'R' && bytes != 0) {
            *address_size = bytes;
        } else if (*text == 'P' && bytes != 0) {
            field += bytes;
        } else if (*text != 'L') {
            return false; /* as S, which marks the code that calls signal handlers */
        }
    }
    return true;
}

/* Runs the head's and the entry's instructions. False if something is unusual. */
static bool run_entry(struct Program *program, const struct Entry *entry)
{
    const struct Entry *const head =
        (const void *)((uintptr_t)&entry->distance - (uintptr_t)entry->distance);
    const uint8_t *at = head->data;
    const unsigned version = *at++;
    const char *const text = (const char *)at;
    at += strlen(text) + 1;
    program->code_factor = read_unsigned(&at);
    program->data_factor = read_signed(&at);
    const uint64_t column = version == 1 ? *at++ : read_unsigned(&at);
    unsigned address_size = sizeof(void *);
    if ((version != 1 && version != 3) || column != RETURN_ADDRESS || *text != 'z' ||
        !read_augmentation(text + 1, &at, &address_size) || !run(program, at, end_of(head))) {
        return false;
    }
    program->initial = program->row;
    const uint8_t *start = entry->data + 2 * (size_t)address_size;
    const uint64_t skipped = read_unsigned(&start);
    return run(program, start + skipped, end_of(entry));
}

static Rule rule_from(const struct Row *row)
{
    if (row->return_address.how == UNDEFINED) {
        return end_of_chain;
    }
    const uint64_t sp_words = (uint64_t)row->offset / 8;
    const uint64_t bp_words = row->bp.how == AT_OFFSET ? (uint64_t)-row->bp.offset / 8 : 0;
    const bool is_usual = (row->base == SP || row->base == BP) && row->offset % 8 == 0 &&
                          sp_words >> SP_BITS == 0 && row->return_address.how == AT_OFFSET &&
                          row->return_address.offset == -8 && row->sp.how == UNSAVED &&
                          row->bp.how != ELSEWHERE &&
                          (row->bp.how != AT_OFFSET ||
                           (row->bp.offset % 8 == 0 && bp_words != 0 && bp_words >> BP_BITS == 0));
    return is_usual ? (Rule)(bp_words << (KIND_BITS + SP_BITS) | sp_words << KIND_BITS |
                             (row->base == SP ? FROM_SP : FROM_BP))
                    : unsupported;
}

/* ---- The rules that are known ---- */

/* The product of a return address and an odd number has a place in the table, by its upper bits,
 * and the lower ones stand there together with the rule. A word is thus always of one piece, and no
 * thread needs a lock. */
enum { ADDRESS_BITS = 48, INDEX_BITS = 12, TAG_BITS = ADDRESS_BITS - INDEX_BITS };
static uint64_t rules[1 << INDEX_BITS]; /* 0: none */

/* How many modules had been unloaded when the table was cleared. A thread can only store the rule
 * of a module that is in use, so what comes in while others clear the table is right. */
static unsigned long long cleared_at;

static void clear_rules(unsigned long long unloaded)
{
    for (size_t i = 0; i != sizeof rules / sizeof *rules; ++i) {
        __atomic_store_n(&rules[i], 0, __ATOMIC_RELAXED);
    }
    unsigned long long last = __atomic_load_n(&cleared_at, __ATOMIC_RELAXED);
    while (last < unloaded && !__atomic_compare_exchange_n(&cleared_at, &last, unloaded, true,
                                                           __ATOMIC_RELEASE, __ATOMIC_RELAXED)) {
    }
}

/* Stores the rule, unless the address has no tables: something may be loaded there later. */
__attribute__((noinline)) static Rule find_rule(uintptr_t address, uint64_t *slot, uint64_t tag)
{
    struct Bases bases;
    const struct Entry *const entry = _Unwind_Find_FDE((void *)(address - 1), &bases);
    if (entry == NULL) {
        return end_of_chain;
    }
    struct Program program = {.location = (uintptr_t)bases.function, .target = address - 1};
    const Rule rule = run_entry(&program, entry) ? rule_from(&program.row) : unsupported;
    __atomic_store_n(slot, tag << RULE_BITS | rule, __ATOMIC_RELAXED);
    return rule;
}

/* The rule of a return address below 1 << ADDRESS_BITS. */
static inline Rule rule_of(uintptr_t address)
{
    const uint64_t product =
        address * UINT64_C(0x9e3779b97f4a7c15) & ((UINT64_C(1) << ADDRESS_BITS) - 1);
    const uint64_t tag = product & ((UINT64_C(1) << TAG_BITS) - 1);
    uint64_t *const slot = &rules[product >> TAG_BITS];
    const uint64_t word = __atomic_load_n(slot, __ATOMIC_RELAXED);
    return word >> RULE_BITS == tag && word != 0 ? word & ((1U << RULE_BITS) - 1)
                                                 : find_rule(address, slot, tag);
}

/* ---- Frames ---- */

/* The registers once the callee has returned. Two words of the stack led here: the return address,
 * right below sp, and rbp. */
struct Frame {
    uintptr_t address, sp, bp;
    uintptr_t bp_from; /* where the callee saved rbp; 0 if it left it alone */
};

static uintptr_t word_at(uintptr_t address)
{
    return *(const uintptr_t *)address;
}

/* Replaces the frame by its caller's. */
static inline void leave(struct Frame *frame, Rule rule)
{
    const uintptr_t base = (rule & KINDS) == FROM_BP ? frame->bp : frame->sp;
    const uintptr_t bp_words = rule >> (KIND_BITS + SP_BITS);
    frame->sp = base + 8 * (uintptr_t)(rule >> KIND_BITS & ((1U << SP_BITS) - 1));
    frame->address = word_at(frame->sp - 8);
    frame->bp_from = 0;
    if (bp_words != 0) {
        frame->bp_from = frame->sp - 8 * bp_words;
        frame->bp = word_at(frame->bp_from);
    }
}

static inline bool is_same(const struct Frame *a, const struct Frame *b)
{
    return a->sp == b->sp && a->address == b->address && a->bp == b->bp;
}

/* Whether the stack still holds the words that led to this frame from the one before. */
static inline bool still_holds(const struct Frame *frame)
{
    return word_at(frame->sp - 8) == frame->address &&
           (frame->bp_from == 0 || word_at(frame->bp_from) == frame->bp);
}

/* ---- This thread's last chain ---- */

/* A few more than the usual depth. The outermost frames of longer chains are not kept. */
enum { KEPT = 80 };

/* At the end of the array, so that frames further in find room before them. */
static __thread struct {
    unsigned long long unloaded;
    unsigned first; /* counted from the end: 0 is none */
    struct Frame frames[KEPT];
} last;

struct Walk {
    uintptr_t *addresses;
    int count, capacity;
    struct Frame frame; /* the outermost so far */
    unsigned at;        /* the last chain's frames from here on may be met again */
    bool is_kept;
    unsigned new_count; /* frames that the last chain did not have */
    struct Frame new_frames[KEPT];
};

static void add_new(struct Walk *walk, const struct Frame *frame)
{
    if (walk->new_count != KEPT) {
        walk->new_frames[walk->new_count++] = *frame;
    }
}

/* Puts the new frames before the last chain's frame `tail`, in place of those that stood there. */
static void keep(struct Walk *walk, unsigned tail)
{
    const unsigned count = walk->new_count;
    if (count > tail) { /* the outermost ones give way */
        memmove(&last.frames[count], &last.frames[tail], (KEPT - count) * sizeof(struct Frame));
        tail = count;
    }
    memcpy(&last.frames[tail - count], walk->new_frames, count * sizeof(struct Frame));
    last.first = KEPT - (tail - count);
    walk->at = KEPT;
    walk->is_kept = true;
}

/* Whether the last chain had this frame, too. */
static bool is_known(struct Walk *walk)
{
    while (walk->at != KEPT && last.frames[walk->at].sp < walk->frame.sp) {
        ++walk->at;
    }
    return walk->at != KEPT && is_same(&last.frames[walk->at], &walk->frame);
}

/* Takes the known frame, and its callers in the last chain as far as they are still there. */
static void take_known(struct Walk *walk)
{
    const unsigned first = walk->at;
    unsigned i = first;
    last.frames[first].bp_from = walk->frame.bp_from; /* its callee may be another function */
    walk->addresses[walk->count++] = last.frames[i].address;
    while (walk->count != walk->capacity && i + 1 != KEPT && still_holds(&last.frames[i + 1])) {
        walk->addresses[walk->count++] = last.frames[++i].address;
    }
    walk->frame = last.frames[i];
    walk->at = i + 1;
    if (walk->at == KEPT || walk->count == walk->capacity) {
        keep(walk, first);
        return;
    }
    for (unsigned known = first; known <= i; ++known) {
        add_new(walk, &last.frames[known]);
    }
}

static void take_new(struct Walk *walk)
{
    walk->addresses[walk->count++] = walk->frame.address;
    add_new(walk, &walk->frame);
}

/* Takes all frames from the walk's first one on. False if the rules do not suffice. */
static bool take_all(struct Walk *walk)
{
    while (walk->frame.address != 0) {
        if (walk->frame.address >> ADDRESS_BITS != 0) {
            return false;
        }
        if (is_known(walk)) {
            take_known(walk);
        } else {
            take_new(walk);
        }
        if (walk->count == walk->capacity) {
            return true;
        }
        const Rule rule = rule_of(walk->frame.address);
        if ((rule & KINDS) == OTHER) {
            return rule == end_of_chain;
        }
        leave(&walk->frame, rule);
    }
    return true;
}

/* Forgets what may have changed since fewer modules had been unloaded. */
static void forget_unloaded(unsigned long long unloaded)
{
    if (__atomic_load_n(&cleared_at, __ATOMIC_ACQUIRE) < unloaded) {
        clear_rules(unloaded);
    }
    if (last.unloaded != unloaded) {
        last.unloaded = unloaded;
        last.first = 0;
    }
}

int walk_frames(uintptr_t *addresses, int capacity, const void *frame, unsigned long long unloaded)
{
    forget_unloaded(unloaded);
    const uintptr_t *const words = frame; /* the caller's rbp, then the return address */
    struct Walk walk; /* not initialized as a whole, because most of its frames are never used */
    walk.addresses = addresses;
    walk.count = 0;
    walk.capacity = capacity;
    walk.frame = (struct Frame){words[1], (uintptr_t)(words + 2), words[0], (uintptr_t)words};
    walk.at = KEPT - last.first;
    walk.is_kept = false;
    walk.new_count = 0;
    const bool is_done = take_all(&walk);
    if (!walk.is_kept) {
        keep(&walk, KEPT);
    }
    return is_done ? walk.count : -1;
}

#else /* other machines */

int walk_frames(uintptr_t *addresses, int capacity, const void *frame, unsigned long long unloaded)
{
    (void)addresses;
    (void)capacity;
    (void)frame;
    (void)unloaded;
    return -1;
}

#endif
