#ifndef KIV_ATOMBUF_H
#define KIV_ATOMBUF_H

#include <kiv/binbuf.h>
#include <kiv/types.h>

KIV_BEGIN

/* A counted block of atoms; always has room for one. Not an object. */
typedef struct Atombuf {
    int32_t count;
    Atom atoms[1];
} Atombuf;

KIV_EXPORT Atombuf *atombuf_new(int32_t argc, const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void atombuf_free(Atombuf *buffer) KIV_NOEXCEPT;
KIV_EXPORT int32_t atombuf_count(const Atombuf *buffer) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_set(Atombuf **buffer, int32_t start, int32_t end) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_append(Atombuf **buffer, int32_t argc, const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_prepend(Atombuf **buffer, int32_t argc, const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_replace(Atombuf **buffer, int32_t argc, const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT Atom *atombuf_firstatom(Atombuf *buffer) KIV_NOEXCEPT;
KIV_EXPORT Atom *atombuf_next(Atombuf *buffer, Atom *atom) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_text(Atombuf **buffer, char **text, int32_t size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_totext(const Atombuf *buffer, char **text, int32_t *size) KIV_NOEXCEPT;
KIV_EXPORT void *atombuf_eval(Atombuf *buffer, int32_t argc, Atom *argv,
                              void *receiver) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_subst(Atombuf **buffer, int32_t argc, const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_replacepoundargs(Atombuf **buffer, int32_t argc,
                                              const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atombuf_save(const Atombuf *buffer, Binbuf *target) KIV_NOEXCEPT;
KIV_EXPORT int32_t atombuf_misc(const Atombuf *buffer, int32_t query) KIV_NOEXCEPT;

KIV_END

#endif
