/* Patchers: objects of class `jpatcher` (namespace "nobox") that own boxes and cords.

   1. Main thread only: patchers, boxes and cords are made, changed, walked and freed there.
   2. Accessors named after an attribute read or write that attribute through the attribute
      interface, so they work for any object that has it. A getter answers null, 0 or the empty
      symbol for a null object or one without the attribute, and posts nothing; one that fills an
      array returns 0, or -1 after filling it with zeros. A setter returns the result of setting the
      attribute, -1 for a null object or one without it, and notifies "attr_modified".
   3. A patcher owns its boxes and cords; what the getters return is borrowed, and is gone once it
      is removed. `object_free` frees a patcher with everything in it, also from inside a message
      that one of its objects handles.
   4. Identifiers ("obj-1") name boxes in documents, scripting names ("varname") name them for
      people and scripts. Both are unique in one patcher.

   Messages for direct calls (`object_method`), besides those that accessors stand for:
   "iterate" (JpatcherFunction, argument, flags) and "traverse" (JpatcherFunction, argument: every
   patcher, the receiver first) return the patcher when the function stopped the walk, else null;
   the function may free or add boxes, or free the patcher. "getnamedbox" (symbol) returns a box.
   "getboxnames" (int32_t *count, Symbol ***names) hands over an array that the caller frees.
   "boxspan" (double rect[4]) gives the smallest rectangle around all boxes. "appendtodictionary"
   (dictionary) adds the document form. "parentpatcher" (Object **parent). "remove" (box, why)
   takes a box out without freeing it.
   Typed messages: "newobject", "newpatchline" and "connect" (box, outlet, box, inlet, a box being
   an object, a scripting name or an id; the reply is the cord), "disconnect" (the same four),
   "deleteobj", "dumpboxes", "vis", "front", "wclose", "dispose" (frees a top-level patcher once the
   message has run to its end), "title", "setname", "setclass", "dirty", "clean", "write" [name],
   "writeas" name, "loadbang", "closebang". */
#ifndef KIV_JPATCHER_H
#define KIV_JPATCHER_H

#include <kiv/dictionary.h>
#include <kiv/types.h>

KIV_BEGIN

/* Flags of jpatcher_resolvebox_ex. */
enum {
    JPATCHER_RESOLVE_OUTWARD = 1 /* also in the enclosing patchers, innermost first */
};

/* Flags of the message "iterate". */
enum {
    JPATCHER_ITERATE_BOXES = 1, /* hand over boxes rather than the objects they show */
    JPATCHER_ITERATE_DEEP = 2   /* also those of subpatchers, each before the boxes after it */
};
/* What "iterate" and "traverse" call with their argument and an object; non-zero stops the walk. */
typedef int32_t (*JpatcherFunction)(void *arg, Object *x);

/* 1 when the class of `x` is named "jpatcher", else 0, also for what is no object. */
KIV_EXPORT int32_t jpatcher_is_patcher(const void *x) KIV_NOEXCEPT;

/* --- reading attributes ("first" and "last" in drawing order, which is also document order) */
/* First box, or null in an empty patcher. */
KIV_EXPORT Object *jpatcher_get_firstobject(void *patcher) KIV_NOEXCEPT;
/* Last box, or null. */
KIV_EXPORT Object *jpatcher_get_lastobject(void *patcher) KIV_NOEXCEPT;
/* First cord, or null; `jpatchline_get_nextline` leads to the others. */
KIV_EXPORT Object *jpatcher_get_firstline(void *patcher) KIV_NOEXCEPT;
/* The view set by the user interface, or null. */
KIV_EXPORT Object *jpatcher_get_firstview(void *patcher) KIV_NOEXCEPT;
/* Number of boxes. */
KIV_EXPORT int32_t jpatcher_get_count(void *patcher) KIV_NOEXCEPT;
/* The box whose content the patcher is, or null for a top-level patcher. */
KIV_EXPORT Object *jpatcher_get_box(void *patcher) KIV_NOEXCEPT;
/* The enclosing patcher: of the box it sits in; else what its owner object's method
   "parentpatcher" answers; else the patcher that was receiving boxes when it was made; or null. */
