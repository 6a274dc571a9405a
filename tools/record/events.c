/* SPDX-License-Identifier: MIT */
/* The recording of this process. It begins with the first event, so that processes which do not use
 * the library leave no file. A forked child stops recording, because the file is its parent's; what
 * it executes records itself.
 *
 * A thread takes its chain, and looks at what needs the loader, before it takes the lock: the
 * loader may wait for code that allocates.
 */
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <link.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "record.h"

enum { LONGEST_COMMAND = 1 << 13, CLOCK_EVENTS = 8, CLOCK_STEP = 16 };

extern const ElfW(Ehdr) __ehdr_start; /* of this library; the linker defines it */

enum { UNPREPARED, OFF, ON };
static int state;
static pthread_once_t prepared = PTHREAD_ONCE_INIT;
static pthread_once_t opened = PTHREAD_ONCE_INIT;
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

/* This thread is in here. A signal handler that allocates then must not wait for the lock. */
static __thread bool is_busy;

static char folder[PATH_MAX]; /* as at load: the program may clear its environment */
static char path[PATH_MAX];
static bool is_open;           /* the file has been made */
static const char *first_note; /* null: none */
static bool has_forked;

static long chain_count;
static uintptr_t last_address;
static unsigned seen_changes; /* of modules; read without the lock, too */

static struct timespec start;
static uint64_t last_time; /* milliseconds since the start */
static unsigned clock_interval = 1, events_until_clock = 1;

static int get_state(void)
{
    return __atomic_load_n(&state, __ATOMIC_ACQUIRE);
}
static void set_state(int to)
{
    __atomic_store_n(&state, to, __ATOMIC_RELEASE);
}

/* ---- The beginning ---- */

static void write_header(void)
{
    struct VekRecordHeader header = {
        .byte_order = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? 1 : 2,
        .address_size = sizeof(void *),
        .machine = __ehdr_start.e_machine,
        .pid = (uint32_t)getpid(),
        .start = (uint64_t)time(NULL),
    };
    memcpy(header.magic, VEKRECORD_MAGIC, sizeof header.magic);
    /* Its first byte stands where a record has its type. */
    if (begin_record(sizeof header)) {
        put_bytes((const char *)&header + 1, sizeof header - 1);
        end_record((enum VekRecordType)header.magic[0]);
    }
}

/* Very long commands lose their last arguments. */
static void write_command(void)
{
    static char command[LONGEST_COMMAND];
    const int fd = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    const ssize_t size = fd >= 0 ? read(fd, command, sizeof command - 1) : 0;
    if (fd >= 0) {
        close(fd);
    }
    const char *const end = command + (size > 0 ? size : 0);
    size_t count = 0;
    for (const char *text = command; text < end; text += strlen(text) + 1) {
        ++count;
    }
    if (begin_record(NUMBER_ROOM + sizeof command + 3 * count)) {
        put_number(count);
        for (const char *text = command; text < end; text += strlen(text) + 1) {
            put_text(text, strlen(text));
        }
        end_record(VEKRECORD_COMMAND);
    }
}

static void write_note(const char *note)
{
    if (begin_record(NUMBER_ROOM + strlen(note))) {
        put_text(note, strlen(note));
        end_record(VEKRECORD_NOTE);
    }
}

/* Makes a file with a name that no process of the same number took before, as before exec. */
static bool make_file(void)
{
    char name[64];
    snprintf(name, sizeof name, "%s", program_invocation_short_name);
    for (char *c = name; *c != '\0'; ++c) {
        if (*c <= ' ' || *c == '/' || *c == '\x7f') {
            *c = '_';
        }
    }
    const long pid = (long)getpid();
    int length = snprintf(path, sizeof path, "%s/%s.%ld.vekrec", folder, name, pid);
    for (int i = 2; (size_t)length < sizeof path && !writer_open(path); ++i) {
        if (errno != EEXIST) {
            return false;
        }
        length = snprintf(path, sizeof path, "%s/%s.%ld.%d.vekrec", folder, name, pid, i);
    }
    return (size_t)length < sizeof path;
}

/* In a page that is empty in a child. Functions like clone() do not say that they fork. */
static const uint8_t *is_original;

