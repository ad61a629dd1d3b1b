// Classes made from classes: subclasses, which share the construction and the freeing of their
// instances with a super class, and copies under another name.
//
// A derived class has a method list of its own, and refers to the attributes of the class it was
// made from; that class cannot be freed before it.
//
// A constructor allocates an instance of its own class, whomever it is called for. Called by
// class_super_construct, that allocation gives it the instance that the subclass has allocated;
// called to make an instance of a copy, a new instance of the copy. Scopes on the stack say so.
#include <kiv/console.h>
#include <kiv/hashtab.h>

#include <atomic>
#include <cstdarg>
#include <utility>

#include "kernel/class_private.h"
#include "kernel/dispatch_call.h"

namespace kiv {

namespace {

thread_local ConstructScope *innermost_scope = nullptr;

constexpr int32_t attribute_slots = 101;

void *refer_to_attribute(HashtabEntry *entry, void *table) {
    hashtab_storeflags(static_cast<Hashtab *>(table), static_cast<Symbol *>(entry->key),
                       entry->value, ContainerReference);
    return nullptr;
}

void *copy_method(HashtabEntry *entry, void *c) {
    class_put_method(static_cast<Class *>(c), static_cast<MethodObject *>(entry->value)->record);
    return nullptr;
}

void *copy_wrapper(HashtabEntry *entry, void *table) {
    method_object_store(static_cast<Hashtab *>(table),
                        static_cast<MethodObject *>(entry->value)->record);
    return nullptr;
}

void copy_methods(const Class *source, Class *c) {
    for (const MethodRecord *entry = source->method_list + 1; entry->selector; ++entry) {
        class_put_method(c, *entry);
    }
    if (class_flags(source) & ClassNoMethodList) {
        if (Hashtab *const methods =
                class_extra_table(const_cast<Class *>(source), "methods"_sym, 0)) {
            hashtab_funall(methods, copy_method, c);
        }
    }
    if (Hashtab *const wrappers =
            class_extra_table(const_cast<Class *>(source), "typedwrappers"_sym, 0)) {
        if (Hashtab *const own = class_extra_table(c, "typedwrappers"_sym, 13)) {
            hashtab_funall(wrappers, copy_wrapper, own);
        }
    }
}

// What instances of both classes have in common.
void take_over(const Class *source, Class *c) {
    c->flags |= source->flags & ~uint32_t{ClassBox};
    c->lightweight = source->lightweight;
    c->obex_offset = source->obex_offset;
    if (c->instance_size < source->instance_size) {
        c->instance_size = source->instance_size;
    }
    copy_methods(source, c);
    if (source->attributes && (c->attributes = hashtab_new(attribute_slots))) {
        hashtab_funall(source->attributes, refer_to_attribute, c->attributes);
    }
}

}  // namespace

ConstructScope::ConstructScope(Class *c) noexcept
    : instance_(nullptr),
      class_(c),
      constructing_(c->copied_from),
      running_(c),
      outer_(innermost_scope) {
    innermost_scope = this;
}

ConstructScope::ConstructScope(Object *instance, const Class *running,
                               const Class *allocating) noexcept
    : instance_(instance),
      class_(nullptr),
      constructing_(allocating),
      running_(running),
      outer_(innermost_scope) {
    innermost_scope = this;
}

ConstructScope::~ConstructScope() {
    innermost_scope = outer_;
}

Object *ConstructScope::allocate(Class **c) noexcept {
    ConstructScope *const scope = innermost_scope;
    if (!scope || scope->constructing_ != *c) {
        return nullptr;
    }
    scope->constructing_ = nullptr;
    if (!scope->instance_) {
        *c = scope->class_;
    }
    return scope->instance_;
}

const Class *ConstructScope::running_for(const Object *x) noexcept {
    return innermost_scope && innermost_scope->instance_ == x ? innermost_scope->running_ : nullptr;
}

}  // namespace kiv

using namespace kiv;

Class *class_subclass(Class *super, const char *name, Method constructor, Method destructor,
                      int32_t instance_size, Method menu_function, ...) noexcept {
    if (!super || !name) {
        return nullptr;
    }
    uint8_t types[8];
    va_list arguments;
    va_start(arguments, menu_function);
    read_constructor_types(arguments, types);
    va_end(arguments);
    Class *const c =
        class_make(gensym(name), constructor, destructor, instance_size, menu_function, types);
    if (!c) {
        return nullptr;
    }
    take_over(super, c);
    c->super = super;
    std::atomic_ref(super->users).fetch_add(1);
    return c;
}

ErrorCode class_super_construct_imp(void *x, Class *c, void *p1, void *p2, void *p3, void *p4,
                                    void *p5, void *p6, void *p7, void *p8) noexcept {
    if (!object_valid(x)) {
        return ErrorInvalidPointer;
    }
    auto *const object = static_cast<Object *>(x);
    const Class *running = c ? c : ConstructScope::running_for(object);
    const Class *const super = (running ? running : class_of(object))->super;
    if (!super || !super->constructor.function) {
        return ErrorGeneric;
    }
    void *const words[8] = {p1, p2, p3, p4, p5, p6, p7, p8};
    const Class *const own = super->copied_from ? super->copied_from : super;
    const ConstructScope scope(object, super, own);
    void *const made = construct_words(super->constructor, words);
    return made == x ? ErrorNone : ErrorGeneric;
}

// Reads eight words whatever was passed: a constructor that declares fewer ignores the rest.
ErrorCode(class_super_construct)(void *x, ...) noexcept {
    void *p[8];
    va_list arguments;
    va_start(arguments, x);
    for (void *&word : p) {
        word = va_arg(arguments, void *);
    }
    va_end(arguments);
    return class_super_construct_imp(x, nullptr, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
}

ErrorCode class_copy(Symbol *source_space, Symbol *source_name, Symbol *space,
                     Symbol *name) noexcept {
    if (!source_name || !name) {
        return ErrorInvalidPointer;
    }
    Class *const source = class_findbyname(source_space, source_name);
    if (!source) {
        return ErrorGeneric;
    }
    Class *const c =
        class_make(name, source->constructor.function, source->free_function, source->instance_size,
                   source->menu_function, source->constructor.types);
    if (!c) {
        return ErrorOutOfMemory;
    }
    take_over(source, c);
    c->copied_from = source->copied_from ? source->copied_from : source;
    c->super = source->super;
    for (Class *const used : {c->copied_from, c->super}) {
        if (used) {
            std::atomic_ref(used->users).fetch_add(1);
        }
    }
    const ErrorCode registered = class_register(space, c);
    if (registered != ErrorNone) {
        class_free(c);
    }
    return registered;
}

int32_t class_clonable(Class *c) noexcept {
    const MethodRecord *const method = c ? class_find_method(c, "object_clone"_sym) : nullptr;
    return method && is_real(method->function);
}
