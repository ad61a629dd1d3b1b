#ifndef KIV_ATOMARRAY_H
#define KIV_ATOMARRAY_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Atomarray Atomarray;

KIV_EXPORT Atomarray *atomarray_new(int32_t argc, const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void atomarray_flags(Atomarray *array, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT int32_t atomarray_getflags(const Atomarray *array) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atomarray_setatoms(Atomarray *array, int32_t argc,
                                        const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atomarray_getatoms(const Atomarray *array, int32_t *argc,
                                        Atom **argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atomarray_copyatoms(const Atomarray *array, int32_t *argc,
                                         Atom **argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atomarray_getindex(const Atomarray *array, int32_t index,
                                        Atom *value) KIV_NOEXCEPT;
KIV_EXPORT int32_t atomarray_getsize(const Atomarray *array) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atomarray_appendatom(Atomarray *array, const Atom *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atomarray_appendatoms(Atomarray *array, int32_t argc,
                                           const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atomarray_chuckindex(Atomarray *array, int32_t index) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atomarray_clear(Atomarray *array) KIV_NOEXCEPT;
KIV_EXPORT Atomarray *atomarray_clone(const Atomarray *array) KIV_NOEXCEPT;
KIV_EXPORT Atomarray *atomarray_duplicate(const Atomarray *array) KIV_NOEXCEPT;
KIV_EXPORT void atomarray_funall(Atomarray *array, void (*function)(Atom *atom, void *arg),
                                 void *arg) KIV_NOEXCEPT;

KIV_END

#endif
