// Packing plain values into atoms by a format string, unpacking them, and parsing atoms from text.
//
// A packer never writes beyond the room it was given: every value and every array is cut to it.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/binbuf.h>
#include <kiv/console.h>
#include <kiv/symbol.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "kernel/internal.h"

using namespace kiv::literals;

namespace kiv {

namespace {

constexpr int32_t working_atoms = 2048;    // of a caller without an array
constexpr int32_t parsed_limit = 1048576;  // atoms kept of one text
constexpr size_t token_size = 32768;       // the longest token with its terminator

// Tokens of a text, one at a time.
class Tokens {
  public:
    explicit Tokens(const char *text) noexcept
        : text_(text), size_(static_cast<int64_t>(std::strlen(text))) {}
    bool next(Atom *atom) noexcept {
        auto *text = const_cast<char *>(text_);  // readatom only reads it
        return readatom(token_, &text, &position_, size_, atom) != 0;
    }

  private:
    const char *text_;
    int64_t size_;
    int64_t position_ = 0;
    char token_[token_size];
};

int32_t parse(int32_t capacity, Atom *atoms, const char *text) noexcept {
    Tokens tokens(text);
    Atom atom;
    int32_t count = 0;
    while (count < capacity && tokens.next(&atom)) {
        if (atoms) {
            atoms[count] = atom;
        }
        ++count;
    }
    return count;
}

// Fills atoms from the arguments of a format.
class Packer {
  public:
    Packer(int32_t room, Atom *atoms) noexcept : atoms_(atoms), room_(room) {}
    int32_t count() const noexcept { return count_; }
    void pack(char letter, std::va_list *values) noexcept;

  private:
    Atom *atoms_;
    int32_t room_;
    int32_t count_ = 0;

