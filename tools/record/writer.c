/* SPDX-License-Identifier: MIT */
/* Bytes to the file, through windows: parts of the file that are mapped. What has been written to a
 * shared mapping reaches the file even if the process is killed. A record lies in one window, and
 * its type is written last. The rest of a window that is too small for a record is padded. Some
 * bytes at its end are kept for the record that says why there is no next one.
 *
 * Where files cannot be mapped like this, and after the end of the process has been written, the
 * window is ordinary memory, and each record is written to the file when it is complete.
 */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "record.h"

enum {
    WINDOW = 1 << 20,       /* bytes of a window */
    SMALL_WINDOW = 1 << 16, /* where there is little space left; the largest page */
    LAST_WORDS = 128        /* bytes kept at the end of a window */
};

static const char *path;
static int file = -1;
static dev_t device; /* what file is open, because programs close numbers that are not theirs */
static ino_t inode;

static uint8_t *window;     /* null: no recording, or no longer */
static size_t window_size;  /* with the bytes kept */
static off_t window_offset; /* of the window in the file; of its end when written directly */
static uint8_t *record;     /* the type of the record that is being written */
static uint8_t *next;       /* where its next byte goes */
static bool is_mapped;

/* ---- The file ---- */

/* Writes to standard error. If nobody reads that, or it is a file that is too large, the program
 * must not die of the signal. */
static void write_message(const char *text, size_t size)
{
    const struct timespec now = {0, 0};
    sigset_t deadly;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&deadly);
    sigaddset(&deadly, SIGPIPE);
    sigaddset(&deadly, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &deadly, &before);
    sigpending(&pending);
    const bool was_pending =
        sigismember(&pending, SIGPIPE) != 0 || sigismember(&pending, SIGXFSZ) != 0;
    if (write(STDERR_FILENO, text, size) < 0 && !was_pending) {
        sigtimedwait(&deadly, NULL, &now);
    }
    pthread_sigmask(SIG_SETMASK, &before, NULL);
}

static void complain(const char *what, int error)
{
    char text[512];
    snprintf(text, sizeof text, "vek-record: %s: %s; %s\n", path, strerror(error), what);
    write_message(text, strlen(text));
}

/* Keeps the number of the file away from the small ones, which programs like to know. */
static int move_up(int fd)
{
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 200);
    if (moved < 0) {
        return fd;
    }
    close(fd);
    return moved;
}

