/* Atom buffers: a counted block of atoms, the bare form of message text. Not an object.

   1. A buffer is one block of memory. Functions that take an `Atombuf **` may replace it by another
      block and free the old one: keep no other pointer to it or into it.
   2. Objects among the atoms belong to somebody else.
   3. Not guarded by a lock.
   4. Results are 0, -1 for text that cannot be read or a null pointer, -4 for no memory; the
      buffer is unchanged then. */
#ifndef KIV_ATOMBUF_H
#define KIV_ATOMBUF_H

#include <kiv/binbuf.h>
#include <kiv/types.h>

KIV_BEGIN

/* A counted block of atoms; always has room for one. */
typedef struct Atombuf {
    int32_t count;
    Atom atoms[1];
} Atombuf;

/* What atombuf_misc tells. */
enum {
    AtombufAtoms = 0,        /* the number of atoms */
    AtombufPlaceholders = 1, /* of dollar arguments and symbols with one */
    AtombufSeparators = 2    /* of semicolons and commas */
};

/* Makes a buffer of a copy of `argc` atoms (a negative count is 0), or, for null `argv`, of that
   many atoms of type 0. The caller frees it with atombuf_free. Null on no memory. */
KIV_EXPORT Atombuf *atombuf_new(int32_t argc, const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void atombuf_free(Atombuf *buffer) KIV_NOEXCEPT;
/* The number of atoms; 0 for null. */
KIV_EXPORT int32_t atombuf_count(const Atombuf *buffer) KIV_NOEXCEPT;
/* Keeps the atoms from index `start` to before `end` alone; both are clipped to what is there. */
KIV_EXPORT ErrorCode atombuf_set(Atombuf **buffer, int32_t start, int32_t end) KIV_NOEXCEPT;
/* Adds atoms behind, or in front of, those that are there; they may be the buffer's own. */
KIV_EXPORT ErrorCode atombuf_append(Atombuf **buffer, int32_t argc, const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_prepend(Atombuf **buffer, int32_t argc, const Atom *argv) KIV_NOEXCEPT;
/* Replaces all atoms by others. *buffer may be null: then one is made. */
KIV_EXPORT ErrorCode atombuf_replace(Atombuf **buffer, int32_t argc, const Atom *argv) KIV_NOEXCEPT;
/* The first atom, and the one after `atom`; null when there is none. */
KIV_EXPORT Atom *atombuf_firstatom(Atombuf *buffer) KIV_NOEXCEPT;
KIV_EXPORT Atom *atombuf_next(Atombuf *buffer, Atom *atom) KIV_NOEXCEPT;
/* Replaces all atoms by those of a message text of `size` bytes, as binbuf_text reads it. *buffer
   may be null. */
KIV_EXPORT ErrorCode atombuf_text(Atombuf **buffer, char **text, int32_t size) KIV_NOEXCEPT;
/* The atoms as message text, as binbuf_totext writes it: *text is the caller's to free with
   sysmem_freeptr, *size its length without the zero byte at its end. */
KIV_EXPORT ErrorCode atombuf_totext(const Atombuf *buffer, char **text, int32_t *size) KIV_NOEXCEPT;
/* Evaluates the atoms as message text with `argc` arguments, sending the first message to
   `receiver` (null: it is named by the first atom); the result of the last message sent. Receivers
   may change or free the buffer. */
KIV_EXPORT void *atombuf_eval(Atombuf *buffer, int32_t argc, Atom *argv,
                              void *receiver) KIV_NOEXCEPT;
/* Replaces dollar arguments ($1 is argv[0]) and symbols that contain one by arguments; a missing
   argument is the integer 0. */
KIV_EXPORT ErrorCode atombuf_subst(Atombuf **buffer, int32_t argc, const Atom *argv) KIV_NOEXCEPT;
/* The same for symbols that begin with "#" and a digit ("#1" is argv[0]). */
KIV_EXPORT ErrorCode atombuf_replacepoundargs(Atombuf **buffer, int32_t argc,
                                              const Atom *argv) KIV_NOEXCEPT;
/* Adds the atoms to the end of a message text buffer, as they are. */
KIV_EXPORT ErrorCode atombuf_save(const Atombuf *buffer, Binbuf *target) KIV_NOEXCEPT;
/* One of the numbers named above; 0 for any other query. */
KIV_EXPORT int32_t atombuf_misc(const Atombuf *buffer, int32_t query) KIV_NOEXCEPT;

KIV_END

#endif
