/* Objects: messages, life, extension record, registry and notification.

   1. A pointer is trusted only after the validity test: it leads to at least 32 readable bytes and
      its magic is that of a living object. A function handed anything else says so in the console,
      where its declaration gives a text, and answers with its neutral value; it never calls it.
   2. What a method, constructor or notification throws is posted as an error and counts as null.
   3. A method may free the object it runs for.
   4. An object begins with one reference. object_retain adds one, object_free gives one up, and the
      last one frees it. */
#ifndef KIV_OBJECT_H
#define KIV_OBJECT_H

#include <kiv/types.h>

KIV_BEGIN

/* --- messages */

/* Sends a message: finds the method for `selector`, converts the atoms to its argument types and
   calls it. Looked for in this order: the class's methods (a typed wrapper standing in for one of
   type TypeCant); an attribute that is set by its name or got as "getNAME"; for "obj:NAME", the
   method named after the class of the object registered as NAME, with NAME as argument when there
   are none; the method "anything". Returns the method's result. Null, with an error posted against
   the object, when nothing answers ("doesn't understand ..."), when arguments are missing or do not
   fit; surplus ones are posted and left out. Takes no lock and allocates nothing of its own. */
KIV_EXPORT void *typedmess(void *x, Symbol *selector, int32_t argc, Atom *argv) KIV_NOEXCEPT;
/* Calls the method for `selector` directly with up to eight pointer-sized arguments, passed on
   unchanged and unchecked: for code that knows the method's signature. What no method answers goes
   to an attribute's getter or setter, then to the object that the object's "decorator" method
   names; "getvalueof" with a count and an array has a default answer, one symbol "object (CLASS)",
   which is the caller's to free. 0 when nothing answers, silently. A null selector or object is
   warned of. As a macro it widens each argument to a pointer; a double cannot be passed. */
KIV_EXPORT void *object_method(void *x, Symbol *selector, ...) KIV_NOEXCEPT;
KIV_EXPORT void *object_method_imp(void *x, Symbol *selector, void *p1, void *p2, void *p3,
                                   void *p4, void *p5, void *p6, void *p7, void *p8) KIV_NOEXCEPT;
/* typedmess that can give an atom back: a method of type TypeGimmeBack fills in *result (which may
   be null) and its own result is returned; any other method leaves it empty (TypeNothing). With a
   null selector the first atom, when it is a symbol, is the selector, else it is "list". -1 when
   nothing was called, which is posted. */
KIV_EXPORT ErrorCode object_method_typed(void *x, Symbol *selector, int32_t argc, Atom *argv,
                                         Atom *result) KIV_NOEXCEPT;
/* The function of an object's method of that name, of whatever types. When there is none: getfn
   posts "doesn't understand ..." and gives nullfn, egetfn gives nullfn, zgetfn gives null. For an
   invalid object all three post "... corrupt object" and give nullfn, zgetfn too, so that its
   result can be called in each case. */
KIV_EXPORT Method getfn(void *x, Symbol *selector) KIV_NOEXCEPT;
KIV_EXPORT Method egetfn(void *x, Symbol *selector) KIV_NOEXCEPT;
KIV_EXPORT Method zgetfn(void *x, Symbol *selector) KIV_NOEXCEPT;
/* Does nothing and answers null. As a method it counts as none where a real one is asked for. */
KIV_EXPORT void *nullfn(void) KIV_NOEXCEPT;

/* --- life */

/* A new instance of a class with everything after the first two fields of its header 0: what a
   constructor begins with. Null when memory is exhausted or for a null class. */
KIV_EXPORT void *object_alloc(Class *c) KIV_NOEXCEPT;
/* Constructs an object of a class that is looked up, and loaded, by class_findbyname; the
   constructor gets the arguments as they are given, up to eight pointer-sized ones. Null when there
   is no such class, it has no constructor, or the constructor gives none. */
KIV_EXPORT void *object_new(Symbol *name_space, Symbol *class_name, ...) KIV_NOEXCEPT;
KIV_EXPORT void *object_new_imp(Symbol *name_space, Symbol *class_name, void *p1, void *p2,
                                void *p3, void *p4, void *p5, void *p6, void *p7,
                                void *p8) KIV_NOEXCEPT;
/* The same with atoms, converted to the constructor's declared types; null, with an error posted,
   when they do not fit. */
KIV_EXPORT void *object_new_typed(Symbol *name_space, Symbol *class_name, int32_t argc,
                                  Atom *argv) KIV_NOEXCEPT;
/* Gives up a reference through freeobject. -2 for a null pointer or an object without methods, else
   0. object_release is the same. */
