// Atoms: setting, reading with conversion, arrays, storage. Everything works on the caller's atoms
// and may run on any thread. Numbers in text are read without regard to the locale.
#include <kiv/atom.h>
#include <kiv/console.h>
#include <kiv/string.h>
#include <kiv/symbol.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

#include "kernel/internal.h"

using namespace kiv::literals;

namespace kiv {

namespace {

int64_t truncate(double value) noexcept {
    constexpr double limit = 9223372036854775808.0;  // 2 to the 63rd
    if (value != value) {
        return 0;
    }
    if (value >= limit) {
        return std::numeric_limits<int64_t>::max();
    }
    return value < -limit ? std::numeric_limits<int64_t>::min() : static_cast<int64_t>(value);
}

// The number part of a text: without blanks before it and a plus sign.
std::string_view number_text(const char *text) noexcept {
    std::string_view rest = text;
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t\n\v\f\r"), rest.size()));
    if (rest.size() > 1 && rest[0] == '+' && rest[1] != '-') {
        rest.remove_prefix(1);
    }
    return rest;
}

bool read_long(const char *text, int64_t *value) noexcept {
    const std::string_view digits = number_text(text);
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), *value);
    if (result.ec == std::errc::result_out_of_range) {
        *value = digits[0] == '-' ? std::numeric_limits<int64_t>::min()
                                  : std::numeric_limits<int64_t>::max();
        return true;
    }
    return result.ec == std::errc();
}

// Too large or too small for a float: infinite or zero, with the sign of the text.
float beyond_float(std::string_view text) noexcept {
    const bool negative = text[0] == '-';
    const size_t exponent = text.find_first_of("eEpP");
    const bool small =
        (exponent != text.npos && exponent + 1 < text.size() && text[exponent + 1] == '-') ||
        text[negative ? 1 : 0] == '0' || text[negative ? 1 : 0] == '.';
    const float magnitude = small ? 0.0f : std::numeric_limits<float>::infinity();
    return negative ? -magnitude : magnitude;
}

bool read_float(const char *text, float *value) noexcept {
    const std::string_view number = number_text(text);
    const auto result = std::from_chars(number.data(), number.data() + number.size(), *value);
    if (result.ec == std::errc::result_out_of_range) {
        double wide = 0;
        const auto retry = std::from_chars(number.data(), number.data() + number.size(), wide);
        *value = retry.ec == std::errc() ? static_cast<float>(wide) : beyond_float(number);
        return true;
    }
    return result.ec == std::errc();
}

void bad_number(const Symbol *symbol) noexcept {
    error("%s: bad number", symbol ? symbol->name : "");
}

// The text of a string object, or null for any other object.
const char *string_text(void *x) noexcept {
    if (!object_valid(x) || object_classname(x) != "string"_sym) {
        return nullptr;
    }
    return string_getptr(static_cast<const String *>(x));
}

// Copies min(atom count, value count) elements. The result, -1 when the written side is the shorter
// one, is fixed before the arguments are looked at: a call that does nothing can still answer -1.
template <class A, class V, class Copy>
ErrorCode copy_array(int32_t atom_count, A *atoms, int32_t count, V *values, bool writes_atoms,
                     Copy copy) noexcept {
    const bool shortened = writes_atoms ? count > atom_count : count < atom_count;
    const ErrorCode result = shortened ? ErrorGeneric : ErrorNone;
    if (atom_count < 1 || count < 1 || !atoms || !values) {
        return result;
    }
    const int32_t copied = std::min(atom_count, count);
    for (int32_t i = 0; i < copied; ++i) {
        copy(atoms[i], values[i]);
    }
    return result;
}

const Atom *argument(const void *out, int32_t index, int32_t count, const Atom *atoms) noexcept {
    return out && count != 0 && atoms && index < count ? atoms + index : nullptr;
}

}  // namespace

}  // namespace kiv

using kiv::argument;
using kiv::copy_array;

ErrorCode atom_setlong(Atom *atom, int64_t value) noexcept {
    if (!atom) {
        return ErrorInvalidPointer;
    }
    atom->value.i = value;
    atom->type = TypeLong;
    return ErrorNone;
}

ErrorCode atom_setfloat(Atom *atom, double value) noexcept {
    if (!atom) {
        return ErrorInvalidPointer;
    }
    atom->value.f = value;
    atom->type = TypeFloat;
    return ErrorNone;
}

ErrorCode atom_setsym(Atom *atom, Symbol *symbol) noexcept {
    if (!atom) {
        return ErrorInvalidPointer;
    }
    atom->value.sym = symbol;
    atom->type = TypeSymbol;
    return ErrorNone;
}

