/* Atom arrays: a list of atoms as an object, of the kernel class "atomarray".

   1. Free one with object_free, unless a container took it.
   2. Object atoms belong to somebody else, unless the array's flags say that it owns them. Even
      then only freeing the array frees them: an atom that is replaced, cleared or chucked leaves
      its object to the caller.
   3. Not guarded by a lock: whoever shares an array between threads guards it.
   4. Results are 0, -1 for an index out of range or a null pointer, -4 for no memory; the
      array is unchanged then. */
#ifndef KIV_ATOMARRAY_H
#define KIV_ATOMARRAY_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Atomarray Atomarray;

/* Flags of an atom array. */
enum {
    AtomarrayOwns = 1 /* freeing the array frees its object atoms */
};

/* Makes an array of a copy of `argc` atoms. Empty for a count below 1, for null `argv`, and when
   there is no memory for the atoms; null when there is none for the array. */
KIV_EXPORT Atomarray *atomarray_new(int32_t argc, const Atom *argv) KIV_NOEXCEPT;
/* Sets and reads the flags, 0 in a new array. */
KIV_EXPORT void atomarray_flags(Atomarray *array, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT int32_t atomarray_getflags(const Atomarray *array) KIV_NOEXCEPT;
/* Replaces all atoms by a copy of others, which may be the array's own. */
KIV_EXPORT ErrorCode atomarray_setatoms(Atomarray *array, int32_t argc,
                                        const Atom *argv) KIV_NOEXCEPT;
/* The array's own atoms, not a copy: valid until the array changes. A null array gives none. */
KIV_EXPORT ErrorCode atomarray_getatoms(const Atomarray *array, int32_t *argc,
                                        Atom **argv) KIV_NOEXCEPT;
/* A copy of the atoms that the caller frees with sysmem_freeptr; null for an empty array. */
KIV_EXPORT ErrorCode atomarray_copyatoms(const Atomarray *array, int32_t *argc,
                                         Atom **argv) KIV_NOEXCEPT;
/* Copies the atom at `index`, counted from 0. */
KIV_EXPORT ErrorCode atomarray_getindex(const Atomarray *array, int32_t index,
                                        Atom *value) KIV_NOEXCEPT;
/* The number of atoms; 0 for null. */
KIV_EXPORT int32_t atomarray_getsize(const Atomarray *array) KIV_NOEXCEPT;
/* Adds atoms to the end. The storage grows to exactly what is needed: to build a long array, add
   many atoms at once. */
KIV_EXPORT ErrorCode atomarray_appendatom(Atomarray *array, const Atom *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atomarray_appendatoms(Atomarray *array, int32_t argc,
                                           const Atom *argv) KIV_NOEXCEPT;
/* Removes the atom at `index`; its object, if any, is the caller's. */
KIV_EXPORT ErrorCode atomarray_chuckindex(Atomarray *array, int32_t index) KIV_NOEXCEPT;
/* Removes all atoms and their storage; objects among them are not freed. */
KIV_EXPORT ErrorCode atomarray_clear(Atomarray *array) KIV_NOEXCEPT;
/* A deep copy: its object atoms are clones that it owns. An object that cannot be cloned posts
   "cloneatoms: non-clonable object; class is %s" and is shared, with one more reference. Null on no
   memory, and for values nested deeper than 1000 containers (posted). */
KIV_EXPORT Atomarray *atomarray_clone(const Atomarray *array) KIV_NOEXCEPT;
/* A copy of the atoms alone, which owns no object. Null on no memory. */
KIV_EXPORT Atomarray *atomarray_duplicate(const Atomarray *array) KIV_NOEXCEPT;
/* Calls function(atom, arg) for each atom in order. The function may change the atom and the array,
   but must not free it. */
KIV_EXPORT void atomarray_funall(Atomarray *array, void (*function)(Atom *atom, void *arg),
                                 void *arg) KIV_NOEXCEPT;

KIV_END

#endif
