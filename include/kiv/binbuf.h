/* Message text: a sequence of atoms that may hold several messages, separated by semicolons and
   commas, and placeholders for arguments. Box text, message boxes and saved lines are parsed into
   it, kept in it, and evaluated from it.

   A buffer is freed with object_free, also while it is being evaluated. A null buffer is accepted
   everywhere. Buffers have no lock: one thread at a time changes a buffer, and nobody else may use
   it meanwhile. Messages of the class: "append" and "set".

   Texts are UTF-8. What is not is read as if each invalid byte were a character of Latin-1. */
#ifndef KIV_BINBUF_H
#define KIV_BINBUF_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Binbuf Binbuf;

/* --- making and changing */

/* A new empty buffer, or null on no memory. */
KIV_EXPORT Binbuf *binbuf_new(void) KIV_NOEXCEPT;
/* A new buffer holding `argc` atoms as they are, or null on no memory. */
KIV_EXPORT Binbuf *binbuf_make(int32_t argc, const Atom *argv) KIV_NOEXCEPT;
/* Appends atoms, turning symbols that stand for marks into them: one that begins with ";" becomes a
   semicolon, with "," a comma, and "$1" or "$1-name" a placeholder. `argv` itself is rewritten this
   way. `ignored` is the selector when the call is a message. */
KIV_EXPORT void binbuf_append(Binbuf *buf, Symbol *ignored, int16_t argc, Atom *argv) KIV_NOEXCEPT;
/* As binbuf_append, after emptying the buffer. */
KIV_EXPORT void binbuf_set(Binbuf *buf, Symbol *ignored, int16_t argc, Atom *argv) KIV_NOEXCEPT;
/* Appends atoms as they are, and leaves `argv` alone. */
KIV_EXPORT void binbuf_insert(Binbuf *buf, Symbol *ignored, int16_t argc, Atom *argv) KIV_NOEXCEPT;
/* Appends atoms made from plain values; `format` has the letters of atom_setformat. */
KIV_EXPORT void binbuf_vinsert(Binbuf *buf, const char *format, ...) KIV_NOEXCEPT;
/* Removes the atoms with indices from `from` up to but not including `to`. */
KIV_EXPORT void binbuf_delete(Binbuf *buf, int32_t from, int32_t to) KIV_NOEXCEPT;

/* --- reading */

/* Reads the next atom. Both offsets are 0 at the start and are moved on by each call. Returns 0
   with the atom, or 1 at the end (the atom then has type 0, and the offsets stay). */
KIV_EXPORT int32_t binbuf_getatom(Binbuf *buf, int64_t *type_offset, int64_t *value_offset,
                                  Atom *atom) KIV_NOEXCEPT;
/* The handle of the block that holds the atoms. It stays the buffer's and changes with it. */
KIV_EXPORT void *binbuf_gethandle(Binbuf *buf) KIV_NOEXCEPT;

/* --- text */

/* Replaces the content by the atoms of a text of `size` bytes; `text` points to the pointer to it
   (a handle will do). Returns 0; or 1 with the buffer left empty when a word of the text is longer
   than 32767 bytes, or memory ends. */
KIV_EXPORT int32_t binbuf_text(Binbuf *buf, char **text, int64_t size) KIV_NOEXCEPT;
/* Appends the atoms of a text, with ";" and "," as plain symbols. Returns as binbuf_text, with the
   buffer left as it was on failure. */
KIV_EXPORT int32_t binbuf_addtext(Binbuf *buf, char **text, int64_t size) KIV_NOEXCEPT;
/* The content as text that binbuf_text reads back to the same atoms: symbols are escaped or quoted
   where they need it, floats have a decimal point and as many digits as tell them apart. `*text`
   becomes a new NUL-terminated block, `*size` its length without the NUL. Returns 0, or -1 for a
   null argument or on no memory, when `*text` is null and `*size` 0. */
KIV_EXPORT int32_t binbuf_totext(Binbuf *buf, char **text, int64_t *size) KIV_NOEXCEPT;
/* Reads one word of a text of `size` bytes from `*position` on and moves the position behind it.
   `out`, of at least 32768 bytes, receives the word without quotes and backslashes; a longer word
   is cut. Returns 1 with the atom, or 0 at the end of the text. */
KIV_EXPORT int32_t readatom(char *out, char **text, int64_t *position, int64_t size,
                            Atom *atom) KIV_NOEXCEPT;

/* --- files; main thread */

/* Replaces the content by that of a file in text form, or in binary form when `binary` is not 0.
   Returns 0, or the system's error code or -1 with an error posted; the content then stays. */
KIV_EXPORT int32_t binbuf_read(Binbuf *buf, const char *file_name, int16_t path,
                               int32_t binary) KIV_NOEXCEPT;
/* Writes the content to a file; the old file stays whole until the new one is. Returns as
   binbuf_read. */
KIV_EXPORT int32_t binbuf_write(Binbuf *buf, const char *file_name, int16_t path,
                                int32_t binary) KIV_NOEXCEPT;
/* Reads a whole file into a new handle, to be freed with sysmem_freehandle. Returns 0, or the
   system's error code or -1, when `*handle` is null and `*size` 0. */
KIV_EXPORT int32_t readtohandle(const char *file_name, int16_t path, char ***handle,
                                int64_t *size) KIV_NOEXCEPT;

/* --- evaluating */

/* Sends the messages in the buffer, in order, through typedmess. Placeholders $1 to $9 become the
   first nine atoms of `argv`, the integer 0 where there are fewer; in symbols, $0 becomes a number
   that is new with every evaluation. The first message, and each one after a comma, goes to the
   receiver in force, at first `receiver`; with none (null, or after a semicolon) the first atom
   names an object bound to a symbol. What is wrong is posted, and the evaluation goes on with the
   next message, except for a message of more than 4096 atoms, which ends it. A receiver may change
   or free the buffer. Returns the result of the last message sent, null if none. */
KIV_EXPORT void *binbuf_eval(Binbuf *buf, int16_t argc, Atom *argv, void *receiver) KIV_NOEXCEPT;

KIV_END

#endif
