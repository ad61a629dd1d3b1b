// Finding an object's attribute, reading and writing its value.
//
// A write calls out twice: to the attribute's setter and to whoever is notified. Either may free
// the object, so it is tested again in between; attributes of a class live as long as the class.
//
// Thread safety: a write runs on the caller's thread. Class tables are read without a lock; a
// class's "attr_get" and "attr_gettarget" are looked up once and cached atomically, as any thread
// finds the same.
#include <atomic>
#include <cstring>

#include "kernel/attribute.h"

namespace kiv {

namespace {

// --- Class methods, cached -----------------------------------------------------------------------

void *const no_class_method = reinterpret_cast<void *>(UINTPTR_MAX);

Method class_answer(Class *c, void *&cache, const Symbol *selector) {
    std::atomic_ref<void *> cached(cache);
    void *known = cached.load(std::memory_order_relaxed);
    if (!known) {
        const MethodRecord *method = class_find_method(c, selector);
        known = method ? reinterpret_cast<void *>(method->function) : no_class_method;
        cached.store(known, std::memory_order_relaxed);
    }
    return known == no_class_method ? nullptr : reinterpret_cast<Method>(known);
}

KIV_CALLS_ANY_TYPE void *ask(Method method, void *x, Symbol *name) {
    return call_guarded(
        name, [=] { return reinterpret_cast<void *(*)(void *, Symbol *)>(method)(x, name); });
}

// --- Look-up -------------------------------------------------------------------------------------

// An attribute and where it was reached.
struct Found {
    void *attribute;
    Object *object;  // that has the attribute
    Object *box;     // through whose box it was reached, or null
};

Found find(void *x, Symbol *name) {
    if (void *attribute = object_attr_get(x, name)) {
        return {attribute, static_cast<Object *>(x), nullptr};
    }
    auto *const inner_object = kernel_hooks().inner_object;
    if (!name || !inner_object || !object_valid(x)) {
        return {};
    }
    auto *box = static_cast<Object *>(x);
    Object *inner = inner_object(box);
    if (!inner || inner == box) {
        return {};
    }
    return {object_attr_get(inner, name), inner, box};
}

// The object that holds the value.
Object *holder_of(const Found &found, Symbol *name) {
    Class *c = class_of(found.object);
    const Method method = class_answer(c, c->attr_gettarget, "attr_gettarget"_sym);
    if (!method) {
        return found.object;
    }
    auto *target = static_cast<Object *>(ask(method, found.object, name));
    return target ? target : found.object;
}

// `own` is the attribute when it is one of this folder's, else null.
Method accessor(const Attribute *own, void *attribute, Symbol *which) {
    if (own) {
        return which == "get"_sym ? own->get : own->set;
    }
    return reinterpret_cast<Method>(object_method(attribute, "getmethod"_sym, which));
}

bool closed_to_code(const Attribute *own, uint32_t flag) {
    return own && (flags_of(own) & flag);
}

// --- What an object remembers of single attributes -----------------------------------------------

enum AttrState : int64_t { StateLocked = 1, StateInherited = 2 };

Hashtab *states_of(void *x) {
    void *table = nullptr;
    object_obex_lookup(x, "attrstates"_sym, &table);
    return static_cast<Hashtab *>(table);
}

int64_t state_of(void *x, Symbol *name) {
    int64_t bits = 0;
    if (Hashtab *table = states_of(x)) {
        hashtab_lookuplong(table, name, &bits);
    }
    return bits;
}

ErrorCode state_change(void *x, Symbol *name, int64_t bit, bool on) {
    Hashtab *table = states_of(x);
    if (!table && !on) {
        return ErrorNone;
    }
    if (!table) {
        constexpr int32_t slots = 13;
        table = hashtab_new(slots);
        if (!table) {
            return ErrorOutOfMemory;
        }
        if (object_obex_storeflags(x, "attrstates"_sym, table, ContainerOwns) != ErrorNone) {
            object_free(table);
            return ErrorGeneric;
        }
    }
    const int64_t bits = state_of(x, name);
    return hashtab_storelong(table, name, on ? bits | bit : bits & ~bit);
}

// --- Calls ---------------------------------------------------------------------------------------

KIV_CALLS_ANY_TYPE ErrorCode call_setter(Method setter, Object *holder, void *attribute,
                                         int32_t argc, Atom *argv) noexcept {
    try {
        return reinterpret_cast<AttrSetter>(setter)(holder, attribute, argc, argv);
    } catch (...) {
        report_exception("set"_sym);
        return ErrorGeneric;
    }
}

KIV_CALLS_ANY_TYPE ErrorCode call_getter(Method getter, Object *holder, void *attribute,
                                         int32_t *argc, Atom **argv) noexcept {
    try {
        return reinterpret_cast<AttrGetter>(getter)(holder, attribute, argc, argv);
    } catch (...) {
        report_exception("get"_sym);
        return ErrorGeneric;
    }
}

ErrorCode set_filtered(Method setter, Object *holder, void *attribute, int32_t argc,
                       const Atom *argv) {
    Atom local[16];
    Atom *copy = atom_dynamic_start(local, 16, argc);
    if (!copy) {
        return ErrorOutOfMemory;
    }
    std::memcpy(copy, argv, static_cast<size_t>(argc) * sizeof(Atom));
    ErrorCode result = filters_set(as_attribute(attribute), holder, argc, copy);
    if (result == ErrorNone) {
        result = call_setter(setter, holder, attribute, argc, copy);
    }
    atom_dynamic_end(local, copy);
    return result;
}

void mark_touched(void *attribute) {
    Attribute *own = as_attribute(attribute);
    if (own && !(flags_of(own) & AttrTouched)) {
        std::atomic_ref(own->flags).fetch_or(AttrTouched, std::memory_order_relaxed);
    }
}

bool same_value(const Atom &a, const Atom &b) {
    if (a.type == TypeSymbol || a.type == TypeObject || b.type == TypeSymbol ||
        b.type == TypeObject) {
        return a.type == b.type && a.value.obj == b.value.obj;
    }
    return a.type == TypeLong && b.type == TypeLong ? a.value.i == b.value.i
                                                    : atom_getfloat(&a) == atom_getfloat(&b);
}

}  // namespace

Hashtab *own_attributes(void *x) noexcept {
    void *table = nullptr;
    object_obex_lookup(x, "attributes"_sym, &table);
    return static_cast<Hashtab *>(table);
}

bool answers(void *x, Symbol *question) noexcept {
    return object_valid(x) && object_find_method(static_cast<Object *>(x), question) &&
           object_method(x, question) != nullptr;
}

}  // namespace kiv

