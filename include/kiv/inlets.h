/* Inlets, outlets and proxies: how objects send messages to each other.

   1. An outlet sends to what is connected to it, synchronously, depth first and on the calling
      thread, the newest connection first. A receiver may free itself, the sender, or change
      connections in its method.
   2. Inlets, outlets and proxies belong to the object they are made for, which frees the proxies in
      its free routine; the kernel frees the inlets and outlets after it. Freeing either end breaks
   a connection.
   3. Sends take no lock and may run on any thread. Inlets, outlets and proxies of one object are
      made and deleted on one thread; connecting and disconnecting wait for the scheduler's pass.
   4. A null or silenced outlet sends nothing: 0. So does an outlet in a patcher whose stack has
      overflowed, until the console message about it is cleared. */
#ifndef KIV_INLETS_H
#define KIV_INLETS_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Proxy Proxy;

/* --- outlets: making and finding. All return null for an owner that is no object with inlets and
   outlets, or when memory is exhausted. */

/* Returns a new outlet at the head of the owner's list: an object makes its outlets from right to
   left. `type` is the one selector it sends ("bang", "int", "float", "list" or any other), which
   lets it call receivers without looking methods up, or null for an outlet that sends anything. */
KIV_EXPORT Outlet *outlet_new(void *owner, const char *type) KIV_NOEXCEPT;

/* outlet_new with the type "bang", "int", "float", "list". */
KIV_EXPORT Outlet *bangout(void *owner) KIV_NOEXCEPT;
KIV_EXPORT Outlet *intout(void *owner) KIV_NOEXCEPT;
KIV_EXPORT Outlet *floatout(void *owner) KIV_NOEXCEPT;
KIV_EXPORT Outlet *listout(void *owner) KIV_NOEXCEPT;

/* Returns a new outlet at the end of the list; after `previous`, or at the head when it is null. */
KIV_EXPORT Outlet *outlet_append(void *owner, void *ignored, Symbol *type) KIV_NOEXCEPT;
KIV_EXPORT Outlet *outlet_insert_after(void *owner, void *ignored, Symbol *type,
                                       Outlet *previous) KIV_NOEXCEPT;

/* Frees an outlet and, through the owner's patcher, the lines connected to it. */
KIV_EXPORT void outlet_delete(Outlet *outlet) KIV_NOEXCEPT;

/* Returns the n-th outlet from the left (0 is the first), or null. */
KIV_EXPORT Outlet *outlet_nth(void *owner, int32_t n) KIV_NOEXCEPT;
KIV_EXPORT int32_t outlet_count(void *owner) KIV_NOEXCEPT;

/* --- sending. All return 1 when every connection was served and 0 when the send was refused or cut
   short by a stack overflow. A receiver that has no method for a message is reported with
   "doesn't understand \"%s\"" and the next one is served; a number also reaches a method of the
   other number type, converted, and anything reaches "anything". */

KIV_EXPORT void *outlet_bang(Outlet *outlet) KIV_NOEXCEPT;
KIV_EXPORT void *outlet_int(Outlet *outlet, int64_t value) KIV_NOEXCEPT;
KIV_EXPORT void *outlet_float(Outlet *outlet, double value) KIV_NOEXCEPT;

/* Sends a list; `selector` is not used, and an empty list does nothing. A receiver without a "list"
   method has atoms 2 and on spread over its inlets, then gets the first one, when it is a number.
 */
KIV_EXPORT void *outlet_list(Outlet *outlet, Symbol *selector, int32_t argc,
                             Atom *argv) KIV_NOEXCEPT;

/* Sends any message; the arguments convert to what the receiver's method declares. */
KIV_EXPORT void *outlet_anything(Outlet *outlet, Symbol *selector, int32_t argc,
                                 Atom *argv) KIV_NOEXCEPT;

/* Sends atoms as the message they make: one number or symbol alone, a list when a number comes
   first, otherwise the first symbol as selector. The first atom is read whatever the count. */
KIV_EXPORT void *outlet_atoms(Outlet *outlet, int32_t argc, Atom *argv) KIV_NOEXCEPT;

/* Calls a method directly (object_method) on the owner of each connected inlet whose class has this
   name; other connections are skipped. */
KIV_EXPORT void outlet_msg(Outlet *outlet, Symbol *class_name, Symbol *selector, ...) KIV_NOEXCEPT;
KIV_EXPORT void outlet_msg_imp(Outlet *outlet, Symbol *class_name, Symbol *selector, void *p1,
                               void *p2, void *p3, void *p4, void *p5, void *p6, void *p7,
                               void *p8) KIV_NOEXCEPT;

/* --- connecting */

/* Connects an outlet to an object or inlet, ahead of its other connections. Returns 0, or 1 when
   they are connected already ("outlet_add: already in table"), when the receiver takes no message
   of the outlet's type ("can't connect (%s) to (%s)"), or when memory is exhausted. */
KIV_EXPORT int32_t outlet_add(Outlet *outlet, void *receiver) KIV_NOEXCEPT;

