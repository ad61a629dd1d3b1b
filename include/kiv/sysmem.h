#ifndef KIV_SYSMEM_H
#define KIV_SYSMEM_H

#include <kiv/types.h>

KIV_BEGIN

/* A relocatable block: a pointer to the block's pointer. */
typedef char **Handle;

KIV_EXPORT void *sysmem_newptr(int64_t size) KIV_NOEXCEPT;
KIV_EXPORT void *sysmem_newptrclear(int64_t size) KIV_NOEXCEPT;
KIV_EXPORT void *sysmem_resizeptr(void *ptr, int64_t size) KIV_NOEXCEPT;
KIV_EXPORT void *sysmem_resizeptrclear(void *ptr, int64_t size) KIV_NOEXCEPT;
KIV_EXPORT int64_t sysmem_ptrsize(const void *ptr) KIV_NOEXCEPT;
KIV_EXPORT void sysmem_copyptr(const void *source, void *target, int64_t size) KIV_NOEXCEPT;
KIV_EXPORT void sysmem_freeptr(void *ptr) KIV_NOEXCEPT;
KIV_EXPORT Handle sysmem_newhandle(int64_t size) KIV_NOEXCEPT;
KIV_EXPORT Handle sysmem_newhandleclear(int64_t size) KIV_NOEXCEPT;
KIV_EXPORT int32_t sysmem_resizehandle(Handle handle, int64_t size) KIV_NOEXCEPT;
KIV_EXPORT int64_t sysmem_handlesize(Handle handle) KIV_NOEXCEPT;
KIV_EXPORT int32_t sysmem_lockhandle(Handle handle, int32_t lock) KIV_NOEXCEPT;
KIV_EXPORT void sysmem_freehandle(Handle handle) KIV_NOEXCEPT;
KIV_EXPORT int32_t sysmem_ptrandhand(const void *ptr, Handle handle, int64_t size) KIV_NOEXCEPT;
KIV_EXPORT int32_t sysmem_ptrbeforehand(const void *ptr, Handle handle, int64_t size) KIV_NOEXCEPT;
KIV_EXPORT int32_t sysmem_nullterminatehandle(Handle handle) KIV_NOEXCEPT;

KIV_END

#endif