KIV_EXPORT ErrorCode object_free(void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_release(void *x) KIV_NOEXCEPT;
/* Adds a reference; -1 for an invalid object or one that can have no extension record. */
KIV_EXPORT ErrorCode object_retain(void *x) KIV_NOEXCEPT;
/* Gives up a reference; with the last one: notifies "willfree"; unregisters the object (one that is
   still registered lives on); calls the destructors of its class and of those above; cancels its
   clocks and deferred calls; frees its values and extension record, its own scheduler, its inlets,
   its outlets and its memory. Freeing an object again while it is being freed does nothing. An
   invalid pointer is posted: "freeobject: ... bad object". */
KIV_EXPORT void freeobject(void *x) KIV_NOEXCEPT;
/* What the object's method "object_clone" makes of it, the caller's to free; null when it has none.
 */
KIV_EXPORT void *object_clone(void *x) KIV_NOEXCEPT;

/* --- what an object is: 0 or null for an invalid one */

KIV_EXPORT int32_t object_isvalid(const void *x) KIV_NOEXCEPT;
KIV_EXPORT Class *object_class(const void *x) KIV_NOEXCEPT;
KIV_EXPORT Symbol *object_classname(const void *x) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_classname_compare(const void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Symbol *object_namespace(const void *x) KIV_NOEXCEPT; /* of its class */

/* --- extension record */

/* Makes the object's extension record when it is missing. Non-null when it has one; what the result
   points to is the runtime's. */
KIV_EXPORT void *object_obex_enforce(void *x) KIV_NOEXCEPT;
/* Keeps a value for the object under a key, in place of an earlier one; it stays the caller's. */
KIV_EXPORT ErrorCode object_obex_store(void *x, Symbol *key, void *value) KIV_NOEXCEPT;
/* The same with ownership flags as in the containers: an owned value is freed when it is replaced
   and with the object. -2 for a null object or key, -1 when the object can have no record, -4 when
   memory is exhausted. */
KIV_EXPORT ErrorCode object_obex_storeflags(void *x, Symbol *key, void *value,
                                            int32_t flags) KIV_NOEXCEPT;
/* The value of a key; -1, and null in *value, when there is none. */
KIV_EXPORT ErrorCode object_obex_lookup(void *x, Symbol *key, void **value) KIV_NOEXCEPT;

/* --- registry and notification
   A null namespace means "nobox". All of it works on any thread, under the kernel's global critical
   region; notifications are delivered at once, on the thread that gives rise to them. */

/* Publishes an object under a name and returns the object registered under it, which is the
   caller's in place of `x`:
   - the name is free: `x`; its waiting subscribers are attached and notified of "registered";
   - `x` has that name already: `x`, with one more reference and registration;
   - `x` has another name in that namespace: `x`, under the new name, with its clients;
   - another object has the name: `x` is freed. Of the same class, that object is returned with one
     more reference and registration; of another class, null.
   Null, with an error posted, for a name that begins with "obj:", when `x` is registered in another
   namespace, or when it can have no extension record. The empty name takes one registration away,
   and gives null. */
KIV_EXPORT void *object_register(Symbol *name_space, Symbol *name, void *x) KIV_NOEXCEPT;
/* Takes one registration away. With the last one the clients are notified of "free" and detached,
   and the name is free. 0 when the object is registered no longer, -1 while it is, -2 for an
   invalid object. */
KIV_EXPORT ErrorCode object_unregister(void *x) KIV_NOEXCEPT;
/* The object registered under a name; null when there is none. No reference is added. */
KIV_EXPORT void *object_findregistered(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
/* The namespace and name (either may be null) of an object; -1 when it is not registered. */
KIV_EXPORT ErrorCode object_findregisteredbyptr(Symbol **name_space, Symbol **name,
                                                void *x) KIV_NOEXCEPT;
/* The names of a namespace, in no order: with *count 0 or *names null in an array that is the
   caller's to free, else at most *count of them in the caller's array. -1 for an unknown
   namespace. */
KIV_EXPORT ErrorCode object_register_getnames(Symbol *name_space, int32_t *count,
                                              Symbol ***names) KIV_NOEXCEPT;
/* Attaches a client to the object registered under a name: its method "notify" is called as
   (client, name, message, object, data) for every notification of the object, until it detaches or
   either is freed. An object may attach to itself. Returns the object, null when there is none. */
KIV_EXPORT void *object_attach(Symbol *name_space, Symbol *name, void *client) KIV_NOEXCEPT;
/* The same for a registered object; -1, with an error posted, when it is not registered. */
KIV_EXPORT ErrorCode object_attach_byptr(void *client, void *x) KIV_NOEXCEPT;
/* The same, registering the object under a name of its own when it has none. */
KIV_EXPORT ErrorCode object_attach_byptr_register(void *client, void *x,
                                                  Symbol *name_space) KIV_NOEXCEPT;
/* Detaches a client; -1 when it was not attached, which is posted. */
KIV_EXPORT ErrorCode object_detach(Symbol *name_space, Symbol *name, void *client) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_detach_byptr(void *client, void *x) KIV_NOEXCEPT;
/* Attaches a client to whatever object of a class (null or empty: any) is or comes to be registered
   under a name, until it unsubscribes or is freed. Returns the object when there is one now, else
   null; null also when the client has subscribed to just this before. */
KIV_EXPORT void *object_subscribe(Symbol *name_space, Symbol *name, Symbol *class_name,
                                  void *client) KIV_NOEXCEPT;
/* Ends a subscription, named as it was made; an attachment stays. -1 when there is none. */
KIV_EXPORT ErrorCode object_unsubscribe(Symbol *name_space, Symbol *name, Symbol *class_name,
                                        void *client) KIV_NOEXCEPT;
/* Notifies the object itself when it is attached to itself, then its clients in order of attaching,
   then, for an object in a box, the box and its clients. A client may detach, attach others, or
   free itself, another client or the object. -1 for an invalid object. */
KIV_EXPORT ErrorCode object_notify(void *x, Symbol *message, void *data) KIV_NOEXCEPT;

#define object_method(...) KIV_PASS_8(object_method_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)
#define object_new(...) KIV_PASS_8(object_new_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)

KIV_END

#endif
