// Attribute objects: making them, and the messages they answer.
//
// There are three kernel classes, of one record: values at a position inside an object, arrays
// there, and values that the attribute holds itself. The interface above them only sends messages,
// so a module may define attribute classes of its own. Attributes carry attributes themselves
// ("label", "save" ...), in a table of their own like any object's.
//
// Thread safety: an attribute is made and filtered while its class is built; afterwards only the
// touched mark and a held value change, atomically and under the attribute's lock.
#include "kernel/attribute.h"

#include <cstddef>

namespace kiv {

namespace {

// --- Messages ------------------------------------------------------------------------------------

Symbol *attribute_getname(const Attribute *a) {
    return a->name;
}

Symbol *attribute_gettype(const Attribute *a) {
    return a->type;
}

void *word(bool yes) {
    return reinterpret_cast<void *>(static_cast<uintptr_t>(yes));
}

void *attribute_getflags(const Attribute *a) {
    return reinterpret_cast<void *>(static_cast<uintptr_t>(flags_of(a)));
}

void *attribute_usercanset(const Attribute *a) {
    return word(!(flags_of(a) & (AttrSetOpaque | AttrSetOpaqueUser)));
}

void *attribute_usercanget(const Attribute *a) {
    return word(!(flags_of(a) & (AttrGetOpaque | AttrGetOpaqueUser)));
}

void *attribute_getmethod(const Attribute *a, const Symbol *which) {
    if (which == "get"_sym) {
        return reinterpret_cast<void *>(a->get);
    }
    return which == "set"_sym ? reinterpret_cast<void *>(a->set) : nullptr;
}

void *code(ErrorCode result) {
    return reinterpret_cast<void *>(static_cast<intptr_t>(result));
}

void *attribute_get(Attribute *a, void *x, int32_t *argc, Atom **argv) {
    return code(reinterpret_cast<AttrGetter>(a->get)(x, a, argc, argv));
}

void *attribute_set(Attribute *a, void *x, void *argc, Atom *argv) {
    const auto count = static_cast<int32_t>(reinterpret_cast<intptr_t>(argc));
    return code(reinterpret_cast<AttrSetter>(a->set)(x, a, count, argv));
}

// --- Making and freeing --------------------------------------------------------------------------

void attribute_free(Attribute *a) {
    filters_free(a);
    sysmem_freeptr(a->value);
    if (a->lock) {
        critical_free(a->lock);
    }
}

void *copy_attribute(HashtabEntry *entry, void *target) {
    void *copy = object_clone(entry->value);
    if (copy && object_addattr(target, copy) != ErrorNone) {
        object_free(copy);
    }
    return nullptr;
}

Attribute *make(Class *c, const char *name, Symbol *type, int32_t flags, Method getter,
                Method setter) {
    Symbol *const symbol = name ? gensym(name) : nullptr;
    auto *a = symbol ? reinterpret_cast<Attribute *>(object_alloc(c)) : nullptr;
    if (a) {
        a->name = symbol;
        a->type = type;
        a->stored = stored_type(type);
        a->flags = static_cast<uint32_t>(flags);
        a->get = getter;
        a->set = setter;
    }
    return a;
}

void *attribute_clone(Attribute *a);

Class *attribute_class_new(const char *name) {
    Class *c = class_new(name, nullptr, reinterpret_cast<Method>(attribute_free), sizeof(Attribute),
                         nullptr, 0);
    if (!c) {
        return nullptr;
    }
    c->lightweight = 1;
    class_obexoffset_set(c, offsetof(Attribute, obex));
    const struct {
        Method method;
        const char *selector;
    } messages[] = {
        {reinterpret_cast<Method>(attribute_get), "get"},
        {reinterpret_cast<Method>(attribute_set), "set"},
        {reinterpret_cast<Method>(attribute_getname), "getname"},
        {reinterpret_cast<Method>(attribute_gettype), "gettype"},
        {reinterpret_cast<Method>(attribute_getflags), "getflags"},
        {reinterpret_cast<Method>(attribute_getmethod), "getmethod"},
        {reinterpret_cast<Method>(attribute_usercanset), "usercanset"},
        {reinterpret_cast<Method>(attribute_usercanget), "usercanget"},
        {reinterpret_cast<Method>(attribute_clone), "object_clone"},
    };
    for (const auto &message : messages) {
        class_addmethod(c, message.method, message.selector, TypeCant, 0);
    }
    class_register(nullptr, c);
    return c;
}

struct State {
    Class *held = nullptr;
    Class *offset = nullptr;
    Class *array = nullptr;
};
State &state() {
    static State classes{attribute_class_new("attribute"), attribute_class_new("attr_offset"),
                         attribute_class_new("attr_offset_array")};
    return classes;
}

// The same attribute again, with filters, a value and attributes of its own.
void *attribute_clone(Attribute *a) {
    Attribute *copy = make(class_of(a), a->name->name, a->type, static_cast<int32_t>(flags_of(a)),
                           a->get, a->set);
    if (!copy) {
        return nullptr;
    }
    copy->offset = a->offset;
    copy->size = a->size;
    copy->count_offset = a->count_offset;
    if (!filters_copy(a, copy)) {
        object_free(copy);
        return nullptr;
    }
    if (class_of(a) == state().held) {
        copy->value = sysmem_newptrclear(sizeof(Atom));
        critical_new(&copy->lock);
        int32_t count = 0;
        Atom *atoms = nullptr;
        held_get(nullptr, a, &count, &atoms);
        held_set(nullptr, copy, count, atoms);
        sysmem_freeptr(atoms);
    }
    if (Hashtab *own = own_attributes(a)) {
        hashtab_funall(own, reinterpret_cast<HashtabFunction>(copy_attribute), copy);
    }
    return copy;
}

}  // namespace

void attributes_start() noexcept {
    state();
}

Attribute *as_attribute(void *attribute) noexcept {
    if (!object_valid(attribute)) {
        return nullptr;
    }
    const Class *c = class_of(attribute);
    const bool own = c == state().held || c == state().offset || c == state().array;
    return own ? static_cast<Attribute *>(attribute) : nullptr;
}

}  // namespace kiv

