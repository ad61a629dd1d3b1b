// The exported accessors of cords.
#include <kiv/jpatchline.h>

#include "patcher/accessors.h"

using namespace kiv::accessors;
using namespace kiv::literals;

Object *jpatchline_get_box1(void *line) noexcept {
    return object_of(line, "box1"_sym);
}
int32_t jpatchline_get_outletnum(void *line) noexcept {
    return integer(line, "outletnum"_sym);
}
Object *jpatchline_get_box2(void *line) noexcept {
    return object_of(line, "box2"_sym);
}
int32_t jpatchline_get_inletnum(void *line) noexcept {
    return integer(line, "inletnum"_sym);
}
Object *jpatchline_get_nextline(void *line) noexcept {
    return object_of(line, "nextline"_sym);
}
int32_t jpatchline_get_nummidpoints(void *line) noexcept {
    return integer(line, "nummidpoints"_sym);
}
int32_t jpatchline_get_hidden(void *line) noexcept {
    return integer(line, "hidden"_sym);
}
ErrorCode jpatchline_get_color(void *line, double *rgba) noexcept {
    return numbers(line, "patchlinecolor"_sym, 4, rgba);
}
int32_t jpatchline_get_pending(void *line) noexcept {
    return integer(line, "pending"_sym);
}
double jpatchline_get_straightthresh(void *line) noexcept {
    return number(line, "straightthresh"_sym);
}
int32_t jpatchline_get_straightstart(void *line) noexcept {
    return integer(line, "straightstart"_sym);
}
int32_t jpatchline_get_straightend(void *line) noexcept {
    return integer(line, "straightend"_sym);
}

ErrorCode jpatchline_set_hidden(void *line, int32_t on) noexcept {
    return set(line, "hidden"_sym, int64_t{on});
}
ErrorCode jpatchline_set_color(void *line, const double *rgba) noexcept {
    return set(line, "patchlinecolor"_sym, 4, rgba);
}
ErrorCode jpatchline_set_straightthresh(void *line, double threshold) noexcept {
    return set(line, "straightthresh"_sym, threshold);
}
ErrorCode jpatchline_set_straightstart(void *line, int32_t on) noexcept {
    return set(line, "straightstart"_sym, int64_t{on});
}
ErrorCode jpatchline_set_straightend(void *line, int32_t on) noexcept {
    return set(line, "straightend"_sym, int64_t{on});
}

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
