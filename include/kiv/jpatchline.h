/* Patch cords: objects of class `jpatchline`, each joining an outlet of one box to an inlet of
   another (or the same) box of a patcher, which owns them. Made by the patcher's messages "connect"
   and "newpatchline"; `object_free` disconnects and removes one.

   Main thread only. Accessors: as in <kiv/jpatcher.h>. Coordinates are the patcher's. */
#ifndef KIV_JPATCHLINE_H
#define KIV_JPATCHLINE_H

#include <kiv/types.h>

KIV_BEGIN

/* --- reading */
/* Source box. */
KIV_EXPORT Object *jpatchline_get_box1(void *line) KIV_NOEXCEPT;
/* Index of its outlet, 0 = leftmost. */
KIV_EXPORT int32_t jpatchline_get_outletnum(void *line) KIV_NOEXCEPT;
/* Destination box. */
KIV_EXPORT Object *jpatchline_get_box2(void *line) KIV_NOEXCEPT;
/* Index of its inlet, 0 = leftmost. */
KIV_EXPORT int32_t jpatchline_get_inletnum(void *line) KIV_NOEXCEPT;
/* Next cord of the patcher, or null. */
KIV_EXPORT Object *jpatchline_get_nextline(void *line) KIV_NOEXCEPT;
/* Where it leaves the source box. A null `x` or `y` is not filled. */
KIV_EXPORT ErrorCode jpatchline_get_startpoint(void *line, double *x, double *y) KIV_NOEXCEPT;
/* Where it enters the destination box. */
KIV_EXPORT ErrorCode jpatchline_get_endpoint(void *line, double *x, double *y) KIV_NOEXCEPT;
/* Number of bend points. */
KIV_EXPORT int32_t jpatchline_get_nummidpoints(void *line) KIV_NOEXCEPT;
/* 1 when hidden in a locked patcher. */
KIV_EXPORT int32_t jpatchline_get_hidden(void *line) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_get_color(void *line, double *rgba) KIV_NOEXCEPT;
/* 1 when it joins nothing: the outlet or inlet it names does not exist, or refused it. Such cords
   stay in their documents. */
KIV_EXPORT int32_t jpatchline_get_pending(void *line) KIV_NOEXCEPT;
/* How far off an end may be for the first and last segments to be drawn straight. */
KIV_EXPORT double jpatchline_get_straightthresh(void *line) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatchline_get_straightstart(void *line) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatchline_get_straightend(void *line) KIV_NOEXCEPT;

/* --- writing */
KIV_EXPORT ErrorCode jpatchline_set_hidden(void *line, int32_t on) KIV_NOEXCEPT;
/* Gives it a colour of its own. */
KIV_EXPORT ErrorCode jpatchline_set_color(void *line, const double *rgba) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_set_straightthresh(void *line, double threshold) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_set_straightstart(void *line, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchline_set_straightend(void *line, int32_t on) KIV_NOEXCEPT;
/* Adds a function for views to call, with `argument`, when they draw the cord. Returns 0, -1 for a
   null function or no cord, -4. */
KIV_EXPORT ErrorCode jpatchline_addpaintmethod(void *line, Method paint,
                                               void *argument) KIV_NOEXCEPT;

KIV_END

#endif
