// The exported accessors of boxes.
#include <kiv/jbox.h>

#include "patcher/accessors.h"

using namespace kiv::accessors;
using namespace kiv::literals;

Object *jbox_get_patcher(void *box) noexcept {
    return object_of(box, "patcher"_sym);
}
Object *jbox_get_nextobject(void *box) noexcept {
    return object_of(box, "nextobject"_sym);
}
Object *jbox_get_prevobject(void *box) noexcept {
    return object_of(box, "prevobject"_sym);
}
Symbol *jbox_get_id(void *box) noexcept {
    return symbol(box, "id"_sym);
}
Symbol *jbox_get_varname(void *box) noexcept {
    return symbol(box, "varname"_sym);
}
Symbol *jbox_get_kivclass(void *box) noexcept {
    return symbol(box, "kivclass"_sym);
}
ErrorCode jbox_get_patching_rect(void *box, double *rect) noexcept {
    return numbers(box, "patching_rect"_sym, 4, rect);
}
ErrorCode jbox_get_presentation_rect(void *box, double *rect) noexcept {
    return numbers(box, "presentation_rect"_sym, 4, rect);
}
ErrorCode jbox_get_patching_position(void *box, double *xy) noexcept {
    return numbers(box, "patching_position"_sym, 2, xy);
}
ErrorCode jbox_get_patching_size(void *box, double *size) noexcept {
    return numbers(box, "patching_size"_sym, 2, size);
}
ErrorCode jbox_get_presentation_position(void *box, double *xy) noexcept {
    return numbers(box, "presentation_position"_sym, 2, xy);
}
ErrorCode jbox_get_presentation_size(void *box, double *size) noexcept {
    return numbers(box, "presentation_size"_sym, 2, size);
}
ErrorCode jbox_get_color(void *box, double *rgba) noexcept {
    return numbers(box, "color"_sym, 4, rgba);
}
int32_t jbox_get_hidden(void *box) noexcept {
    return integer(box, "hidden"_sym);
}
int32_t jbox_get_ignoreclick(void *box) noexcept {
    return integer(box, "ignoreclick"_sym);
}
int32_t jbox_get_background(void *box) noexcept {
    return integer(box, "background"_sym);
}
int32_t jbox_get_hinttrack(void *box) noexcept {
    return integer(box, "hinttrack"_sym);
}
int32_t jbox_get_canhilite(void *box) noexcept {
    return integer(box, "canhilite"_sym);
}
int32_t jbox_get_drawfirstin(void *box) noexcept {
    return integer(box, "drawfirstin"_sym);
}
int32_t jbox_get_drawinlast(void *box) noexcept {
    return integer(box, "drawinlast"_sym);
}
int32_t jbox_get_growy(void *box) noexcept {
    return integer(box, "growy"_sym);
}
int32_t jbox_get_growboth(void *box) noexcept {
    return integer(box, "growboth"_sym);
}
int32_t jbox_get_nogrow(void *box) noexcept {
    return integer(box, "nogrow"_sym);
}
int32_t jbox_get_outline(void *box) noexcept {
    return integer(box, "outline"_sym);
}
int32_t jbox_get_mousedragdelta(void *box) noexcept {
    return integer(box, "mousedragdelta"_sym);
}
Symbol *jbox_get_fontname(void *box) noexcept {
    return symbol(box, "fontname"_sym);
}
double jbox_get_fontsize(void *box) noexcept {
    return number(box, "fontsize"_sym);
}
int32_t jbox_get_font_weight(void *box) noexcept {
    return integer(box, "fontface"_sym) & 1;
}
int32_t jbox_get_font_slant(void *box) noexcept {
    return integer(box, "fontface"_sym) >> 1 & 1;
}
Object *jbox_get_textfield(void *box) noexcept {
    return object_of(box, "textfield"_sym);
}

ErrorCode jbox_set_patching_rect(void *box, const double *rect) noexcept {
    return set(box, "patching_rect"_sym, 4, rect);
}
ErrorCode jbox_set_presentation_rect(void *box, const double *rect) noexcept {
    return set(box, "presentation_rect"_sym, 4, rect);
}
ErrorCode jbox_set_patching_position(void *box, const double *xy) noexcept {
    return set(box, "patching_position"_sym, 2, xy);
}
ErrorCode jbox_set_patching_size(void *box, const double *size) noexcept {
    return set(box, "patching_size"_sym, 2, size);
}
ErrorCode jbox_set_presentation_position(void *box, const double *xy) noexcept {
    return set(box, "presentation_position"_sym, 2, xy);
}
ErrorCode jbox_set_presentation_size(void *box, const double *size) noexcept {
    return set(box, "presentation_size"_sym, 2, size);
}
ErrorCode jbox_set_color(void *box, const double *rgba) noexcept {
    return set(box, "color"_sym, 4, rgba);
}
ErrorCode jbox_set_hidden(void *box, int32_t on) noexcept {
    return set(box, "hidden"_sym, int64_t{on});
}
ErrorCode jbox_set_ignoreclick(void *box, int32_t on) noexcept {
    return set(box, "ignoreclick"_sym, int64_t{on});
}
ErrorCode jbox_set_background(void *box, int32_t on) noexcept {
    return set(box, "background"_sym, int64_t{on});
}
ErrorCode jbox_set_hinttrack(void *box, int32_t on) noexcept {
    return set(box, "hinttrack"_sym, int64_t{on});
}
ErrorCode jbox_set_outline(void *box, int32_t on) noexcept {
    return set(box, "outline"_sym, int64_t{on});
}
ErrorCode jbox_set_mousedragdelta(void *box, int32_t on) noexcept {
    return set(box, "mousedragdelta"_sym, int64_t{on});
}
ErrorCode jbox_set_fontname(void *box, Symbol *name) noexcept {
    return set(box, "fontname"_sym, name);
}
ErrorCode jbox_set_fontsize(void *box, double size) noexcept {
    return set(box, "fontsize"_sym, size);
}
ErrorCode jbox_set_hintstring(void *box, Symbol *hint) noexcept {
    return set(box, "hint"_sym, hint);
}
ErrorCode jbox_set_varname(void *box, Symbol *name) noexcept {
    return set(box, "varname"_sym, name);
}

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
