// What the class family's files share.
#pragma once

#include <cstdarg>

#include "kernel/class_flags.h"
#include "kernel/internal.h"

namespace kiv {

// A method as an object, so that it can carry attributes. Lightweight: the first two fields of an
// object's header only.
struct MethodObject {
    MethodRecord *methods;
    uintptr_t magic;
    MethodRecord record;
};

// What stands in a default method's place: it answers false, and counts as no method where a real
// one is asked for.
inline bool is_real(Method function) noexcept {
    return function != nullptr && function != reinterpret_cast<Method>(nullfn);
}

// From so many entries on a class uses its method index; below, a scan of the list is as good.
inline constexpr int32_t smallest_indexed_count = 21;

// The entry of a list for a selector, or null.
inline MethodRecord *list_find(MethodRecord *first, const Symbol *selector) noexcept {
    for (MethodRecord *entry = first; entry->selector; ++entry) {
        if (entry->selector == selector) {
            return entry;
        }
    }
    return nullptr;
}

// object_find_method, for dispatch itself.
inline const MethodRecord *find_method(const Object *x, const Symbol *selector) noexcept {
    const Class *const c = class_of(x);
    if (class_flags(c) & ClassOwnMethods) {
        return list_find(x->methods, selector);
    }
    if (c->method_count >= smallest_indexed_count || (class_flags(c) & ClassNoMethodList)) {
        return class_find_method(c, selector);
    }
    return list_find(c->method_list + 1, selector);
}

// A method with its argument types, read up to the closing 0; at most seven, counted in `count`
// unless it is null.
MethodRecord read_method(Method function, const char *name, va_list types, int32_t *count) noexcept;
// Reads a constructor's argument types: at most six, and none after one that takes all arguments.
void read_constructor_types(va_list arguments, uint8_t types[8]) noexcept;

// A class with the three entries every method list begins with; null when memory is exhausted.
Class *class_make(Symbol *name, Method constructor, Method destructor, int32_t instance_size,
                  Method menu_function, const uint8_t types[8]) noexcept;
Class *class_newest() noexcept;  // the last one made, or null when that one is gone
// Adds or replaces a method, with its method object.
ErrorCode class_put_method(Class *c, const MethodRecord &record) noexcept;
// Puts a method object of its own for `record` into a table; null when memory is exhausted.
MethodObject *method_object_store(Hashtab *table, const MethodRecord &record) noexcept;
// The table of the class's extra data under `key`, made with `slots` slots when `slots` is not 0;
// null when there is none.
Hashtab *class_extra_table(Class *c, Symbol *key, int32_t slots) noexcept;
// The table of method objects, brought up to the method list; null when memory is exhausted.
Hashtab *class_complete_index(Class *c) noexcept;
// Takes the class out of every namespace.
void class_forget(const Class *c) noexcept;
// A name in lower case, for look-ups without regard to case.
Symbol *symbol_lower(Symbol *name);

// Says what the first allocation of a constructor's own class gives, while the constructor runs: an
// instance that is there already (of a subclass), or one of the class that is a copy of it. Every
// constructor is called within one, so that what it allocates on the way is not mistaken.
class ConstructScope {
  public:
    explicit ConstructScope(Class *c) noexcept;  // calling the one of `c`
    // Calling the one of `running`, which allocates `allocating`, for an instance of a subclass.
    ConstructScope(Object *instance, const Class *running, const Class *allocating) noexcept;
    ~ConstructScope();
    ConstructScope(const ConstructScope &) = delete;
    ConstructScope &operator=(const ConstructScope &) = delete;

    // Answers an allocation of `c`: the prepared instance, or null, with the class of which an
    // instance is to be made in its place.
    static Object *allocate(Class **c) noexcept;
    // The class whose constructor runs for `x`, or null.
    static const Class *running_for(const Object *x) noexcept;

  private:
    Object *instance_;  // null: a new one of class_
    Class *class_;
    const Class *constructing_;  // whose allocation is answered; null once it has been
    const Class *running_;
    ConstructScope *outer_;
};

// Parts of classes_start, in this order.
void method_class_start() noexcept;
void dispatch_start() noexcept;

}  // namespace kiv
