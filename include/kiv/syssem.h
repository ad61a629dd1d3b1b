#ifndef KIV_SYSSEM_H
#define KIV_SYSSEM_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Syssem *SyssemRef;

KIV_EXPORT int32_t syssem_create(SyssemRef *semaphore, const char *name, int32_t flags,
                                 int32_t initial_count) KIV_NOEXCEPT;
KIV_EXPORT int32_t syssem_open(SyssemRef *semaphore, const char *name, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT int32_t syssem_close(SyssemRef semaphore) KIV_NOEXCEPT;
KIV_EXPORT int32_t syssem_post(SyssemRef semaphore) KIV_NOEXCEPT;
KIV_EXPORT int32_t syssem_wait(SyssemRef semaphore) KIV_NOEXCEPT;
KIV_EXPORT int32_t syssem_trywait(SyssemRef semaphore) KIV_NOEXCEPT;

KIV_END

#endif
