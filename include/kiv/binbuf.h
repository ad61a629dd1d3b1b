#ifndef KIV_BINBUF_H
#define KIV_BINBUF_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Binbuf Binbuf;

KIV_EXPORT Binbuf *binbuf_new(void) KIV_NOEXCEPT;
KIV_EXPORT void binbuf_append(Binbuf *buf, Symbol *ignored, int16_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void binbuf_vinsert(Binbuf *buf, const char *format, ...) KIV_NOEXCEPT;
KIV_EXPORT void binbuf_insert(Binbuf *buf, Symbol *ignored, int16_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void binbuf_set(Binbuf *buf, Symbol *ignored, int16_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT int32_t binbuf_getatom(Binbuf *buf, int64_t *type_offset, int64_t *value_offset,
                                  Atom *atom) KIV_NOEXCEPT;
KIV_EXPORT int32_t binbuf_text(Binbuf *buf, char **text, int64_t size) KIV_NOEXCEPT;
KIV_EXPORT int32_t binbuf_addtext(Binbuf *buf, char **text, int64_t size) KIV_NOEXCEPT;
KIV_EXPORT int32_t binbuf_totext(Binbuf *buf, char **text, int64_t *size) KIV_NOEXCEPT;
KIV_EXPORT void *binbuf_gethandle(Binbuf *buf) KIV_NOEXCEPT;
KIV_EXPORT int32_t binbuf_read(Binbuf *buf, const char *file_name, int16_t path,
                               int32_t binary) KIV_NOEXCEPT;
KIV_EXPORT int32_t binbuf_write(Binbuf *buf, const char *file_name, int16_t path,
                                int32_t binary) KIV_NOEXCEPT;
KIV_EXPORT void binbuf_delete(Binbuf *buf, int32_t from, int32_t to) KIV_NOEXCEPT;
KIV_EXPORT Binbuf *binbuf_make(int32_t argc, const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *binbuf_eval(Binbuf *buf, int16_t argc, Atom *argv, void *receiver) KIV_NOEXCEPT;
KIV_EXPORT int32_t readtohandle(const char *file_name, int16_t path, char ***handle,
                                int64_t *size) KIV_NOEXCEPT;
KIV_EXPORT int32_t readatom(char *out, char **text, int64_t *position, int64_t size,
                            Atom *atom) KIV_NOEXCEPT;

KIV_END

#endif
