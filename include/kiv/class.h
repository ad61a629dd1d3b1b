#ifndef KIV_CLASS_H
#define KIV_CLASS_H

#include <kiv/types.h>

KIV_BEGIN

/* --- making and registering */
KIV_EXPORT Class *class_new(const char *name, Method constructor, Method destructor,
                            int32_t instance_size, Method menu_function, ...) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_free(Class *c) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addmethod(Class *c, Method function, const char *name, ...) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_register(Symbol *name_space, Class *c) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_alias(Class *c, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Class *class_findbyname(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Class *class_findbyname_casefree(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Class *class_getifloaded(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Class *class_getifloaded_casefree(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_setname(const char *name, const char *file_name) KIV_NOEXCEPT;
KIV_EXPORT Symbol *class_nameget(const Class *c) KIV_NOEXCEPT;
KIV_EXPORT Symbol *class_namespace(const Class *c) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_getpath(Class *c, int16_t *path, char *file_name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_setpath(Class *c, int16_t path, const char *file_name) KIV_NOEXCEPT;
KIV_EXPORT int32_t class_is_box(const Class *c) KIV_NOEXCEPT;
KIV_EXPORT int32_t class_is_ui(const Class *c) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_noinlet(Class *c) KIV_NOEXCEPT;
KIV_EXPORT void class_obexoffset_set(Class *c, int32_t offset) KIV_NOEXCEPT;
KIV_EXPORT int32_t class_obexoffset_get(const Class *c) KIV_NOEXCEPT;
/* --- methods */
KIV_EXPORT Method class_method(Class *c, Symbol *selector) KIV_NOEXCEPT;
KIV_EXPORT MethodRecord *class_mess(Class *c, Symbol *selector) KIV_NOEXCEPT;
KIV_EXPORT void *class_getmethod_object(Class *c, Symbol *selector) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addcommand(Class *c, Method function, const char *name,
                                      ...) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addtypedwrapper(Class *c, Method function, const char *name,
                                           ...) KIV_NOEXCEPT;
KIV_EXPORT MethodRecord *class_typedwrapper_get(Class *c, Symbol *selector) KIV_NOEXCEPT;
KIV_EXPORT void *class_dumpout_wrap(void *x, Symbol *selector, int32_t argc,
                                    Atom *argv) KIV_NOEXCEPT;
/* --- inheritance and copies */
KIV_EXPORT Class *class_subclass(Class *super, const char *name, Method constructor,
                                 Method destructor, int32_t instance_size, Method menu_function,
                                 ...) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_super_construct(void *x, ...) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_super_construct_imp(void *x, Class *c, void *p1, void *p2, void *p3,
                                               void *p4, void *p5, void *p6, void *p7,
                                               void *p8) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_copy(Symbol *source_space, Symbol *source_name, Symbol *space,
                                Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT int32_t class_clonable(Class *c) KIV_NOEXCEPT;
/* --- extra data of a class */
KIV_EXPORT ErrorCode class_extra_store(Class *c, Symbol *key, void *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_extra_storeflags(Class *c, Symbol *key, void *value,
                                            int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_extra_lookup(Class *c, Symbol *key, void **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_sticky(Class *c, Symbol *category, Symbol *key,
                                  void *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_sticky_clear(Class *c, Symbol *category, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addadornment(Class *c, Symbol *name, void *adornment) KIV_NOEXCEPT;
KIV_EXPORT void *class_adornment_get(Class *c, Symbol *name, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addtransform(Class *c, Method function, const char *name,
                                        ...) KIV_NOEXCEPT;
KIV_EXPORT void *class_buildprototype(Class *c) KIV_NOEXCEPT;
KIV_EXPORT void *class_cloneprototype(Class *c) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_parameter_init(Class *c) KIV_NOEXCEPT;
/* --- attributes of a class */
KIV_EXPORT ErrorCode class_addattr(Class *c, void *attribute) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addattr_atoms(Class *c, const char *attribute, Symbol *key,
                                         const char *type, int32_t count, Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addattr_format(Class *c, const char *attribute, Symbol *key,
                                          const char *type, const char *format, ...) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addattr_parse(Class *c, const char *attribute, Symbol *key,
                                         const char *type, const char *text) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addstyleattr(Class *c, void *attribute) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_attr_setstyle(Class *c, const char *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_attr_setfill(Class *c, const char *name, int32_t fill) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_time_addattr(Class *c, const char *name, const char *label,
                                        int64_t flags) KIV_NOEXCEPT;

#define class_super_construct(...) KIV_SUPER_CONSTRUCT(__VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)
#define KIV_SUPER_CONSTRUCT(x, p1, p2, p3, p4, p5, p6, p7, p8, ...)                            \
    class_super_construct_imp(x, NULL, KIV_WORD(p1), KIV_WORD(p2), KIV_WORD(p3), KIV_WORD(p4), \
                              KIV_WORD(p5), KIV_WORD(p6), KIV_WORD(p7), KIV_WORD(p8))

KIV_END

#endif