    int32_t left() const noexcept { return room_ - count_; }
    Atom *slot() noexcept { return left() > 0 ? &atoms_[count_++] : nullptr; }  // null: no room
    void add(const Atom &atom) noexcept;
    void add_array(int32_t count, const Atom *atoms) noexcept;
    void add_text(const char *text) noexcept;
    void add_binbuf(Binbuf *buf) noexcept;
    void add_value(Object *x) noexcept;
    void add_attribute(Object *x, Symbol *name) noexcept;
    bool pack_single(char letter, std::va_list *values) noexcept;
    void pack_array(char letter, int32_t count, const void *values) noexcept;
};

void Packer::add(const Atom &atom) noexcept {
    if (Atom *free_slot = slot()) {
        *free_slot = atom;
    }
}

void Packer::add_array(int32_t count, const Atom *atoms) noexcept {
    const int32_t copied = atoms ? std::clamp(count, 0, left()) : 0;
    std::copy_n(atoms, copied, atoms_ + count_);
    count_ += copied;
}

void Packer::add_text(const char *text) noexcept {
    if (text && left() > 0) {
        count_ += parse(left(), atoms_ + count_, text);
    }
}

void Packer::add_binbuf(Binbuf *buf) noexcept {
    int64_t type_offset = 0;
    int64_t value_offset = 0;
    Atom atom;
    while (buf && left() > 0 && binbuf_getatom(buf, &type_offset, &value_offset, &atom) == 0) {
        add(atom);
    }
}

void Packer::add_value(Object *x) noexcept {
    if (!object_valid(x)) {
        return;
    }
    int32_t count = 0;
    Atom *atoms = nullptr;
    object_method(x, "getvalueof"_sym, &count, &atoms);
    add_array(count, atoms);
    sysmem_freeptr(atoms);
}

void Packer::add_attribute(Object *x, Symbol *name) noexcept {
    int32_t count = 0;
    Atom *atoms = nullptr;
    if (x && name && object_attr_getvalueof(x, name, &count, &atoms) == ErrorNone) {
        add_array(count, atoms);
    }
    sysmem_freeptr(atoms);
}

Symbol *symbol_of(const char *text) noexcept {
    return gensym(text ? text : "<NULL>");
}

// A letter that makes one atom; false for any other.
bool Packer::pack_single(char letter, std::va_list *values) noexcept {
    Atom atom{};
    switch (letter) {
        case 'c':
        case 'l':
            atom_setlong(&atom, va_arg(*values, int32_t));
            break;
        case 'x':
            atom_setlong(&atom, va_arg(*values, int64_t));
            break;
        case 'f':
        case 'd':
            atom_setfloat(&atom, va_arg(*values, double));
            break;
        case 's':
            atom_setsym(&atom, va_arg(*values, Symbol *));
            break;
        case 'z':
            atom_setsym(&atom, symbol_of(va_arg(*values, const char *)));
            break;
        case 'o':
            atom_setobj(&atom, va_arg(*values, void *));
            break;
        case 'a': {
            const Atom *value = va_arg(*values, const Atom *);
            value ? void(atom = *value) : void(atom_setlong(&atom, 0));
            break;
        }
        default:
            return false;
    }
    add(atom);
    return true;
}

void Packer::pack_array(char letter, int32_t count, const void *values) noexcept {
    if (letter == 'L') {
        post("atom_setformat: warning! 'L' is ambiguous!");
    }
    count = values ? std::clamp(count, 0, left()) : 0;
    for (int32_t i = 0; i < count; ++i) {
        Atom *atom = slot();
        switch (letter) {
            case 'A':
                *atom = static_cast<const Atom *>(values)[i];
                break;
            case 'C':
                atom_setlong(atom, static_cast<const uint8_t *>(values)[i]);
                break;
            case 'L':
                atom_setlong(atom, static_cast<const int32_t *>(values)[i]);
                break;
            case 'X':
                atom_setlong(atom, static_cast<const int64_t *>(values)[i]);
                break;
            case 'F':
                atom_setfloat(atom, static_cast<double>(static_cast<const float *>(values)[i]));
                break;
            case 'D':
                atom_setfloat(atom, static_cast<const double *>(values)[i]);
                break;
            case 'S':
                atom_setsym(atom, static_cast<Symbol *const *>(values)[i]);
                break;
            case 'Z':
                atom_setsym(atom, symbol_of(static_cast<const char *const *>(values)[i]));
                break;
            default:  // 'O'
                atom_setobj(atom, static_cast<void *const *>(values)[i]);
                break;
        }
    }
}

bool is_array_letter(char letter) noexcept {
    return letter != '\0' && std::strchr("ACDFLOSXZ", letter);
}

void Packer::pack(char letter, std::va_list *values) noexcept {
    if (pack_single(letter, values)) {
        return;
    }
    if (is_array_letter(letter)) {
        const int32_t count = va_arg(*values, int32_t);
        pack_array(letter, count, va_arg(*values, const void *));
        return;
    }
    switch (letter) {
        case 'b':
            add_binbuf(va_arg(*values, Binbuf *));
            break;
        case 'p':
            add_text(va_arg(*values, const char *));
            break;
        case 'v':
            add_value(va_arg(*values, Object *));
            break;
        case '@': {
            auto *x = va_arg(*values, Object *);
            add_attribute(x, va_arg(*values, Symbol *));
            break;
        }
        default:
            break;
    }
}

int32_t pack_all(int32_t room, Atom *atoms, const char *format, std::va_list *values) noexcept {
    Packer packer(room, atoms);
    for (; *format; ++format) {
        packer.pack(*format, values);
    }
    return packer.count();
}

// Stores one atom where a letter's variable, or element `index` of its array, lies.
void unpack(char letter, const Atom *atom, void *out, int32_t index) noexcept {
    switch (letter) {
        case 'c':
        case 'C':
            static_cast<char *>(out)[index] = static_cast<char>(atom_getlong(atom));
            break;
        case 'l':
        case 'L':
            static_cast<int32_t *>(out)[index] = static_cast<int32_t>(atom_getlong(atom));
            break;
        case 'x':
        case 'X':
            static_cast<int64_t *>(out)[index] = atom_getlong(atom);
            break;
        case 'f':
        case 'F':
            static_cast<float *>(out)[index] = static_cast<float>(atom_getfloat(atom));
            break;
        case 'd':
        case 'D':
            static_cast<double *>(out)[index] = atom_getfloat(atom);
            break;
        case 's':
        case 'S':
            static_cast<Symbol **>(out)[index] = atom_getsym(atom);
            break;
        case 'z':
        case 'Z': {
            const Symbol *symbol = atom_getsym(atom);
            static_cast<const char **>(out)[index] = symbol ? symbol->name : "";
            break;
        }
        case 'o':
        case 'O':
            static_cast<void **>(out)[index] = atom_getobj(atom);
            break;
        default:  // 'a' and 'A'
            static_cast<Atom *>(out)[index] = *atom;
            break;
    }
}

void unpack_all(int32_t count, const Atom *atoms, const char *format,
                std::va_list *values) noexcept {
    int32_t at = 0;
    for (; *format; ++format) {
        const char letter = *format;
        int32_t wanted = 1;
        if (is_array_letter(letter)) {
            wanted = va_arg(*values, int32_t);
            if (letter == 'L') {
                post("atom_getformat: warning! 'L' is ambiguous!");
            }
        } else if (!std::strchr("clxfdszoa", letter)) {
            continue;
        }
        void *out = va_arg(*values, void *);
        const int32_t stored = std::clamp(wanted, 0, count - at);
        for (int32_t i = 0; out && i < stored; ++i) {
            unpack(letter, &atoms[at + i], out, i);
        }
        at += stored;
    }
}

}  // namespace

ErrorCode atom_setformat_list(int32_t *count, Atom **atoms, const char *format,
                              std::va_list *values) noexcept {
    if (!count || !atoms || !format) {
        return ErrorInvalidPointer;
    }
    if (*count > 0 && *atoms) {
        *count = pack_all(*count, *atoms, format, values);
        return ErrorNone;
    }
    Atom working[working_atoms];
    const int32_t packed = pack_all(working_atoms, working, format, values);
    *count = 0;
    const ErrorCode result =
        packed > 0 ? atom_alloc_array(packed, count, atoms, nullptr) : ErrorNone;
    std::copy_n(working, *count, *atoms);
    return result;
}

}  // namespace kiv

ErrorCode atom_setformat(int32_t *count, Atom **atoms, const char *format, ...) noexcept {
    std::va_list values;
    va_start(values, format);
    const ErrorCode result = kiv::atom_setformat_list(count, atoms, format, &values);
    va_end(values);
    return result;
}

ErrorCode atom_getformat(int32_t count, const Atom *atoms, const char *format, ...) noexcept {
    if (!atoms || !format) {
        return ErrorInvalidPointer;
    }
    std::va_list values;
    va_start(values, format);
    kiv::unpack_all(std::max(count, 0), atoms, format, &values);
    va_end(values);
    return ErrorNone;
}

ErrorCode atom_setparse(int32_t *count, Atom **atoms, const char *text) noexcept {
    if (!count || !atoms) {
        return ErrorNone;
    }
    if (!text || !*text) {
        *count = 0;
        return ErrorNone;
    }
    if (*count <= 0 || !*atoms) {
        const int32_t needed = kiv::parse(kiv::parsed_limit, nullptr, text);
        *count = 0;
        if (needed == 0) {
            return ErrorNone;
        }
        const ErrorCode result = atom_alloc_array(needed, count, atoms, nullptr);
        if (result != ErrorNone) {
            return result;
        }
    }
    *count = kiv::parse(*count, *atoms, text);
    return ErrorNone;
}
