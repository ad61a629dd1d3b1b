// Atom arrays.
//
// Invariants: `atoms` holds exactly `count` atoms and is null when the count is 0. It is a block of
// its own, or the memory behind the record of an array that was made with its atoms
// (atomarray_adopt), until their number changes. An array frees its object atoms only when it is
// destroyed, and only when its flags say that they are its own; whatever takes atoms out of a
// living array (clear, set, chuck) leaves the objects to the caller.
//
// Thread safety: none of its own; who shares an array guards it.
#include <kiv/atom.h>
#include <kiv/atomarray.h>
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/object.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "containers/families.h"
#include "containers/free_nested.h"
#include "containers/values.h"

namespace kiv {

namespace {

struct {
    Class *array_class = nullptr;
} state;

int64_t bytes_of(int32_t count) noexcept {
    return static_cast<int64_t>(count) * static_cast<int64_t>(sizeof(Atom));
}

Atom *copy_of(int32_t count, const Atom *atoms) noexcept {
    auto *copy = static_cast<Atom *>(sysmem_newptr(bytes_of(count)));
    if (copy) {
        std::copy_n(atoms, count, copy);
    }
    return copy;
}

Atom *behind(Atomarray *array) noexcept {
    return reinterpret_cast<Atom *>(array + 1);
}

void free_block(Atomarray *array, Atom *atoms) noexcept {
    if (atoms != behind(array)) {
        sysmem_freeptr(atoms);
    }
}

// Changes the number of atoms that a filled array has room for. False on no memory.
bool resize(Atomarray *array, int32_t count) noexcept {
    Atom *resized = nullptr;
    if (array->atoms != behind(array)) {
        resized = static_cast<Atom *>(sysmem_resizeptr(array->atoms, bytes_of(count)));
    } else if ((resized = static_cast<Atom *>(sysmem_newptr(bytes_of(count))))) {
        std::copy_n(array->atoms, std::min(count, array->count), resized);
    }
    array->atoms = resized ? resized : array->atoms;
    return resized != nullptr;
}

void destroy(Atomarray *array) noexcept {
    Atom *atoms = std::exchange(array->atoms, nullptr);
    const int32_t count = std::exchange(array->count, 0);
    for (int32_t i = 0; i < count && (array->flags & atomarray_owns); ++i) {
        constexpr int32_t ahead = 4;  // fetched while the objects before it are freed
        if (i + ahead < count && atoms[i + ahead].type == TypeObject) {
            __builtin_prefetch(atoms[i + ahead].value.obj);
        }
        if (atoms[i].type == TypeObject && atoms[i].value.obj) {
            free_nested(atoms[i].value.obj);
        }
    }
    free_block(array, atoms);
}

}  // namespace

void atomarrays_start() noexcept {
    static const DirectMethod methods[] = {
        {"setatoms", method(atomarray_setatoms)},
        {"getatoms", method(atomarray_getatoms)},
        {"copyatoms", method(atomarray_copyatoms)},
        {"getindex", method(atomarray_getindex)},
        {"getsize", method(atomarray_getsize)},
        {"appendatom", method(atomarray_appendatom)},
        {"appendatoms", method(atomarray_appendatoms)},
        {"chuckindex", method(atomarray_chuckindex)},
        {"clear", method(atomarray_clear)},
        {"clone", method(atomarray_clone)},
        {"object_clone", method(atomarray_clone)},
        {"duplicate", method(atomarray_duplicate)},
        {"funall", method(atomarray_funall)},
        {"flags", method(atomarray_flags)},
        {"getflags", method(atomarray_getflags)},
    };
    Class *c = class_new("atomarray", nullptr, method(destroy),
                         static_cast<int32_t>(sizeof(Atomarray)), nullptr, 0);
    class_obexoffset_set(c, static_cast<int32_t>(offsetof(Atomarray, obex)));
    add_direct_methods(c, methods);
    class_register(nullptr, c);
    state.array_class = c;
}

Atomarray *atomarray_adopt(int32_t count, const Atom *atoms) noexcept {
    count = std::max(count, 0);
    auto *array =
        reinterpret_cast<Atomarray *>(object_alloc_extra(state.array_class, bytes_of(count)));
    if (array) {
        array->count = count;
        array->atoms = count ? behind(array) : nullptr;
        array->flags = atomarray_owns;
        std::copy_n(atoms, count, behind(array));
    }
    return array;
}

}  // namespace kiv

using namespace kiv;

Atomarray *atomarray_new(int32_t argc, const Atom *argv) noexcept {
    auto *array = static_cast<Atomarray *>(object_alloc(state.array_class));
    atomarray_setatoms(array, argc, argv);
    return array;
}

void atomarray_flags(Atomarray *array, int32_t flags) noexcept {
    if (array) {
        array->flags = flags;
    }
}

