#ifndef KIV_SYSTHREAD_H
#define KIV_SYSTHREAD_H

#include <kiv/types.h>

KIV_BEGIN

typedef uint32_t ThreadId;
typedef struct Mutex *MutexRef;
typedef struct Condition *ConditionRef;
typedef struct Rwlock *RwlockRef;
typedef struct ThreadKey *ThreadKeyRef;

KIV_EXPORT uint32_t systhread_create(Method entry, void *argument, int64_t stack_size,
                                     int32_t priority, int32_t flags,
                                     ThreadId *thread) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_join(ThreadId thread, uint32_t *exit_code) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_detach(ThreadId thread) KIV_NOEXCEPT;
KIV_EXPORT void systhread_exit(uint32_t status) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_terminate(ThreadId thread) KIV_NOEXCEPT;
KIV_EXPORT void systhread_sleep(uint32_t ms) KIV_NOEXCEPT;
KIV_EXPORT void systhread_setpriority(ThreadId thread, int32_t priority) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_getpriority(ThreadId thread) KIV_NOEXCEPT;
KIV_EXPORT ThreadId systhread_self(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_ismainthread(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_istimerthread(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_isaudiothread(void) KIV_NOEXCEPT;
KIV_EXPORT void systhread_markasaudiothread_begin(void) KIV_NOEXCEPT;
KIV_EXPORT void systhread_markasaudiothread_end(void) KIV_NOEXCEPT;
KIV_EXPORT void systhread_eliminatedenormals(void) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_key_create(ThreadKeyRef *key,
                                         void (*destructor)(void *value)) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_key_delete(ThreadKeyRef key) KIV_NOEXCEPT;
KIV_EXPORT void *systhread_getspecific(ThreadKeyRef key) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_setspecific(ThreadKeyRef key, const void *value) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_mutex_new(MutexRef *mutex, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_mutex_free(MutexRef mutex) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_mutex_lock(MutexRef mutex) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_mutex_unlock(MutexRef mutex) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_mutex_trylock(MutexRef mutex) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_mutex_newlock(MutexRef *slot, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_cond_new(ConditionRef *condition, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_cond_free(ConditionRef condition) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_cond_wait(ConditionRef condition, MutexRef mutex) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_cond_signal(ConditionRef condition) KIV_NOEXCEPT;
KIV_EXPORT uint32_t systhread_cond_broadcast(ConditionRef condition) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_new(RwlockRef *lock, int32_t kind) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_free(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_rdlock(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_tryrdlock(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_rdunlock(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_wrlock(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_trywrlock(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_wrunlock(RwlockRef lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_setspintime(RwlockRef lock, double ms) KIV_NOEXCEPT;
KIV_EXPORT int32_t systhread_rwlock_getspintime(RwlockRef lock, double *ms) KIV_NOEXCEPT;

KIV_END

#endif
