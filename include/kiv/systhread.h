/* Threads, thread-local slots, mutexes, conditions and read-write locks.

   1. A thread is known by a 32-bit identifier, never 0 and never used again.
   2. Unless a function says otherwise it returns 0 for success and 4,294,967,295 for failure.
   3. Locks are freed when nobody holds or waits for them; freeing null does nothing.
   4. Everything may be called from any thread. */
#ifndef KIV_SYSTHREAD_H
#define KIV_SYSTHREAD_H

#include <kiv/types.h>

KIV_BEGIN

typedef uint32_t ThreadId;
typedef struct Mutex *MutexRef;
typedef struct Condition *ConditionRef;
typedef struct Rwlock *RwlockRef;
typedef struct ThreadKey *ThreadKeyRef;

/* --- threads */

/* Starts a thread that calls entry(argument), with `stack_size` bytes of stack (0 or less: the
   system's default; small sizes are raised to a usable one) and a priority of -30 to 30; `flags` is
   reserved (0). The thread treats denormal floats as zero and ends with exit code 0. Its identifier
   is stored in `thread`, when given, before it runs. Returns 0; the system's error code when the
   thread cannot be started; 4,294,967,295 without an entry or memory. `thread` then gets 0. */
KIV_EXPORT uint32_t systhread_create(Method entry, void *argument, int64_t stack_size,
                                     int32_t priority, int32_t flags,
                                     ThreadId *thread) KIV_NOEXCEPT;
/* Waits without limit for a thread to end (the destructors of its slots have run then) and stores
   its exit code in `exit_code`, when given.
   Fails for 0, for an unknown identifier, for the calling thread, and for a thread that was joined
   or was detached and has ended. The exit codes of the last 1,024 threads that nobody joined are
   kept. */
KIV_EXPORT uint32_t systhread_join(ThreadId thread, uint32_t *exit_code) KIV_NOEXCEPT;
/* Says that nobody will join a thread: nothing is kept of it when it ends. */
KIV_EXPORT uint32_t systhread_detach(ThreadId thread) KIV_NOEXCEPT;
/* Ends the calling thread where it stands, without running destructors of its frames. Only threads
   made by systhread_create end so; on any other, and on those that run parallel and background
   tasks or the timer, the call returns, after a line on the debug output. */
KIV_EXPORT void systhread_exit(uint32_t status) KIV_NOEXCEPT;
/* Ends another thread made by systhread_create wherever it is. Its locks stay locked and its memory
   allocated: a last resort. */
KIV_EXPORT uint32_t systhread_terminate(ThreadId thread) KIV_NOEXCEPT;
/* Sleeps for at least `ms` milliseconds. */
KIV_EXPORT void systhread_sleep(uint32_t ms) KIV_NOEXCEPT;
/* Sets a thread's priority, -30 to 30. The system's scale is half as wide, so the lowest bit is
   lost: 7 reads back as 6 and -7 as -6. Values beyond the ends count as the ends. */
KIV_EXPORT void systhread_setpriority(ThreadId thread, int32_t priority) KIV_NOEXCEPT;
/* The priority last set, an even number; 0 for an unknown thread. It reads back also where the
   system, for want of rights, did not follow. */
KIV_EXPORT int32_t systhread_getpriority(ThreadId thread) KIV_NOEXCEPT;
/* The identifier of the calling thread. */
KIV_EXPORT ThreadId systhread_self(void) KIV_NOEXCEPT;
/* Non-zero on the main thread, on the scheduler's timer thread, and on a thread marked as an audio
   thread. */
