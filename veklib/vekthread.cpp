/* SPDX-License-Identifier: MIT */
/* Thread slots and recursive mutexes: thin wrappers around the platform's functions. Nothing is
 * stored or allocated here. */
#include "veklib/vekthread.h"

namespace {

/** A slot is the platform's key plus 1, so that 0 can mean no slot. */
pthread_key_t key_of(VekPrivate slot)
{
    return slot - 1;
}

} // namespace

VekPrivate vek_private_new(void (*destructor)(void *value))
{
    pthread_key_t key;
    return pthread_key_create(&key, destructor) == 0 ? key + 1 : 0;
}

int vek_private_free(VekPrivate slot)
{
    return pthread_key_delete(key_of(slot));
}

int vek_private_set(VekPrivate slot, void *value)
{
    return pthread_setspecific(key_of(slot), value);
}

void *vek_private_get(VekPrivate slot)
{
    return pthread_getspecific(key_of(slot));
}

int vek_mutex_init(pthread_mutex_t *mutex)
{
    pthread_mutexattr_t attributes;
    int result = pthread_mutexattr_init(&attributes);
    if (result == 0) {
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        result = pthread_mutex_init(mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    return result;
}
