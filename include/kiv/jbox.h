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

/* Flags of jbox_initclass and jbox_new. */
enum {
    JBOX_UI =
        1 /* a user-interface class: its name typed into an object box becomes a box of its own */
};

KIV_EXPORT void jbox_initclass(Class *c, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_new(Jbox *box, int32_t flags, int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void jbox_ready(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT void jbox_free(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_notify(Jbox *box, Symbol *name, Symbol *message, void *sender,
                                 void *data) KIV_NOEXCEPT;
KIV_EXPORT void jbox_processlegacydefaults(Jbox *box, struct Dictionary *dictionary,
                                           int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT void jbox_redraw(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT void jbox_grabfocus(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT void jbox_updatetextfield(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT void jbox_show_caption(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT void jbox_hide_caption(Jbox *box) KIV_NOEXCEPT;
KIV_EXPORT Object *jbox_get_patcher(void *box) KIV_NOEXCEPT;
KIV_EXPORT Object *jbox_get_object(void *box) KIV_NOEXCEPT;
KIV_EXPORT Object *jbox_get_nextobject(void *box) KIV_NOEXCEPT;
KIV_EXPORT Object *jbox_get_prevobject(void *box) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jbox_get_id(void *box) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jbox_get_varname(void *box) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jbox_get_kivclass(void *box) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_patching_rect(void *box, double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_presentation_rect(void *box, double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_patching_position(void *box, double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_patching_size(void *box, double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_presentation_position(void *box, double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_presentation_size(void *box, double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_rect_for_view(void *box, void *view, double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_rect_for_sym(void *box, Symbol *which, double *rect) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_hidden(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_ignoreclick(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_background(void *box) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_get_color(void *box, double *rgba) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jbox_get_fontname(void *box) KIV_NOEXCEPT;
KIV_EXPORT double jbox_get_fontsize(void *box) KIV_NOEXCEPT;
KIV_EXPORT int32_t jbox_get_font_weight(void *box) KIV_NOEXCEPT;
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
KIV_EXPORT Object *jbox_get_textfield(void *box) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jbox_get_boxpath(void *box) KIV_NOEXCEPT;
KIV_EXPORT void *jbox_getinlet(void *box, int32_t index) KIV_NOEXCEPT;
KIV_EXPORT Outlet *jbox_getoutlet(void *box, int32_t index) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_patching_rect(void *box, const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_presentation_rect(void *box, const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_patching_position(void *box, const double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_patching_size(void *box, const double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_presentation_position(void *box, const double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jbox_set_presentation_size(void *box, const double *size) KIV_NOEXCEPT;
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
KIV_EXPORT ErrorCode jbox_set_varname(void *box, Symbol *name) KIV_NOEXCEPT;

KIV_END

#endif
