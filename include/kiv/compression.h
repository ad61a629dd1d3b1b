/* The compressed form of JSON documents. */
#ifndef KIV_COMPRESSION_H
#define KIV_COMPRESSION_H

#include <kiv/types.h>

KIV_BEGIN

/* Compress and restore `size` bytes as a zlib stream without a file header. *out, a NUL behind it,
   is the caller's to free with sysmem_freeptr. Return 0, -1 for damaged data, -4 for no memory. */
KIV_EXPORT ErrorCode compression_compressjson_headless(const char *text, int64_t size, char **out,
                                                       int64_t *out_size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode compression_decompressjson_headless(const char *data, int64_t size, char **out,
                                                         int64_t *out_size) KIV_NOEXCEPT;

KIV_END

#endif
