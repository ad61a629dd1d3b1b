// The exported accessors of cords.
#include <kiv/jpatchline.h>

#include "patcher/accessors.h"

using namespace kiv::accessors;
using namespace kiv::literals;

KIV_GET_OBJECT(jpatchline_get_box1, "box1")
KIV_GET_INTEGER(jpatchline_get_outletnum, "outletnum")
KIV_GET_OBJECT(jpatchline_get_box2, "box2")
KIV_GET_INTEGER(jpatchline_get_inletnum, "inletnum")
KIV_GET_OBJECT(jpatchline_get_nextline, "nextline")
KIV_GET_INTEGER(jpatchline_get_nummidpoints, "nummidpoints")
KIV_GET_INTEGER(jpatchline_get_hidden, "hidden")
KIV_GET_NUMBERS(jpatchline_get_color, "patchlinecolor", 4)
KIV_GET_INTEGER(jpatchline_get_pending, "pending")
KIV_GET_NUMBER(jpatchline_get_straightthresh, "straightthresh")
KIV_GET_INTEGER(jpatchline_get_straightstart, "straightstart")
KIV_GET_INTEGER(jpatchline_get_straightend, "straightend")

KIV_SET_INTEGER(jpatchline_set_hidden, "hidden")
KIV_SET_NUMBERS(jpatchline_set_color, "patchlinecolor", 4)
KIV_SET_NUMBER(jpatchline_set_straightthresh, "straightthresh")
KIV_SET_INTEGER(jpatchline_set_straightstart, "straightstart")
KIV_SET_INTEGER(jpatchline_set_straightend, "straightend")

namespace {

ErrorCode point(void *line, Symbol *name, double *x, double *y) noexcept {
    double xy[2];
    const ErrorCode result = numbers(line, name, 2, xy);
    if (x) {
        *x = xy[0];
    }
    if (y) {
        *y = xy[1];
    }
    return result;
}

}  // namespace

ErrorCode jpatchline_get_startpoint(void *line, double *x, double *y) noexcept {
    return point(line, "startpoint"_sym, x, y);
}
ErrorCode jpatchline_get_endpoint(void *line, double *x, double *y) noexcept {
    return point(line, "endpoint"_sym, x, y);
}
