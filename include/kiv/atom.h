/* Atoms: the typed values that messages, attributes and dictionaries are made of.

   An Atom is a plain value, copied by assignment; what a symbol or object atom points to is not
   owned by it. Every function tolerates a null Atom pointer: setters return -2, getters their
   neutral value (0, 0.0, null, the empty symbol). Functions work on the caller's atoms and may be
   called from any thread but for atom_string. Numbers print and read without regard to the
   locale. */
#ifndef KIV_ATOM_H
#define KIV_ATOM_H

#include <kiv/types.h>

KIV_BEGIN

/* Set an atom to an integer, a float, a symbol or an object; the pointers are stored as they are,
   null included. Return 0, or -2 for a null atom. */
KIV_EXPORT ErrorCode atom_setlong(Atom *atom, int64_t value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setfloat(Atom *atom, double value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setsym(Atom *atom, Symbol *symbol) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setobj(Atom *atom, void *x) KIV_NOEXCEPT;

/* Returns the atom's type, 0 for a null atom. */
KIV_EXPORT int32_t atom_gettype(const Atom *atom) KIV_NOEXCEPT;

/* Returns the atom as an integer: a float truncated toward zero (the nearest integer when it is out
   of range, 0 when it is not a number), a symbol's text read as a decimal number. An unreadable
   symbol posts the error "%s: bad number" and gives 0; any other atom just gives 0. */
KIV_EXPORT int64_t atom_getlong(const Atom *atom) KIV_NOEXCEPT;

/* Returns the atom as a float; a symbol's text is read in single precision. An unreadable symbol
   posts the error "%s: bad number" and gives 0.0; any other atom just gives 0.0. */
KIV_EXPORT double atom_getfloat(const Atom *atom) KIV_NOEXCEPT;

/* Returns the symbol, gensym of a string object's text, or the empty symbol for any other atom. */
KIV_EXPORT Symbol *atom_getsym(const Atom *atom) KIV_NOEXCEPT;

/* Returns the object, or null for an atom that holds none. */
KIV_EXPORT void *atom_getobj(const Atom *atom) KIV_NOEXCEPT;

/* Returns the atom as a colour component from 0 to 255: an integer clamped, a float from 0.0 to 1.0
   scaled and clamped, 0 for any other atom. */
KIV_EXPORT int64_t atom_getcharfix(const Atom *atom) KIV_NOEXCEPT;

/* --- arguments by index

   Store atoms[index], converted as above, in `out` and return 0. Return -1 and store nothing when
   `out` or `atoms` is null, `count` is 0 or `index` is not below it. A negative index is not
   checked. */
KIV_EXPORT ErrorCode atom_arg_getlong(int64_t *out, int32_t index, int32_t count,
                                      const Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_arg_getfloat(float *out, int32_t index, int32_t count,
                                       const Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_arg_getdouble(double *out, int32_t index, int32_t count,
                                        const Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_arg_getsym(Symbol **out, int32_t index, int32_t count,
                                     const Atom *atoms) KIV_NOEXCEPT;

/* --- arrays

   Copy min(atom_count, count) elements out of atoms or into them, converting as above; do nothing
   when a count is below 1 or a pointer is null. Return -1 when the side that is written is shorter
   than the side that is read (even if nothing was copied), else 0. Bytes are the low 8 bits. None
   allocates. */
KIV_EXPORT ErrorCode atom_getlong_array(int32_t atom_count, const Atom *atoms, int32_t count,
                                        int64_t *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_getchar_array(int32_t atom_count, const Atom *atoms, int32_t count,
                                        uint8_t *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_getfloat_array(int32_t atom_count, const Atom *atoms, int32_t count,
                                         float *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_getdouble_array(int32_t atom_count, const Atom *atoms, int32_t count,
                                          double *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_getsym_array(int32_t atom_count, const Atom *atoms, int32_t count,
                                       Symbol **values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_getobj_array(int32_t atom_count, const Atom *atoms, int32_t count,
                                       void **values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_getatom_array(int32_t atom_count, const Atom *atoms, int32_t count,
                                        Atom *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setlong_array(int32_t atom_count, Atom *atoms, int32_t count,
                                        const int64_t *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setchar_array(int32_t atom_count, Atom *atoms, int32_t count,
                                        const uint8_t *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setfloat_array(int32_t atom_count, Atom *atoms, int32_t count,
                                         const float *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setdouble_array(int32_t atom_count, Atom *atoms, int32_t count,
                                          const double *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setsym_array(int32_t atom_count, Atom *atoms, int32_t count,
                                       Symbol *const *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setobj_array(int32_t atom_count, Atom *atoms, int32_t count,
                                       void *const *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setatom_array(int32_t atom_count, Atom *atoms, int32_t count,
                                        const Atom *values) KIV_NOEXCEPT;

/* --- storage */

/* Makes sure that there is room for one atom. When the caller already has an array (*count not 0,
   *atoms not null) it is kept and *allocated becomes 0. Otherwise an array of one atom is made:
   *count = 1, *allocated = 1; the caller frees it with sysmem_freeptr. `allocated` may be null.
   Returns 0, -2 for a null `count` or `atoms`, -4 when there is no memory. */
KIV_EXPORT ErrorCode atom_alloc(int32_t *count, Atom **atoms, uint8_t *allocated) KIV_NOEXCEPT;

/* Likewise for `needed` atoms: an array of the caller's is kept when it is large enough, with
 *count = needed, and otherwise left alone with the result -1. New atoms have no value (type 0). */
KIV_EXPORT ErrorCode atom_alloc_array(int32_t needed, int32_t *count, Atom **atoms,
                                      uint8_t *allocated) KIV_NOEXCEPT;

/* Returns `local` when it holds at least `needed` atoms, else a new array of that many, or null
   when there is no memory. For methods that work on the stack and only exceptionally on the heap.
 */
KIV_EXPORT Atom *atom_dynamic_start(Atom *local, int32_t local_count, int32_t needed) KIV_NOEXCEPT;

/* Frees `atoms` unless it is null or `local`. */
KIV_EXPORT void atom_dynamic_end(Atom *local, Atom *atoms) KIV_NOEXCEPT;

/* --- formats

   Letters of a format; a lower-case letter takes one value, an upper-case one an int32_t count and
   a pointer to that many. Letters outside this table are skipped.

       c, l  int32_t                C     uint8_t (atom_getformat: char)
       L     int32_t, with a warning that the letter is ambiguous
       x, X  int64_t                f     double (atom_getformat: float)
       F     float                  d, D  double
       s, S  Symbol *               z, Z  NUL-terminated text, interned; null gives "<NULL>"
       o, O  object                 a, A  Atom (a: a pointer to it; null gives the integer 0)
       b     Binbuf *: its atoms    p     text, parsed as atom_setparse does
       v     object: what its method "getvalueof" (x, int32_t *count, Atom **atoms) gives; freed
   here
       @     object, Symbol *: the value of the attribute of this name */

/* Fills atoms from plain values. Into the caller's array of *count atoms what does not fit is left
   out; with *count 0 or *atoms null, at most 2048 atoms are made into a new array, which the caller
   frees with sysmem_freeptr (none when there are no atoms). *count becomes the number of atoms.
   Returns 0, -2 for a null argument, -4 when there is no memory. */
KIV_EXPORT ErrorCode atom_setformat(int32_t *count, Atom **atoms, const char *format,
                                    ...) KIV_NOEXCEPT;

/* Stores atoms into the variables that the pointers of the format name: letters c to D, s to Z, o
   and a in both cases ("z" stores the symbol's own text). A null pointer skips its atoms. Variables
   beyond the last atom are left alone. Returns 0, or -2 for null atoms or format. */
KIV_EXPORT ErrorCode atom_getformat(int32_t count, const Atom *atoms, const char *format,
                                    ...) KIV_NOEXCEPT;

/* --- text */

/* Splits text into atoms as message text is split: numbers, symbols, quoting, ";", ",", "$n". Into
   the caller's array of *count atoms, or with *count 0 or *atoms null into a new array of the exact
   size (at most 1048576 atoms), which the caller frees with sysmem_freeptr. *count becomes the
   number of atoms, 0 for a null or empty text, which leaves the array alone. Returns 0; -4 when
   there is no memory. */
KIV_EXPORT ErrorCode atom_setparse(int32_t *count, Atom **atoms, const char *text) KIV_NOEXCEPT;

/* Turns atoms into one line of text that reads back as the same atoms. With *size 0 or *text null a
   new text is made, which the caller frees with sysmem_freeptr, and *size becomes its length with
   the terminator (0 for no atoms); otherwise at most *size - 1 characters go to the caller's
   buffer. Objects are sent "getvaluetext" with the address of a text (to be allocated; freed here)
   and otherwise give their class name. Runs on the calling thread, as those methods do. Returns 0,
   or -1 for a negative count, null atoms or no memory. Flags: 2 never quote or escape symbols; 4
   always quote them; 8 ", " between atoms; 16 keep the trailing zeros of floats; 32 twelve
   decimals; 64 two decimals (32 wins). */
KIV_EXPORT ErrorCode atom_gettext(int32_t count, const Atom *atoms, int64_t *size, char **text,
                                  int32_t flags) KIV_NOEXCEPT;

/* Writes atoms, without any quoting, to a buffer whose size is not checked: per atom, room for its
   name and 320 characters for a number suffices. Integers print their low 32 bits. Returns the
   length. */
KIV_EXPORT int32_t atoms_totext(char *buffer, int32_t count, const Atom *atoms) KIV_NOEXCEPT;

/* Returns the text of one atom in a buffer of the process that the next call overwrites: for one
   thread at a time. Integers print their low 32 bits, floats two decimals. */
KIV_EXPORT const char *atom_string(const Atom *atom) KIV_NOEXCEPT;

/* Posts the text of one atom as atoms_totext gives it, unless it is empty. */
KIV_EXPORT void postatom(const Atom *atom) KIV_NOEXCEPT;

KIV_END

#endif
