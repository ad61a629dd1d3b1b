// The compressed form of JSON documents: one zlib stream, which has a checksum of its own.
#include <kiv/compression.h>
#include <kiv/sysmem.h>

#define ZLIB_CONST
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "sched/internal.h"

namespace kiv {

namespace {

void *stream_alloc(void *, uInt count, uInt size) noexcept {
    return sysmem_newptr(int64_t{count} * size);
}

void stream_free(void *, void *block) noexcept {
    sysmem_freeptr(block);
}

// A run of deflate or inflate over a whole input into a block that grows.
class Stream {
  public:
    Stream(const char *input, int64_t size) noexcept : left_(size) {
        stream_.zalloc = stream_alloc;
        stream_.zfree = stream_free;
        stream_.next_in = reinterpret_cast<const Bytef *>(input);
    }
    ~Stream() { sysmem_freeptr(block_); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    z_stream *get() noexcept { return &stream_; }

    // Calls step(stream, flush) until it ends the stream, which must be the end of the input, too.
    template <class Step>
    ErrorCode run(Step step, int64_t room) noexcept {
        for (;;) {
            if (stream_.avail_out == 0 && !grow(room)) {
                return ErrorOutOfMemory;
            }
            if (stream_.avail_in == 0) {
                stream_.avail_in = static_cast<uInt>(std::min<int64_t>(left_, INT_MAX));
                left_ -= stream_.avail_in;
            }
            const int result = step(&stream_, left_ == 0 ? Z_FINISH : Z_NO_FLUSH);
            if (result == Z_STREAM_END) {
                return stream_.avail_in == 0 && left_ == 0 ? ErrorNone : ErrorGeneric;
            }
            // Z_BUF_ERROR with room left means that input is missing.
            if (result == Z_MEM_ERROR) {
                return ErrorOutOfMemory;
            }
            if (result != Z_OK && (result != Z_BUF_ERROR || stream_.avail_out != 0)) {
                return ErrorGeneric;
            }
        }
    }

    // The output, with a NUL behind it, which is the caller's.
    char *take(int64_t *size) noexcept {
        *size = capacity_ - stream_.avail_out;
        block_[*size] = '\0';
        return std::exchange(block_, nullptr);
    }

  private:
    bool grow(int64_t room) noexcept {
        const int64_t added = std::clamp<int64_t>(std::max(room, capacity_), 64, INT_MAX);
        void *grown = block_ ? sysmem_resizeptr(block_, capacity_ + added + 1)
                             : sysmem_newptr(capacity_ + added + 1);
        if (!grown) {
            return false;
        }
        block_ = static_cast<char *>(grown);
        stream_.next_out = reinterpret_cast<Bytef *>(block_ + capacity_);
        stream_.avail_out = static_cast<uInt>(added);
        capacity_ += added;
        return true;
    }

    z_stream stream_{};
    int64_t left_;  // of the input, not handed to the stream yet
    char *block_ = nullptr;
    int64_t capacity_ = 0;  // without the NUL's place
};

bool usable(const char *data, int64_t size, char **out, int64_t *out_size) noexcept {
    if (out) {
        *out = nullptr;
    }
    if (out_size) {
        *out_size = 0;
    }
    return out && out_size && size >= 0 && (data || size == 0);
}

}  // namespace

}  // namespace kiv

using namespace kiv;

ErrorCode compression_compressjson_headless(const char *text, int64_t size, char **out,
                                            int64_t *out_size) noexcept {
    if (!usable(text, size, out, out_size)) {
        return ErrorGeneric;
    }
    Stream stream(text, size);
    if (deflateInit(stream.get(), Z_DEFAULT_COMPRESSION) != Z_OK) {
        return ErrorOutOfMemory;
    }
    const ErrorCode result = stream.run(deflate, size / 4);
    deflateEnd(stream.get());
    if (result == ErrorNone) {
        *out = stream.take(out_size);
    }
    return result;
}

ErrorCode compression_decompressjson_headless(const char *data, int64_t size, char **out,
                                              int64_t *out_size) noexcept {
    if (!usable(data, size, out, out_size)) {
        return ErrorGeneric;
    }
    Stream stream(data, size);
    if (inflateInit(stream.get()) != Z_OK) {
        return ErrorOutOfMemory;
    }
    const ErrorCode result = stream.run(inflate, std::min<int64_t>(size, INT_MAX / 8) * 4);
    inflateEnd(stream.get());
    if (result == ErrorNone) {
        *out = stream.take(out_size);
    }
    return result;
}
