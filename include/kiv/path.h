/* Path identifiers and the search path.

   A folder is named by a small number, its path identifier: made once for each folder, stable for
   the life of the process, never 0. Identifier 0 means "no folder": a file name beside it is a path
   of its own, absolute or relative to the current folder. File and folder names are UTF-8 with '/'
   between folders and are compared with regard to case on every system.

   A file has a type, a number of four characters, decided by its extension alone: 'kv64' (external
   modules, .kve64), 'JSON' (.kivpat, .kivhelp, .json), 'kivb' (.kivb), 'TEXT' (.kivtext, .txt).

   Any thread may call these; buffers belong to the caller; a null argument gives the failure
   value. */
#ifndef KIV_PATH_H
#define KIV_PATH_H

#include <kiv/types.h>

KIV_BEGIN

/* Longest file name and path, in bytes with the terminator. */
enum { KIV_FILENAME_SIZE = 512, KIV_PATH_SIZE = 2048 };

/* Finds a file along the search path: the default path first, then the folders added to the search
   path, each with its sub-folders in alphabetical order. `name` holds the name wanted and receives
   the one found, so it points to KIV_FILENAME_SIZE bytes; a name with folders in it is looked up
   below each of them, an absolute one where it says. `types` are the `type_count` types accepted
   (none: any file of exactly that name). A name that has no extension of an accepted type is tried
   with their extensions, in the order of the types, in one folder before the next. *path receives
   the folder and *type the type, 0 when the extension is unknown; either may be null. Returns 0,
   or -1 when nothing was found, and then changes nothing. */
KIV_EXPORT int16_t locatefile_extended(char *name, int16_t *path, uint32_t *type,
                                       const uint32_t *types, int16_t type_count) KIV_NOEXCEPT;
/* Returns the identifier of a folder given by its path, or 0 when there is no such folder. */
KIV_EXPORT int16_t path_frompathname(const char *folder) KIV_NOEXCEPT;
/* Writes the absolute path of a file in a folder (of the folder itself when `file_name` is null or
   empty) into `out`, KIV_PATH_SIZE bytes. An absolute `file_name` is copied as it is. Returns 0, -2
   for a null `out`, -1 for an unknown identifier or a path that is too long (`out` is then ""). */
KIV_EXPORT ErrorCode path_topathname(int16_t path, const char *file_name, char *out) KIV_NOEXCEPT;
/* Returns the identifier of the default path, the folder searched first: of the document that is
   being loaded or of the patcher that is making a box; 0 when none is set. */
KIV_EXPORT int16_t path_getdefault(void) KIV_NOEXCEPT;
/* Sets the default path; `recursive` includes its sub-folders. An unknown identifier means 0. Code
   that sets it for a while restores what path_getdefault said before. */
KIV_EXPORT void path_setdefault(int16_t path, int32_t recursive) KIV_NOEXCEPT;

KIV_END

#endif
