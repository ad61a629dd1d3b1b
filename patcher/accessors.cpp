// The exported accessors of patchers: each reads or writes one attribute by its name, whatever the
// class of its argument is.
#include <kiv/jpatcher.h>

#include <algorithm>

#include "patcher/accessors.h"

using namespace kiv::accessors;
using namespace kiv::literals;

// --- What the accessors of all three families share ----------------------------------------------

namespace kiv::accessors {

ErrorCode numbers(void *x, Symbol *name, int32_t count, double *values) noexcept {
    if (!values) {
        return ErrorGeneric;
    }
    std::fill_n(values, count, 0.);
    if (!x || !object_attr_get(x, name)) {
        return ErrorGeneric;
    }
    object_attr_getdouble_array(x, name, count, values);
    return ErrorNone;
}

ErrorCode set(void *x, Symbol *name, int32_t count, const double *values) noexcept {
    return x && values ? object_attr_setdouble_array(x, name, count, values) : ErrorGeneric;
}

}  // namespace kiv::accessors

// --- Patchers ------------------------------------------------------------------------------------

Object *jpatcher_get_firstobject(void *patcher) noexcept {
    return object_of(patcher, "firstobject"_sym);
}
Object *jpatcher_get_lastobject(void *patcher) noexcept {
    return object_of(patcher, "lastobject"_sym);
}
Object *jpatcher_get_firstline(void *patcher) noexcept {
    return object_of(patcher, "firstline"_sym);
}
Object *jpatcher_get_firstview(void *patcher) noexcept {
    return object_of(patcher, "firstview"_sym);
}
int32_t jpatcher_get_count(void *patcher) noexcept {
    return integer(patcher, "count"_sym);
}
Object *jpatcher_get_box(void *patcher) noexcept {
    return object_of(patcher, "box"_sym);
}
Object *jpatcher_get_parentpatcher(void *patcher) noexcept {
    return object_of(patcher, "parentpatcher"_sym);
}
Object *jpatcher_get_toppatcher(void *patcher) noexcept {
    return object_of(patcher, "toppatcher"_sym);
}
Symbol *jpatcher_get_name(void *patcher) noexcept {
    return symbol(patcher, "name"_sym);
}
Symbol *jpatcher_get_title(void *patcher) noexcept {
    return symbol(patcher, "title"_sym);
}
Symbol *jpatcher_get_filename(void *patcher) noexcept {
    return symbol(patcher, "filename"_sym);
}
Symbol *jpatcher_get_filepath(void *patcher) noexcept {
    return symbol(patcher, "filepath"_sym);
}
int32_t jpatcher_get_dirty(void *patcher) noexcept {
    return integer(patcher, "dirty"_sym);
}
int32_t jpatcher_get_bglocked(void *patcher) noexcept {
    return integer(patcher, "bglocked"_sym);
}
int32_t jpatcher_get_presentation(void *patcher) noexcept {
    return integer(patcher, "presentation"_sym);
}
int32_t jpatcher_get_noedit(void *patcher) noexcept {
    return integer(patcher, "noedit"_sym);
}
ErrorCode jpatcher_get_bgcolor(void *patcher, double *rgba) noexcept {
    return numbers(patcher, "bgcolor"_sym, 4, rgba);
}
ErrorCode jpatcher_get_gridsize(void *patcher, double *xy) noexcept {
    return numbers(patcher, "gridsize"_sym, 2, xy);
}
ErrorCode jpatcher_get_rect(void *patcher, double *rect) noexcept {
    return numbers(patcher, "rect"_sym, 4, rect);
}
Object *jpatcher_get_controller(void *patcher) noexcept {
    return object_of(patcher, "controller"_sym);
}
Symbol *jpatcher_get_kivclass(void *patcher) noexcept {
    return symbol(patcher, "kivclass"_sym);
}
Symbol *jpatcher_get_parentclass(void *patcher) noexcept {
    return symbol(patcher, "parentclass"_sym);
}
Object *jpatcher_get_hubholder(void *patcher) noexcept {
    return object_of(patcher, "hubholder"_sym);
}
int32_t jpatcher_get_fileversion(void *patcher) noexcept {
    return static_cast<int8_t>(integer(patcher, "fileversion"_sym));
}

ErrorCode jpatcher_set_locked(void *patcher, int32_t on) noexcept {
    return set(patcher, "locked"_sym, int64_t{on});
}
ErrorCode jpatcher_set_dirty(void *patcher, int32_t on) noexcept {
    return set(patcher, "dirty"_sym, int64_t{on});
}
ErrorCode jpatcher_set_title(void *patcher, Symbol *title) noexcept {
    return set(patcher, "title"_sym, title);
}
ErrorCode jpatcher_set_rect(void *patcher, const double *rect) noexcept {
    return set(patcher, "rect"_sym, 4, rect);
}
ErrorCode jpatcher_set_bgcolor(void *patcher, const double *rgba) noexcept {
    return set(patcher, "bgcolor"_sym, 4, rgba);
}
ErrorCode jpatcher_set_gridsize(void *patcher, const double *xy) noexcept {
    return set(patcher, "gridsize"_sym, 2, xy);
}
