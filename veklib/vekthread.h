/* SPDX-License-Identifier: MIT */
/** @file vekthread.h
 *  Thread primitives for applications: slots that hold one pointer per thread, and recursive
 * mutexes. The library itself uses neither.
 *
 *      static VekPrivate slot;                        // slot = vek_private_new(free) at start
 *      vek_private_set(slot, buffer);                 // for this thread
 *      char *buffer = vek_private_get(slot);
 *
 *  Threads: every function may be called from any thread.
 */
#ifndef VEKLIB_VEKTHREAD_H
#define VEKLIB_VEKTHREAD_H

#include <pthread.h>
#include <stdint.h>

#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** A slot; 0 is none. */
typedef uint32_t VekPrivate;

/** Makes a slot, which holds null for every thread.
 *  @param destructor  called with a thread's value when the thread ends and the value is not null;
 *                     may be null
 *  @return  the slot; give it back with vek_private_free()
 *  Fails:   the platform has no more -> 0
 */
VEK_API VekPrivate vek_private_new(void (*destructor)(void *value));

/** Gives a slot back; values that are still in it are not destroyed.
 *  @return  0
 *  Fails:   no such slot -> the platform's error number
 */
VEK_API int vek_private_free(VekPrivate slot);

/** Stores the calling thread's value.
 *  @param value  the value; may be null; the slot's destructor releases it when the thread ends
 *  @return  0
 *  Fails:   no such slot, or no memory -> the platform's error number
 */
VEK_API int vek_private_set(VekPrivate slot, void *value);

/** Returns the calling thread's value, borrowed; null when there is none, or no such slot. */
VEK_API void *vek_private_get(VekPrivate slot);

/** Makes a mutex of the caller's a recursive one: its owner may lock it again and unlocks it as
 * often.
 *  @param mutex  the mutex, not in use; end it with pthread_mutex_destroy()
 *  @return  0
 *  Fails:   the platform's error number; the mutex is then no mutex
 */
VEK_API int vek_mutex_init(pthread_mutex_t *mutex);

VEK_END_DECLS

#endif