using namespace kiv;

void *object_attr_get(void *x, Symbol *name) noexcept {
    if (!name || !object_valid(x)) {
        return nullptr;
    }
    void *attribute = nullptr;
    Hashtab *own = own_attributes(x);
    if (own && hashtab_lookup(own, name, &attribute) == ErrorNone) {
        return attribute;
    }
    Class *c = class_of(x);
    if (c->attributes && hashtab_lookup(c->attributes, name, &attribute) == ErrorNone) {
        return attribute;
    }
    const Method method = class_answer(c, c->attr_get, "attr_get"_sym);
    return method ? ask(method, x, name) : nullptr;
}

ErrorCode object_attr_getvalueof(void *x, Symbol *name, int32_t *argc, Atom **argv) noexcept {
    const Found found = find(x, name);
    const Attribute *own = as_attribute(found.attribute);
    if (!found.attribute || !argc || !argv || closed_to_code(own, AttrGetOpaque)) {
        return ErrorGeneric;
    }
    Object *holder = holder_of(found, name);
    const Method getter = accessor(own, found.attribute, "get"_sym);
    if (!getter) {
        return ErrorGeneric;
    }
    const ErrorCode result = call_getter(getter, holder, found.attribute, argc, argv);
    if (result != ErrorNone || !has_filters(as_attribute(found.attribute), FilterGet) || !*argv) {
        return result;
    }
    return filters_get(own, holder, *argc, *argv);
}

