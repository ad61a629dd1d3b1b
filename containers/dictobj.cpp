// Named dictionaries: shared between objects through the registry, namespace "dictionary".
//
// Thread safety: finding and retaining happen in one critical region, so that a dictionary found
// cannot be freed before it is retained.
#include <kiv/atom.h>
#include <kiv/console.h>
#include <kiv/dictionary.h>
#include <kiv/inlets.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <cstring>
#include <utility>

#include "containers/dictobj.h"
#include "containers/json.h"
#include "containers/values.h"

namespace kiv {

namespace {

// Sends "dictionary" and a name; one without a name gets it for the time of the sending.
void outlet_dictionary(Outlet *outlet, Dictionary *dictionary) noexcept {
    Symbol *name = dictobj_namefromptr(dictionary);
    const bool named = name != nullptr;
    if (object_retain(dictionary) != ErrorNone) {
        return;
    }
    if (named || dictobj_register(dictionary, &name)) {
        Atom atom = atom_of(name);
        outlet_anything(outlet, "dictionary"_sym, 1, &atom);
        if (!named) {
            dictobj_unregister(dictionary);
        }
    }
    object_free(dictionary);
}

}  // namespace

}  // namespace kiv

using namespace kiv;

Dictionary *dictobj_register(Dictionary *dictionary, Symbol **name) noexcept {
    if (!dictionary) {
        return nullptr;
    }
    Symbol *wanted = name ? *name : nullptr;
    if (!wanted || !*wanted->name) {
        wanted = symbol_unique();
        if (name) {
            *name = wanted;
        }
    }
    return static_cast<Dictionary *>(object_register("dictionary"_sym, wanted, dictionary));
}

ErrorCode dictobj_unregister(Dictionary *dictionary) noexcept {
    return object_unregister(dictionary);
}

Dictionary *dictobj_findregistered_retain(Symbol *name) noexcept {
    if (!name) {
        return nullptr;
    }
    const Guard guard(global_region);
    void *x = object_findregistered("dictionary"_sym, name);
    return is_dictionary(x) && object_retain(x) == ErrorNone ? static_cast<Dictionary *>(x)
                                                             : nullptr;
}

Dictionary *dictobj_findregistered_clone(Symbol *name) noexcept {
    Dictionary *dictionary = dictobj_findregistered_retain(name);
    Dictionary *clone = dictionary_clone(dictionary);
    dictobj_release(dictionary);
    return clone;
}

ErrorCode dictobj_release(Dictionary *dictionary) noexcept {
    return object_free(dictionary);
}

Symbol *dictobj_namefromptr(Dictionary *dictionary) noexcept {
    Symbol *name_space = nullptr;
    Symbol *name = nullptr;
    return object_findregisteredbyptr(&name_space, &name, dictionary) == ErrorNone ? name : nullptr;
}

ErrorCode dictobj_dictionaryfromstring(Dictionary **dictionary, const char *text, int32_t is_json,
                                       char *error_buffer) noexcept {
    if (!dictionary) {
        return ErrorGeneric;
    }
    if (Dictionary *old = std::exchange(*dictionary, nullptr)) {
        object_free(old);
    }
    if (!text) {
        return ErrorGeneric;
    }
    char message[json_error_size] = "out of memory";
    Object *result = nullptr;
    ErrorCode parsed = ErrorGeneric;
    try {
        JsonText json;
        if (is_json) {
            parsed = json_parse(text, static_cast<int64_t>(std::strlen(text)), &result, message);
        } else if (json_from_dictionary_text(text, json, message)) {
            parsed = json_parse(json.data(), static_cast<int64_t>(json.size()), &result, message);
        }
    } catch (const std::bad_alloc &) {
    }
    if (is_dictionary(result)) {
        *dictionary = reinterpret_cast<Dictionary *>(result);
        return ErrorNone;
    }
    object_free(result);
    if (parsed != ErrorNone && error_buffer) {
        std::memcpy(error_buffer, message, sizeof message);
    } else if (parsed != ErrorNone) {
        cpost("dict_dictionaryfromstring(): json parsing failed to produce dictionary ");
    }
    return ErrorGeneric;
}

ErrorCode dictobj_jsonfromstring(int64_t *size, char **json, const char *text) noexcept {
    if (!size || !json || !text) {
        return ErrorGeneric;
    }
    *size = 0;
    *json = nullptr;
    try {
        char message[json_error_size];
        JsonText written;
        if (!json_from_dictionary_text(text, written, message)) {
            error("dictionary text: %s", message);
            return ErrorGeneric;
        }
        const auto bytes = static_cast<int64_t>(written.size()) + 1;
        *json = static_cast<char *>(sysmem_newptr(bytes));
        if (!*json) {
            return ErrorOutOfMemory;
        }
        sysmem_copyptr(written.c_str(), *json, bytes);
        *size = bytes - 1;
        return ErrorNone;
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

int32_t dictobj_atom_safety(Atom *atom) noexcept {
    if (!atom || atom->type != TypeObject) {
        return 0;
    }
    void *x = atom->value.obj;
    Symbol *name = nullptr;
    if (is_string(x)) {
        name = gensym(text_of(static_cast<String *>(x)));
    } else if (is_dictionary(x)) {
        name = dictobj_namefromptr(static_cast<Dictionary *>(x));
    }
    name = name ? name : object_classname(x);
    *atom = atom_of(name ? name : ""_sym);
    return 1;
}

void dictobj_outlet_atoms(Outlet *outlet, int32_t argc, Atom *argv) noexcept {
    if (!outlet || argc <= 0 || !argv) {
        return;
    }
    void *only = argc == 1 ? atom_getobj(argv) : nullptr;
    if (is_dictionary(only)) {
        outlet_dictionary(outlet, static_cast<Dictionary *>(only));
        return;
    }
    if (is_atomarray(only)) {
        atomarray_getatoms(static_cast<Atomarray *>(only), &argc, &argv);
    }
    // A copy: receivers may change what the atoms are part of, and must not see objects that
    // belong to it.
    try {
        Vector<Atom> atoms(argv, argv + argc);
        for (Atom &atom : atoms) {
            dictobj_atom_safety(&atom);
        }
        if (!atoms.empty()) {
            outlet_atoms(outlet, argc, atoms.data());
        }
    } catch (const std::bad_alloc &) {
        error("dictionary: out of memory, nothing sent");
    }
}
