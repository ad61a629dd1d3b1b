/* Inlets and outlets of a subpatcher: what the classes `inlet` and `outlet` rest on.

   A patcher that is the content of a box (a subpatcher, a bpatcher, an abstraction) has one inlet
   for each `inlet` object and one outlet for each `outlet` object among its boxes, numbered left to
   right by the horizontal position of their boxes (from the top down among equals). A message that
   arrives at the patcher's inlet is handed as it is to the `inlet` object's own method ("bang",
   "int", "float", "list", "anything"), which passes it on through its outlet; an `outlet` object
   sends what it gets through the patcher's outlet that was put into its slot.

   Main thread only. A null or unsuitable patcher does nothing. */
#ifndef KIV_SUBPATCHER_H
#define KIV_SUBPATCHER_H

#include <kiv/types.h>

KIV_BEGIN

/* Gives `patcher` an inlet whose messages go to `object`. Called by the object's constructor: its
   patcher is then the thing of the symbol "#P", its box the thing of "#B". While the patcher is
   loading, the inlet appears when all boxes are there. Returns -1 when `patcher` is no patcher, -3
   when the object has an inlet already, -4 without memory. */
KIV_EXPORT ErrorCode jpatcher_add_inlet(void *patcher, void *object) KIV_NOEXCEPT;

/* Gives `patcher` an outlet for `object` to send through, and writes it to `*slot`, a field of the
   object, now and whenever it changes: null before the patcher has finished loading and once the
   outlet is gone (a send through a null outlet does nothing). Otherwise like jpatcher_add_inlet. */
KIV_EXPORT ErrorCode jpatcher_add_outlet(void *patcher, void *object, Outlet **slot) KIV_NOEXCEPT;

/* Takes the inlet or outlet of `object` from the patcher, with the cords at it. Called by the
   object's free function. Does nothing for an object that has none, or a patcher that is gone. */
KIV_EXPORT void jpatcher_remove_port(void *patcher, const void *object) KIV_NOEXCEPT;

KIV_END

#endif
