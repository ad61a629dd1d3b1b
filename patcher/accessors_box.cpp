// The exported accessors of boxes.
#include <kiv/jbox.h>

#include "patcher/accessors.h"

using namespace kiv::accessors;
using namespace kiv::literals;

KIV_GET_OBJECT(jbox_get_patcher, "patcher")
KIV_GET_OBJECT(jbox_get_nextobject, "nextobject")
KIV_GET_OBJECT(jbox_get_prevobject, "prevobject")
KIV_GET_SYMBOL(jbox_get_id, "id")
KIV_GET_SYMBOL(jbox_get_varname, "varname")
KIV_GET_SYMBOL(jbox_get_kivclass, "kivclass")
KIV_GET_NUMBERS(jbox_get_patching_rect, "patching_rect", 4)
KIV_GET_NUMBERS(jbox_get_presentation_rect, "presentation_rect", 4)
KIV_GET_NUMBERS(jbox_get_patching_position, "patching_position", 2)
KIV_GET_NUMBERS(jbox_get_patching_size, "patching_size", 2)
KIV_GET_NUMBERS(jbox_get_presentation_position, "presentation_position", 2)
KIV_GET_NUMBERS(jbox_get_presentation_size, "presentation_size", 2)
KIV_GET_NUMBERS(jbox_get_color, "color", 4)
KIV_GET_INTEGER(jbox_get_hidden, "hidden")
KIV_GET_INTEGER(jbox_get_ignoreclick, "ignoreclick")
KIV_GET_INTEGER(jbox_get_background, "background")
KIV_GET_INTEGER(jbox_get_hinttrack, "hinttrack")
KIV_GET_INTEGER(jbox_get_canhilite, "canhilite")
KIV_GET_INTEGER(jbox_get_drawfirstin, "drawfirstin")
KIV_GET_INTEGER(jbox_get_drawinlast, "drawinlast")
KIV_GET_INTEGER(jbox_get_growy, "growy")
KIV_GET_INTEGER(jbox_get_growboth, "growboth")
KIV_GET_INTEGER(jbox_get_nogrow, "nogrow")
KIV_GET_INTEGER(jbox_get_outline, "outline")
KIV_GET_INTEGER(jbox_get_mousedragdelta, "mousedragdelta")
KIV_GET_SYMBOL(jbox_get_fontname, "fontname")
KIV_GET_NUMBER(jbox_get_fontsize, "fontsize")
int32_t jbox_get_font_weight(void *box) noexcept {
    return integer(box, "fontface"_sym) & 1;
}
int32_t jbox_get_font_slant(void *box) noexcept {
    return integer(box, "fontface"_sym) >> 1 & 1;
}
KIV_GET_OBJECT(jbox_get_textfield, "textfield")

KIV_SET_NUMBERS(jbox_set_patching_rect, "patching_rect", 4)
KIV_SET_NUMBERS(jbox_set_presentation_rect, "presentation_rect", 4)
KIV_SET_NUMBERS(jbox_set_patching_position, "patching_position", 2)
KIV_SET_NUMBERS(jbox_set_patching_size, "patching_size", 2)
KIV_SET_NUMBERS(jbox_set_presentation_position, "presentation_position", 2)
KIV_SET_NUMBERS(jbox_set_presentation_size, "presentation_size", 2)
KIV_SET_NUMBERS(jbox_set_color, "color", 4)
KIV_SET_INTEGER(jbox_set_hidden, "hidden")
KIV_SET_INTEGER(jbox_set_ignoreclick, "ignoreclick")
KIV_SET_INTEGER(jbox_set_background, "background")
KIV_SET_INTEGER(jbox_set_hinttrack, "hinttrack")
KIV_SET_INTEGER(jbox_set_outline, "outline")
KIV_SET_INTEGER(jbox_set_mousedragdelta, "mousedragdelta")
KIV_SET_SYMBOL(jbox_set_fontname, "fontname")
KIV_SET_NUMBER(jbox_set_fontsize, "fontsize")
KIV_SET_SYMBOL(jbox_set_hintstring, "hint")
KIV_SET_SYMBOL(jbox_set_varname, "varname")

namespace {

// The mode a view shows its boxes in decides which rectangle of a box it sees.
Symbol *rect_of_view(void *view) noexcept {
    return integer(view, "presentation"_sym) ? "presentation_rect"_sym : "patching_rect"_sym;
}

// Sets an attribute of both modes.
ErrorCode set_both(void *box, Symbol *patching, Symbol *presentation, int32_t count,
                   const double *values) noexcept {
    const ErrorCode result = set(box, patching, count, values);
    return result ? result : set(box, presentation, count, values);
}

}  // namespace

ErrorCode jbox_get_rect_for_view(void *box, void *view, double *rect) noexcept {
    return numbers(box, rect_of_view(view), 4, rect);
}
ErrorCode jbox_set_rect_for_view(void *box, void *view, const double *rect) noexcept {
    return set(box, rect_of_view(view), 4, rect);
}
ErrorCode jbox_get_rect_for_sym(void *box, Symbol *which, double *rect) noexcept {
    return which ? numbers(box, which, 4, rect) : ErrorGeneric;
}
ErrorCode jbox_set_rect_for_sym(void *box, Symbol *which, const double *rect) noexcept {
    return which ? set(box, which, 4, rect) : ErrorGeneric;
}
ErrorCode jbox_set_rect(void *box, const double *rect) noexcept {
    return set_both(box, "patching_rect"_sym, "presentation_rect"_sym, 4, rect);
}
ErrorCode jbox_set_position(void *box, const double *xy) noexcept {
    return set_both(box, "patching_position"_sym, "presentation_position"_sym, 2, xy);
}
ErrorCode jbox_set_size(void *box, const double *size) noexcept {
    return set_both(box, "patching_size"_sym, "presentation_size"_sym, 2, size);
}
