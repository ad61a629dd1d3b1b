#ifndef KIV_JPATCHLINE_H
#define KIV_JPATCHLINE_H

#include <kiv/types.h>

KIV_BEGIN

KIV_EXPORT Object *jpatchline_get_box1(void *line) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatchline_get_outletnum(void *line) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatchline_get_box2(void *line) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatchline_get_inletnum(void *line) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatchline_get_nextline(void *line) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_get_startpoint(void *line, double *x, double *y) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_get_endpoint(void *line, double *x, double *y) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatchline_get_nummidpoints(void *line) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatchline_get_hidden(void *line) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_get_color(void *line, double *rgba) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatchline_get_pending(void *line) KIV_NOEXCEPT;
KIV_EXPORT double jpatchline_get_straightthresh(void *line) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatchline_get_straightstart(void *line) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatchline_get_straightend(void *line) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_set_hidden(void *line, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_set_color(void *line, const double *rgba) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_set_straightthresh(void *line, double threshold) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_set_straightstart(void *line, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_set_straightend(void *line, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_addpaintmethod(void *line, Method paint,
                                               void *argument) KIV_NOEXCEPT;

KIV_END

#endif