KIV_EXPORT Object *jpatcher_get_parentpatcher(void *patcher) KIV_NOEXCEPT;
/* The outermost patcher around it, itself when there is none. */
KIV_EXPORT Object *jpatcher_get_toppatcher(void *patcher) KIV_NOEXCEPT;
/* Its name: a subpatcher's typed name, or the file name without extension. */
KIV_EXPORT Symbol *jpatcher_get_name(void *patcher) KIV_NOEXCEPT;
/* The window's title; the name when none has been set. */
KIV_EXPORT Symbol *jpatcher_get_title(void *patcher) KIV_NOEXCEPT;
/* Name of the file it came from; empty for subpatchers and new patchers. */
KIV_EXPORT Symbol *jpatcher_get_filename(void *patcher) KIV_NOEXCEPT;
/* Whole path of that file; for a subpatcher, of the file it is stored in. */
KIV_EXPORT Symbol *jpatcher_get_filepath(void *patcher) KIV_NOEXCEPT;
/* 1 when there are unsaved changes. */
KIV_EXPORT int32_t jpatcher_get_dirty(void *patcher) KIV_NOEXCEPT;
/* 1 when the background layer is locked. */
KIV_EXPORT int32_t jpatcher_get_bglocked(void *patcher) KIV_NOEXCEPT;
/* Background colour: red, green, blue, alpha, each 0 to 1. */
KIV_EXPORT ErrorCode jpatcher_get_bgcolor(void *patcher, double *rgba) KIV_NOEXCEPT;
/* Grid spacing: x, y. */
KIV_EXPORT ErrorCode jpatcher_get_gridsize(void *patcher, double *xy) KIV_NOEXCEPT;
/* Window rectangle: x, y, width, height; all 0 before there has been a window. */
KIV_EXPORT ErrorCode jpatcher_get_rect(void *patcher, double *rect) KIV_NOEXCEPT;
/* 1 in presentation mode. */
KIV_EXPORT int32_t jpatcher_get_presentation(void *patcher) KIV_NOEXCEPT;
/* 1 when editing is forbidden. */
KIV_EXPORT int32_t jpatcher_get_noedit(void *patcher) KIV_NOEXCEPT;
/* The patcher's controller (below), made when it is first asked for; owned by the patcher. */
KIV_EXPORT Object *jpatcher_get_controller(void *patcher) KIV_NOEXCEPT;
/* What the patcher goes by: "jpatcher", or the class name an abstraction was asked for by. */
KIV_EXPORT Symbol *jpatcher_get_kivclass(void *patcher) KIV_NOEXCEPT;
/* Class of the box that contains it; empty for a top-level patcher. */
KIV_EXPORT Symbol *jpatcher_get_parentclass(void *patcher) KIV_NOEXCEPT;
/* The format version its document had, as a signed 8-bit value; 0 when it had none. */
KIV_EXPORT int32_t jpatcher_get_fileversion(void *patcher) KIV_NOEXCEPT;
/* The format version that documents are written in. */
KIV_EXPORT int32_t jpatcher_get_currentfileversion(void) KIV_NOEXCEPT;
/* The font of new boxes: an object with the attributes "fontname", "fontsize" and "fontface", which
   follow the patcher's defaults. Owned by the patcher; null for no patcher. */
KIV_EXPORT void *jpatcher_getboxfont(void *patcher) KIV_NOEXCEPT;
/* The object set as its parameter hub, or null. */
KIV_EXPORT Object *jpatcher_get_hubholder(void *patcher) KIV_NOEXCEPT;

/* --- writing attributes */
/* Locks (1) or unlocks the patcher for editing. */
KIV_EXPORT ErrorCode jpatcher_set_locked(void *patcher, int32_t on) KIV_NOEXCEPT;
/* Marks it as having unsaved changes, or none. */
KIV_EXPORT ErrorCode jpatcher_set_dirty(void *patcher, int32_t on) KIV_NOEXCEPT;
/* Sets the window's title; the empty symbol goes back to the name. */
KIV_EXPORT ErrorCode jpatcher_set_title(void *patcher, Symbol *title) KIV_NOEXCEPT;
/* Sets the window rectangle, four numbers. */
KIV_EXPORT ErrorCode jpatcher_set_rect(void *patcher, const double *rect) KIV_NOEXCEPT;
/* Sets the background colour, four numbers. */
KIV_EXPORT ErrorCode jpatcher_set_bgcolor(void *patcher, const double *rgba) KIV_NOEXCEPT;
/* Sets the grid spacing, two numbers. */
KIV_EXPORT ErrorCode jpatcher_set_gridsize(void *patcher, const double *xy) KIV_NOEXCEPT;

/* --- boxes by name */
/* Takes `box` out of the patcher (message "remove" with the word "free") with its cords, then
   frees it. Returns 0, or -1 when `box` is no box of `patcher`. */
KIV_EXPORT ErrorCode jpatcher_deleteobj(void *patcher, void *box) KIV_NOEXCEPT;
/* The name itself when no box bears it, else the first of NAME[1], NAME[2], ... that is free. */
KIV_EXPORT Symbol *jpatcher_uniqueboxname(void *patcher, Symbol *name) KIV_NOEXCEPT;
/* The box with this scripting name, else with this id, or null. A path of names joined by "::"
   leads into subpatchers; one that begins with "::" starts at the top-level patcher. */
