#ifndef KIV_PATH_H
#define KIV_PATH_H

#include <kiv/types.h>

KIV_BEGIN

/* Longest file name and path, in bytes with the terminator. */
enum { KIV_FILENAME_SIZE = 512, KIV_PATH_SIZE = 2048 };

/* Searches for a file: with `path` null or 0 on entry along the default path and then the search
   path. `name` is the name wanted (at most KIV_FILENAME_SIZE bytes) and receives the name found. */
KIV_EXPORT int16_t locatefile_extended(char *name, int16_t *path, uint32_t *type,
                                       const uint32_t *types, int16_t type_count) KIV_NOEXCEPT;
KIV_EXPORT int16_t path_frompathname(const char *folder) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode path_topathname(int16_t path, const char *file_name, char *out) KIV_NOEXCEPT;
KIV_EXPORT int16_t path_getdefault(void) KIV_NOEXCEPT;
KIV_EXPORT void path_setdefault(int16_t path, int32_t recursive) KIV_NOEXCEPT;

KIV_END

#endif
