// The dictionary's appenders: each makes a value and ends in dictionary_store.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/console.h>
#include <kiv/dictionary.h>
#include <kiv/object.h>

#include "containers/values.h"

namespace kiv {

namespace {

// Stores an object just made for it; it goes again when that fails.
ErrorCode store_made(Dictionary *dictionary, Symbol *key, void *x, int32_t flags) noexcept {
    if (!x) {
        return ErrorOutOfMemory;
    }
    const ErrorCode result = dictionary_store(dictionary, key, atom_of_object(x), flags);
    if (result != ErrorNone) {
        object_free(x);
    }
    return result;
}

ErrorCode store_array(Dictionary *dictionary, Symbol *key, int32_t argc, const Atom *argv,
                      int32_t flags, bool owns) noexcept {
    Atomarray *array = owns ? atomarray_adopt(argc, argv) : atomarray_new(argc, argv);
    if (array && array->count != argc) {
        object_free(array);
        array = nullptr;
    }
    if (!array) {
        return ErrorOutOfMemory;
    }
    const ErrorCode result = dictionary_store(dictionary, key, atom_of_object(array), flags);
    if (result != ErrorNone) {
        atomarray_flags(array, 0);  // the atoms' objects stay with the caller
        object_free(array);
    }
    return result;
}

}  // namespace

}  // namespace kiv

using namespace kiv;

ErrorCode dictionary_appendlong(Dictionary *dictionary, Symbol *key, int64_t value) noexcept {
    return dictionary_store(dictionary, key, atom_of(value), 0);
}

ErrorCode dictionary_appendfloat(Dictionary *dictionary, Symbol *key, double value) noexcept {
    return dictionary_store(dictionary, key, atom_of(value), 0);
}

ErrorCode dictionary_appendsym(Dictionary *dictionary, Symbol *key, Symbol *value) noexcept {
    return dictionary_store(dictionary, key, atom_of(value), 0);
}

ErrorCode dictionary_appendatom(Dictionary *dictionary, Symbol *key, const Atom *value) noexcept {
    return dictionary_appendatom_flags(dictionary, key, value, 0);
}

ErrorCode dictionary_appendatom_flags(Dictionary *dictionary, Symbol *key, const Atom *value,
                                      int32_t flags) noexcept {
    return value ? dictionary_store(dictionary, key, *value, flags) : ErrorGeneric;
}

ErrorCode dictionary_appendstring(Dictionary *dictionary, Symbol *key, const char *text) noexcept {
    return dictionary && key ? store_made(dictionary, key, string_new(text), 0) : ErrorGeneric;
}

ErrorCode dictionary_appendobject(Dictionary *dictionary, Symbol *key, void *x) noexcept {
    return dictionary_store(dictionary, key, atom_of_object(x), 0);
}

ErrorCode dictionary_appendobject_flags(Dictionary *dictionary, Symbol *key, void *x,
                                        int32_t flags) noexcept {
    return dictionary_store(dictionary, key, atom_of_object(x), flags);
}

ErrorCode dictionary_appenddictionary(Dictionary *dictionary, Symbol *key, void *value) noexcept {
    return is_dictionary(value) ? dictionary_appendobject(dictionary, key, value) : ErrorGeneric;
}

ErrorCode dictionary_appendatomarray(Dictionary *dictionary, Symbol *key, void *value) noexcept {
    return is_atomarray(value) ? dictionary_appendobject(dictionary, key, value) : ErrorGeneric;
}

ErrorCode dictionary_appendatoms(Dictionary *dictionary, Symbol *key, int32_t argc,
                                 const Atom *argv) noexcept {
    return dictionary_appendatoms_flags(dictionary, key, argc, argv, 0);
}

ErrorCode dictionary_appendatoms_flags(Dictionary *dictionary, Symbol *key, int32_t argc,
                                       const Atom *argv, int32_t flags) noexcept {
    if (!dictionary || !key || (argc > 0 && !argv)) {
        return ErrorGeneric;
    }
    argc = std::max(argc, 0);
    const bool owns = !(flags & (ContainerReference | ContainerData));
    const int32_t entry_flags = flags & ContainerNoNotify;
    if (!(flags & append_clones)) {
        return store_array(dictionary, key, argc, argv, entry_flags, owns);
    }
    try {
        Vector<Atom> clones(argv, argv + argc);
        if (!clone_object_atoms(argc, clones.data())) {
            return ErrorOutOfMemory;
        }
        const ErrorCode result =
            store_array(dictionary, key, argc, clones.data(), entry_flags, true);
        for (size_t i = 0; result != ErrorNone && i < clones.size(); ++i) {
            if (clones[i].type == TypeObject) {
                object_free(clones[i].value.obj);
            }
        }
        return result;
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

ErrorCode dictionary_appendbinbuf(Dictionary *dictionary, Symbol *key, Binbuf *value) noexcept {
    if (!dictionary || !key || !value) {
        return ErrorGeneric;
    }
    try {
        Vector<Atom> atoms;
        Atom atom{};
        for (int64_t types = 0, values = 0; binbuf_getatom(value, &types, &values, &atom) == 0;) {
            atoms.push_back(atom);
        }
        return dictionary_appendatoms(dictionary, key, static_cast<int32_t>(atoms.size()),
                                      atoms.data());
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

ErrorCode dictionary_appendattribute(Dictionary *dictionary, Symbol *key, Symbol *attribute,
                                     void *x) noexcept {
    if (!dictionary || !attribute || !x) {
        return ErrorGeneric;
    }
    int32_t count = 0;
    Atom *atoms = nullptr;
    ErrorCode result = object_attr_getvalueof(x, attribute, &count, &atoms);
    if (result == ErrorNone) {
        // Objects that an attribute answers with are the owner's.
        key = key && *key->name ? key : attribute;
        result = count == 1 ? dictionary_store(dictionary, key, atoms[0], ContainerReference)
                            : dictionary_appendatoms_flags(dictionary, key, count, atoms,
                                                           ContainerReference);
    }
    sysmem_freeptr(atoms);
    return result;
}
