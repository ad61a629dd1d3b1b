#ifndef KIV_INLETS_H
#define KIV_INLETS_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Proxy Proxy;

/* --- outlets */
KIV_EXPORT Outlet *outlet_new(void *owner, const char *type) KIV_NOEXCEPT;
KIV_EXPORT Outlet *bangout(void *owner) KIV_NOEXCEPT;
KIV_EXPORT Outlet *intout(void *owner) KIV_NOEXCEPT;
KIV_EXPORT Outlet *floatout(void *owner) KIV_NOEXCEPT;
KIV_EXPORT Outlet *listout(void *owner) KIV_NOEXCEPT;
KIV_EXPORT Outlet *outlet_append(void *owner, void *ignored, Symbol *type) KIV_NOEXCEPT;
KIV_EXPORT Outlet *outlet_insert_after(void *owner, void *ignored, Symbol *type,
                                       Outlet *previous) KIV_NOEXCEPT;
KIV_EXPORT void outlet_delete(Outlet *outlet) KIV_NOEXCEPT;
KIV_EXPORT Outlet *outlet_nth(void *owner, int32_t n) KIV_NOEXCEPT;
KIV_EXPORT int32_t outlet_count(void *owner) KIV_NOEXCEPT;
KIV_EXPORT void *outlet_bang(Outlet *outlet) KIV_NOEXCEPT;
KIV_EXPORT void *outlet_int(Outlet *outlet, int64_t value) KIV_NOEXCEPT;
KIV_EXPORT void *outlet_float(Outlet *outlet, double value) KIV_NOEXCEPT;
KIV_EXPORT void *outlet_list(Outlet *outlet, Symbol *selector, int32_t argc,
                             Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *outlet_anything(Outlet *outlet, Symbol *selector, int32_t argc,
                                 Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *outlet_atoms(Outlet *outlet, int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void outlet_msg(Outlet *outlet, Symbol *class_name, Symbol *selector, ...) KIV_NOEXCEPT;
KIV_EXPORT void outlet_msg_imp(Outlet *outlet, Symbol *class_name, Symbol *selector, void *p1,
                               void *p2, void *p3, void *p4, void *p5, void *p6, void *p7,
                               void *p8) KIV_NOEXCEPT;
KIV_EXPORT int32_t outlet_add(Outlet *outlet, void *receiver) KIV_NOEXCEPT;
KIV_EXPORT int32_t outlet_canadd(Outlet *outlet, void *receiver) KIV_NOEXCEPT;
KIV_EXPORT void outlet_rm(Outlet *outlet, void *receiver) KIV_NOEXCEPT;
KIV_EXPORT void outlet_notify(Outlet *outlet) KIV_NOEXCEPT;
KIV_EXPORT void outlet_addmonitor(Outlet *outlet, void *receiver, void *key,
                                  int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT void outlet_removemonitor(Outlet *outlet, void *receiver, void *key,
                                     int32_t flags) KIV_NOEXCEPT;
/* --- inlets */
KIV_EXPORT Inlet *inlet_new(void *owner, const char *selector) KIV_NOEXCEPT;
KIV_EXPORT Inlet *inlet4(void *owner, void *receiver, const char *incoming,
                         const char *outgoing) KIV_NOEXCEPT;
KIV_EXPORT Inlet *intin(void *owner, int32_t n) KIV_NOEXCEPT;
KIV_EXPORT Inlet *floatin(void *owner, int32_t n) KIV_NOEXCEPT;
KIV_EXPORT Inlet *inlet_append(void *owner, void *receiver, Symbol *incoming,
                               Symbol *outgoing) KIV_NOEXCEPT;
KIV_EXPORT Inlet *inlet_insert_after(void *owner, void *receiver, Symbol *incoming,
                                     Symbol *outgoing, Inlet *previous) KIV_NOEXCEPT;
KIV_EXPORT void inlet_delete(Inlet *inlet) KIV_NOEXCEPT;
KIV_EXPORT Inlet *inlet_nth(void *owner, int32_t n) KIV_NOEXCEPT;
KIV_EXPORT int32_t inlet_count(void *owner) KIV_NOEXCEPT;
KIV_EXPORT void inlet_to(Inlet *inlet, void *receiver) KIV_NOEXCEPT;
/* --- proxies */
KIV_EXPORT Proxy *proxy_new(void *owner, int32_t number, int32_t *stash) KIV_NOEXCEPT;
KIV_EXPORT Proxy *proxy_new_forinlet(void *owner, int32_t number, int32_t *stash,
                                     Inlet *inlet) KIV_NOEXCEPT;
KIV_EXPORT Proxy *proxy_append(void *owner, int32_t number, int32_t *stash) KIV_NOEXCEPT;
KIV_EXPORT Proxy *proxy_insert(void *owner, int32_t number, int32_t *stash,
                               Proxy *previous) KIV_NOEXCEPT;
KIV_EXPORT void proxy_delete(Proxy *proxy) KIV_NOEXCEPT;
KIV_EXPORT int32_t proxy_getinlet(void *owner) KIV_NOEXCEPT;
KIV_EXPORT Inlet *proxy_getinletptr(Proxy *proxy) KIV_NOEXCEPT;
KIV_EXPORT void proxy_setinletptr(Proxy *proxy, Inlet *inlet) KIV_NOEXCEPT;

#define outlet_msg(...) KIV_PASS_8_AFTER_3(outlet_msg_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)

KIV_END

#endif