ErrorCode atom_setobj(Atom *atom, void *x) noexcept {
    if (!atom) {
        return ErrorInvalidPointer;
    }
    atom->value.obj = x;
    atom->type = TypeObject;
    return ErrorNone;
}

int32_t atom_gettype(const Atom *atom) noexcept {
    return atom ? atom->type : static_cast<AtomType>(TypeNothing);
}

int64_t atom_getlong(const Atom *atom) noexcept {
    int64_t value = 0;
    switch (atom_gettype(atom)) {
        case TypeLong:
            return atom->value.i;
        case TypeFloat:
            return kiv::truncate(atom->value.f);
        case TypeSymbol:
            if (!atom->value.sym || !kiv::read_long(atom->value.sym->name, &value)) {
                kiv::bad_number(atom->value.sym);
                return 0;
            }
            return value;
        default:
            return 0;
    }
}

double atom_getfloat(const Atom *atom) noexcept {
    float value = 0;
    switch (atom_gettype(atom)) {
        case TypeLong:
            return static_cast<double>(atom->value.i);
        case TypeFloat:
            return atom->value.f;
        case TypeSymbol:
            if (!atom->value.sym || !kiv::read_float(atom->value.sym->name, &value)) {
                kiv::bad_number(atom->value.sym);
                return 0;
            }
            return static_cast<double>(value);
        default:
            return 0;
    }
}

Symbol *atom_getsym(const Atom *atom) noexcept {
    switch (atom_gettype(atom)) {
        case TypeSymbol:
            return atom->value.sym;
        case TypeObject:
            if (const char *text = kiv::string_text(atom->value.obj)) {
                return gensym(text);
            }
            break;
        default:
            break;
    }
    return ""_sym;
}

void *atom_getobj(const Atom *atom) noexcept {
    return atom_gettype(atom) == TypeObject ? atom->value.obj : nullptr;
}

int64_t atom_getcharfix(const Atom *atom) noexcept {
    switch (atom_gettype(atom)) {
        case TypeLong:
            return std::clamp<int64_t>(atom->value.i, 0, 255);
        case TypeFloat:
            return std::clamp<int64_t>(kiv::truncate(atom->value.f * 255.0), 0, 255);
        default:
            return 0;
    }
}

ErrorCode atom_arg_getlong(int64_t *out, int32_t index, int32_t count, const Atom *atoms) noexcept {
    const Atom *atom = argument(out, index, count, atoms);
    if (!atom) {
        return ErrorGeneric;
    }
    *out = atom_getlong(atom);
    return ErrorNone;
}

ErrorCode atom_arg_getfloat(float *out, int32_t index, int32_t count, const Atom *atoms) noexcept {
    const Atom *atom = argument(out, index, count, atoms);
    if (!atom) {
        return ErrorGeneric;
    }
    *out = static_cast<float>(atom_getfloat(atom));
    return ErrorNone;
}

ErrorCode atom_arg_getdouble(double *out, int32_t index, int32_t count,
                             const Atom *atoms) noexcept {
    const Atom *atom = argument(out, index, count, atoms);
    if (!atom) {
        return ErrorGeneric;
    }
    *out = atom_getfloat(atom);
    return ErrorNone;
}

ErrorCode atom_arg_getsym(Symbol **out, int32_t index, int32_t count, const Atom *atoms) noexcept {
    const Atom *atom = argument(out, index, count, atoms);
    if (!atom) {
        return ErrorGeneric;
    }
    *out = atom_getsym(atom);
    return ErrorNone;
}

ErrorCode atom_getlong_array(int32_t atom_count, const Atom *atoms, int32_t count,
                             int64_t *values) noexcept {
    return copy_array(atom_count, atoms, count, values, false,
                      [](const Atom &atom, int64_t &value) { value = atom_getlong(&atom); });
}

ErrorCode atom_getchar_array(int32_t atom_count, const Atom *atoms, int32_t count,
                             uint8_t *values) noexcept {
    return copy_array(atom_count, atoms, count, values, false,
                      [](const Atom &atom, uint8_t &value) {
                          value = static_cast<uint8_t>(atom_getlong(&atom));
                      });
}

ErrorCode atom_getfloat_array(int32_t atom_count, const Atom *atoms, int32_t count,
                              float *values) noexcept {
    return copy_array(atom_count, atoms, count, values, false, [](const Atom &atom, float &value) {
        value = static_cast<float>(atom_getfloat(&atom));
    });
}

ErrorCode atom_getdouble_array(int32_t atom_count, const Atom *atoms, int32_t count,
                               double *values) noexcept {
    return copy_array(atom_count, atoms, count, values, false,
                      [](const Atom &atom, double &value) { value = atom_getfloat(&atom); });
}

