/* Boxes from text, and what modules need while their classes are defined.

   A box is made by its patcher from a box dictionary, the form boxes have in documents: "kivclass"
   names the box class, "text" holds the words of an object box, "patching_rect" its place. An
   object box makes the object that its first word names: a loaded class (without regard to case),
   a class of an external module on the search path, or a patcher file on it (an abstraction). What
   cannot be made leaves a placeholder that keeps the dictionary, and an error in the console.

   Main thread only. Null arguments give null or 0. Boxes belong to their patcher. */
#ifndef KIV_NEWOBJECT_H
#define KIV_NEWOBJECT_H

#include <kiv/dictionary.h>
#include <kiv/types.h>

KIV_BEGIN

/* Makes a box as if `text` were typed into a new object box: "metro 100". Text that begins with
   "newobj" sets entries of the box dictionary instead: "newobj @text \"metro 100\" @hidden 1". At
   most 4094 (4095) bytes count. Returns the box, or null. */
KIV_EXPORT Object *newobject_fromboxtext(void *patcher, const char *text) KIV_NOEXCEPT;
/* Makes a box from a box dictionary, or from a dictionary that holds one under "box", by sending
   the patcher "newobject". The dictionary stays the caller's. Returns the box; null, with a
   warning, when `patcher` is no valid object. */
KIV_EXPORT Object *newobject_fromdictionary(void *patcher, Dictionary *dictionary) KIV_NOEXCEPT;
/* Makes a box from formatted "@key value" pairs, at most 4095 bytes of them: "@kivclass newobj
   @text \"metro %d\" @patching_position %g %g". Returns the box, or null. */
KIV_EXPORT Object *newobject_sprintf(void *patcher, const char *format, ...) KIV_NOEXCEPT
    KIV_PRINTF(2, 3);
/* Allocates an instance of a class without running its constructor, as object_alloc does. */
KIV_EXPORT void *newobject(Class *c) KIV_NOEXCEPT;
/* Called from ext_main: makes the class that the module is loaded for known under another name as
   well. Returns the symbol of the name. Outside ext_main it has no other effect. */
KIV_EXPORT Symbol *alias(const char *name) KIV_NOEXCEPT;
/* True when `x` is an object box, a patcher, a "bpatcher" box. Anything but a live object is none
   of them. */
KIV_EXPORT int32_t isnewex(const void *x) KIV_NOEXCEPT;
KIV_EXPORT int32_t ispatcher(const void *x) KIV_NOEXCEPT;
KIV_EXPORT int32_t isbpatcher(const void *x) KIV_NOEXCEPT;
/* True when an object maker (the thing of the symbol "#N", or a namespace's class factory) has a
   method of its own for a name, which is then never searched for as a file. */
KIV_EXPORT int32_t newex_knows(void *maker, Symbol *name) KIV_NOEXCEPT;

KIV_END

#endif
