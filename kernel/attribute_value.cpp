// How values are stored in memory, read into atoms and written from them.
//
// Any atoms are fine: numbers convert with truncation and stop at the ends of the stored type's
// range, a symbol gives the number it reads as, a number gives a symbol of its text, an object
// only comes from an object or from a symbol bound to one, and no atoms at all leave a value as it
// is. Getters fill the caller's array as far as it goes, or make one for the whole value.
//
// Thread safety: a held value has its lock; what lies inside an object is the object's own affair.
#include <kiv/atomarray.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

#include "kernel/attribute.h"

namespace kiv {

namespace {

struct TypeName {
    const char *name;
    Stored stored;
};
constexpr TypeName type_names[] = {
    {"char", Stored::unsigned8},     {"long", Stored::signed32},     {"int32", Stored::signed32},
    {"atom_long", Stored::signed64}, {"float32", Stored::float32},   {"float64", Stored::float64},
    {"symbol", Stored::symbol},      {"object", Stored::pointer},    {"pointer", Stored::pointer},
    {"atom", Stored::atom},          {"filepath", Stored::signed16},
};

template <class T>
T load(const void *place) {
    T value;
    std::memcpy(&value, place, sizeof value);
    return value;
}
template <class T>
void store(void *place, T value) {
    std::memcpy(place, &value, sizeof value);
}

template <class T>
T clipped(int64_t value) {
    return static_cast<T>(
        std::clamp<int64_t>(value, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

float narrowed(double value) {
    if (std::isnan(value) || std::fabs(value) <= double{FLT_MAX}) {
        return static_cast<float>(value);
    }
    return std::copysign(std::numeric_limits<float>::infinity(), value > 0 ? 1.0f : -1.0f);
}

Symbol *atom_to_symbol(const Atom *atom) {
    if (atom->type != TypeLong && atom->type != TypeFloat) {
        return atom_getsym(atom);
    }
    char text[64];
    char *out = text;
    int64_t size = sizeof text;
    return atom_gettext(1, atom, &size, &out, 0) == ErrorNone ? gensym(text) : gensym("");
}

void *atom_to_object(const Atom *atom) {
    if (atom->type == TypeObject) {
        return atom->value.obj;
    }
    if (atom->type != TypeSymbol || !atom->value.sym) {
        return nullptr;
    }
    void *bound = atom->value.sym->thing;
    return object_valid(bound) ? bound : nullptr;
}

uint8_t *place_in(void *x, int32_t offset) {
    return static_cast<uint8_t *>(x) + offset;
}

// Room for up to `wanted` atoms: how many fit into the caller's array, or into one made for all.
// Negative when memory is exhausted.
int32_t room_for(int32_t wanted, int32_t *argc, Atom **argv) {
    if (*argc > 0 && *argv) {
        *argc = std::min(wanted, *argc);
        return *argc;
    }
    *argc = 0;
    if (wanted == 0) {
        return 0;
    }
    return atom_alloc_array(wanted, argc, argv, nullptr) == ErrorNone ? wanted : -1;
}

ErrorCode read_array(Stored stored, const void *place, int32_t count, int32_t *argc, Atom **argv) {
    const int32_t room = room_for(count, argc, argv);
    const auto *element = static_cast<const uint8_t *>(place);
    for (int32_t i = 0; i < room; ++i, element += stored_size(stored)) {
        stored_read(stored, element, *argv + i);
    }
    return room < 0 ? ErrorOutOfMemory : ErrorNone;
}

void write_array(Stored stored, void *place, int32_t count, const Atom *argv) {
    auto *element = static_cast<uint8_t *>(place);
    for (int32_t i = 0; i < count; ++i, element += stored_size(stored)) {
        stored_write(stored, element, argv + i);
    }
}

bool nothing_to_set(int32_t argc, const Atom *argv) {
    return argc < 1 || !argv;
}

}  // namespace

Stored stored_type(const Symbol *type) noexcept {
    for (const TypeName &known : type_names) {
        if (type && std::strcmp(type->name, known.name) == 0) {
            return known.stored;
        }
    }
    return Stored::nothing;
}

int32_t stored_size(Stored stored) noexcept {
    switch (stored) {
        case Stored::nothing:
            return 0;
        case Stored::unsigned8:
            return 1;
        case Stored::signed16:
            return 2;
        case Stored::signed32:
        case Stored::float32:
            return 4;
        case Stored::atom:
            return sizeof(Atom);
        default:
            return 8;
    }
}

void stored_read(Stored stored, const void *place, Atom *atom) noexcept {
    switch (stored) {
        case Stored::nothing:
            atom_setlong(atom, 0);
            break;
        case Stored::unsigned8:
            atom_setlong(atom, load<uint8_t>(place));
            break;
        case Stored::signed16:
            atom_setlong(atom, load<int16_t>(place));
            break;
        case Stored::signed32:
            atom_setlong(atom, load<int32_t>(place));
            break;
        case Stored::signed64:
            atom_setlong(atom, load<int64_t>(place));
            break;
        case Stored::float32:
            atom_setfloat(atom, double{load<float>(place)});
            break;
        case Stored::float64:
            atom_setfloat(atom, load<double>(place));
            break;
        case Stored::symbol:
            atom_setsym(atom, load<Symbol *>(place));
            break;
        case Stored::pointer:
            atom_setobj(atom, load<void *>(place));
            break;
        case Stored::atom:
            *atom = load<Atom>(place);
            break;
    }
}

void stored_write(Stored stored, void *place, const Atom *atom) noexcept {
    switch (stored) {
        case Stored::nothing:
            break;
        case Stored::unsigned8:
            store(place, clipped<uint8_t>(atom_getlong(atom)));
            break;
        case Stored::signed16:
            store(place, clipped<int16_t>(atom_getlong(atom)));
            break;
        case Stored::signed32:
            store(place, clipped<int32_t>(atom_getlong(atom)));
            break;
        case Stored::signed64:
            store(place, atom_getlong(atom));
            break;
        case Stored::float32:
            store(place, narrowed(atom_getfloat(atom)));
            break;
        case Stored::float64:
            store(place, atom_getfloat(atom));
            break;
        case Stored::symbol:
            store(place, atom_to_symbol(atom));
            break;
        case Stored::pointer:
            store(place, atom_to_object(atom));
            break;
        case Stored::atom:
            store(place, *atom);
            break;
    }
}

// --- Inside an object ----------------------------------------------------------------------------

ErrorCode offset_get(void *x, void *attribute, int32_t *argc, Atom **argv) noexcept {
    const auto *a = static_cast<const Attribute *>(attribute);
    if (!a || !x || !argc || !argv) {
        return ErrorInvalidPointer;
    }
    if (atom_alloc(argc, argv, nullptr) != ErrorNone) {
        return ErrorOutOfMemory;
    }
    *argc = 1;
    stored_read(a->stored, place_in(x, a->offset), *argv);
    return ErrorNone;
}

ErrorCode offset_set(void *x, void *attribute, int32_t argc, Atom *argv) noexcept {
    const auto *a = static_cast<const Attribute *>(attribute);
    if (!a || !x) {
        return ErrorInvalidPointer;
    }
    if (!nothing_to_set(argc, argv)) {
        stored_write(a->stored, place_in(x, a->offset), argv);
    }
    return ErrorNone;
}

ErrorCode array_get(void *x, void *attribute, int32_t *argc, Atom **argv) noexcept {
    const auto *a = static_cast<const Attribute *>(attribute);
    if (!a || !x || !argc || !argv) {
        return ErrorInvalidPointer;
    }
    int32_t count = a->size;
    if (a->count_offset > 0) {
        count = std::clamp(load<int32_t>(place_in(x, a->count_offset)), 0, count);
    }
    return read_array(a->stored, place_in(x, a->offset), count, argc, argv);
}

ErrorCode array_set(void *x, void *attribute, int32_t argc, Atom *argv) noexcept {
    const auto *a = static_cast<const Attribute *>(attribute);
    if (!a || !x) {
        return ErrorInvalidPointer;
    }
    const int32_t count = nothing_to_set(argc, argv) ? 0 : std::min(argc, a->size);
    write_array(a->stored, place_in(x, a->offset), count, argv);
    if (a->count_offset > 0) {
        store(place_in(x, a->count_offset), count);
    }
    return ErrorNone;
}

// --- Held by the attribute -----------------------------------------------------------------------

ErrorCode held_get(void *, void *attribute, int32_t *argc, Atom **argv) noexcept {
    const auto *a = static_cast<const Attribute *>(attribute);
    if (!a || !argc || !argv) {
        return ErrorInvalidPointer;
    }
    const Guard guard(a->lock);
    return read_array(a->stored, a->value, a->count, argc, argv);
}

ErrorCode held_set(void *, void *attribute, int32_t argc, Atom *argv) noexcept {
    auto *a = static_cast<Attribute *>(attribute);
    if (!a) {
        return ErrorInvalidPointer;
    }
    if (nothing_to_set(argc, argv)) {
        return ErrorNone;
    }
    const Guard guard(a->lock);
    if (argc > a->count) {
        void *value =
            sysmem_resizeptr(a->value, int64_t{argc} * std::max(stored_size(a->stored), 1));
        if (!value) {
            return ErrorOutOfMemory;
        }
        a->value = value;
    }
    a->count = argc;
    write_array(a->stored, a->value, argc, argv);
    return ErrorNone;
}

// --- Kept in the extension record ----------------------------------------------------------------

ErrorCode kept_get(void *x, void *attribute, int32_t *argc, Atom **argv) noexcept {
    const auto *a = static_cast<const Attribute *>(attribute);
    if (!a || !x || !argc || !argv) {
        return ErrorInvalidPointer;
    }
    void *kept = nullptr;
    object_obex_lookup(x, a->name, &kept);
    int32_t count = 0;
    Atom *atoms = nullptr;
    if (kept) {
        atomarray_getatoms(static_cast<Atomarray *>(kept), &count, &atoms);
    }
    Atom zero;
    atom_setlong(&zero, 0);
    return count > 0 ? read_array(Stored::atom, atoms, count, argc, argv)
                     : read_array(Stored::atom, &zero, 1, argc, argv);
}

ErrorCode kept_set(void *x, void *attribute, int32_t argc, Atom *argv) noexcept {
    const auto *a = static_cast<const Attribute *>(attribute);
    if (!a || !x) {
        return ErrorInvalidPointer;
    }
    if (nothing_to_set(argc, argv)) {
        return ErrorNone;
    }
    Atomarray *kept = atomarray_new(argc, argv);
    if (!kept) {
        return ErrorOutOfMemory;
    }
    if (object_obex_storeflags(x, a->name, kept, ContainerOwns) != ErrorNone) {
        object_free(kept);
        return ErrorGeneric;
    }
    return ErrorNone;
}

}  // namespace kiv
