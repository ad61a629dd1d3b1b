/* The compressed form of JSON documents. */
#ifndef KIV_COMPRESSION_H
#define KIV_COMPRESSION_H

#include <kiv/types.h>

KIV_BEGIN

/* Compresses and restores `size` bytes, without a file header; *out is the caller's to free with
   sysmem_freeptr. */
KIV_EXPORT ErrorCode compression_compressjson_headless(const char *text, int64_t size, char **out,
                                                       int64_t *out_size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode compression_decompressjson_headless(const char *data, int64_t size, char **out,
                                                         int64_t *out_size) KIV_NOEXCEPT;

KIV_END

#endif
