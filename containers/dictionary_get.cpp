// The dictionary's getters.
//
// Every getter first turns a string value it meets into a symbol, in place, so that what it hands
// out lives as long as the program; texts too long for a symbol stay strings and live as long as
// their entry. The dictionary counts as unchanged by that, hence const.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/console.h>
#include <kiv/dictionary.h>
#include <kiv/symbol.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>

#include "containers/values.h"

namespace kiv {

namespace {

// The object under a key when it is of a class, else null.
void *object_of_class(const Dictionary *dictionary, Symbol *key, Symbol *name) noexcept {
    const Atom *atom = dictionary_value(dictionary, key);
    return atom && atom->type == TypeObject && is_of_class(atom->value.obj, name) ? atom->value.obj
                                                                                  : nullptr;
}

template <class T>
ErrorCode get_object(const Dictionary *dictionary, Symbol *key, Symbol *name, T **value) noexcept {
    if (!value) {
        return ErrorGeneric;
    }
    *value = static_cast<T *>(object_of_class(dictionary, key, name));
    return *value ? ErrorNone : ErrorGeneric;
}

const char *name_of(const Symbol *symbol) noexcept {
    return symbol ? symbol->name : "";
}

int64_t long_of(const Symbol *symbol) noexcept {
    char *end = nullptr;
    const int64_t value = std::strtoll(name_of(symbol), &end, 10);
    if (end == name_of(symbol)) {
        error("%s: bad number", name_of(symbol));
    }
    return value;
}

double float_of(const Symbol *symbol) noexcept {
    const char *text = name_of(symbol);
    text += std::strspn(text, " \t\r\n\v\f");
    text += *text == '+' ? 1 : 0;
    double value = 0.0;
    if (std::from_chars(text, text + std::strlen(text), value).ec == std::errc::invalid_argument) {
        error("%s: bad number", name_of(symbol));
    }
    return value;
}

// The whole numbers nearest to what does not fit, as a conversion by the processor would not give.
int64_t truncated(double value) noexcept {
    constexpr double limit = 9223372036854775808.0;
    if (value != value) {
        return 0;
    }
    return value >= limit ? INT64_MAX : value < -limit ? INT64_MIN : static_cast<int64_t>(value);
}

void atoms_of(Atom *value, int32_t *argc, Atom **argv) noexcept {
    if (value->type == TypeObject && is_atomarray(value->value.obj)) {
        atomarray_getatoms(static_cast<Atomarray *>(value->value.obj), argc, argv);
    } else {
        *argc = 1;
        *argv = value;
    }
}

ErrorCode copy_atoms(int32_t count, const Atom *atoms, int32_t *argc, Atom **argv) noexcept {
    *argc = 0;
    *argv = nullptr;
    if (count <= 0 || !atoms) {
        return ErrorNone;
    }
    const auto bytes = static_cast<int64_t>(sizeof(Atom)) * count;
    auto *copy = static_cast<Atom *>(sysmem_newptr(bytes));
    if (!copy) {
        return ErrorOutOfMemory;
    }
    sysmem_copyptr(atoms, copy, bytes);
    *argc = count;
    *argv = copy;
    return ErrorNone;
}

}  // namespace

}  // namespace kiv

using namespace kiv;

ErrorCode dictionary_getlong(const Dictionary *dictionary, Symbol *key, int64_t *value) noexcept {
    const Atom *found = value ? dictionary_value(dictionary, key) : nullptr;
    if (!found) {
        return ErrorGeneric;
    }
    const Atom &atom = *found;
    *value = atom.type == TypeLong     ? atom.value.i
             : atom.type == TypeFloat  ? truncated(atom.value.f)
             : atom.type == TypeSymbol ? long_of(atom.value.sym)
                                       : 0;
    return ErrorNone;
}

ErrorCode dictionary_getfloat(const Dictionary *dictionary, Symbol *key, double *value) noexcept {
    const Atom *found = value ? dictionary_value(dictionary, key) : nullptr;
    if (!found) {
        return ErrorGeneric;
    }
    const Atom &atom = *found;
    *value = atom.type == TypeLong     ? static_cast<double>(atom.value.i)
             : atom.type == TypeFloat  ? atom.value.f
             : atom.type == TypeSymbol ? float_of(atom.value.sym)
                                       : 0.0;
    return ErrorNone;
}

