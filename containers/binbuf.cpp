// Message text buffers: the store, appending, reading atom by atom.
//
// Thread safety: none for changing a buffer. The holders of a store are counted atomically, so that
// a buffer may be freed on one thread while it is evaluated on another.
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/object.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstring>

#include "containers/binbuf_record.h"
#include "containers/families.h"
#include "containers/tokenizer.h"
#include "kernel/internal.h"

namespace kiv {

namespace {

constexpr int64_t word_size = 8;
constexpr int64_t atom_size = word_size + 1;
constexpr int64_t first_capacity = 16;
constexpr int64_t largest_capacity = INT32_MAX;  // offsets into a store are 32-bit
constexpr int32_t first_end = 8;

struct {
    Class *buffer_class = nullptr;
} state;

char *tag_of(const BinbufStore *store, int64_t index) noexcept {
    return *store->block + store->capacity - 1 - index;
}

char *value_of(const BinbufStore *store, int64_t index) noexcept {
    return *store->block + word_size * index;
}

bool store_reserve(BinbufStore *store, int64_t bytes) noexcept {
    if (bytes <= store->capacity) {
        return true;
    }
    int64_t capacity = store->capacity;
    while (capacity < bytes) {
        capacity *= 2;
    }
    capacity = std::min(capacity, largest_capacity);
    if (capacity < bytes || sysmem_resizehandle(store->block, capacity) != ErrorNone) {
        error("couldn't grow binbuf to %ld", static_cast<long>(bytes));
        return false;
    }
    const char *tags = *store->block + store->capacity - store->count;
    std::memmove(*store->block + capacity - store->count, tags, static_cast<size_t>(store->count));
    store->capacity = capacity;
    return true;
}

// By its first character, a symbol may stand for a mark or a placeholder.
void rewrite(Atom &atom) noexcept {
    if (atom.type != TypeSymbol || !atom.value.sym) {
        return;
    }
    const char *text = atom.value.sym->name;
    if (text[0] == ';') {
        atom = {TypeSemicolon, {.i = 0}};
    } else if (text[0] == ',') {
        atom = {TypeComma, {.i = 0}};
    } else {
        read_placeholder(text, '$', &atom);
    }
}

void append_rewritten(Binbuf *buf, int32_t argc, Atom *argv) noexcept {
    if (buf && argv && argc > 0) {
        std::for_each_n(argv, argc, rewrite);
        store_append(buf->store, argc, argv);
        binbuf_counted(buf);
    }
}

// As messages the functions get a count of 32 bits.
void append_message(Binbuf *buf, Symbol *, int32_t argc, Atom *argv) noexcept {
    append_rewritten(buf, argc, argv);
}

void set_message(Binbuf *buf, Symbol *, int32_t argc, Atom *argv) noexcept {
    binbuf_clear(buf);
    append_rewritten(buf, argc, argv);
}

void destroy(Binbuf *buf) noexcept {
    if (buf->store) {
        buf->store->orphaned = true;
        store_release(buf->store);
        buf->store = nullptr;
    }
}

}  // namespace

BinbufStore *store_new() noexcept {
    auto *store = static_cast<BinbufStore *>(sysmem_newptrclear(sizeof(BinbufStore)));
    if (!store) {
        return nullptr;
    }
    store->block = sysmem_newhandle(first_capacity);
    if (!store->block) {
        sysmem_freeptr(store);
        return nullptr;
    }
    store->capacity = first_capacity;
    store->holders = 1;
    return store;
}

void store_release(BinbufStore *store) noexcept {
    if (store->holders.fetch_sub(1) == 1) {
        sysmem_freehandle(store->block);
        sysmem_freeptr(store);
    }
}

bool store_append(BinbufStore *store, int32_t count, const Atom *atoms) noexcept {
    if (!store_reserve(store, store->used + atom_size * count)) {
        return false;
    }
    for (int32_t i = 0; i < count; ++i) {
        if (atoms[i].type > UINT8_MAX) {
            error("bf_putatom: atom contains value too big for binbuf!");
            continue;
        }
        *tag_of(store, store->count) = static_cast<char>(atoms[i].type);
        std::memcpy(value_of(store, store->count), &atoms[i].value, word_size);
        ++store->count;
        store->used += atom_size;
    }
    return true;
}

bool store_atom(const BinbufStore *store, int64_t index, Atom *atom) noexcept {
    if (index < 0 || index >= store->count) {
        return false;
    }
    atom->type = static_cast<unsigned char>(*tag_of(store, index));
    std::memcpy(&atom->value, value_of(store, index), word_size);
    return true;
}

void store_remove(BinbufStore *store, int32_t from, int32_t to) noexcept {
    from = std::clamp(from, 0, store->count);
    to = std::clamp(to, 0, store->count);
    if (from >= to) {
        return;
    }
    const auto behind = static_cast<size_t>(store->count - to);
    std::memmove(value_of(store, from), value_of(store, to), behind * word_size);
    // Tags lie in reverse: those behind the gap are below it.
    std::memmove(tag_of(store, from) + 1 - behind, tag_of(store, to) + 1 - behind, behind);
    store->count -= to - from;
    store->used = atom_size * store->count;
}

void store_clear(BinbufStore *store) noexcept {
    store->count = 0;
    store->used = 0;
    if (store->capacity > first_capacity &&
        sysmem_resizehandle(store->block, first_capacity) == ErrorNone) {
        store->capacity = first_capacity;
    }
}

void binbuf_counted(Binbuf *buf) noexcept {
    buf->types_end = first_end + buf->store->count;
    buf->values_end = first_end + static_cast<int32_t>(word_size) * buf->store->count;
}

void binbuf_clear(Binbuf *buf) noexcept {
    if (buf) {
        store_clear(buf->store);
        binbuf_counted(buf);
    }
}

void binbufs_start() noexcept {
    Class *c = class_new("binbuf", method(binbuf_new), method(destroy),
                         static_cast<int32_t>(sizeof(Binbuf)), nullptr, 0);
    if (!c) {
        return;
    }
    class_obexoffset_set(c, static_cast<int32_t>(offsetof(Binbuf, obex)));
    class_addmethod(c, method(append_message), "append", TypeGimme, 0);
    class_addmethod(c, method(set_message), "set", TypeGimme, 0);
    class_register(nullptr, c);
    state.buffer_class = c;
}

}  // namespace kiv