KIV_EXPORT Object *jpatcher_resolvebox(void *patcher, Symbol *name) KIV_NOEXCEPT;
/* As jpatcher_resolvebox; `flags` as above. */
KIV_EXPORT Object *jpatcher_resolvebox_ex(void *patcher, Symbol *name, int32_t flags) KIV_NOEXCEPT;
/* The box at a path as `jbox_get_boxpath` gives it: from `patcher`, else from the top-level
 * patcher. */
KIV_EXPORT Object *jpatcher_resolvebox_boxpath(void *patcher, Symbol *box_path) KIV_NOEXCEPT;
/* The object shown by the box that jpatcher_resolvebox finds, or null. */
KIV_EXPORT Object *jpatcher_resolveobj(void *patcher, Symbol *name) KIV_NOEXCEPT;
/* The object shown by the box that jpatcher_resolvebox_boxpath finds, or null. */
KIV_EXPORT Object *jpatcher_resolveobj_boxpath(void *patcher, Symbol *box_path) KIV_NOEXCEPT;
/* The subpatcher in the box that jpatcher_resolvebox finds, or null. */
KIV_EXPORT Object *jpatcher_resolvepatcher(void *patcher, Symbol *name) KIV_NOEXCEPT;
/* Has `listener`'s method "notify" called with (listener, name of the patcher, "boxadded" or
   "boxremoved", patcher, box) from now on. A listener that is there already stays once. Returns 0,
   -1 for no patcher or no object, -4. Remove it before it is freed. */
KIV_EXPORT ErrorCode jpatcher_addboxlistener(void *patcher, void *listener) KIV_NOEXCEPT;
/* Returns 0, or -1 when `listener` is none. */
KIV_EXPORT ErrorCode jpatcher_removeboxlistener(void *patcher, void *listener) KIV_NOEXCEPT;
/* Posts an error from `box` (from the patcher when null) that the user is to see at once, and
   notifies the patcher's clients "errorobtrusive" with the box, for views to show it there. */
KIV_EXPORT void jpatcher_error_obtrusive(void *patcher, void *box, const char *text) KIV_NOEXCEPT;
/* A number for a new context of sends: one more than the last. */
KIV_EXPORT int32_t jpatcher_inc_kivsendcontext(void) KIV_NOEXCEPT;
/* Has the entries of `prototype` applied to the next box that is created, before those of its own
   dictionary. Kept (retained) until then; null drops one that waits. */
KIV_EXPORT void jpatcher_setnextobexprototype(Dictionary *prototype) KIV_NOEXCEPT;
/* The prototype that waits for the next box, borrowed, or null. */
KIV_EXPORT Dictionary *jpatcher_getnextobexprototype(void) KIV_NOEXCEPT;

/* --- documents */
/* Major version of the program that wrote the document being read; this program's own when none is
   being read or it does not say. */
KIV_EXPORT int32_t jpatcher_dictionary_version(void) KIV_NOEXCEPT;
/* "modernui" of the "appversion" of a patcher dictionary (of the document being read when null):
   1 when there is no dictionary at all, 0 when it has none. */
KIV_EXPORT int32_t jpatcher_dictionary_modernui(Dictionary *dictionary) KIV_NOEXCEPT;

/* --- the controller: editing operations for a user interface. `controller` is what
   jpatcher_get_controller gives; another object does nothing. */
/* Creates a box: from the dictionary when that is the one atom given, else an object box whose text
   is `selector` (or null) and the atoms. Returns the box, or null. */
KIV_EXPORT Object *jpatchercontroller_createobject(void *controller, Symbol *selector, int32_t argc,
                                                   Atom *argv) KIV_NOEXCEPT;
/* Connects outlet `outlet` (0 = leftmost) of `box1` to inlet `inlet` of `box2`. Returns the cord,
   the one there was if they were connected, or null after an error has been posted. */
KIV_EXPORT Object *jpatchercontroller_connectobjects(void *controller, void *box1, int32_t outlet,
                                                     void *box2, int32_t inlet) KIV_NOEXCEPT;
/* Creates the object that a file defines (an abstraction, an external) at a position. Returns the
   box, or null. */
KIV_EXPORT Object *jpatchercontroller_pastefileat(void *controller, const char *file_name,
                                                  int16_t path, double x, double y) KIV_NOEXCEPT;
/* Sends "read" with the whole path to the object in `box`. Returns the box, or null when the object
   cannot read files. */
KIV_EXPORT Object *jpatchercontroller_pastefileintoobject(void *controller, void *box,
                                                          const char *file_name,
                                                          int16_t path) KIV_NOEXCEPT;
/* Sets the patcher's first view (borrowed). */
KIV_EXPORT ErrorCode jpatchercontroller_setpatcherview(void *controller, void *view) KIV_NOEXCEPT;

KIV_END

#endif