KIV_EXPORT int32_t systhread_ismainthread(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_istimerthread(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_isaudiothread(void) KIV_NOEXCEPT;
/* Marks the calling thread as an audio thread until the matching end. Marks nest. */
KIV_EXPORT void systhread_markasaudiothread_begin(void) KIV_NOEXCEPT;
KIV_EXPORT void systhread_markasaudiothread_end(void) KIV_NOEXCEPT;
/* Lets the calling thread's floating-point unit flush denormal results to zero and take denormal
   inputs as zero. */
KIV_EXPORT void systhread_eliminatedenormals(void) KIV_NOEXCEPT;

/* --- thread-local slots */

/* Makes a slot that holds null on every thread. `destructor`, when given, is called with a thread's
   value, unless that is null, when the thread ends. */
KIV_EXPORT uint32_t systhread_key_create(ThreadKeyRef *key,
                                         void (*destructor)(void *value)) KIV_NOEXCEPT;
/* Frees a slot; its destructor is not called. */
KIV_EXPORT uint32_t systhread_key_delete(ThreadKeyRef key) KIV_NOEXCEPT;
/* The calling thread's value; null when none was set or `key` is null. */
KIV_EXPORT void *systhread_getspecific(ThreadKeyRef key) KIV_NOEXCEPT;
/* Sets the calling thread's value, which stays the caller's. */
KIV_EXPORT uint32_t systhread_setspecific(ThreadKeyRef key, const void *value) KIV_NOEXCEPT;

/* --- mutexes: critical regions by another name, which their thread may lock again. Null and all
   ones stand for the kernel's global region. */

/* Makes a mutex: 0, or 1 without memory, when `mutex` is null and so means the global region. */
KIV_EXPORT uint32_t systhread_mutex_new(MutexRef *mutex, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_mutex_free(MutexRef mutex) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_mutex_lock(MutexRef mutex) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_mutex_unlock(MutexRef mutex) KIV_NOEXCEPT;
/* Locks a mutex when that needs no waiting; fails at once when another thread holds it. */
KIV_EXPORT uint32_t systhread_mutex_trylock(MutexRef mutex) KIV_NOEXCEPT;
/* Locks the mutex of a slot, making it first when the slot is null, once for all threads. Without
   memory the slot becomes all ones: the global region. */
KIV_EXPORT uint32_t systhread_mutex_newlock(MutexRef *slot, int32_t flags) KIV_NOEXCEPT;

/* --- conditions. A wait may end without a cause, and two signals may wake one thread: wait in a
   loop, under the mutex, for what is awaited, and signal under that mutex. */

KIV_EXPORT uint32_t systhread_cond_new(ConditionRef *condition, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_cond_free(ConditionRef condition) KIV_NOEXCEPT;
/* Unlocks the mutex (once), waits without limit for a signal or a broadcast, and locks it again. */
KIV_EXPORT uint32_t systhread_cond_wait(ConditionRef condition, MutexRef mutex) KIV_NOEXCEPT;
/* Wakes one waiting thread; lost when none waits. */
KIV_EXPORT uint32_t systhread_cond_signal(ConditionRef condition) KIV_NOEXCEPT;
/* Wakes all waiting threads; lost when none waits. */
KIV_EXPORT uint32_t systhread_cond_broadcast(ConditionRef condition) KIV_NOEXCEPT;

/* --- read-write locks: any number of readers, or one writer. All return 0, or -1 when they failed
   or the lock is null. A reader may read again and a writer may write or read again; a reader that
   locks for writing waits for itself. Whoever locks also unlocks. */

/* Makes a lock of kind 1, the default (0 means 1 too); -1 for any other kind or without memory. */
KIV_EXPORT int32_t systhread_rwlock_new(RwlockRef *lock, int32_t kind) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_free(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_rdlock(RwlockRef lock) KIV_NOEXCEPT;
/* -1 at once when a writer holds the lock. */
KIV_EXPORT int32_t systhread_rwlock_tryrdlock(RwlockRef lock) KIV_NOEXCEPT;
/* Unlocking fails when nobody reads, or writes. */
KIV_EXPORT int32_t systhread_rwlock_rdunlock(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_wrlock(RwlockRef lock) KIV_NOEXCEPT;
/* -1 at once when another thread holds the lock, or anybody reads. */
KIV_EXPORT int32_t systhread_rwlock_trywrlock(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_wrunlock(RwlockRef lock) KIV_NOEXCEPT;
/* Sets how long, in milliseconds, a wait for this lock tries again before it sleeps; 0 at first. -1
   for a negative or infinite time, or a kind of lock without spinning. */
KIV_EXPORT int32_t systhread_rwlock_setspintime(RwlockRef lock, double ms) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_getspintime(RwlockRef lock, double *ms) KIV_NOEXCEPT;

KIV_END

#endif