using namespace kiv;

void *attribute_new(const char *name, Symbol *type, int32_t flags, Method getter,
                    Method setter) noexcept {
    const bool untyped = !type || type == "gimme"_sym || type == "list"_sym;
    Attribute *a = make(state().held, name, untyped ? "atom"_sym : type, flags,
                        getter ? getter : reinterpret_cast<Method>(held_get),
                        setter ? setter : reinterpret_cast<Method>(held_set));
    if (!a) {
        return nullptr;
    }
    a->count = 1;
    a->value = sysmem_newptrclear(sizeof(Atom));
    if (!a->value) {
        object_free(a);
        return nullptr;
    }
    critical_new(&a->lock);
    return a;
}

void *attr_offset_new(const char *name, Symbol *type, int32_t flags, Method getter, Method setter,
                      int32_t offset) noexcept {
    Attribute *a = make(state().offset, name, type, flags,
                        getter ? getter : reinterpret_cast<Method>(offset_get),
                        setter ? setter : reinterpret_cast<Method>(offset_set));
    if (a) {
        a->offset = offset;
    }
    return a;
}

void *attr_offset_array_new(const char *name, Symbol *type, int32_t size, int32_t flags,
                            Method getter, Method setter, int32_t count_offset,
                            int32_t offset) noexcept {
    Attribute *a = make(state().array, name, type, flags,
                        getter ? getter : reinterpret_cast<Method>(array_get),
                        setter ? setter : reinterpret_cast<Method>(array_set));
    if (a) {
        a->offset = offset;
        a->size = size > 0 ? size : 0;
        a->count_offset = count_offset;
    }
    return a;
}