ErrorCode object_attr_setvalueof(void *x, Symbol *name, int32_t argc, Atom *argv) noexcept {
    const Found found = find(x, name);
    const Attribute *own = as_attribute(found.attribute);
    if (!found.attribute || closed_to_code(own, AttrSetOpaque)) {
        return ErrorGeneric;
    }
    const int64_t state = state_of(found.object, name);
    Object *holder = holder_of(found, name);
    const Method setter = accessor(own, found.attribute, "set"_sym);
    if (!setter || (state & StateLocked)) {
        return ErrorGeneric;
    }
    const int32_t count = argv && argc > 0 ? argc : 0;
    const ErrorCode result = count > 0 && has_filters(own, FilterSet)
                                 ? set_filtered(setter, holder, found.attribute, count, argv)
                                 : call_setter(setter, holder, found.attribute, count, argv);
    mark_touched(found.attribute);
    if ((state & StateInherited) && object_valid(found.object)) {
        state_change(found.object, name, StateInherited, false);
    }
    object_notify(found.box ? found.box : found.object, "attr_modified"_sym, found.attribute);
    if (!found.box && holder != found.object) {
        object_notify(holder, "attr_modified"_sym, found.attribute);
    }
    return result;
}

ErrorCode object_addattr(void *x, void *attribute) noexcept {
    if (!x || !object_valid(attribute) ||
        !object_find_method(static_cast<Object *>(attribute), "getname"_sym)) {
        return ErrorInvalidPointer;
    }
    auto *name = static_cast<Symbol *>(object_method(attribute, "getname"_sym));
    Hashtab *own = own_attributes(x);
    if (!own) {
        constexpr int32_t slots = 13;
        own = hashtab_new(slots);
        if (!own) {
            return ErrorOutOfMemory;
        }
        if (object_obex_storeflags(x, "attributes"_sym, own, ContainerOwns) != ErrorNone) {
            object_free(own);
            return ErrorGeneric;
        }
    }
    return table_keep(own, name, attribute) ? ErrorNone : ErrorOutOfMemory;
}

int32_t object_attr_usercanset(void *x, Symbol *name) noexcept {
    void *attribute = object_attr_get(x, name);
    return attribute && answers(attribute, "usercanset"_sym) && !(state_of(x, name) & StateLocked);
}

int32_t object_attr_usercanget(void *x, Symbol *name) noexcept {
    void *attribute = object_attr_get(x, name);
    return attribute && answers(attribute, "usercanget"_sym);
}

ErrorCode object_attr_touch(void *x, Symbol *name) noexcept {
    void *attribute = object_attr_get(x, name);
    if (!attribute) {
        return ErrorGeneric;
    }
    mark_touched(attribute);
    object_notify(x, "attr_modified"_sym, attribute);
    return ErrorNone;
}

ErrorCode object_attr_lock(void *x, Symbol *name, int32_t lock) noexcept {
    const Found found = find(x, name);
    return found.attribute ? state_change(found.object, name, StateLocked, lock != 0)
                           : ErrorGeneric;
}

ErrorCode object_attr_setinherited(void *x, Symbol *name, int32_t inherited) noexcept {
    const Found found = find(x, name);
    return found.attribute ? state_change(found.object, name, StateInherited, inherited != 0)
                           : ErrorGeneric;
}

int32_t object_attr_getdirty(void *x, Symbol *name) noexcept {
    const Found found = find(x, name);
    if (!found.attribute || (state_of(found.object, name) & StateInherited)) {
        return 0;
    }
    Value standard(found.attribute, "default"_sym);
    if (standard.error() != ErrorNone) {
        const Attribute *own = as_attribute(found.attribute);
        return own && (flags_of(own) & AttrTouched);
    }
    Value value(x, name);
    if (value.count() != standard.count()) {
        return 1;
    }
    for (int32_t i = 0; i < value.count(); ++i) {
        if (!same_value(value.atoms()[i], standard.atoms()[i])) {
            return 1;
        }
    }
    return 0;
}
