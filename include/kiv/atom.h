#ifndef KIV_ATOM_H
#define KIV_ATOM_H

#include <kiv/types.h>

KIV_BEGIN

KIV_EXPORT ErrorCode atom_setlong(Atom *atom, int64_t value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setfloat(Atom *atom, double value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setsym(Atom *atom, Symbol *symbol) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setobj(Atom *atom, void *x) KIV_NOEXCEPT;
KIV_EXPORT int32_t atom_gettype(const Atom *atom) KIV_NOEXCEPT;
KIV_EXPORT int64_t atom_getlong(const Atom *atom) KIV_NOEXCEPT;
KIV_EXPORT double atom_getfloat(const Atom *atom) KIV_NOEXCEPT;
KIV_EXPORT Symbol *atom_getsym(const Atom *atom) KIV_NOEXCEPT;
KIV_EXPORT void *atom_getobj(const Atom *atom) KIV_NOEXCEPT;
KIV_EXPORT int64_t atom_getcharfix(const Atom *atom) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_arg_getlong(int64_t *out, int32_t index, int32_t count,
                                      const Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_arg_getfloat(float *out, int32_t index, int32_t count,
                                       const Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_arg_getdouble(double *out, int32_t index, int32_t count,
                                        const Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_arg_getsym(Symbol **out, int32_t index, int32_t count,
                                     const Atom *atoms) KIV_NOEXCEPT;
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
KIV_EXPORT ErrorCode atom_alloc(int32_t *count, Atom **atoms, uint8_t *allocated) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_alloc_array(int32_t needed, int32_t *count, Atom **atoms,
                                      uint8_t *allocated) KIV_NOEXCEPT;
KIV_EXPORT Atom *atom_dynamic_start(Atom *local, int32_t local_count, int32_t needed) KIV_NOEXCEPT;
KIV_EXPORT void atom_dynamic_end(Atom *local, Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setformat(int32_t *count, Atom **atoms, const char *format,
                                    ...) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_getformat(int32_t count, const Atom *atoms, const char *format,
                                    ...) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_setparse(int32_t *count, Atom **atoms, const char *text) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode atom_gettext(int32_t count, const Atom *atoms, int64_t *size, char **text,
                                  int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT int32_t atoms_totext(char *buffer, int32_t count, const Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT const char *atom_string(const Atom *atom) KIV_NOEXCEPT;
KIV_EXPORT void postatom(const Atom *atom) KIV_NOEXCEPT;

KIV_END

#endif
