/* Quick maps: a two-way map between pointers, of the kernel class "quickmap".

   Keys are compared by address and never followed or freed. Threads: as hash tables. Results are 0,
   or -1 for a null map and for a key that is absent. */
#ifndef KIV_QUICKMAP_H
#define KIV_QUICKMAP_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Quickmap Quickmap;

/* Makes an empty map; the caller drops it. Null on no memory. */
KIV_EXPORT Quickmap *quickmap_new(void) KIV_NOEXCEPT;
/* Adds a pair. A key that is there already gets the new partner, in its own direction only: the
   old partner still leads to it. */
KIV_EXPORT ErrorCode quickmap_add(Quickmap *map, void *key1, void *key2) KIV_NOEXCEPT;
/* The second key of a first one; *key2 is null when there is none. */
KIV_EXPORT ErrorCode quickmap_lookup_key1(Quickmap *map, void *key1, void **key2) KIV_NOEXCEPT;
/* The first key of a second one; *key1 is null when there is none. */
KIV_EXPORT ErrorCode quickmap_lookup_key2(Quickmap *map, void *key2, void **key1) KIV_NOEXCEPT;
/* Frees the map. */
KIV_EXPORT void quickmap_drop(Quickmap *map) KIV_NOEXCEPT;
/* While `on` is not 0, look-ups take no lock: for maps that no longer change. */
KIV_EXPORT void quickmap_readonly(Quickmap *map, int32_t on) KIV_NOEXCEPT;

KIV_END

#endif