/* Whether `file` is still ours, after opening it again if the program closed it. */
static bool have_file(void)
{
    struct stat status;
    if (fstat(file, &status) == 0 && status.st_dev == device && status.st_ino == inode) {
        return true;
    }
    file = open(path, O_RDWR | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    file = move_up(file);
    return fstat(file, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}

/* Whether a limit on the size of files forbids this size. A signal would follow the attempt. */
static bool exceeds_limit(off_t size)
{
    struct rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
           (rlim_t)size > limit.rlim_cur;
}

/* ---- Windows ---- */

static void use_window(void *map, size_t size, off_t offset)
{
    if (window != NULL) {
        munmap(window, window_size);
    }
    window = next = map;
    window_size = size;
    window_offset = offset;
}

/* Maps the part of the file that begins at `offset`. Returns an error number. */
static int map_window(off_t offset, size_t size, void **map)
{
    if (exceeds_limit(offset + (off_t)size)) {
        return EFBIG;
    }
    int error;
    do {
        error = posix_fallocate(file, offset, (off_t)size);
    } while (error == EINTR);
    if (error != 0) {
        return error;
    }
    *map = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, file, offset);
    return *map != MAP_FAILED ? 0 : errno;
}

static bool is_lack_of_space(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

/* Goes on to the next window, a small one if there is little space. Returns an error number. */
static int turn_over(void)
{
    const off_t offset = window != NULL ? window_offset + (off_t)window_size : 0;
    void *map;
    size_t size = WINDOW;
    int error = have_file() ? map_window(offset, size, &map) : EBADF;
    if (is_lack_of_space(error)) {
        size = SMALL_WINDOW;
        error = map_window(offset, size, &map);
    }
    if (error != 0) {
        return error;
    }
    if (window != NULL) {
        memset(next, VEKRECORD_PAD, (size_t)(window + window_size - next));
    }
    use_window(map, size, offset);
    return 0;
}

/* Uses ordinary memory as the window of what follows at `offset`. Returns an error number. */
static int write_directly(off_t offset)
{
    void *const map =
        mmap(NULL, SMALL_WINDOW, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (map == MAP_FAILED) {
        return errno;
    }
    use_window(map, SMALL_WINDOW, offset);
    is_mapped = false;
    return 0;
}

static off_t length_so_far(void)
{
    return window_offset + (is_mapped ? next - window : 0);
}

/* Writes the record that is complete, all of it or nothing. Returns an error number. */
static int write_record(void)
{
    const size_t size = (size_t)(next - record);
    size_t done = 0;
    int error = !have_file() ? EBADF : exceeds_limit(window_offset + (off_t)size) ? EFBIG : 0;
    while (error == 0 && done != size) {
        const ssize_t written =
            pwrite(file, record + done, size - done, window_offset + (off_t)done);
        if (written >= 0) {
            done += (size_t)written;
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    next = window;
    if (error == 0) {
        window_offset += (off_t)size;
    } else if (done != 0 && ftruncate(file, window_offset) != 0) {
        error = errno;
    }
    return error;
}

/* Writes why the recording ends, and ends it. */
static void break_off(int error)
{
    complain("the recording ends here; the program goes on", error);
    const char *const reason = strerror(error);
    record = next++;
    put_text(reason, strnlen(reason, LAST_WORDS - 1 - NUMBER_ROOM));
    *record = VEKRECORD_BROKEN;
    if (!is_mapped) {
        write_record(); /* perhaps this much is possible */
    } else if (have_file() && ftruncate(file, length_so_far()) != 0) {
        /* The rest of the file stays null, which ends the recording as well. */
    }
    munmap(window, window_size);
    window = NULL;
}

/* ---- Interface ---- */

/* A thread that is cancelled in here would leave the lock taken. Returns the state to restore. */
static int forbid_cancel(void)
{
    int state;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    return state;
}

bool writer_open(const char *name)
{
    path = name;
    file = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0) {
        if (errno != EEXIST) {
            complain("this process is not recorded", errno);
        }
        return false;
    }
    file = move_up(file);
    struct stat status;
    int error = fstat(file, &status) == 0 ? 0 : errno;
    device = status.st_dev;
    inode = status.st_ino;
    is_mapped = true;
    if (error == 0) {
        error = turn_over();
    }
    if (error != 0 && !is_lack_of_space(error)) {
        error = ftruncate(file, 0) == 0 ? write_directly(0) : errno;
    }
    if (error != 0) {
        complain("this process is not recorded", error);
        close(file);
        unlink(path);
    }
    errno = error;
    return error == 0;
}

bool begin_record(size_t room)
{
    if (window == NULL) {
        return false;
    }
    if (is_mapped && 1 + room + LAST_WORDS > (size_t)(window + window_size - next)) {
        const int state = forbid_cancel();
        const int error = turn_over();
        if (error != 0) {
            break_off(error);
        }
        pthread_setcancelstate(state, NULL);
        if (error != 0) {
            return false;
        }
    }
    record = next++;
    return true;
}

void put_number(uint64_t number)
{
    while (number >= 0x80) {
        *next++ = (uint8_t)(number | 0x80);
        number >>= 7;
    }
    *next++ = (uint8_t)number;
}

void put_signed(int64_t number)
{
    put_number((uint64_t)number << 1 ^ (uint64_t)(number >> 63));
}

void put_bytes(const void *bytes, size_t size)
{
    memcpy(next, bytes, size);
    next += size;
}

void put_text(const char *text, size_t size)
{
    put_number(size);
    put_bytes(text, size);
}

void end_record(enum VekRecordType type)
{
    /* Whoever sees the type sees the whole record. */
    __atomic_store_n(record, (uint8_t)type, __ATOMIC_RELEASE);
    if (!is_mapped) {
        const int state = forbid_cancel();
        const int error = write_record();
        if (error != 0) {
            break_off(error);
        }
        pthread_setcancelstate(state, NULL);
    }
}

void writer_finish(void)
{
    if (window == NULL || !is_mapped) {
        return;
    }
    const off_t length = length_so_far();
    if (have_file() && write_directly(length) == 0 && ftruncate(file, length) != 0) {
        /* The rest of the file stays null; what follows is written over it. */
    }
}

void writer_abandon(void)
{
    if (window != NULL) {
        munmap(window, window_size);
        window = NULL;
        if (have_file()) {
            close(file);
        }
    }
}