ErrorCode atom_getsym_array(int32_t atom_count, const Atom *atoms, int32_t count,
                            Symbol **values) noexcept {
    return copy_array(atom_count, atoms, count, values, false,
                      [](const Atom &atom, Symbol *&value) { value = atom_getsym(&atom); });
}

ErrorCode atom_getobj_array(int32_t atom_count, const Atom *atoms, int32_t count,
                            void **values) noexcept {
    return copy_array(atom_count, atoms, count, values, false,
                      [](const Atom &atom, void *&value) { value = atom_getobj(&atom); });
}

ErrorCode atom_getatom_array(int32_t atom_count, const Atom *atoms, int32_t count,
                             Atom *values) noexcept {
    return copy_array(atom_count, atoms, count, values, false,
                      [](const Atom &atom, Atom &value) { value = atom; });
}

ErrorCode atom_setlong_array(int32_t atom_count, Atom *atoms, int32_t count,
                             const int64_t *values) noexcept {
    return copy_array(atom_count, atoms, count, values, true,
                      [](Atom &atom, int64_t value) { atom_setlong(&atom, value); });
}

ErrorCode atom_setchar_array(int32_t atom_count, Atom *atoms, int32_t count,
                             const uint8_t *values) noexcept {
    return copy_array(atom_count, atoms, count, values, true,
                      [](Atom &atom, uint8_t value) { atom_setlong(&atom, value); });
}

ErrorCode atom_setfloat_array(int32_t atom_count, Atom *atoms, int32_t count,
                              const float *values) noexcept {
    return copy_array(atom_count, atoms, count, values, true, [](Atom &atom, float value) {
        atom_setfloat(&atom, static_cast<double>(value));
    });
}

ErrorCode atom_setdouble_array(int32_t atom_count, Atom *atoms, int32_t count,
                               const double *values) noexcept {
    return copy_array(atom_count, atoms, count, values, true,
                      [](Atom &atom, double value) { atom_setfloat(&atom, value); });
}

ErrorCode atom_setsym_array(int32_t atom_count, Atom *atoms, int32_t count,
                            Symbol *const *values) noexcept {
    return copy_array(atom_count, atoms, count, values, true,
                      [](Atom &atom, Symbol *value) { atom_setsym(&atom, value); });
}

ErrorCode atom_setobj_array(int32_t atom_count, Atom *atoms, int32_t count,
                            void *const *values) noexcept {
    return copy_array(atom_count, atoms, count, values, true,
                      [](Atom &atom, void *value) { atom_setobj(&atom, value); });
}

ErrorCode atom_setatom_array(int32_t atom_count, Atom *atoms, int32_t count,
                             const Atom *values) noexcept {
    return copy_array(atom_count, atoms, count, values, true,
                      [](Atom &atom, const Atom &value) { atom = value; });
}

ErrorCode atom_alloc(int32_t *count, Atom **atoms, uint8_t *allocated) noexcept {
    if (!count || !atoms) {
        return ErrorInvalidPointer;
    }
    if (*count != 0 && *atoms) {
        if (allocated) {
            *allocated = 0;
        }
        return ErrorNone;
    }
    *count = 0;
    return atom_alloc_array(1, count, atoms, allocated);
}

ErrorCode atom_alloc_array(int32_t needed, int32_t *count, Atom **atoms,
                           uint8_t *allocated) noexcept {
    if (!count || !atoms) {
        return ErrorInvalidPointer;
    }
    if (allocated) {
        *allocated = 0;
    }
    if (*count != 0 && *atoms) {
        if (*count < needed) {
            return ErrorGeneric;
        }
        *count = std::max(needed, 0);
        return ErrorNone;
    }
    // Cleared, so that an atom nobody sets reads as "no value".
    void *block = sysmem_newptrclear(std::max(needed, 1) * static_cast<int64_t>(sizeof(Atom)));
    if (!block) {
        return ErrorOutOfMemory;
    }
    *atoms = static_cast<Atom *>(block);
    *count = std::max(needed, 0);
    if (allocated) {
        *allocated = 1;
    }
    return ErrorNone;
}

Atom *atom_dynamic_start(Atom *local, int32_t local_count, int32_t needed) noexcept {
    if (needed < 1 || needed <= local_count) {
        return local;
    }
    return static_cast<Atom *>(sysmem_newptrclear(needed * static_cast<int64_t>(sizeof(Atom))));
}

void atom_dynamic_end(Atom *local, Atom *atoms) noexcept {
    if (atoms && atoms != local) {
        sysmem_freeptr(atoms);
    }
}
