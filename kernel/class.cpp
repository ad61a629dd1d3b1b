// The class record and its method list.
//
// 1. A method list begins with a header entry that holds the class; every object points just past
//    it. So a list that instances may point to is never moved: one that is outgrown stays where it
//    is, and look-ups go through the class, which knows the list in use.
// 2. A list ends with an entry whose selector is null; method_count counts both of these entries.
// 3. Each method also has a method object in the table "methods" of the class's extra data, which
//    becomes the method index when the class is registered. The classes those tables are made of
//    are themselves made before any table exists: until then only the list holds their methods,
//    and class_register brings the table up to it.
//
// Thread safety: classes are built on one thread before any instance exists; once registered they
// are only read, without a lock.
#include <kiv/attr.h>
#include <kiv/console.h>
#include <kiv/sysmem.h>

#include <atomic>
#include <cstring>

#include "kernel/class_private.h"

namespace kiv {

namespace {

constexpr int32_t methods_slots = 101;
constexpr int32_t extra_slots = 17;

// What stands in front of a method list in memory.
struct ListBlock {
    ListBlock *outgrown;  // the list that this one replaced, when it had to be kept
    int64_t unused;       // keeps the entries aligned
};

struct {
    Class *method_class;
    Class *newest;
} state;

ListBlock *block_of(MethodRecord *list) {
    return reinterpret_cast<ListBlock *>(list) - 1;
}

MethodRecord *list_make(int32_t capacity) {
    const auto size = static_cast<int64_t>(sizeof(ListBlock)) +
                      capacity * static_cast<int64_t>(sizeof(MethodRecord));
    auto *block = static_cast<ListBlock *>(sysmem_newptrclear(size));
    return block ? reinterpret_cast<MethodRecord *>(block + 1) : nullptr;
}

void list_free(MethodRecord *list) {
    for (ListBlock *block = block_of(list); block;) {
        ListBlock *const outgrown = block->outgrown;
        sysmem_freeptr(block);
        block = outgrown;
    }
}

bool list_grow(Class *c) {
    const int32_t capacity = c->method_capacity * 2;
    MethodRecord *const list = list_make(capacity);
    if (!list) {
        return false;
    }
    std::memcpy(list, c->method_list, static_cast<size_t>(c->method_count) * sizeof(MethodRecord));
    if (c->instantiated) {
        block_of(list)->outgrown = block_of(c->method_list);
    } else {
        block_of(list)->outgrown = block_of(c->method_list)->outgrown;
        sysmem_freeptr(block_of(c->method_list));
    }
    c->method_list = list;
    c->method_capacity = capacity;
    return true;
}

void *class_name_method(Object *x) {
    return object_classname(x);
}

const MethodRecord *table_find(Hashtab *table, const Symbol *selector) {
    void *method = nullptr;
    if (hashtab_lookup(table, const_cast<Symbol *>(selector), &method) != ErrorNone) {
        return nullptr;
    }
    return &static_cast<MethodObject *>(method)->record;
}

// The table "methods"; null as long as tables cannot be made.
Hashtab *methods_table(Class *c) {
    Hashtab *table = class_extra_table(c, "methods"_sym, 0);
    if (!table && (table = class_extra_table(c, "methods"_sym, methods_slots))) {
        for (MethodRecord *entry = c->method_list + 1; entry->selector; ++entry) {
            method_object_store(table, *entry);
        }
    }
    return table;
}

bool overrides(const Class *c, const Symbol *selector) {
    return c->super && class_find_method(c->super, selector);
}

void mark_overridden(MethodObject *method) {
    void *const attribute = attribute_new("overridden", "long"_sym, 0, nullptr, nullptr);
    if (object_addattr(method, attribute) == ErrorNone) {
        object_attr_setlong(method, "overridden"_sym, 1);
    } else {
        object_free(attribute);
    }
}

bool list_put(Class *c, const MethodRecord &record) {
    if (MethodRecord *const entry = list_find(c->method_list + 1, record.selector)) {
        *entry = record;
        return true;
    }
    if (c->method_count == c->method_capacity && !list_grow(c)) {
        return false;
    }
    // The terminator moves first, so that a reader always finds one.
    c->method_list[c->method_count] = MethodRecord{};
    c->method_list[c->method_count - 1] = record;
    ++c->method_count;
    return true;
}

}  // namespace

MethodRecord read_method(Method function, const char *name, va_list types,
                         int32_t *count) noexcept {
    constexpr int32_t most_types = 7;
    MethodRecord record{gensym(name), function, {}};
    int32_t n = 0;
    while (n < most_types) {
        const int type = va_arg(types, int);
        if (type == TypeNothing) {
            break;
        }
        record.types[n++] = static_cast<uint8_t>(type);
    }
    if (count) {
        *count = n;
    }
    return record;
}

void read_constructor_types(va_list arguments, uint8_t types[8]) noexcept {
    constexpr int32_t most_types = 6;
    std::memset(types, TypeNothing, 8);
    for (int32_t i = 0; i < most_types; ++i) {
        const int type = va_arg(arguments, int);
        types[i] = static_cast<uint8_t>(type);
        if (type == TypeNothing || type == TypeGimme || type == TypeCant || type == TypeGimmeBack) {
            break;
        }
    }
}

Class *class_make(Symbol *name, Method constructor, Method destructor, int32_t instance_size,
                  Method menu_function, const uint8_t types[8]) noexcept {
    constexpr int32_t first_capacity = 8;
    auto *c = name ? static_cast<Class *>(sysmem_newptrclear(sizeof(Class))) : nullptr;
    if (!c) {
        return nullptr;
    }
    MethodRecord *const list = list_make(first_capacity);
    if (!list) {
        error("class_new: could not allocate messlist handle");
        sysmem_freeptr(c);
        return nullptr;
    }
    c->name = name;
    c->second_name = name;
    c->free_function = destructor;
    c->instance_size = instance_size;
    c->menu_function = menu_function;
    c->constructor.selector = name;
    c->constructor.function = constructor;
    std::memcpy(c->constructor.types, types, sizeof c->constructor.types);
    list[0].selector = reinterpret_cast<Symbol *>(c);
    std::memcpy(list[0].types, "xebo", 4);
    list[1] = {"classname"_sym, reinterpret_cast<Method>(class_name_method), {TypeCant}};
    c->method_list = list;
    c->method_count = 3;
    c->method_capacity = first_capacity;
    state.newest = c;
    return c;
}

Class *class_newest() noexcept {
    return state.newest;
}

MethodObject *method_object_store(Hashtab *table, const MethodRecord &record) noexcept {
    auto *method =
        record.selector ? static_cast<MethodObject *>(object_alloc(state.method_class)) : nullptr;
    if (!method) {
        return nullptr;
    }
    method->record = record;
    if (!table_keep(table, record.selector, method)) {
        object_free(method);
        return nullptr;
    }
    return method;
}

bool table_keep(Hashtab *table, Symbol *key, void *value) noexcept {
    void *kept = nullptr;
    return hashtab_storeflags(table, key, value, ContainerOwns) == ErrorNone &&
           hashtab_lookup(table, key, &kept) == ErrorNone && kept == value;
}

ErrorCode class_put_method(Class *c, const MethodRecord &record) noexcept {
    if (!record.selector) {
        return ErrorOutOfMemory;
    }
    if (!(class_flags(c) & ClassNoMethodList) && !list_put(c, record)) {
        return ErrorOutOfMemory;
    }
    Hashtab *const table = methods_table(c);
    if (!table) {
        return class_flags(c) & ClassNoMethodList ? ErrorOutOfMemory : ErrorNone;
    }
    MethodObject *const method = method_object_store(table, record);
    if (!method) {
        return ErrorOutOfMemory;
    }
    class_sticky_apply(c, "sticky_method"_sym, method);
    if (overrides(c, record.selector)) {
        mark_overridden(method);
    }
    return ErrorNone;
}

Hashtab *class_extra_table(Class *c, Symbol *key, int32_t slots) noexcept {
    void *table = nullptr;
    if (c->extra && hashtab_lookup(c->extra, key, &table) == ErrorNone) {
        return static_cast<Hashtab *>(table);
    }
    if (slots == 0) {
        return nullptr;
    }
    if (!c->extra && !(c->extra = hashtab_new(extra_slots))) {
        return nullptr;
    }
    Hashtab *const made = hashtab_new(slots);
    if (made && !table_keep(c->extra, key, made)) {
        object_free(made);
        return nullptr;
    }
    return made;
}

const MethodRecord *class_find_method(const Class *c, const Symbol *selector) noexcept {
    if (c->method_index) {
        if (c->method_count >= smallest_indexed_count || (class_flags(c) & ClassNoMethodList)) {
            return table_find(c->method_index, selector);
        }
    } else if (class_flags(c) & ClassNoMethodList) {
        Hashtab *const table = class_extra_table(const_cast<Class *>(c), "methods"_sym, 0);
        return table ? table_find(table, selector) : nullptr;
    }
    return list_find(c->method_list + 1, selector);
}

const MethodRecord *object_find_method(const Object *x, const Symbol *selector) noexcept {
    return find_method(x, selector);
}

Hashtab *class_complete_index(Class *c) noexcept {
    Hashtab *const table = methods_table(c);
    if (table) {
        for (MethodRecord *entry = c->method_list + 1; entry->selector; ++entry) {
            if (!table_find(table, entry->selector)) {
                method_object_store(table, *entry);
            }
        }
    }
    return table;
}

void method_class_start() noexcept {
    const uint8_t no_types[8] = {};
    state.method_class =
        class_make("method"_sym, nullptr, nullptr, sizeof(MethodObject), nullptr, no_types);
    if (state.method_class) {
        state.method_class->lightweight = 1;
        state.method_class->flags |= ClassNoAttrMessages;
    }
}

}  // namespace kiv