ErrorCode dictionary_getsym(const Dictionary *dictionary, Symbol *key, Symbol **value) noexcept {
    if (!value) {
        return ErrorGeneric;
    }
    const Atom *atom = dictionary_value(dictionary, key);
    const bool found = atom && atom->type == TypeSymbol;
    *value = found ? atom->value.sym : ""_sym;
    return found ? ErrorNone : ErrorGeneric;
}

ErrorCode dictionary_getatom(const Dictionary *dictionary, Symbol *key, Atom *value) noexcept {
    const Atom *atom = value ? dictionary_value(dictionary, key) : nullptr;
    if (!atom) {
        return ErrorGeneric;
    }
    *value = *atom;
    return ErrorNone;
}

ErrorCode dictionary_getstring(const Dictionary *dictionary, Symbol *key,
                               const char **value) noexcept {
    const Atom *atom = value ? dictionary_value(dictionary, key) : nullptr;
    if (atom && atom->type == TypeSymbol) {
        *value = name_of(atom->value.sym);
        return ErrorNone;
    }
    if (atom && atom->type == TypeObject && is_string(atom->value.obj)) {
        *value = text_of(static_cast<String *>(atom->value.obj));
        return ErrorNone;
    }
    return ErrorGeneric;
}

ErrorCode dictionary_getobject(const Dictionary *dictionary, Symbol *key, void **value) noexcept {
    const Atom *atom = value ? dictionary_value(dictionary, key) : nullptr;
    if (!atom || atom->type != TypeObject) {
        return ErrorGeneric;
    }
    *value = atom->value.obj;
    return ErrorNone;
}

ErrorCode dictionary_getdictionary(const Dictionary *dictionary, Symbol *key,
                                   Dictionary **value) noexcept {
    return get_object(dictionary, key, "dictionary"_sym, value);
}

ErrorCode dictionary_getatomarray(const Dictionary *dictionary, Symbol *key,
                                  Atomarray **value) noexcept {
    return get_object(dictionary, key, "atomarray"_sym, value);
}

ErrorCode dictionary_getatoms(const Dictionary *dictionary, Symbol *key, int32_t *argc,
                              Atom **argv) noexcept {
    if (!argc || !argv) {
        return ErrorGeneric;
    }
    Atom *value = dictionary_value(dictionary, key);
    if (!value) {
        return ErrorGeneric;
    }
    atoms_of(value, argc, argv);
    return ErrorNone;
}

ErrorCode dictionary_copyatoms(const Dictionary *dictionary, Symbol *key, int32_t *argc,
                               Atom **argv) noexcept {
    int32_t count = 0;
    Atom *atoms = nullptr;
    if (!argc || !argv) {
        return ErrorGeneric;
    }
    const ErrorCode result = dictionary_getatoms(dictionary, key, &count, &atoms);
    return result == ErrorNone ? copy_atoms(count, atoms, argc, argv) : result;
}

ErrorCode dictionary_getattribute(const Dictionary *dictionary, Symbol *key, Symbol *attribute,
                                  void *x) noexcept {
    if (!attribute || !x) {
        return ErrorGeneric;
    }
    // A copy: the setter may change the dictionary.
    int32_t count = 0;
    Atom *atoms = nullptr;
    ErrorCode result =
        dictionary_copyatoms(dictionary, key && *key->name ? key : attribute, &count, &atoms);
    if (result == ErrorNone) {
        result = object_attr_setvalueof(x, attribute, count, atoms);
        sysmem_freeptr(atoms);
    }
    return result;
}

int32_t dictionary_hasentry(const Dictionary *dictionary, Symbol *key) noexcept {
    return dictionary_has(dictionary, key);
}

int32_t dictionary_entryisdictionary(const Dictionary *dictionary, Symbol *key) noexcept {
    return object_of_class(dictionary, key, "dictionary"_sym) != nullptr;
}

int32_t dictionary_entryisatomarray(const Dictionary *dictionary, Symbol *key) noexcept {
    return object_of_class(dictionary, key, "atomarray"_sym) != nullptr;
}

