/* Kernel memory: blocks and handles.

   1. A block knows its size: 16 bytes before it stand the size asked for and a tag. Blocks are
      aligned to 16 bytes. Small ones come from a cache of the calling thread.
   2. Any thread may allocate, and may free what another one allocated. One block or handle must
      not be resized or freed by two threads at once.
   3. A failed allocation gives null, writes "sysmem_newptr: unable to allocate block of size %d!"
      to the system's debug output, and leaves everything as it was.
   4. A pointer that did not come from here, or was freed already, is refused with a line on the
      debug output as long as the memory before it shows no block's tag. */
#ifndef KIV_SYSMEM_H
#define KIV_SYSMEM_H

#include <kiv/types.h>

KIV_BEGIN

/* A relocatable block: a pointer to the block's pointer. Follow it anew after every call that may
   resize the handle. */
typedef char **Handle;

/* --- blocks */

/* Allocates a block of `size` bytes with undefined content; the caller frees it with
   sysmem_freeptr. Null for size 0, for a negative size, and when there is no memory. */
KIV_EXPORT void *sysmem_newptr(int64_t size) KIV_NOEXCEPT;
/* The same, filled with zero bytes. */
KIV_EXPORT void *sysmem_newptrclear(int64_t size) KIV_NOEXCEPT;
/* Changes a block's size, keeping its content up to the smaller size; the block may move, and the
   old pointer must not be used again. A null `ptr` allocates; size 0 frees and gives null. Null,
   with the block untouched, when there is no memory or `ptr` is no block. */
KIV_EXPORT void *sysmem_resizeptr(void *ptr, int64_t size) KIV_NOEXCEPT;
/* The same; the bytes that are new are zero. */
KIV_EXPORT void *sysmem_resizeptrclear(void *ptr, int64_t size) KIV_NOEXCEPT;
/* The size in bytes that a block was asked for; 0 for null and for what is no block. */
KIV_EXPORT int64_t sysmem_ptrsize(const void *ptr) KIV_NOEXCEPT;
/* Copies `size` bytes; the areas may overlap. Nothing for a null pointer or a size below 1. */
KIV_EXPORT void sysmem_copyptr(const void *source, void *target, int64_t size) KIV_NOEXCEPT;
/* Frees a block. Null is ignored; what is no block, or no longer, is left alone and reported as
   "sysmem_freeptr: trying to free bad ptr %p" on the debug output: it leaks rather than corrupts.
 */
KIV_EXPORT void sysmem_freeptr(void *ptr) KIV_NOEXCEPT;

/* --- handles: results are 0, -2 for what is no handle, -4 for no memory, -1 otherwise */

/* Makes a handle of `size` bytes with undefined content (0: without memory yet); the caller frees
   it with sysmem_freehandle. Null when there is no memory. */
KIV_EXPORT Handle sysmem_newhandle(int64_t size) KIV_NOEXCEPT;
/* The same, filled with zero bytes. */
KIV_EXPORT Handle sysmem_newhandleclear(int64_t size) KIV_NOEXCEPT;
/* Changes a handle's size, keeping its content up to the smaller size; new bytes are undefined.
   Fails with -1 for a negative size, or when a locked handle would have to move. */
KIV_EXPORT int32_t sysmem_resizehandle(Handle handle, int64_t size) KIV_NOEXCEPT;
/* The size in bytes; 0 for what is no handle. */
KIV_EXPORT int64_t sysmem_handlesize(Handle handle) KIV_NOEXCEPT;
/* Locks (non-zero) or unlocks a handle: while it is locked its memory stays where it is, and what
   would move it fails. Returns whether it was locked before; locks do not nest. */
KIV_EXPORT int32_t sysmem_lockhandle(Handle handle, int32_t lock) KIV_NOEXCEPT;
/* Frees a handle and its memory. Null is ignored. */
KIV_EXPORT void sysmem_freehandle(Handle handle) KIV_NOEXCEPT;
/* Appends `size` bytes from `ptr`, which may lie in the handle itself. */
KIV_EXPORT int32_t sysmem_ptrandhand(const void *ptr, Handle handle, int64_t size) KIV_NOEXCEPT;
/* Inserts `size` bytes from `ptr` before the content. */
KIV_EXPORT int32_t sysmem_ptrbeforehand(const void *ptr, Handle handle, int64_t size) KIV_NOEXCEPT;
/* Appends a zero byte unless the last byte is zero already, so that the content is a text. */
KIV_EXPORT int32_t sysmem_nullterminatehandle(Handle handle) KIV_NOEXCEPT;

KIV_END

#endif