int32_t atomarray_getflags(const Atomarray *array) noexcept {
    return array ? array->flags : 0;
}

ErrorCode atomarray_setatoms(Atomarray *array, int32_t argc, const Atom *argv) noexcept {
    if (!array) {
        return ErrorGeneric;
    }
    if (argc <= 0 || !argv) {
        return atomarray_clear(array);
    }
    Atom *atoms = copy_of(argc, argv);
    if (!atoms) {
        return ErrorOutOfMemory;
    }
    free_block(array, array->atoms);
    array->atoms = atoms;
    array->count = argc;
    return ErrorNone;
}

ErrorCode atomarray_getatoms(const Atomarray *array, int32_t *argc, Atom **argv) noexcept {
    if (argc) {
        *argc = array ? array->count : 0;
    }
    if (argv) {
        *argv = array ? array->atoms : nullptr;
    }
    return array && argc && argv ? ErrorNone : ErrorGeneric;
}

ErrorCode atomarray_copyatoms(const Atomarray *array, int32_t *argc, Atom **argv) noexcept {
    if (!array || !argc || !argv) {
        return ErrorGeneric;
    }
    *argc = 0;
    *argv = nullptr;
    if (array->count == 0) {
        return ErrorNone;
    }
    *argv = copy_of(array->count, array->atoms);
    if (!*argv) {
        return ErrorOutOfMemory;
    }
    *argc = array->count;
    return ErrorNone;
}

ErrorCode atomarray_getindex(const Atomarray *array, int32_t index, Atom *value) noexcept {
    if (!array || !value) {
        return ErrorGeneric;
    }
    if (index < 0 || index >= array->count) {
        return ErrorGeneric;
    }
    *value = array->atoms[index];
    return ErrorNone;
}

int32_t atomarray_getsize(const Atomarray *array) noexcept {
    return array ? array->count : 0;
}

ErrorCode atomarray_appendatom(Atomarray *array, const Atom *value) noexcept {
    return atomarray_appendatoms(array, 1, value);
}

ErrorCode atomarray_appendatoms(Atomarray *array, int32_t argc, const Atom *argv) noexcept {
    if (!array || !argv) {
        return ErrorGeneric;
    }
    if (argc <= 0) {
        return ErrorNone;
    }
    if (array->count == 0) {
        return atomarray_setatoms(array, argc, argv);
    }
    if (argc > INT32_MAX - array->count) {
        return ErrorOutOfMemory;
    }
    // The appended atoms may be the array's own, which the resize moves.
    const Atom *end = array->atoms + array->count;
    const bool own = !std::less<>()(argv, array->atoms) && std::less<>()(argv, end);
    const ptrdiff_t offset = own ? argv - array->atoms : 0;
    if (!resize(array, array->count + argc)) {
        return ErrorOutOfMemory;
    }
    std::copy_n(own ? array->atoms + offset : argv, argc, array->atoms + array->count);
    array->count += argc;
    return ErrorNone;
}

ErrorCode atomarray_chuckindex(Atomarray *array, int32_t index) noexcept {
    if (!array) {
        return ErrorGeneric;
    }
    if (index < 0 || index >= array->count) {
        return ErrorGeneric;
    }
    if (array->count == 1) {
        return atomarray_clear(array);
    }
    std::copy(array->atoms + index + 1, array->atoms + array->count, array->atoms + index);
    --array->count;
    resize(array, array->count);  // what finds no smaller block keeps the larger one
    return ErrorNone;
}

ErrorCode atomarray_clear(Atomarray *array) noexcept {
    if (!array) {
        return ErrorGeneric;
    }
    free_block(array, array->atoms);
    array->atoms = nullptr;
    array->count = 0;
    return ErrorNone;
}

Atomarray *atomarray_clone(const Atomarray *array) noexcept {
    void *copy = nullptr;
    if (array) {
        clone_value_object(array, &copy);
    }
    return static_cast<Atomarray *>(copy);
}

Atomarray *atomarray_duplicate(const Atomarray *array) noexcept {
    if (!array) {
        return nullptr;
    }
    Atomarray *copy = atomarray_new(array->count, array->atoms);
    if (copy && copy->count != array->count) {
        object_free(copy);
        return nullptr;
    }
    return copy;
}

void atomarray_funall(Atomarray *array, void (*function)(Atom *atom, void *arg),
                      void *arg) noexcept {
    if (!array || !function) {
        return;
    }
    // The function may shorten the array or replace its storage: both are read anew each time.
    try {
        for (int32_t i = 0; i < array->count; ++i) {
            function(array->atoms + i, arg);
        }
    } catch (...) {
        error("atomarray_funall: the function threw an exception");
    }
}
