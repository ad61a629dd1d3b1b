/* Boxes: what a patcher shows of its objects, and the box part of box classes.

   1. Main thread only.
   2. Accessors: as in <kiv/jpatcher.h>. `box` may be any object with the attribute.
   3. Rectangles are four doubles (x, y, width, height), positions and sizes two, colours four (red,
      green, blue, alpha, each 0 to 1), in the patcher's coordinates.
   4. A box class is a class of namespace "box" whose record begins with a Jbox. Its constructor
      (type "gimme") gets the box dictionary as its one atom:

          Dial *x = (Dial *)object_alloc(dial_class);
          ... defaults of the class's own attributes ...
          if (jbox_new(&x->box, 0, argc, argv)) { object_free(x); return NULL; }
          jbox_ready(&x->box);

      and its free function ends with jbox_free. Its own attributes that carry the attribute "save"
      are read from and written to documents. */
#ifndef KIV_JBOX_H
#define KIV_JBOX_H

#include <kiv/types.h>

struct Dictionary;

KIV_BEGIN

/* The first field of every box class's record. */
typedef struct Jbox {
    Object ob;
    void *obex;             /* extension record */
    struct BoxState *state; /* the box part: geometry, names, appearance; made by jbox_new */
} Jbox;

/* Flags of jbox_initclass. */
enum {
    /* A user-interface class: its name typed into an object box becomes a box of its own. */
    JBOX_UI = 1
};

/* --- the life of a box */
/* Adds the attributes and methods of boxes to a class, before it is registered. A class that adds
   an attribute or method of the same name afterwards replaces the box's. */
KIV_EXPORT void jbox_initclass(Class *c, int32_t flags) KIV_NOEXCEPT;
/* Makes the box part of a new instance from its box dictionary, `argv[0]`, which also names the
   patcher that the box joins; without a patcher an error is posted and the box belongs to none.
   Returns 0, -2 for a null box, -4 without memory (the box then has no box part). `flags` is
   reserved: pass 0. */
KIV_EXPORT ErrorCode jbox_new(Jbox *box, int32_t flags, int32_t argc, Atom *argv) KIV_NOEXCEPT;
/* Marks construction as finished; the dictionary is let go of. */
KIV_EXPORT void jbox_ready(Jbox *box) KIV_NOEXCEPT;
/* Takes the box out of its patcher, with its cords, frees the object it shows and the box part. */
KIV_EXPORT void jbox_free(Jbox *box) KIV_NOEXCEPT;
/* What a box class's own "notify" method passes on: redraws the box when an attribute changed. */
KIV_EXPORT ErrorCode jbox_notify(Jbox *box, Symbol *name, Symbol *message, void *sender,
                                 void *data) KIV_NOEXCEPT;
/* Gives a box whose dictionary says nothing of its font the patcher's default font, as older
   documents expect. `flags` is reserved: pass 0. */
KIV_EXPORT void jbox_processlegacydefaults(Jbox *box, struct Dictionary *dictionary,
                                           int32_t flags) KIV_NOEXCEPT;

/* --- what a box wants of the views that show it: each notifies the box's clients ("redraw",
   "grabfocus", "updatetextfield", "showcaption", "hidecaption"); the box's attribute "captionshown"
   and the patcher's "focusbox" keep what was asked for last */