int32_t dictionary_entryisstring(const Dictionary *dictionary, Symbol *key) noexcept {
    return object_of_class(dictionary, key, "string"_sym) != nullptr;
}

ErrorCode dictionary_getdeflong(const Dictionary *dictionary, Symbol *key, int64_t *value,
                                int64_t fallback) noexcept {
    const ErrorCode result = dictionary_getlong(dictionary, key, value);
    if (result != ErrorNone && value) {
        *value = fallback;
    }
    return result;
}

ErrorCode dictionary_getdeffloat(const Dictionary *dictionary, Symbol *key, double *value,
                                 double fallback) noexcept {
    const ErrorCode result = dictionary_getfloat(dictionary, key, value);
    if (result != ErrorNone && value) {
        *value = fallback;
    }
    return result;
}

ErrorCode dictionary_getdefsym(const Dictionary *dictionary, Symbol *key, Symbol **value,
                               Symbol *fallback) noexcept {
    const ErrorCode result = dictionary_getsym(dictionary, key, value);
    if (result != ErrorNone && value) {
        *value = fallback;
    }
    return result;
}

ErrorCode dictionary_getdefatom(const Dictionary *dictionary, Symbol *key, Atom *value,
                                const Atom *fallback) noexcept {
    const ErrorCode result = dictionary_getatom(dictionary, key, value);
    if (result != ErrorNone && value && fallback) {
        *value = *fallback;
    }
    return result;
}

ErrorCode dictionary_getdefstring(const Dictionary *dictionary, Symbol *key, const char **value,
                                  const char *fallback) noexcept {
    const ErrorCode result = dictionary_getstring(dictionary, key, value);
    if (result != ErrorNone && value) {
        *value = fallback;
    }
    return result;
}

ErrorCode dictionary_getdefatoms(const Dictionary *dictionary, Symbol *key, int32_t *argc,
                                 Atom **argv, int32_t fallback_count, Atom *fallback) noexcept {
    const ErrorCode result = dictionary_getatoms(dictionary, key, argc, argv);
    if (result != ErrorNone && argc && argv) {
        *argc = fallback_count;
        *argv = fallback;
    }
    return result;
}

ErrorCode dictionary_copydefatoms(const Dictionary *dictionary, Symbol *key, int32_t *argc,
                                  Atom **argv, int32_t fallback_count,
                                  const Atom *fallback) noexcept {
    const ErrorCode result = dictionary_copyatoms(dictionary, key, argc, argv);
    if (result == ErrorGeneric) {
        copy_atoms(fallback_count, fallback, argc, argv);
    }
    return result;
}

ErrorCode dictionary_getkeys_ordered(const Dictionary *dictionary, int32_t *count,
                                     Symbol ***keys) noexcept {
    if (!dictionary || !count || !keys) {
        return ErrorGeneric;
    }
    *count = 0;
    *keys = nullptr;
    try {
        Vector<EntryView> entries;
        dictionary_list(dictionary, entries);
        if (entries.empty()) {
            return ErrorNone;
        }
        *keys = static_cast<Symbol **>(
            sysmem_newptr(static_cast<int64_t>(entries.size() * sizeof(Symbol *))));
        if (!*keys) {
            return ErrorOutOfMemory;
        }
        for (const EntryView &entry : entries) {
            (*keys)[(*count)++] = entry.key;
        }
        return ErrorNone;
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

void dictionary_freekeys(Dictionary *, int32_t, Symbol **keys) noexcept {
    sysmem_freeptr(keys);
}

Symbol *dictionary_entry_getkey(DictionaryEntry *entry) noexcept {
    return entry ? entry->key : nullptr;
}

void dictionary_entry_getvalue(DictionaryEntry *entry, Atom *value) noexcept {
    if (value) {
        *value = entry ? entry->value : Atom{};
    }
}

void dictionary_entry_getvalues(DictionaryEntry *entry, int32_t *argc, Atom **argv) noexcept {
    if (!argc || !argv) {
        return;
    }
    *argc = 0;
    *argv = nullptr;
    if (entry) {
        string_to_symbol(entry);
        atoms_of(&entry->value, argc, argv);
    }
}
