/* Critical regions: locks that the thread which holds one may enter again.

   A null region, or one of all ones, is the kernel's global critical region, which excludes every
   other use of it; so a region that could not be made still excludes. Entering spins 200 times
   before it sleeps. Every enter needs its exit, on the same thread. */
#ifndef KIV_CRITICAL_H
#define KIV_CRITICAL_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Critical *CriticalRef;

/* Makes a region and stores it in `region`: null when there is no memory. */
KIV_EXPORT void critical_new(CriticalRef *region) KIV_NOEXCEPT;
/* Waits until no other thread is in the region, and enters it. */
KIV_EXPORT void critical_enter(CriticalRef region) KIV_NOEXCEPT;
/* Leaves the region. */
KIV_EXPORT void critical_exit(CriticalRef region) KIV_NOEXCEPT;
/* Enters the region when that needs no waiting: non-zero when it was entered, 0 when not. */
KIV_EXPORT int32_t critical_tryenter(CriticalRef region) KIV_NOEXCEPT;
/* Frees a region that nobody is in. The global one stays. */
KIV_EXPORT void critical_free(CriticalRef region) KIV_NOEXCEPT;

KIV_END

#endif
