#ifndef KIV_STRING_H
#define KIV_STRING_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct String String;

KIV_EXPORT String *string_new(const char *text) KIV_NOEXCEPT;
KIV_EXPORT const char *string_getptr(const String *string) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode string_append(String *string, const char *text) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode string_reserve(String *string, int32_t capacity) KIV_NOEXCEPT;
KIV_EXPORT int32_t string_chop(String *string, int32_t count) KIV_NOEXCEPT;

KIV_END

#endif