using namespace kiv;

Class *class_new(const char *name, Method constructor, Method destructor, int32_t instance_size,
                 Method menu_function, ...) noexcept {
    if (!name) {
        return nullptr;
    }
    uint8_t types[8];
    va_list arguments;
    va_start(arguments, menu_function);
    read_constructor_types(arguments, types);
    va_end(arguments);
    return class_make(gensym(name), constructor, destructor, instance_size, menu_function, types);
}

ErrorCode class_free(Class *c) noexcept {
    if (!c) {
        return ErrorInvalidPointer;
    }
    if (std::atomic_ref(c->users).load() > 0 || (class_flags(c) & ClassPermanent)) {
        error("class_free: class %s is in use", c->name->name);
        return ErrorGeneric;
    }
    class_forget(c);
    state.newest = state.newest == c ? nullptr : state.newest;
    for (Class *const used : {c->super, c->copied_from}) {
        if (used) {
            std::atomic_ref(used->users).fetch_sub(1);
        }
    }
    // The locks of read-only tables are held by the thread that registered the class.
    if (c->method_index) {
        hashtab_readonly(c->method_index, 0);
        hashtab_readonly(c->attributes, 0);
    }
    object_free(c->attributes);
    object_free(c->extra);
    list_free(c->method_list);
    sysmem_freeptr(c);
    return ErrorNone;
}

