/* Named semaphores, shared by all processes of one user.

   The count rises with each post, to 32,768 at most, and falls with each wait that is granted. A
   semaphore lives while some process has it open; a process that ends gives its handles up. All
   functions return 0, or -1 when they failed. */
#ifndef KIV_SYSSEM_H
#define KIV_SYSSEM_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Syssem *SyssemRef;

/* Makes the semaphore of a name with a first count of 0 to 32,768, or opens it as it is when there
   is one. Fails, with null in `semaphore`, when there is no name or a too long one (80 bytes always
   fit), or when the system refuses. `flags` is reserved (0). */
KIV_EXPORT int32_t syssem_create(SyssemRef *semaphore, const char *name, int32_t flags,
                                 int32_t initial_count) KIV_NOEXCEPT;
/* Opens a semaphore that somebody has open; fails when nobody has. */
KIV_EXPORT int32_t syssem_open(SyssemRef *semaphore, const char *name, int32_t flags) KIV_NOEXCEPT;
/* Closes a handle, which no thread may be waiting on. */
KIV_EXPORT int32_t syssem_close(SyssemRef semaphore) KIV_NOEXCEPT;
/* Raises the count by one, waking a waiter; fails when the count is at its maximum. */
KIV_EXPORT int32_t syssem_post(SyssemRef semaphore) KIV_NOEXCEPT;
/* Waits, without limit, until the count is above 0 and lowers it by one. */
KIV_EXPORT int32_t syssem_wait(SyssemRef semaphore) KIV_NOEXCEPT;
/* Lowers a count above 0 by one; fails at once when it is 0. */
KIV_EXPORT int32_t syssem_trywait(SyssemRef semaphore) KIV_NOEXCEPT;

KIV_END

#endif
