// Attributes of the records of this folder, each a line of a table: name, type, and accessors made
// by templates from a pointer to the member that holds the value.
#pragma once

#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <span>
#include <type_traits>

#include "patcher/records.h"

namespace kiv {

struct Field {
    const char *name;
    const char *type;
    AttrGetter get;  // null: a key that documents may hold, but no attribute
    AttrSetter set;  // null: read-only
    // For attributes that documents hold when they differ from the default: tells whether two
    // records agree. Null: not saved by the table's rule.
    bool (*same)(const void *a, const void *b) = nullptr;
};

// The record whose members an attribute of `x` reads: the object itself, or a box's box part.
template <class Record>
Record *record_of(void *x) noexcept {
    if constexpr (std::is_same_v<Record, BoxState>) {
        return static_cast<Jbox *>(x)->state;
    } else {
        return static_cast<Record *>(x);
    }
}

inline void value_to_atom(const uint8_t &value, Atom *atom) noexcept {
    atom_setlong(atom, value);
}
inline void value_to_atom(const int32_t &value, Atom *atom) noexcept {
    atom_setlong(atom, value);
}
inline void value_to_atom(const double &value, Atom *atom) noexcept {
    atom_setfloat(atom, value);
}
inline void value_to_atom(Symbol *const &value, Atom *atom) noexcept {
    atom_setsym(atom, value);
}
inline void value_to_atom(Object *const &value, Atom *atom) noexcept {
    atom_setobj(atom, value);
}

inline bool atom_is_number(const Atom &atom) noexcept {
    return atom.type == TypeLong || atom.type == TypeFloat;
}
// An integer clipped to a range; a float is truncated, and what is no number gives 0.
inline int64_t clipped_integer(const Atom &atom, int64_t low, int64_t high) noexcept {
    if (atom.type == TypeFloat) {
        const double value = atom.value.f;
        return value != value                       ? 0
               : value <= static_cast<double>(low)  ? low
               : value >= static_cast<double>(high) ? high
                                                    : static_cast<int64_t>(value);
    }
    return atom.type == TypeLong ? std::clamp(atom.value.i, low, high) : 0;
}

// Each takes one atom; false leaves the value as it was, since the atom is of the wrong type.
inline bool value_from_atom(uint8_t &value, const Atom &atom) noexcept {
    value = atom_is_number(atom) ? static_cast<uint8_t>(clipped_integer(atom, 0, 255)) : value;
    return atom_is_number(atom);
}
inline bool value_from_atom(int32_t &value, const Atom &atom) noexcept {
    value = atom_is_number(atom) ? static_cast<int32_t>(clipped_integer(atom, INT32_MIN, INT32_MAX))
                                 : value;
    return atom_is_number(atom);
}
inline bool value_from_atom(double &value, const Atom &atom) noexcept {
    value = atom_is_number(atom) ? atom_getfloat(&atom) : value;
    return atom_is_number(atom);
}
inline bool value_from_atom(Symbol *&value, const Atom &atom) noexcept {
    value = atom.type == TypeSymbol ? atom.value.sym : value;
    return atom.type == TypeSymbol;
}
inline bool value_from_atom(Object *&value, const Atom &atom) noexcept {
    value = atom.type == TypeObject ? static_cast<Object *>(atom.value.obj) : value;
    return atom.type == TypeObject;
}

template <class V>
std::span<std::remove_extent_t<V>> values_of(V &member) noexcept {
    if constexpr (std::is_array_v<V>) {
        return {member, std::extent_v<V>};
    } else {
        return {&member, 1};
    }
}

// Hands an array of values to the caller of a getter, in the caller's atoms or new ones.
template <class V>
ErrorCode values_to_atoms(std::span<V> values, int32_t *argc, Atom **argv) noexcept {
    uint8_t allocated = 0;
    const auto count = static_cast<int32_t>(values.size());
    if (ErrorCode failure = atom_alloc_array(count, argc, argv, &allocated)) {
        return failure;
    }
    for (int32_t i = 0; i < count; ++i) {
        value_to_atom(values[static_cast<size_t>(i)], *argv + i);
    }
    return ErrorNone;
}

template <auto member>
struct Member;

template <class Record, class V, V Record::*member>
struct Member<member> {
    static ErrorCode get(void *x, void *, int32_t *argc, Atom **argv) noexcept {
        Record *record = record_of<Record>(x);
        return record ? values_to_atoms(values_of(record->*member), argc, argv) : ErrorGeneric;
    }
    // Fewer atoms than values change the first ones; further atoms are ignored.
    static ErrorCode set(void *x, void *, int32_t argc, Atom *argv) noexcept {
        Record *record = record_of<Record>(x);
        if (!record || argc < 1 || !argv) {
            return ErrorGeneric;
        }
        auto values = values_of(record->*member);
        const size_t count = std::min(values.size(), static_cast<size_t>(argc));
        bool all = true;
        for (size_t i = 0; i < count; ++i) {
            all &= value_from_atom(values[i], argv[i]);
        }
        return all ? ErrorNone : ErrorGeneric;
    }
    static bool same(const void *a, const void *b) noexcept {
        auto left = values_of(const_cast<V &>(static_cast<const Record *>(a)->*member));
        auto right = values_of(const_cast<V &>(static_cast<const Record *>(b)->*member));
        return std::equal(left.begin(), left.end(), right.begin());
    }
};

template <auto member>
constexpr Field field(const char *name, const char *type) noexcept {
    return {name, type, &Member<member>::get, &Member<member>::set};
}
template <auto member>
constexpr Field saved_field(const char *name, const char *type) noexcept {
    return {name, type, &Member<member>::get, &Member<member>::set, &Member<member>::same};
}
template <auto member>
constexpr Field read_only_field(const char *name, const char *type) noexcept {
    return {name, type, &Member<member>::get, nullptr};
}
constexpr Field computed_field(const char *name, const char *type, AttrGetter get,
                               AttrSetter set = nullptr) noexcept {
    return {name, type, get, set};
}

// One value, for getters that compute it.
template <class V>
ErrorCode value_to_atoms(V value, int32_t *argc, Atom **argv) noexcept {
    return values_to_atoms(std::span<V>(&value, 1), argc, argv);
}

// The text of atoms as a symbol, a lone symbol being its own; null without memory.
Symbol *symbol_of_atoms(int32_t argc, const Atom *argv) noexcept;

// Declares a table's attributes on a class; the saved ones carry the attribute "save".
void class_add_fields(Class *c, std::span<const Field> fields) noexcept;
// Appends the value of a field to a dictionary, as one value or as an array.
bool field_write(const Field &field, void *x, Dictionary *dictionary) noexcept;

}  // namespace kiv