ErrorCode class_addmethod(Class *c, Method function, const char *name, ...) noexcept {
    constexpr int32_t most_types = 7;
    if (!c || !function || !name) {
        return ErrorInvalidPointer;
    }
    va_list arguments;
    va_start(arguments, name);
    int32_t count = 0;
    const MethodRecord record = read_method(function, name, arguments, &count);
    va_end(arguments);
    if (count == most_types) {
        error("class_addmethod: too many args!");
    }
    return class_put_method(c, record);
}

Method class_method(Class *c, Symbol *selector) noexcept {
    const MethodRecord *const method = class_mess(c, selector);
    return method ? method->function : nullptr;
}

MethodRecord *class_mess(Class *c, Symbol *selector) noexcept {
    if (!c || !selector) {
        return nullptr;
    }
    return const_cast<MethodRecord *>(class_find_method(c, selector));
}

void *class_getmethod_object(Class *c, Symbol *selector) noexcept {
    void *method = nullptr;
    if (c && selector) {
        if (Hashtab *const table = methods_table(c)) {
            hashtab_lookup(table, selector, &method);
        }
    }
    return method;
}

int32_t class_is_box(const Class *c) noexcept {
    return c && (class_flags(c) & ClassBox);
}

int32_t class_is_ui(const Class *c) noexcept {
    return c && (class_flags(c) & ClassUi);
}

ErrorCode class_noinlet(Class *c) noexcept {
    if (!c) {
        return ErrorInvalidPointer;
    }
    c->flags |= ClassNoInlet;
    return ErrorNone;
}

void class_obexoffset_set(Class *c, int32_t offset) noexcept {
    if (c) {
        c->obex_offset = offset;
    }
}

int32_t class_obexoffset_get(const Class *c) noexcept {
    return c ? c->obex_offset : 0;
}
