#ifndef KIV_CONSOLE_H
#define KIV_CONSOLE_H

#include <kiv/types.h>

KIV_BEGIN

enum { PostPlain = 0, PostError = 1, PostWarning = 2, PostBug = 3, PostInfo = 4 };

KIV_EXPORT void post(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);
KIV_EXPORT void error(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);
KIV_EXPORT void object_post(void *x, const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(2, 3);
KIV_EXPORT void object_error(void *x, const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(2, 3);
KIV_EXPORT void object_warn(void *x, const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(2, 3);
KIV_EXPORT void object_bug(void *x, const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(2, 3);
KIV_EXPORT void object_error_obtrusive(void *x, const char *format, ...) KIV_NOEXCEPT
    KIV_PRINTF(2, 3);
KIV_EXPORT void cpost(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);
KIV_EXPORT void poststring(const char *text) KIV_NOEXCEPT;
KIV_EXPORT void object_poststring(void *x, int32_t kind, int32_t level,
                                  const char *text) KIV_NOEXCEPT;
KIV_EXPORT int32_t errorcount_get(void) KIV_NOEXCEPT;
KIV_EXPORT void errorcount_set(int32_t count) KIV_NOEXCEPT;
KIV_EXPORT int32_t post_getpos(int32_t *row, int32_t *column) KIV_NOEXCEPT;
KIV_EXPORT void post_displayrecent(void) KIV_NOEXCEPT;
KIV_EXPORT void xsetpost(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t advise(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);
KIV_EXPORT int32_t advise_explain(const char *text, const char *explanation, const char *button1,
                                  const char *button2, const char *button3) KIV_NOEXCEPT;
KIV_EXPORT void ouchstring(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);

KIV_END

#endif
