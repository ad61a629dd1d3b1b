#ifndef KIV_QUICKMAP_H
#define KIV_QUICKMAP_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Quickmap Quickmap;

KIV_EXPORT Quickmap *quickmap_new(void) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode quickmap_add(Quickmap *map, void *key1, void *key2) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode quickmap_lookup_key1(Quickmap *map, void *key1, void **key2) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode quickmap_lookup_key2(Quickmap *map, void *key2, void **key1) KIV_NOEXCEPT;
KIV_EXPORT void quickmap_drop(Quickmap *map) KIV_NOEXCEPT;
KIV_EXPORT void quickmap_readonly(Quickmap *map, int32_t on) KIV_NOEXCEPT;

KIV_END

#endif