KIV_EXPORT void jbox_redraw(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT void jbox_grabfocus(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT void jbox_updatetextfield(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT void jbox_show_caption(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT void jbox_hide_caption(Jbox *box) KIV_NOEXCEPT;

/* --- reading */
/* The patcher it is in, or null. */
KIV_EXPORT Object *jbox_get_patcher(void *box) KIV_NOEXCEPT;
/* The object it shows: the one inside an object box, or the box itself. Null for no box. */
KIV_EXPORT Object *jbox_get_object(void *box) KIV_NOEXCEPT;
/* Next box in the patcher's order, or null. */
KIV_EXPORT Object *jbox_get_nextobject(void *box) KIV_NOEXCEPT;
/* Previous box, or null. */
KIV_EXPORT Object *jbox_get_prevobject(void *box) KIV_NOEXCEPT;
/* Its id, unique in the patcher. */
KIV_EXPORT Symbol *jbox_get_id(void *box) KIV_NOEXCEPT;
/* Its scripting name, or the empty symbol. */
KIV_EXPORT Symbol *jbox_get_varname(void *box) KIV_NOEXCEPT;
/* Class name as documents keep it; for a placeholder, that of the class that was missing. */
KIV_EXPORT Symbol *jbox_get_kivclass(void *box) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_patching_rect(void *box, double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_presentation_rect(void *box, double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_patching_position(void *box, double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_patching_size(void *box, double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_presentation_position(void *box, double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_presentation_size(void *box, double *size) KIV_NOEXCEPT;
/* The rectangle that a view sees: by its mode, of presentation or of patching. */
KIV_EXPORT ErrorCode jbox_get_rect_for_view(void *box, void *view, double *rect) KIV_NOEXCEPT;
/* The rectangle in the attribute named `which`. */
KIV_EXPORT ErrorCode jbox_get_rect_for_sym(void *box, Symbol *which, double *rect) KIV_NOEXCEPT;
/* 1 when hidden in a locked patcher. */
KIV_EXPORT int32_t jbox_get_hidden(void *box) KIV_NOEXCEPT;
/* 1 when it ignores the mouse. */
KIV_EXPORT int32_t jbox_get_ignoreclick(void *box) KIV_NOEXCEPT;
/* 1 in the background layer. */
KIV_EXPORT int32_t jbox_get_background(void *box) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_color(void *box, double *rgba) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jbox_get_fontname(void *box) KIV_NOEXCEPT;
/* In points. */
KIV_EXPORT double jbox_get_fontsize(void *box) KIV_NOEXCEPT;
/* 1 for bold. */
KIV_EXPORT int32_t jbox_get_font_weight(void *box) KIV_NOEXCEPT;
/* 1 for italic. */
KIV_EXPORT int32_t jbox_get_font_slant(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_hinttrack(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_canhilite(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_drawfirstin(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_drawinlast(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_growy(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_growboth(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_nogrow(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_outline(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_mousedragdelta(void *box) KIV_NOEXCEPT;
/* The text field of the user interface, or null. */
KIV_EXPORT Object *jbox_get_textfield(void *box) KIV_NOEXCEPT;
/* Its path from the top-level patcher: scripting names (ids where there is none) joined by "::". */
KIV_EXPORT Symbol *jbox_get_boxpath(void *box) KIV_NOEXCEPT;
/* What a cord to inlet `index` (0 = leftmost) connects to: the object, an Inlet, or null when there
   is none. The leftmost inlet is the object itself, but for patchers and classes without one. */
KIV_EXPORT void *jbox_getinlet(void *box, int32_t index) KIV_NOEXCEPT;
/* Outlet `index` (0 = leftmost), or null when there is none. */
KIV_EXPORT Outlet *jbox_getoutlet(void *box, int32_t index) KIV_NOEXCEPT;

/* --- writing */
KIV_EXPORT ErrorCode jbox_set_patching_rect(void *box, const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_presentation_rect(void *box, const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_patching_position(void *box, const double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_patching_size(void *box, const double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_presentation_position(void *box, const double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_presentation_size(void *box, const double *size) KIV_NOEXCEPT;
/* The next three set both modes. */
KIV_EXPORT ErrorCode jbox_set_rect(void *box, const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_position(void *box, const double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_size(void *box, const double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_rect_for_view(void *box, void *view, const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_rect_for_sym(void *box, Symbol *which,
                                           const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_hidden(void *box, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_ignoreclick(void *box, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_background(void *box, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_color(void *box, const double *rgba) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_fontname(void *box, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_fontsize(void *box, double size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_hintstring(void *box, Symbol *hint) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_hinttrack(void *box, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_outline(void *box, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_mousedragdelta(void *box, int32_t on) KIV_NOEXCEPT;
/* Sets the scripting name; one that another box bears gets "[n]" behind it. Empty: none. */
KIV_EXPORT ErrorCode jbox_set_varname(void *box, Symbol *name) KIV_NOEXCEPT;

KIV_END

#endif
