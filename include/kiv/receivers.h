/* Names with several receivers.

   What is sent to a name goes to the object bound to the symbol (Symbol.thing). These functions let
   any number of objects share a name: a single one is bound itself; when there are more, a kernel
   object of class "receivers" is bound in their place, which passes every message on to each of
   them, in the order in which they were bound. A receiver may unbind or free itself, or others,
   while a message is passed on. One that is bound meanwhile receives the next message.

   An object unbinds itself before it is freed; one that did not is dropped when it is found dead.
   Any thread. */
#ifndef KIV_RECEIVERS_H
#define KIV_RECEIVERS_H

#include <kiv/types.h>

KIV_BEGIN

/* Adds `x` to the receivers of `name`; binding it twice is binding it once. Returns 0, -2 for a
   null argument or a dead object, -4 on no memory. */
KIV_EXPORT ErrorCode receiver_bind(Symbol *name, void *x) KIV_NOEXCEPT;
/* Takes `x` off the receivers of `name`. Returns 0, -1 when it is none, -2 for a null argument. */
KIV_EXPORT ErrorCode receiver_unbind(Symbol *name, void *x) KIV_NOEXCEPT;

KIV_END

#endif
