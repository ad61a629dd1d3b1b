// The attributes of a class, and the attributes that describe them: "label", "save", "default",
// "enumvals", "style", "category", "order" and whatever else a module declares.
//
// Thread safety: called while the class is built, on the main thread; the table takes no lock.
#include <cstdarg>

#include "kernel/attribute.h"

namespace kiv {

namespace {

constexpr int32_t class_table_slots = 101;

void *class_attribute(Class *c, const char *name) {
    void *attribute = nullptr;
    if (c && name && c->attributes) {
        hashtab_lookup(c->attributes, gensym(name), &attribute);
    }
    return attribute;
}

bool has_class_table(Class *c) {
    if (!c->attributes) {
        c->attributes = hashtab_new(class_table_slots);
        hashtab_readonly(c->attributes, 1);
    }
    return c->attributes != nullptr;
}

ErrorCode mark(Class *c, const char *name, AttrMark bit, bool on) {
    if (!c || !name) {
        return ErrorInvalidPointer;
    }
    Attribute *attribute = as_attribute(class_attribute(c, name));
    if (!attribute) {
        return ErrorGeneric;
    }
    attribute->flags = on ? attribute->flags | bit : attribute->flags & ~uint32_t{bit};
    return ErrorNone;
}

// An attribute without a place in the instances: each object's extension record keeps its value.
ErrorCode add_kept(Class *c, const char *name, const char *type, int32_t flags) {
    void *attribute = attribute_new(name, gensym(type), flags, reinterpret_cast<Method>(kept_get),
                                    reinterpret_cast<Method>(kept_set));
    if (!attribute) {
        return ErrorOutOfMemory;
    }
    const ErrorCode result = class_addattr(c, attribute);
    if (result != ErrorNone) {
        object_free(attribute);
    }
    return result;
}

}  // namespace

}  // namespace kiv

using namespace kiv;

ErrorCode class_addattr(Class *c, void *attribute) noexcept {
    if (!c || !object_valid(attribute) ||
        !object_find_method(static_cast<Object *>(attribute), "getname"_sym)) {
        return ErrorInvalidPointer;
    }
    if (!has_class_table(c)) {
        return ErrorGeneric;
    }
    class_sticky_apply(c, "sticky_attr"_sym, attribute);
    auto *name = static_cast<Symbol *>(object_method(attribute, "getname"_sym));
    return table_keep(c->attributes, name, attribute) ? ErrorNone : ErrorOutOfMemory;
}

ErrorCode class_addattr_atoms(Class *c, const char *attribute, Symbol *key, const char *type,
                              int32_t count, Atom *atoms) noexcept {
    if (!c || !attribute || !key) {
        return ErrorInvalidPointer;
    }
    void *target = class_attribute(c, attribute);
    if (!target) {
        return ErrorGeneric;
    }
    void *description =
        attribute_new(key->name, type ? gensym(type) : nullptr, 0, nullptr, nullptr);
    if (!description) {
        return ErrorOutOfMemory;
    }
    ErrorCode result = held_set(nullptr, description, count, atoms);
    if (result == ErrorNone) {
        result = object_addattr(target, description);
    }
    if (result != ErrorNone) {
        object_free(description);
    }
    return result;
}

ErrorCode class_addattr_format(Class *c, const char *attribute, Symbol *key, const char *type,
                               const char *format, ...) noexcept {
    int32_t count = 0;
    Atom *atoms = nullptr;
    std::va_list values;
    va_start(values, format);
    ErrorCode result = atom_setformat_list(&count, &atoms, format, &values);
    va_end(values);
    if (result == ErrorNone) {
        result = class_addattr_atoms(c, attribute, key, type, count, atoms);
    }
    sysmem_freeptr(atoms);
    return result;
}

ErrorCode class_addattr_parse(Class *c, const char *attribute, Symbol *key, const char *type,
                              const char *text) noexcept {
    int32_t count = 0;
    Atom *atoms = nullptr;
    atom_setparse(&count, &atoms, text);
    const ErrorCode result = class_addattr_atoms(c, attribute, key, type, count, atoms);
    sysmem_freeptr(atoms);
    return result;
}

ErrorCode class_addstyleattr(Class *c, void *attribute) noexcept {
    const ErrorCode result = class_addattr(c, attribute);
    if (result != ErrorNone) {
        return result;
    }
    auto *name = static_cast<Symbol *>(object_method(attribute, "getname"_sym));
    return class_attr_setstyle(c, name->name);
}

ErrorCode class_attr_setstyle(Class *c, const char *name) noexcept {
    return mark(c, name, AttrStyled, true);
}

ErrorCode class_attr_setfill(Class *c, const char *name, int32_t fill) noexcept {
    return mark(c, name, AttrFill, fill != 0);
}

ErrorCode class_time_addattr(Class *c, const char *name, const char *label,
                             int64_t flags) noexcept {
    if (!c || !name) {
        return ErrorInvalidPointer;
    }
    const ErrorCode result = add_kept(c, name, "atom", static_cast<int32_t>(flags));
    if (result != ErrorNone) {
        return result;
    }
    Atom text;
    if (label) {
        atom_setsym(&text, gensym(label));
        class_addattr_atoms(c, name, "label"_sym, "symbol", 1, &text);
    }
    atom_setsym(&text, "time"_sym);
    return class_addattr_atoms(c, name, "style"_sym, "symbol", 1, &text);
}

ErrorCode class_parameter_init(Class *c) noexcept {
    if (!c) {
        return ErrorInvalidPointer;
    }
    const ErrorCode result = add_kept(c, "parameter_enable", "char", 0);
    if (result != ErrorNone) {
        return result;
    }
    Atom value;
    atom_setlong(&value, 0);
    class_addattr_atoms(c, "parameter_enable", "default"_sym, "long", 1, &value);
    atom_setlong(&value, 1);
    class_addattr_atoms(c, "parameter_enable", "save"_sym, "long", 1, &value);
    class_addattr_parse(c, "parameter_enable", "style"_sym, "symbol", "onoff");
    return class_addattr_parse(c, "parameter_enable", "label"_sym, "symbol",
                               "\"Parameter Mode Enable\"");
}
