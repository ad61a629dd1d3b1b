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

KIV_GET_OBJECT(jpatcher_get_firstobject, "firstobject")
KIV_GET_OBJECT(jpatcher_get_lastobject, "lastobject")
KIV_GET_OBJECT(jpatcher_get_firstline, "firstline")
KIV_GET_OBJECT(jpatcher_get_firstview, "firstview")
KIV_GET_INTEGER(jpatcher_get_count, "count")
KIV_GET_OBJECT(jpatcher_get_box, "box")
KIV_GET_OBJECT(jpatcher_get_parentpatcher, "parentpatcher")
KIV_GET_OBJECT(jpatcher_get_toppatcher, "toppatcher")
KIV_GET_SYMBOL(jpatcher_get_name, "name")
KIV_GET_SYMBOL(jpatcher_get_title, "title")
KIV_GET_SYMBOL(jpatcher_get_filename, "filename")
KIV_GET_SYMBOL(jpatcher_get_filepath, "filepath")
KIV_GET_INTEGER(jpatcher_get_dirty, "dirty")
KIV_GET_INTEGER(jpatcher_get_bglocked, "bglocked")
KIV_GET_INTEGER(jpatcher_get_presentation, "presentation")
KIV_GET_INTEGER(jpatcher_get_noedit, "noedit")
KIV_GET_NUMBERS(jpatcher_get_bgcolor, "bgcolor", 4)
KIV_GET_NUMBERS(jpatcher_get_gridsize, "gridsize", 2)
KIV_GET_NUMBERS(jpatcher_get_rect, "rect", 4)
KIV_GET_OBJECT(jpatcher_get_controller, "controller")
KIV_GET_SYMBOL(jpatcher_get_kivclass, "kivclass")
KIV_GET_SYMBOL(jpatcher_get_parentclass, "parentclass")
KIV_GET_OBJECT(jpatcher_get_hubholder, "hubholder")
int32_t jpatcher_get_fileversion(void *patcher) noexcept {
    return static_cast<int8_t>(integer(patcher, "fileversion"_sym));
}

KIV_SET_INTEGER(jpatcher_set_locked, "locked")
KIV_SET_INTEGER(jpatcher_set_dirty, "dirty")
KIV_SET_SYMBOL(jpatcher_set_title, "title")
KIV_SET_NUMBERS(jpatcher_set_rect, "rect", 4)
KIV_SET_NUMBERS(jpatcher_set_bgcolor, "bgcolor", 4)
KIV_SET_NUMBERS(jpatcher_set_gridsize, "gridsize", 2)
