// Arrays and copies that documents are made of.
#include "patcher/document.h"

#include <kiv/atom.h>
#include <kiv/atomarray.h>

namespace kiv {

namespace {

// A deep copy of an atom, by way of a dictionary; TypeNothing without memory.
Atom copy_of(const Atom &atom) noexcept {
    if (atom.type != TypeObject) {
        return atom;
    }
    Atom copy{};
    Owned<Dictionary> carrier(dictionary_new());
    if (carrier &&
        !dictionary_appendatom_flags(carrier.get(), "copy"_sym, &atom, DictionaryClones) &&
        !dictionary_getatom(carrier.get(), "copy"_sym, &copy)) {
        dictionary_chuckentry(carrier.get(), "copy"_sym);
    }
    return copy;
}

}  // namespace

Dictionary *dictionary_of(const Atom &atom) noexcept {
    return atom.type == TypeObject && object_classname_compare(atom.value.obj, "dictionary"_sym)
               ? static_cast<Dictionary *>(atom.value.obj)
               : nullptr;
}

Elements::~Elements() {
    for (const Atom &atom : atoms_) {
        if (atom.type == TypeObject) {
            object_free(atom.value.obj);
        }
    }
}

bool Elements::add(Owned<Dictionary> element) noexcept {
    if (!element) {
        return false;
    }
    try {
        Atom atom;
        atom_setobj(&atom, element.get());
        atoms_.push_back(atom);
        element.release();
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

bool Elements::add_copies(const Atomarray *array) noexcept {
    int32_t count = 0;
    Atom *atoms = nullptr;
    if (array) {
        atomarray_getatoms(array, &count, &atoms);
    }
    try {
        for (int32_t i = 0; i < count; ++i) {
            atoms_.push_back({});
            atoms_.back() = copy_of(atoms[i]);
            if (atoms_.back().type == TypeNothing) {
                return false;
            }
        }
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

bool Elements::store(Dictionary *dictionary, Symbol *key) noexcept {
    if (dictionary_appendatoms(dictionary, key, static_cast<int32_t>(atoms_.size()),
                               atoms_.data())) {
        return false;
    }
    atoms_.clear();
    return true;
}

Owned<Dictionary> wrapped(Symbol *key, Owned<Dictionary> content) noexcept {
    Owned<Dictionary> outer(content ? dictionary_new() : nullptr);
    if (!outer || dictionary_appenddictionary(outer.get(), key, content.get())) {
        return nullptr;
    }
    content.release();
    return outer;
}

bool keep_element(Atomarray **target, const Atom &element) noexcept {
    const Atom copy = copy_of(element);
    if (copy.type == TypeNothing) {
        return false;
    }
    if (!*target) {
        *target = atomarray_new(0, nullptr);
        atomarray_flags(*target, 1);  // it owns its objects
    }
    if (!*target || atomarray_appendatom(*target, &copy)) {
        if (copy.type == TypeObject) {
            object_free(copy.value.obj);
        }
        return false;
    }
    return true;
}

bool append_copies(Dictionary *dictionary, Symbol *key, int32_t argc, const Atom *argv) noexcept {
    return argc == 1 ? !dictionary_appendatom_flags(dictionary, key, argv, DictionaryClones)
                     : !dictionary_appendatoms_flags(dictionary, key, argc, argv, DictionaryClones);
}

bool add_missing(const Dictionary *source, Dictionary *target) noexcept {
    if (!source) {
        return true;
    }
    int32_t count = 0;
    Symbol **keys = nullptr;
    if (dictionary_getkeys_ordered(source, &count, &keys)) {
        return false;
    }
    bool done = true;
    for (int32_t i = 0; i < count && done; ++i) {
        Atom value;
        if (!dictionary_hasentry(target, keys[i])) {
            done = !dictionary_getatom(source, keys[i], &value) &&
                   !dictionary_appendatom_flags(target, keys[i], &value, DictionaryClones);
        }
    }
    sysmem_freeptr(keys);
    return done;
}

}  // namespace kiv
