#ifndef KIV_CRITICAL_H
#define KIV_CRITICAL_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Critical *CriticalRef;

KIV_EXPORT void critical_new(CriticalRef *region) KIV_NOEXCEPT;
KIV_EXPORT void critical_enter(CriticalRef region) KIV_NOEXCEPT;
KIV_EXPORT void critical_exit(CriticalRef region) KIV_NOEXCEPT;
KIV_EXPORT int32_t critical_tryenter(CriticalRef region) KIV_NOEXCEPT;
KIV_EXPORT void critical_free(CriticalRef region) KIV_NOEXCEPT;

KIV_END

#endif