using namespace kiv;

Binbuf *binbuf_new() noexcept {
    auto *buf = static_cast<Binbuf *>(object_alloc(state.buffer_class));
    if (!buf) {
        return nullptr;
    }
    buf->store = store_new();
    if (!buf->store) {
        object_free(buf);
        return nullptr;
    }
    binbuf_counted(buf);
    return buf;
}

Binbuf *binbuf_make(int32_t argc, const Atom *argv) noexcept {
    Binbuf *buf = binbuf_new();
    if (buf && argv && argc > 0) {
        if (!store_append(buf->store, argc, argv)) {
            object_free(buf);
            return nullptr;
        }
        binbuf_counted(buf);
    }
    return buf;
}

void binbuf_append(Binbuf *buf, Symbol *, int16_t argc, Atom *argv) noexcept {
    append_rewritten(buf, argc, argv);
}

void binbuf_set(Binbuf *buf, Symbol *, int16_t argc, Atom *argv) noexcept {
    binbuf_clear(buf);
    append_rewritten(buf, argc, argv);
}

void binbuf_insert(Binbuf *buf, Symbol *, int16_t argc, Atom *argv) noexcept {
    if (buf && argv && argc > 0) {
        store_append(buf->store, argc, argv);
        binbuf_counted(buf);
    }
}

void binbuf_vinsert(Binbuf *buf, const char *format, ...) noexcept {
    if (!buf) {
        return;
    }
    int32_t count = 0;
    Atom *atoms = nullptr;
    std::va_list values;
    va_start(values, format);
    if (atom_setformat_list(&count, &atoms, format, &values) == ErrorNone && atoms) {
        store_append(buf->store, count, atoms);
        binbuf_counted(buf);
    }
    va_end(values);
    sysmem_freeptr(atoms);
}

void binbuf_delete(Binbuf *buf, int32_t from, int32_t to) noexcept {
    if (buf) {
        store_remove(buf->store, from, to);
        binbuf_counted(buf);
    }
}

int32_t binbuf_getatom(Binbuf *buf, int64_t *type_offset, int64_t *value_offset,
                       Atom *atom) noexcept {
    if (!type_offset || !value_offset || !atom) {
        return 1;
    }
    if (!buf || !store_atom(buf->store, *type_offset, atom)) {
        *atom = {TypeNothing, {.i = 0}};
        return 1;
    }
    *type_offset += 1;
    *value_offset += word_size;
    return 0;
}

void *binbuf_gethandle(Binbuf *buf) noexcept {
    return buf ? buf->store->block : nullptr;
}
