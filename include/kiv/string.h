/* String objects: text as a value, of the kernel class "string".

   1. Free one with object_free, unless a container took it.
   2. Sizes are bytes. The text ends in a zero byte, which the capacity includes.
   3. Not guarded by a lock: whoever shares a string between threads guards it.
   4. Results are 0, -1 for a null pointer, -4 for no memory (the string is then unchanged). */
#ifndef KIV_STRING_H
#define KIV_STRING_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct String String;

/* Makes a string of a copy of `text`, with exactly the capacity for it; a null `text` gives a
   string without storage. Null on no memory. */
KIV_EXPORT String *string_new(const char *text) KIV_NOEXCEPT;
/* The text, which stays the string's and is valid until the next call that changes it; null for a
   null string and for one without storage. */
KIV_EXPORT const char *string_getptr(const String *string) KIV_NOEXCEPT;
/* Adds a copy of `text` (which may be the string's own) to the end. When length and addition reach
   the capacity, it becomes the old one plus 512 plus the addition. */
KIV_EXPORT ErrorCode string_append(String *string, const char *text) KIV_NOEXCEPT;
/* Raises the capacity to `capacity`; never lowers it. */
KIV_EXPORT ErrorCode string_reserve(String *string, int32_t capacity) KIV_NOEXCEPT;
/* Removes `count` bytes from the end, at most all; the result is the new length. The capacity
   stays. 0 for a null string; a negative count removes nothing. */
KIV_EXPORT int32_t string_chop(String *string, int32_t count) KIV_NOEXCEPT;

KIV_END

#endif