static void mark_original(void)
{
    static const uint8_t always = 1;
    const size_t size = (size_t)sysconf(_SC_PAGESIZE);
    uint8_t *const page =
        mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    is_original = &always;
    if (page != MAP_FAILED && madvise(page, size, MADV_WIPEONFORK) == 0) {
        *page = 1;
        is_original = page;
    }
}

static void open_recording(void)
{
    int cancel_state;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
    pthread_mutex_lock(&lock);
    if (make_file()) {
        clock_gettime(CLOCK_MONOTONIC_COARSE, &start);
        write_header();
        write_command();
        if (first_note != NULL) {
            write_note(first_note);
        }
        is_open = true;
    } else {
        set_state(OFF);
    }
    pthread_mutex_unlock(&lock);
    pthread_setcancelstate(cancel_state, NULL);
}

void record_note_at_start(const char *note)
{
    first_note = note;
}

/* ---- Events, under the lock ---- */

/* Writes the time. The clock is read at every event of a program that allocates seldom, and at
 * every eighth of one that allocates all the time. That keeps its cost low, and after a pause few
 * events have the time from before it. */
static void write_time(void)
{
    if (--events_until_clock != 0) {
        return;
    }
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const uint64_t time = (uint64_t)(((long long)now.tv_sec - start.tv_sec) * 1000 +
                                     (now.tv_nsec - start.tv_nsec) / 1000000);
    if (time >= last_time + CLOCK_STEP) {
        clock_interval = 1;
    } else if (clock_interval < CLOCK_EVENTS) {
        clock_interval *= 2;
    }
    events_until_clock = clock_interval;
    if (time != last_time && begin_record(NUMBER_ROOM)) {
        last_time = time;
        put_number(time);
        end_record(VEKRECORD_TIME);
    }
}

/* Returns the number that the chain gets. */
static long write_chain(const struct Chain *chain)
{
    if (!begin_record((2 + (size_t)chain->count) * NUMBER_ROOM)) {
        return -1;
    }
    put_number(chain->flags);
    put_number(chain->count);
    uintptr_t last = 0;
    for (unsigned i = 0; i != chain->count; ++i) {
        put_signed((intptr_t)(chain->addresses[i] - last));
        last = chain->addresses[i];
    }
    end_record(VEKRECORD_CHAIN);
    return chain_count++;
}

/* The chain's number, or -1 if it has none yet and cannot get one. Judging a chain may need the
 * loader, so the lock is released meanwhile. */
static long number_of(struct Chain *chain)
{
    long number = find_chain(chain->hash);
    if (number >= 0) {
        return number;
    }
    const uint64_t hash = chain->hash; /* of the chain as it is taken */
    pthread_mutex_unlock(&lock);
    judge_chain(chain);
    pthread_mutex_lock(&lock);
    number = find_chain(chain->hash);
    if (number < 0) {
        number = write_chain(chain);
    }
    if (number >= 0) {
        number_chain(chain->hash, number); /* without memory, the chain gets another number later */
        number_chain(hash, number);
    }
    return number;
}

static void put_address(const void *address)
{
    put_signed((intptr_t)((uintptr_t)address - last_address));
    last_address = (uintptr_t)address;
}

static bool write_event(const struct Event *event, long chain)
{
    if (!begin_record((size_t)5 * NUMBER_ROOM)) {
        return false;
    }
    put_number((uint64_t)chain);
    if ((event->fields & HAS_BLOCK) != 0) {
        put_address(event->block);
    }
    if ((event->fields & HAS_COUNT) != 0) {
        put_number(event->count);
    }
    if ((event->fields & HAS_SIZE) != 0) {
        put_number(event->size);
    }
    if ((event->fields & HAS_RESULT) != 0) {
        put_address(event->result);
    }
    end_record(event->type);
    return true;
}

/* ---- Events ---- */

static void update_modules(void)
{
    int cancel_state;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
    struct ModuleList *const list = list_modules();
    if (list != NULL) {
        pthread_mutex_lock(&lock);
        if (write_modules(list)) {
            forget_chains();
            chain_count = 0;
        }
        pthread_mutex_unlock(&lock);
    }
    pthread_setcancelstate(cancel_state, NULL);
}

