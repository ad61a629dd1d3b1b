// Attributes as messages: "name" sets, "getname" gets and sends name and value out of the object's
// dump outlet, and "@name value ..." among the arguments of a new object.
#include <kiv/console.h>
#include <kiv/dictionary.h>
#include <kiv/inlets.h>

#include <cstring>

#include "kernel/attribute.h"

namespace kiv {

namespace {

// The name that "getname" asks for, or null.
Symbol *name_asked_for(const Symbol *selector) {
    const char *text = selector->name;
    return std::strncmp(text, "get", 3) == 0 && text[3] ? gensym(text + 3) : nullptr;
}

void *set_by_message(void *x, Symbol *selector, int32_t argc, Atom *argv) {
    object_attr_setvalueof(x, selector, argc, argv);
    return nullptr;
}

void *get_by_message(void *x, Symbol *selector, int32_t argc, Atom *argv) {
    object_attr_getdump(x, selector, argc, argv);
    return nullptr;
}

const MethodRecord set_record = {nullptr, reinterpret_cast<Method>(set_by_message), {TypeGimme}};
const MethodRecord get_record = {nullptr, reinterpret_cast<Method>(get_by_message), {TypeGimme}};

bool is_attribute_mark(const Atom &atom) {
    return atom.type == TypeSymbol && atom.value.sym && atom.value.sym->name[0] == '@';
}

// Calls step(name, count, atoms) for each "@" argument, until it answers false.
template <class Step>
void each_argument(int32_t count, Atom *atoms, Step step) {
    int32_t at = attr_args_offset(count, atoms);
    while (at < count) {
        Symbol *name = gensym(atoms[at].value.sym->name + 1);
        ++at;
        const int32_t values = attr_args_offset(count - at, atoms + at);
        if (!step(name, values, atoms + at)) {
            return;
        }
        at += values;
    }
}

}  // namespace

const MethodRecord *attribute_message(Object *x, Symbol *selector) noexcept {
    if (object_attr_get(x, selector)) {
        return object_attr_usercanset(x, selector) ? &set_record : nullptr;
    }
    Symbol *name = name_asked_for(selector);
    return name && object_attr_usercanget(x, name) ? &get_record : nullptr;
}

bool attribute_direct(Object *x, Symbol *selector, void *const words[8], void **result) noexcept {
    ErrorCode code = ErrorNone;
    if (object_attr_get(x, selector)) {
        const auto argc = static_cast<int32_t>(reinterpret_cast<intptr_t>(words[0]));
        code = object_attr_setvalueof(x, selector, argc, static_cast<Atom *>(words[1]));
    } else {
        Symbol *name = name_asked_for(selector);
        if (!name || !object_attr_get(x, name)) {
            return false;
        }
        code = object_attr_getvalueof(x, name, static_cast<int32_t *>(words[0]),
                                      static_cast<Atom **>(words[1]));
    }
    *result = reinterpret_cast<void *>(static_cast<intptr_t>(code));
    return true;
}

}  // namespace kiv

using namespace kiv;

void object_attr_getdump(void *x, Symbol *name, int32_t, Atom *) noexcept {
    if (!name || !object_valid(x)) {
        return;
    }
    Symbol *asked = object_attr_get(x, name) ? nullptr : name_asked_for(name);
    Symbol *attribute = asked ? asked : name;
    Value value(x, attribute);
    void *outlet = nullptr;
    if (value.error() == ErrorNone && object_valid(x) &&
        object_obex_lookup(x, "dumpout"_sym, &outlet) == ErrorNone && object_valid(outlet)) {
        outlet_anything(static_cast<Outlet *>(outlet), attribute, value.count(), value.atoms());
    }
}

int32_t attr_args_offset(int32_t count, const Atom *atoms) noexcept {
    if (!atoms || count < 1) {
        return count;
    }
    int32_t at = 0;
    while (at < count && !is_attribute_mark(atoms[at])) {
        ++at;
    }
    return at;
}

void attr_args_process(void *x, int32_t count, Atom *atoms) noexcept {
    if (!atoms) {
        return;
    }
    each_argument(count, atoms, [x](Symbol *name, int32_t argc, Atom *argv) {
        if (!object_valid(x)) {
            return false;
        }
        if (object_attr_usercanset(x, name)) {
            typedmess(x, name, argc, argv);
        } else {
            object_error(x, "%s: \"%s\" is not a valid attribute argument",
                         object_classname(x)->name, name->name);
        }
        return true;
    });
}

void attr_args_dictionary(Dictionary *dictionary, int32_t count, Atom *atoms) noexcept {
    if (!dictionary || !atoms) {
        return;
    }
    each_argument(count, atoms, [dictionary](Symbol *name, int32_t argc, Atom *argv) {
        if (argc == 1) {
            dictionary_appendatom(dictionary, name, argv);
        } else {
            dictionary_appendatoms(dictionary, name, argc, argv);
        }
        return true;
    });
}