/* Returns 1 when outlet_add would connect the two, else 0; posts nothing. */
KIV_EXPORT int32_t outlet_canadd(Outlet *outlet, void *receiver) KIV_NOEXCEPT;

/* Disconnects the two; "outlet_rm: wasn't in table" when they are not connected. */
KIV_EXPORT void outlet_rm(Outlet *outlet, void *receiver) KIV_NOEXCEPT;

/* Tells the owner that a user connected to the outlet: calls its method "userconnect", when it has
   one, with the outlet. */
KIV_EXPORT void outlet_notify(Outlet *outlet) KIV_NOEXCEPT;

/* Set or clear monitor bits on a connection, and register or drop `key`, a borrowed object, with
   its receiver. While bit 0 is set, every message is first handed to the keys' method
   "monitormessage" (key, receiver, sender, selector, argc, argv). */
KIV_EXPORT void outlet_addmonitor(Outlet *outlet, void *receiver, void *key,
                                  int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT void outlet_removemonitor(Outlet *outlet, void *receiver, void *key,
                                     int32_t flags) KIV_NOEXCEPT;

/* --- inlets. The object itself is its leftmost inlet; these are the ones to the right of it, made
   from right to left. Null as for outlets, and for a receiver that is no object. */

/* Returns a new inlet that passes one selector, or with null everything, on to the owner. */
KIV_EXPORT Inlet *inlet_new(void *owner, const char *selector) KIV_NOEXCEPT;

/* Returns a new inlet that sends messages of one selector to the receiver as another one. An inlet
   for "int" takes floats, truncated, and one for "float" integers. A null `incoming` passes
   everything on unchanged; a null `outgoing` drops what arrives. */
KIV_EXPORT Inlet *inlet4(void *owner, void *receiver, const char *incoming,
                         const char *outgoing) KIV_NOEXCEPT;

/* Returns a new inlet for integers that calls the owner's method "in1" to "in9"; for floats, "ft1"
   to "ft9". Another `n` is posted and gives null. */
KIV_EXPORT Inlet *intin(void *owner, int32_t n) KIV_NOEXCEPT;
KIV_EXPORT Inlet *floatin(void *owner, int32_t n) KIV_NOEXCEPT;

/* As inlet4, at the end of the list; after `previous`, or at the head when it is null. */
KIV_EXPORT Inlet *inlet_append(void *owner, void *receiver, Symbol *incoming,
                               Symbol *outgoing) KIV_NOEXCEPT;
KIV_EXPORT Inlet *inlet_insert_after(void *owner, void *receiver, Symbol *incoming,
                                     Symbol *outgoing, Inlet *previous) KIV_NOEXCEPT;

/* Frees an inlet and, through the owner's patcher, the lines connected to it. */
KIV_EXPORT void inlet_delete(Inlet *inlet) KIV_NOEXCEPT;

/* Returns the n-th inlet of the list (0 is the second inlet from the left), or null. */
KIV_EXPORT Inlet *inlet_nth(void *owner, int32_t n) KIV_NOEXCEPT;
KIV_EXPORT int32_t inlet_count(void *owner) KIV_NOEXCEPT;

/* Points an inlet at another receiver. */
KIV_EXPORT void inlet_to(Inlet *inlet, void *receiver) KIV_NOEXCEPT;

/* --- proxies: inlets that take every message and let the owner ask which inlet it was. While one
   hands a message on, its number stands in *stash (which may be null, and lies inside the owner).
   The owner frees its proxies with object_free. */

/* Returns a new proxy, with an inlet at the head of the owner's list; at its end; after the inlet
   of `previous`. `number` is the inlet's, 1 for the second from the left. Null as for inlets. */
KIV_EXPORT Proxy *proxy_new(void *owner, int32_t number, int32_t *stash) KIV_NOEXCEPT;
KIV_EXPORT Proxy *proxy_append(void *owner, int32_t number, int32_t *stash) KIV_NOEXCEPT;
KIV_EXPORT Proxy *proxy_insert(void *owner, int32_t number, int32_t *stash,
                               Proxy *previous) KIV_NOEXCEPT;

/* Returns a new proxy for an inlet that there is already. */
KIV_EXPORT Proxy *proxy_new_forinlet(void *owner, int32_t number, int32_t *stash,
                                     Inlet *inlet) KIV_NOEXCEPT;

/* Frees a proxy with its inlet and the lines connected to it. */
KIV_EXPORT void proxy_delete(Proxy *proxy) KIV_NOEXCEPT;

/* Returns the number of the inlet through which the message that `owner` handles on this thread
   arrived, 0 for the leftmost. Right on every thread, and for messages within messages. */
KIV_EXPORT int32_t proxy_getinlet(void *owner) KIV_NOEXCEPT;

/* Reads and replaces the inlet of a proxy; the inlet it had leads to the owner itself again. */
KIV_EXPORT Inlet *proxy_getinletptr(Proxy *proxy) KIV_NOEXCEPT;
KIV_EXPORT void proxy_setinletptr(Proxy *proxy, Inlet *inlet) KIV_NOEXCEPT;

#define outlet_msg(...) KIV_PASS_8_AFTER_3(outlet_msg_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)

KIV_END

#endif
