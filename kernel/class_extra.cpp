// What a class keeps beside its methods and attributes: extra data under names of the module's own,
// and what rests on it: sticky settings, typed wrappers, commands, transforms, adornments and the
// prototype of its instances.
//
// Each of these is a table in the extra data, under its own name ("typedwrappers", "commands",
// "transforms", "adornments"; a sticky category under the category's name), so whoever wants to
// list them reads the table with class_extra_lookup.
//
// Thread safety: written while the class is built, only read afterwards.
#include <kiv/attr.h>
#include <kiv/dictionary.h>
#include <kiv/hashtab.h>
#include <kiv/sysmem.h>

#include "kernel/class_private.h"

namespace kiv {

namespace {

constexpr int32_t small_table = 13;
constexpr int32_t extra_slots = 17;

Hashtab *extra_table(Class *c) {
    if (!c->extra) {
        c->extra = hashtab_new(extra_slots);
    }
    return c->extra;
}

// The value belongs to the class from here on, unless memory is exhausted.
ErrorCode store(Class *c, Symbol *table_name, Symbol *key, void *value) {
    Hashtab *const table = class_extra_table(c, table_name, small_table);
    return table && table_keep(table, key, value) ? ErrorNone : ErrorOutOfMemory;
}

ErrorCode store_method(Class *c, Symbol *table_name, const MethodRecord &record) {
    Hashtab *const table = class_extra_table(c, table_name, small_table);
    return table && method_object_store(table, record) ? ErrorNone : ErrorOutOfMemory;
}

void *look_up(Class *c, Symbol *table_name, Symbol *key) {
    void *value = nullptr;
    if (Hashtab *const table = class_extra_table(c, table_name, 0)) {
        hashtab_lookup(table, key, &value);
    }
    return value;
}

// --- Sticky attributes ---------------------------------------------------------------------------

void *apply_sticky(HashtabEntry *entry, void *target) {
    void *const copy = object_clone(entry->value);
    if (copy && object_addattr(target, copy) != ErrorNone) {
        object_free(copy);
    }
    return nullptr;
}

// --- The prototype -------------------------------------------------------------------------------

void *add_default(HashtabEntry *attribute, void *dictionary) {
    auto *const prototype = static_cast<Dictionary *>(dictionary);
    auto *const name = static_cast<Symbol *>(attribute->key);
    int32_t count = 0;
    Atom *atoms = nullptr;
    if (object_attr_getvalueof(attribute->value, "default"_sym, &count, &atoms) == ErrorNone &&
        count > 0) {
        count == 1 ? dictionary_appendatom(prototype, name, atoms)
                   : dictionary_appendatoms(prototype, name, count, atoms);
    }
    sysmem_freeptr(atoms);
    return nullptr;
}

}  // namespace

void class_sticky_apply(Class *c, Symbol *category, void *target) noexcept {
    if (Hashtab *const table = class_extra_table(c, category, 0)) {
        hashtab_funall(table, apply_sticky, target);
    }
}

}  // namespace kiv

using namespace kiv;

ErrorCode class_extra_store(Class *c, Symbol *key, void *value) noexcept {
    return class_extra_storeflags(c, key, value, ContainerReference);
}

ErrorCode class_extra_storeflags(Class *c, Symbol *key, void *value, int32_t flags) noexcept {
    if (!c || !key) {
        return ErrorInvalidPointer;
    }
    return extra_table(c) ? hashtab_storeflags(c->extra, key, value, flags) : ErrorOutOfMemory;
}

ErrorCode class_extra_lookup(Class *c, Symbol *key, void **value) noexcept {
    if (value) {
        *value = nullptr;
    }
    return c && c->extra && key ? hashtab_lookup(c->extra, key, value) : ErrorGeneric;
}

ErrorCode class_sticky(Class *c, Symbol *category, Symbol *key, void *value) noexcept {
    if (!c || !category || !key) {
        return ErrorInvalidPointer;
    }
    return store(c, category, key, value);
}

ErrorCode class_sticky_clear(Class *c, Symbol *category, Symbol *key) noexcept {
    if (!c || !category) {
        return ErrorInvalidPointer;
    }
    Hashtab *const table = class_extra_table(c, category, 0);
    if (!table) {
        return ErrorGeneric;
    }
    return key ? hashtab_delete(table, key) : hashtab_clear(table);
}

ErrorCode class_addtypedwrapper(Class *c, Method function, const char *name, ...) noexcept {
    if (!c || !function || !name) {
        return ErrorInvalidPointer;
    }
    va_list arguments;
    va_start(arguments, name);
    const MethodRecord record = read_method(function, name, arguments, nullptr);
    va_end(arguments);
    return store_method(c, "typedwrappers"_sym, record);
}

MethodRecord *class_typedwrapper_get(Class *c, Symbol *selector) noexcept {
    if (!c || !selector) {
        return nullptr;
    }
    auto *const method = static_cast<MethodObject *>(look_up(c, "typedwrappers"_sym, selector));
    return method ? &method->record : nullptr;
}

ErrorCode class_addcommand(Class *c, Method function, const char *name, ...) noexcept {
    if (!c || !function || !name) {
        return ErrorInvalidPointer;
    }
    va_list arguments;
    va_start(arguments, name);
    const MethodRecord record = read_method(function, name, arguments, nullptr);
    va_end(arguments);
    const ErrorCode added = class_put_method(c, record);
    return added == ErrorNone ? store_method(c, "commands"_sym, record) : added;
}

ErrorCode class_addtransform(Class *c, Method function, const char *name, ...) noexcept {
    if (!c || !function || !name) {
        return ErrorInvalidPointer;
    }
    va_list arguments;
    va_start(arguments, name);
    const MethodRecord record = read_method(function, name, arguments, nullptr);
    va_end(arguments);
    return store_method(c, "transforms"_sym, record);
}

ErrorCode class_addadornment(Class *c, Symbol *name, void *adornment) noexcept {
    if (!c || !name || !adornment) {
        return ErrorInvalidPointer;
    }
    return store(c, "adornments"_sym, name, adornment);
}

void *class_adornment_get(Class *c, Symbol *name, Symbol *key) noexcept {
    void *const adornment = c && name ? look_up(c, "adornments"_sym, name) : nullptr;
    if (!key || !object_valid(adornment)) {
        return adornment;
    }
    void *value = nullptr;
    if (object_classname_compare(adornment, "hashtab"_sym)) {
        hashtab_lookup(static_cast<Hashtab *>(adornment), key, &value);
    } else if (object_classname_compare(adornment, "dictionary"_sym)) {
        dictionary_getobject(static_cast<Dictionary *>(adornment), key, &value);
    } else {
        value = object_attr_get(adornment, key);
    }
    return value;
}

void *class_buildprototype(Class *c) noexcept {
    if (!c) {
        return nullptr;
    }
    Dictionary *const prototype = dictionary_new();
    if (prototype && c->attributes) {
        hashtab_funall(c->attributes, add_default, prototype);
    }
    if (!prototype || !extra_table(c) || !table_keep(c->extra, "prototype"_sym, prototype)) {
        object_free(prototype);
        return nullptr;
    }
    return prototype;
}

void *class_cloneprototype(Class *c) noexcept {
    void *prototype = nullptr;
    if (class_extra_lookup(c, "prototype"_sym, &prototype) != ErrorNone) {
        prototype = class_buildprototype(c);
    }
    return prototype ? dictionary_clone(static_cast<Dictionary *>(prototype)) : nullptr;
}
