#ifndef KIV_OBJECT_H
#define KIV_OBJECT_H

#include <kiv/types.h>

KIV_BEGIN

/* --- messages */
KIV_EXPORT void *typedmess(void *x, Symbol *selector, int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *object_method(void *x, Symbol *selector, ...) KIV_NOEXCEPT;
KIV_EXPORT void *object_method_imp(void *x, Symbol *selector, void *p1, void *p2, void *p3,
                                   void *p4, void *p5, void *p6, void *p7, void *p8) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_method_typed(void *x, Symbol *selector, int32_t argc, Atom *argv,
                                         Atom *result) KIV_NOEXCEPT;
KIV_EXPORT Method getfn(void *x, Symbol *selector) KIV_NOEXCEPT;
KIV_EXPORT Method egetfn(void *x, Symbol *selector) KIV_NOEXCEPT;
KIV_EXPORT Method zgetfn(void *x, Symbol *selector) KIV_NOEXCEPT;
KIV_EXPORT void *nullfn(void) KIV_NOEXCEPT;
/* --- life */
KIV_EXPORT void *object_alloc(Class *c) KIV_NOEXCEPT;
KIV_EXPORT void *object_new(Symbol *name_space, Symbol *class_name, ...) KIV_NOEXCEPT;
KIV_EXPORT void *object_new_imp(Symbol *name_space, Symbol *class_name, void *p1, void *p2,
                                void *p3, void *p4, void *p5, void *p6, void *p7,
                                void *p8) KIV_NOEXCEPT;
KIV_EXPORT void *object_new_typed(Symbol *name_space, Symbol *class_name, int32_t argc,
                                  Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_free(void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_release(void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_retain(void *x) KIV_NOEXCEPT;
KIV_EXPORT void freeobject(void *x) KIV_NOEXCEPT;
KIV_EXPORT void *object_clone(void *x) KIV_NOEXCEPT;
/* --- what an object is */
KIV_EXPORT int32_t object_isvalid(const void *x) KIV_NOEXCEPT;
KIV_EXPORT Class *object_class(const void *x) KIV_NOEXCEPT;
KIV_EXPORT Symbol *object_classname(const void *x) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_classname_compare(const void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Symbol *object_namespace(const void *x) KIV_NOEXCEPT;
/* --- extension record */
KIV_EXPORT void *object_obex_enforce(void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_obex_store(void *x, Symbol *key, void *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_obex_storeflags(void *x, Symbol *key, void *value,
                                            int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_obex_lookup(void *x, Symbol *key, void **value) KIV_NOEXCEPT;
/* --- registry and notification */
KIV_EXPORT void *object_register(Symbol *name_space, Symbol *name, void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_unregister(void *x) KIV_NOEXCEPT;
KIV_EXPORT void *object_findregistered(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_findregisteredbyptr(Symbol **name_space, Symbol **name,
                                                void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_register_getnames(Symbol *name_space, int32_t *count,
                                              Symbol ***names) KIV_NOEXCEPT;
KIV_EXPORT void *object_attach(Symbol *name_space, Symbol *name, void *client) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attach_byptr(void *client, void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attach_byptr_register(void *client, void *x,
                                                  Symbol *name_space) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_detach(Symbol *name_space, Symbol *name, void *client) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_detach_byptr(void *client, void *x) KIV_NOEXCEPT;
KIV_EXPORT void *object_subscribe(Symbol *name_space, Symbol *name, Symbol *class_name,
                                  void *client) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_unsubscribe(Symbol *name_space, Symbol *name, Symbol *class_name,
                                        void *client) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_notify(void *x, Symbol *message, void *data) KIV_NOEXCEPT;

#define object_method(...) KIV_PASS_8(object_method_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)
#define object_new(...) KIV_PASS_8(object_new_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)

KIV_END

#endif
