// The registry of classes: which class a name means in a namespace.
//
// 1. A class is found by its name, by its second name and by its aliases, exactly or without regard
//    to case. The index of lower-case names is kept beside the exact one, so that making a box
//    never walks over all classes. Of names that differ only in case the first registered wins.
// 2. Nothing is registered before classes_start.
//
// Thread safety: the index is guarded by the kernel's global critical region, which is not held
// while a module is loaded.
#include <kiv/attr.h>
#include <kiv/console.h>
#include <kiv/hashtab.h>
#include <kiv/path.h>

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "kernel/class_private.h"
#include "kernel/immortal.h"
#include "sched/internal.h"

namespace kiv {

namespace {

using NameKey = std::pair<Symbol *, Symbol *>;  // namespace, name

struct State {
    bool ready = false;
    Map<NameKey, Class *> exact;
    Map<NameKey, Class *> folded;  // by lower-case name
};
Immortal<State> state;

Symbol *space_or_default(Symbol *name_space) {
    return name_space ? name_space : "nobox"_sym;
}

Class *find_in(const Map<NameKey, Class *> &index, Symbol *name_space, Symbol *name) {
    const Guard guard(global_region);
    const auto found = index.find({name_space, name});
    return found == index.end() ? nullptr : found->second;
}

Class *find_loaded(Symbol *name_space, Symbol *name) {
    if (name_space) {
        return find_in(state->exact, name_space, name);
    }
    Class *const c = find_in(state->exact, "nobox"_sym, name);
    return c ? c : find_in(state->exact, "box"_sym, name);
}

Class *find_casefree(Symbol *name_space, Symbol *name) {
    if (Class *const c = find_loaded(name_space, name)) {
        return c;
    }
    try {
        Symbol *const lower = symbol_lower(name);
        if (name_space) {
            return find_in(state->folded, name_space, lower);
        }
        Class *const c = find_in(state->folded, "nobox"_sym, lower);
        return c ? c : find_in(state->folded, "box"_sym, lower);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

ErrorCode enter(Symbol *name_space, Symbol *name, Class *c) noexcept {
    try {
        Symbol *const lower = symbol_lower(name);
        const Guard guard(global_region);
        if (!state->exact.try_emplace({name_space, name}, c).second) {
            return ErrorDuplicate;
        }
        state->folded.try_emplace({name_space, lower}, c);
        return ErrorNone;
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

bool answers(const Class *c, const Symbol *selector) {
    const MethodRecord *const method = class_find_method(c, selector);
    return method && is_real(method->function);
}

bool has_attribute(const Class *c, Symbol *name) {
    void *attribute = nullptr;
    return c->attributes && hashtab_lookup(c->attributes, name, &attribute) == ErrorNone;
}

// An object whose value can be read and set becomes a parameter unless it sees to that itself.
void set_up_parameter(Class *c) {
    if (answers(c, "getvalueof"_sym) && answers(c, "setvalueof"_sym) &&
        !has_attribute(c, "parameter_enable"_sym)) {
        c->flags |= ClassParameter;
        class_parameter_init(c);
    }
}

void *note_file_attribute(HashtabEntry *entry, void *c) {
    const Symbol *const style = object_attr_getsym(entry->value, "style"_sym);
    if (style && std::string_view(style->name).ends_with("file")) {
        class_extra_storeflags(static_cast<Class *>(c), "fileattr"_sym, entry->key, ContainerData);
    }
    return nullptr;
}

// From here on the tables are only read, so they need no lock.
void close_tables(Class *c) {
    if (c->method_index) {
        return;
    }
    if (c->attributes) {
        hashtab_funall(c->attributes, note_file_attribute, c);
        hashtab_readonly(c->attributes, 1);
    }
    if (Hashtab *const index = class_complete_index(c)) {
        hashtab_readonly(index, 1);
        c->method_index = index;
    }
}

// Hands a message on to the box that holds the object.
void *send_to_box(Object *x, Symbol *, int32_t argc, Atom *argv) {
    Object *const box = object_box(x);
    if (argc > 0) {
        object_method_typed(box ? box : x, nullptr, argc, argv, nullptr);
    }
    return nullptr;
}

bool never_a_module(Symbol *name_space, Symbol *name) {
    if (name_space && name_space != "box"_sym) {
        return false;
    }
    const KernelHooks &hooks = kernel_hooks();
    return name == "patcher"_sym || name == "jpatcher"_sym || name == "p"_sym ||
           (hooks.maker_knows && hooks.maker_knows(name));
}

Class *find_or_load(Symbol *name_space, Symbol *name, Class *(*find)(Symbol *, Symbol *)) {
    if (!name) {
        return nullptr;
    }
    if (Class *const c = find(name_space, name)) {
        return c;
    }
    const KernelHooks &hooks = kernel_hooks();
    if (never_a_module(name_space, name) || !hooks.load_class_module ||
        !hooks.load_class_module(name_space, name)) {
        return nullptr;
    }
    return find(name_space, name);
}

// The names the class asked for before it was registered.
void enter_aliases(Symbol *name_space, Class *c) {
    Hashtab *const aliases = class_extra_table(c, "aliases"_sym, 0);
    int32_t count = 0;
    Symbol **names = nullptr;
    if (aliases && hashtab_getkeys(aliases, &count, &names) == ErrorNone) {
        for (int32_t i = 0; i < count; ++i) {
            enter(name_space, names[i], c);
        }
    }
    sysmem_freeptr(names);
}

}  // namespace

Symbol *symbol_lower(Symbol *name) {
    const std::string_view text(name->name);
    const auto is_upper = [](char c) { return c >= 'A' && c <= 'Z'; };
    if (std::none_of(text.begin(), text.end(), is_upper)) {
        return name;
    }
    Text lower(text);
    for (char &c : lower) {
        c = is_upper(c) ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return gensym(lower.c_str());
}

void class_forget(const Class *c) noexcept {
    const auto is_it = [c](const auto &entry) { return entry.second == c; };
    const Guard guard(global_region);
    std::erase_if(state->exact, is_it);
    std::erase_if(state->folded, is_it);
}

void classes_start() noexcept {
    method_class_start();
    dispatch_start();
    state->ready = true;
}

}  // namespace kiv

using namespace kiv;

ErrorCode class_register(Symbol *name_space, Class *c) noexcept {
    if (!c) {
        return ErrorInvalidPointer;
    }
    if (!state->ready) {
        return ErrorGeneric;
    }
    Symbol *const space = space_or_default(name_space);
    const bool box = space == "box"_sym;
    if (find_in(state->exact, space, c->name)) {
        return ErrorDuplicate;
    }
    if (box) {
        set_up_parameter(c);
        c->flags |= ClassBox;
        class_addmethod(c, reinterpret_cast<Method>(send_to_box), "sendbox", TypeGimme, 0);
    }
    close_tables(c);
    if (verbose_get()) {
        post("registering class %s in %s", c->name->name, space->name);
    }
    if (c->name_space && c->name_space != space) {
        object_warn(nullptr, "warning duplicate class registration for %s (was %s, registering %s)",
                    c->name->name, c->name_space->name, space->name);
    }
    const ErrorCode entered = enter(space, c->name, c);
    if (entered == ErrorNone) {
        c->name_space = space;
        if (c->second_name != c->name) {
            enter(space, c->second_name, c);
        }
        enter_aliases(space, c);
    }
    return entered;
}

ErrorCode class_alias(Class *c, Symbol *name) noexcept {
    if (!c || !name) {
        return ErrorInvalidPointer;
    }
    Hashtab *const aliases = class_extra_table(c, "aliases"_sym, 7);
    if (!aliases || hashtab_storesym(aliases, name, name) != ErrorNone) {
        return ErrorOutOfMemory;
    }
    return c->name_space ? enter(c->name_space, name, c) : ErrorNone;
}

Class *class_findbyname(Symbol *name_space, Symbol *name) noexcept {
    return find_or_load(name_space, name, find_loaded);
}

Class *class_findbyname_casefree(Symbol *name_space, Symbol *name) noexcept {
    return find_or_load(name_space, name, find_casefree);
}

Class *class_getifloaded(Symbol *name_space, Symbol *name) noexcept {
    return name ? find_loaded(name_space, name) : nullptr;
}

Class *class_getifloaded_casefree(Symbol *name_space, Symbol *name) noexcept {
    return name ? find_casefree(name_space, name) : nullptr;
}

// For a class whose file is called otherwise. It may have been made under either name, and need not
// be registered yet when it is the last one that was made.
ErrorCode class_setname(const char *name, const char *file_name) noexcept {
    if (!name || !file_name) {
        return ErrorInvalidPointer;
    }
    Symbol *const given = gensym(name);
    Symbol *const file = gensym(file_name);
    Class *c = class_newest();
    if (!c || (c->name != given && c->name != file)) {
        c = find_loaded(nullptr, file);
        c = c ? c : find_loaded(nullptr, given);
    }
    if (!c) {
        return ErrorGeneric;
    }
    c->file_name = file;
    c->second_name = given;
    const bool known = !c->name_space || find_in(state->exact, c->name_space, given) == c;
    return known ? ErrorNone : enter(c->name_space, given, c);
}

Symbol *class_nameget(const Class *c) noexcept {
    return c ? c->name : nullptr;
}

Symbol *class_namespace(const Class *c) noexcept {
    return c ? c->name_space : nullptr;
}

ErrorCode class_getpath(Class *c, int16_t *path, char *file_name) noexcept {
    if (!c) {
        return ErrorInvalidPointer;
    }
    if (!c->file_name) {
        return ErrorGeneric;
    }
    if (path) {
        *path = c->path;
    }
    if (file_name) {
        std::snprintf(file_name, KIV_FILENAME_SIZE, "%s", c->file_name->name);
    }
    return ErrorNone;
}

ErrorCode class_setpath(Class *c, int16_t path, const char *file_name) noexcept {
    if (!c || !file_name) {
        return ErrorInvalidPointer;
    }
    c->path = path;
    c->file_name = gensym(file_name);
    return ErrorNone;
}
