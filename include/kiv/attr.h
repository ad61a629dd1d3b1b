#ifndef KIV_ATTR_H
#define KIV_ATTR_H

#include <kiv/types.h>

struct Dictionary;

KIV_BEGIN

/* Accessors of an attribute. A getter fills *argc and *argv (allocating the array when *argc is 0
   or *argv null); a setter stores the atoms. */
typedef ErrorCode (*AttrGetter)(void *x, void *attribute, int32_t *argc, Atom **argv);
typedef ErrorCode (*AttrSetter)(void *x, void *attribute, int32_t argc, Atom *argv);

/* Attribute flags. */
enum {
    AttrGetOpaque = 0x1,       /* not readable from code */
    AttrSetOpaque = 0x2,       /* not writable from code */
    AttrGetOpaqueUser = 0x100, /* not readable by the user's messages */
    AttrSetOpaqueUser = 0x200, /* not writable by the user's messages */
    AttrTouched = 0x20000000   /* a value has been written */
};

KIV_EXPORT void *attribute_new(const char *name, Symbol *type, int32_t flags, Method getter,
                               Method setter) KIV_NOEXCEPT;
KIV_EXPORT void *attr_offset_new(const char *name, Symbol *type, int32_t flags, Method getter,
                                 Method setter, int32_t offset) KIV_NOEXCEPT;
KIV_EXPORT void *attr_offset_array_new(const char *name, Symbol *type, int32_t size, int32_t flags,
                                       Method getter, Method setter, int32_t count_offset,
                                       int32_t offset) KIV_NOEXCEPT;
KIV_EXPORT void *object_attr_get(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_addattr(void *x, void *attribute) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_getvalueof(void *x, Symbol *name, int32_t *argc,
                                            Atom **argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setvalueof(void *x, Symbol *name, int32_t argc,
                                            Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_usercanset(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_usercanget(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setlong(void *x, Symbol *name, int64_t value) KIV_NOEXCEPT;
KIV_EXPORT int64_t object_attr_getlong(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setfloat(void *x, Symbol *name, double value) KIV_NOEXCEPT;
KIV_EXPORT double object_attr_getfloat(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setsym(void *x, Symbol *name, Symbol *value) KIV_NOEXCEPT;
KIV_EXPORT Symbol *object_attr_getsym(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setchar(void *x, Symbol *name, uint8_t value) KIV_NOEXCEPT;
KIV_EXPORT uint8_t object_attr_getchar(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setobj(void *x, Symbol *name, void *value) KIV_NOEXCEPT;
KIV_EXPORT void *object_attr_getobj(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setlong_array(void *x, Symbol *name, int32_t count,
                                               const int64_t *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getlong_array(void *x, Symbol *name, int32_t max,
                                             int64_t *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setfloat_array(void *x, Symbol *name, int32_t count,
                                                const float *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getfloat_array(void *x, Symbol *name, int32_t max,
                                              float *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setdouble_array(void *x, Symbol *name, int32_t count,
                                                 const double *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getdouble_array(void *x, Symbol *name, int32_t max,
                                               double *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setchar_array(void *x, Symbol *name, int32_t count,
                                               const uint8_t *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getchar_array(void *x, Symbol *name, int32_t max,
                                             uint8_t *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setsym_array(void *x, Symbol *name, int32_t count,
                                              Symbol *const *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getsym_array(void *x, Symbol *name, int32_t max,
                                            Symbol **values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setcolor(void *x, Symbol *name, const double *rgba) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_getcolor(void *x, Symbol *name, double *rgba) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setpt(void *x, Symbol *name, const double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_getpt(void *x, Symbol *name, double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setsize(void *x, Symbol *name, const double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_getsize(void *x, Symbol *name, double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_set_rect(void *x, Symbol *name, const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_get_rect(void *x, Symbol *name, double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilter_clip(void *attribute, double min, double max, int32_t use_min,
                                         int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilter_clip_scale(void *attribute, double scale, double min,
                                               double max, int32_t use_min,
                                               int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterset_clip(void *attribute, double min, double max,
                                            int32_t use_min, int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterset_clip_scale(void *attribute, double scale, double min,
                                                  double max, int32_t use_min,
                                                  int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterget_clip(void *attribute, double min, double max,
                                            int32_t use_min, int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterget_clip_scale(void *attribute, double scale, double min,
                                                  double max, int32_t use_min,
                                                  int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterset_proc(void *attribute, Method proc) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterget_proc(void *attribute, Method proc) KIV_NOEXCEPT;
KIV_EXPORT int32_t attr_args_offset(int32_t count, const Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT void attr_args_process(void *x, int32_t count, Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT void attr_args_dictionary(struct Dictionary *dictionary, int32_t count,
                                     Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_touch(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setinherited(void *x, Symbol *name,
                                              int32_t inherited) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_lock(void *x, Symbol *name, int32_t lock) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getdirty(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT void object_attr_getdump(void *x, Symbol *name, int32_t argc, Atom *argv) KIV_NOEXCEPT;

KIV_END

#endif
