// Handles: relocatable memory, a pointer to a master record whose first field is the pointer to the
// data. A handle belongs to one thread at a time; two threads need a lock of their own around it.
#include <algorithm>
#include <cstring>

#include "sched/internal.h"

namespace kiv {

namespace {

constexpr uint32_t handle_mark = 0x48616e64;

struct Master {
    char *data;        // owned; null while capacity is 0
    int64_t size;      // bytes in use
    int64_t capacity;  // bytes of the data block
    uint32_t mark;     // handle_mark while the handle lives
    int32_t locked;    // non-zero: the data must not move
};

Master *master_of(Handle handle) noexcept {
    if (!handle || sysmem_ptrsize(handle) != sizeof(Master)) {
        return nullptr;
    }
    auto *master = reinterpret_cast<Master *>(handle);
    return master->mark == handle_mark ? master : nullptr;
}

ErrorCode change_capacity(Master *master, int64_t capacity) noexcept {
    void *data = sysmem_resizeptr(master->data, capacity);
    if (!data && capacity > 0) {
        return ErrorOutOfMemory;
    }
    master->data = static_cast<char *>(data);
    master->capacity = capacity;
    return ErrorNone;
}

// Makes room for `size` bytes; growing by halves, so that appending in small steps stays linear.
ErrorCode reserve(Master *master, int64_t size) noexcept {
    if (size <= master->capacity) {
        return ErrorNone;
    }
    if (master->locked) {
        return ErrorGeneric;
    }
    const int64_t roomy = std::max(size, master->capacity + master->capacity / 2);
    if (roomy > size && change_capacity(master, roomy) == ErrorNone) {
        return ErrorNone;
    }
    return change_capacity(master, size);
}

// Opens a gap of `size` bytes at `offset` and copies them in; `ptr` may lie in the handle itself.
ErrorCode insert(Handle handle, int64_t offset, const void *ptr, int64_t size) noexcept {
    Master *master = master_of(handle);
    if (!master || (!ptr && size > 0)) {
        return ErrorInvalidPointer;
    }
    if (size < 0 || size > INT64_MAX - master->size) {
        return ErrorGeneric;
    }
    if (size == 0) {
        return ErrorNone;
    }
    const auto *source = static_cast<const char *>(ptr);
    const bool own = master->data && source >= master->data && source < master->data + master->size;
    const int64_t own_offset = own ? source - master->data : 0;
    const ErrorCode result = reserve(master, master->size + size);
    if (result != ErrorNone) {
        return result;
    }
    char *gap = master->data + offset;
    std::memmove(gap + size, gap, static_cast<size_t>(master->size - offset));
    if (own) {  // moved with the data, and behind the gap when it was inserted in front
        source = master->data + own_offset + (own_offset >= offset ? size : 0);
    }
    std::memmove(gap, source, static_cast<size_t>(size));
    master->size += size;
    return ErrorNone;
}

}  // namespace

}  // namespace kiv

using namespace kiv;

Handle sysmem_newhandle(int64_t size) noexcept {
    auto *master = static_cast<Master *>(sysmem_newptrclear(sizeof(Master)));
    if (!master) {
        return nullptr;
    }
    master->mark = handle_mark;
    if (size != 0) {
        master->data = static_cast<char *>(sysmem_newptr(size));
        if (!master->data) {
            sysmem_freeptr(master);
            return nullptr;
        }
    }
    master->size = master->capacity = size;
    return &master->data;
}

Handle sysmem_newhandleclear(int64_t size) noexcept {
    Handle handle = sysmem_newhandle(size);
    if (handle && *handle) {
        std::memset(*handle, 0, static_cast<size_t>(size));
    }
    return handle;
}

int32_t sysmem_resizehandle(Handle handle, int64_t size) noexcept {
    Master *master = master_of(handle);
    if (!master) {
        return ErrorInvalidPointer;
    }
    if (size < 0) {
        return ErrorGeneric;
    }
    const ErrorCode result = size <= master->capacity / 2 && !master->locked
                                 ? change_capacity(master, size)
                                 : reserve(master, size);
    if (result == ErrorNone) {
        master->size = size;
    }
    return result;
}

int64_t sysmem_handlesize(Handle handle) noexcept {
    const Master *master = master_of(handle);
    return master ? master->size : 0;
}

int32_t sysmem_lockhandle(Handle handle, int32_t lock) noexcept {
    Master *master = master_of(handle);
    if (!master) {
        return 0;
    }
    const int32_t before = master->locked;
    master->locked = lock != 0;
    return before;
}

void sysmem_freehandle(Handle handle) noexcept {
    if (!handle) {
        return;
    }
    if (Master *master = master_of(handle)) {
        master->mark = 0;
        sysmem_freeptr(master->data);
    }
    sysmem_freeptr(handle);  // which also reports what is no handle
}

int32_t sysmem_ptrandhand(const void *ptr, Handle handle, int64_t size) noexcept {
    return insert(handle, sysmem_handlesize(handle), ptr, size);
}

int32_t sysmem_ptrbeforehand(const void *ptr, Handle handle, int64_t size) noexcept {
    return insert(handle, 0, ptr, size);
}

int32_t sysmem_nullterminatehandle(Handle handle) noexcept {
    const Master *master = master_of(handle);
    if (!master) {
        return ErrorInvalidPointer;
    }
    if (master->size > 0 && master->data[master->size - 1] == 0) {
        return ErrorNone;
    }
    return sysmem_ptrandhand("", handle, 1);
}
