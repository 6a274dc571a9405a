/* SPDX-License-Identifier: MIT */
/** @file vekthread.h
 *  Thread primitives for applications: slots that hold one pointer per thread, and recursive
 *  mutexes. The library itself uses neither.
 *
 *      static VekPrivate slot;
 *      slot = vek_private_new(free);                  // once, at start; 0: there is none
 *      vek_private_set(slot, malloc(100));            // in each thread
 *      char *buffer = vek_private_get(slot);
 *
 *  Functions that return int return the platform's result: 0 for success, otherwise an error number
 *  from <errno.h>.
 *  Threads: any thread may read and set a slot. Release a slot, or initialise a mutex, only while
 *  no thread uses it.
 */
#ifndef VEKLIB_VEKTHREAD_H
#define VEKLIB_VEKTHREAD_H

#include <pthread.h>
#include <stdint.h>

#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** A slot; 0 means no slot. */
typedef uint32_t VekPrivate;

/** Makes a slot, which at first holds null for every thread.
 *  @param destructor  called with a thread's value when the thread ends, if the value is not null;
 *                     may be null
 *  @return  the slot; release with vek_private_free()
 *  Fails:   the platform has no more slots -> 0
 */
VEK_API VEK_MUST_USE VekPrivate vek_private_new(void (*destructor)(void *value));

/** Releases a slot. The destructor is not called for values that are still in it; a later slot may
 *  get the same number.
 *  @param slot  the slot
 *  @return  0
 *  Fails:   no such slot -> the platform's error number
 */
VEK_API int vek_private_free(VekPrivate slot);

/** Stores the calling thread's value. The destructor is not called for the previous one.
 *  @param slot   the slot
 *  @param value  the value; may be null. If the thread ends while the slot exists, the slot's
 *                destructor gets the value; when the process ends, it does not
 *  @return  0
 *  Fails:   no such slot, or no memory -> the platform's error number
 */
VEK_API int vek_private_set(VekPrivate slot, void *value);

/** Returns the calling thread's value in a slot, borrowed; null if the slot holds none for it, or
 *  (with the GNU C library) if there is no such slot. */
VEK_API void *vek_private_get(VekPrivate slot);

/** Initialises a recursive mutex: the thread that holds it may lock it again, and must unlock it as
 *  often as it locked it.
 *  @param mutex  the caller's storage, not initialised; release it with pthread_mutex_destroy()
 *  @return  0
 *  Fails:   the platform refuses -> its error number; the storage is then not initialised
 */
VEK_API int vek_mutex_init(pthread_mutex_t *mutex);

VEK_END_DECLS

#endif