unsigned long long look_at_modules(void)
{
    const struct ModuleChanges changes = module_changes();
    const unsigned sum = (unsigned)(changes.loaded + changes.unloaded);
    if (__atomic_load_n(&seen_changes, __ATOMIC_RELAXED) != sum) {
        update_modules(); /* two threads may do it at once */
        __atomic_store_n(&seen_changes, sum, __ATOMIC_RELAXED);
    }
    return changes.unloaded;
}

bool begin_event(void)
{
    if (!is_recording() || *is_original == 0 || is_busy) {
        return false;
    }
    is_busy = true;
    pthread_once(&opened, open_recording);
    is_busy = get_state() == ON;
    return is_busy;
}

void end_event(const struct Event *event, struct Chain *chain)
{
    pthread_mutex_lock(&lock);
    const long number = number_of(chain);
    write_time();
    if (number < 0 || !write_event(event, number)) {
        set_state(OFF);
    }
    pthread_mutex_unlock(&lock);
    is_busy = false;
}

/* ---- The end, and children ---- */

static void record_exit(int status, void *data)
{
    (void)data;
    if (get_state() != ON || *is_original == 0 || is_busy) {
        return;
    }
    is_busy = true;
    pthread_mutex_lock(&lock);
    if (is_open && begin_record(NUMBER_ROOM)) {
        put_number((unsigned)status & 0xff);
        end_record(VEKRECORD_EXIT);
        writer_finish();
    }
    pthread_mutex_unlock(&lock);
    is_busy = false;
}

/* No lock is held during fork(), which waits for other threads' locks itself. */
static void after_fork_in_parent(void)
{
    if (is_busy) { /* a signal handler that interrupted the recorder */
        return;
    }
    pthread_mutex_lock(&lock);
    if (is_open && !has_forked) {
        has_forked = true;
        write_note(
            "The process forked. What its children did before they started another program is "
            "not recorded.");
    }
    pthread_mutex_unlock(&lock);
}

static void after_fork_in_child(void)
{
    set_state(OFF);
    if (pthread_mutex_trylock(&lock) == 0) { /* else the writer was at work; what it had stays */
        writer_abandon();
        pthread_mutex_unlock(&lock);
    }
}

/* ---- Preparation ---- */

/* A shell starts background commands, as vek-record does, with these signals ignored. The script
 * says which ones the program is to have as usual. */
static void restore_signal(const char *names, const char *name, int number)
{
    struct sigaction action;
    if (strstr(names, name) != NULL && sigaction(number, NULL, &action) == 0 &&
        action.sa_handler == SIG_IGN) {
        signal(number, SIG_DFL);
    }
}

static void prepare(void)
{
    const char *const signals = getenv("VEK_RECORD_SIGNALS");
    if (signals != NULL) {
        restore_signal(signals, "INT", SIGINT);
        restore_signal(signals, "QUIT", SIGQUIT);
        unsetenv("VEK_RECORD_SIGNALS"); /* the program's children are no longer concerned */
    }
    const char *const folder_text = getenv("VEK_RECORD_DIR");
    const size_t length = folder_text != NULL ? strlen(folder_text) : 0;
    if (length == 0 || length >= sizeof folder) {
        set_state(OFF);
        return;
    }
    memcpy(folder, folder_text, length + 1);
    const char *const depth_text = getenv("VEK_RECORD_DEPTH");
    const long depth = depth_text != NULL ? strtol(depth_text, NULL, 10) : DEFAULT_DEPTH;
    chains_prepare(depth < 1 ? 1 : depth > MAX_DEPTH ? MAX_DEPTH : (unsigned)depth);
    mark_original();
    pthread_atfork(NULL, after_fork_in_parent, after_fork_in_child);
    on_exit(record_exit, NULL);
    set_state(ON);
}

bool is_recording(void)
{
    if (get_state() == UNPREPARED) {
        pthread_once(&prepared, prepare);
    }
    return get_state() == ON;
}

__attribute__((constructor)) static void prepare_at_load(void)
{
    is_recording();
}
