// Messages to objects: typed (atoms, checked against the method's declared types) and direct
// (words, passed on unchanged).
//
// 1. An object is trusted only after the validity test; everything that does not fit is posted
//    against the receiver and never returned to the sender.
// 2. A method may free its receiver: nothing touches the object after the call.
// 3. The object bound to "#N" makes objects by name. Its methods are constructors: a typed call
//    passes them no object, and what they return becomes the newest object.
//
// Thread safety: no lock and no allocation on the way to a method of the class; what nothing in
// the class answers (attributes, "obj:" names) may take the locks of those families.
#include <kiv/atom.h>
#include <kiv/console.h>
#include <kiv/inlets.h>
#include <kiv/symbol.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "containers/internal.h"
#include "kernel/class_private.h"
#include "kernel/dispatch_call.h"
#include "kernel/object_private.h"

namespace kiv {

namespace {

struct {
    Symbol *maker = nullptr;     // "#N"
    Symbol *anything = nullptr;  // "anything"
    void *newest = nullptr;      // "g_kiv_newest" is bound to its address
} state;

using GimmeMethod = void *(*)(void *x, Symbol *selector, int32_t argc, Atom *argv);
using GimmeMaker = void *(*)(Symbol *selector, int32_t argc, Atom *argv);
using GimmeBackMethod = void *(*)(void *x, Symbol *selector, int32_t argc, Atom *argv,
                                  Atom *result);
using WordMethod = void *(*)(void *x, void *, void *, void *, void *, void *, void *, void *,
                             void *);
using ReadMethod = void *(*)(void *x, int32_t *argc, Atom **argv);
using ObjectMethod = Object *(*)(void *x);

template <class Function>
Function as(Method method) {
    return reinterpret_cast<Function>(method);
}

KIV_CALLS_ANY_TYPE void *call_gimme(const MethodRecord *method, void *x, Symbol *selector,
                                    int32_t argc, Atom *argv) {
    return x ? as<GimmeMethod>(method->function)(x, selector, argc, argv)
             : as<GimmeMaker>(method->function)(selector, argc, argv);
}

KIV_CALLS_ANY_TYPE void *call_gimmeback(const MethodRecord *method, void *x, Symbol *selector,
                                        int32_t argc, Atom *argv, Atom *result) {
    return as<GimmeBackMethod>(method->function)(x, selector, argc, argv, result);
}

KIV_CALLS_ANY_TYPE void *call_words(const MethodRecord *method, void *x, void *const w[8]) {
    return as<WordMethod>(method->function)(x, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
}

KIV_CALLS_ANY_TYPE void *call_reader(const MethodRecord *method, void *x, int32_t *argc,
                                     Atom **argv) {
    return as<ReadMethod>(method->function)(x, argc, argv);
}

KIV_CALLS_ANY_TYPE Object *call_decorator(const MethodRecord *method, void *x) {
    return as<ObjectMethod>(method->function)(x);
}

// --- "obj:" selectors ----------------------------------------------------------------------------

constexpr char obj_prefix[] = "obj:";
constexpr size_t obj_prefix_length = sizeof obj_prefix - 1;

bool is_obj_selector(const Symbol *selector) {
    return std::strncmp(selector->name, obj_prefix, obj_prefix_length) == 0;
}

Symbol *obj_name(const Symbol *selector) {
    return gensym(selector->name + obj_prefix_length);
}

// Whether a typed wrapper may take the method's place.
bool is_wrappable(const MethodRecord *method) {
    return method->types[0] == TypeCant || method->types[0] == TypeGimmeBack;
}

const MethodRecord *wrapped(const Class *c, const MethodRecord *method) {
    if (method && is_wrappable(method)) {
        if (const MethodRecord *const wrapper =
                class_typedwrapper_get(const_cast<Class *>(c), method->selector)) {
            return wrapper;
        }
    }
    return method;
}

const MethodRecord *typed_method_of(Object *x, const Symbol *selector) {
    const MethodRecord *const method = find_method(x, selector);
    return method ? wrapped(class_of(x), method) : nullptr;
}

// A selector "obj:NAME" means the class of the object registered under that name.
const MethodRecord *obj_method(Object *x, const Symbol *selector) {
    Object *const named = registry_find_anywhere(obj_name(selector));
    if (!named) {
        return nullptr;
    }
    Symbol *const class_name = class_of(named)->name;
    return class_name == state.anything ? nullptr : typed_method_of(x, class_name);
}

// True for a method that was found for the class name of an "obj:" selector.
bool found_by_name(const MethodRecord *method, const Symbol *selector) {
    return method->selector && method->selector != selector && method->selector != state.anything &&
           is_obj_selector(selector);
}

void *call_found(Object *x, const MethodRecord *method, Symbol *selector, int32_t argc,
                 Atom *argv) {
    Object *const receiver = x == state.maker->thing ? nullptr : x;
    void *result = nullptr;
    if (method->types[0] == TypeGimme) {
        result = call_guarded(selector,
                              [&] { return call_gimme(method, receiver, selector, argc, argv); });
    } else if (method->types[0] == TypeGimmeBack && receiver) {
        Atom dropped{};
        result = call_guarded(selector, [&] {
            return call_gimmeback(method, receiver, selector, argc, argv, &dropped);
        });
    } else {
        Arguments arguments;
        if (!take_arguments(method->types, argc, argv, &arguments) &&
            !convert_arguments(x, selector, method->types, argc, argv, &arguments)) {
            return nullptr;
        }
        result = call_guarded(selector,
                              [&] { return call_shape(method->function, receiver, arguments); });
    }
    if (!receiver) {
        state.newest = result;
    }
    return result;
}

// --- Direct calls --------------------------------------------------------------------------------

bool has_class(const Object *x) {
    return std::memcmp(x->methods[-1].types, "xebo", 4) == 0;
}

// What "getvalueof" answers for an object that has no value of its own.
void *default_value(Object *x, int32_t *argc, Atom **argv) {
    char text[512];
    std::snprintf(text, sizeof text, "object (%s)", class_of(x)->name->name);
    uint8_t allocated = 0;
    if (atom_alloc(argc, argv, &allocated) == ErrorNone) {
        *argc = 1;
        atom_setsym(*argv, gensym(text));
    }
    return nullptr;
}

struct DirectResult {
    bool answered;
    void *value;
};

DirectResult call_direct(Object *x, Symbol *selector, void *const words[8]) {
    if (const MethodRecord *const method = find_method(x, selector)) {
        return {true, call_guarded(selector, [&] { return call_words(method, x, words); })};
    }
    void *value = nullptr;
    if (!(class_flags(class_of(x)) & ClassNoAttrMessages) &&
        attribute_direct(x, selector, words, &value)) {
        return {true, value};
    }
    return {false, nullptr};
}

// The object that an object's "decorator" method names, or null.
Object *decorated(Object *x) {
    const MethodRecord *const method = find_method(x, "decorator"_sym);
    if (!method) {
        return nullptr;
    }
    auto *const named = static_cast<Object *>(
        call_guarded(method->selector, [&]() -> void * { return call_decorator(method, x); }));
    return named != x && object_valid(named) && has_class(named) ? named : nullptr;
}

void *direct_to_class(Object *x, Symbol *selector, void *const words[8]) {
    // Decorators may name one another.
    Object *receiver = x;
    for (int32_t hops = 0; receiver && hops < max_nesting; ++hops) {
        const DirectResult result = call_direct(receiver, selector, words);
        if (result.answered) {
            return result.value;
        }
        receiver = decorated(receiver);
    }
    if (selector == "getvalueof"_sym && words[0] && words[1] && object_valid(x)) {
        return default_value(x, static_cast<int32_t *>(words[0]), static_cast<Atom **>(words[1]));
    }
    return nullptr;
}

// An object whose list has no header entry: its methods are all that is known of it.
void *direct_to_list(Object *x, Symbol *selector, void *const words[8]) {
    for (const MethodRecord *method = x->methods; method->selector; ++method) {
        if (method->selector == selector) {
            return call_guarded(selector, [&] { return call_words(method, x, words); });
        }
    }
    return nullptr;
}

// --- Function look-ups ---------------------------------------------------------------------------

// Null when the object has no such method; the do-nothing function when it is no object.
Method look_up(const char *function_name, void *x, const Symbol *selector) {
    const char *const name = selector ? selector->name : "";
    if (!object_valid(x)) {
        object_bug(nullptr, "%s (%s): corrupt object", function_name, name);
        return reinterpret_cast<Method>(nullfn);
    }
    const MethodRecord *const method =
        selector ? find_method(static_cast<Object *>(x), selector) : nullptr;
    return method ? method->function : nullptr;
}

// --- Results as atoms ----------------------------------------------------------------------------

ErrorCode typed_with_result(Object *x, Symbol *selector, int32_t argc, Atom *argv, Atom *result) {
    const MethodRecord *const method = find_method(x, selector);
    if (method && method->types[0] == TypeGimmeBack) {
        void *const code = call_guarded(
            selector, [&] { return call_gimmeback(method, x, selector, argc, argv, result); });
        return static_cast<ErrorCode>(reinterpret_cast<intptr_t>(code));
    }
    const MethodRecord *const found = typed_method(x, selector);
    if (!found) {
        object_error(x, "doesn't understand \"%s\"", selector->name);
        return ErrorGeneric;
    }
    typed_call(x, found, selector, argc, argv);
    return ErrorNone;
}

}  // namespace

void dispatch_start() noexcept {
    state.maker = gensym("#N");
    state.anything = gensym("anything");
    gensym("g_kiv_newest")->thing = &state.newest;
}

const MethodRecord *typed_method(Object *x, Symbol *selector) noexcept {
    if (const MethodRecord *const method = typed_method_of(x, selector)) {
        return method;
    }
    if (!(class_flags(class_of(x)) & ClassNoAttrMessages)) {
        if (const MethodRecord *const method = attribute_message(x, selector)) {
            return method;
        }
    }
    if (is_obj_selector(selector)) {
        if (const MethodRecord *const method = obj_method(x, selector)) {
            return method;
        }
    }
    return find_method(x, state.anything);
}

void *typed_call(Object *x, const MethodRecord *method, Symbol *selector, int32_t argc,
                 Atom *argv) noexcept {
    if (found_by_name(method, selector)) {
        Atom name{};
        atom_setsym(&name, obj_name(selector));
        // Alone, the name is the message's argument; before arguments it only chose the method.
        return argc > 0 ? call_found(x, method, method->selector, argc, argv)
                        : call_found(x, method, method->selector, 1, &name);
    }
    return call_found(x, method, selector, argc, argv);
}

}  // namespace kiv

using namespace kiv;

void *typedmess(void *x, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    if (!object_valid(x)) {
        object_bug(nullptr, "typedmess: %s: corrupt object", selector ? selector->name : "");
        return nullptr;
    }
    if (!selector) {
        return nullptr;
    }
    auto *const object = static_cast<Object *>(x);
    const int32_t count = argv && argc > 0 ? argc : 0;
    // Most messages are for a method of the class that is called as it is.
    const MethodRecord *const own = find_method(object, selector);
    if (own && !is_wrappable(own)) [[likely]] {
        return call_found(object, own, selector, count, argv);
    }
    const MethodRecord *const method = typed_method(object, selector);
    if (!method) {
        object_error(x, "doesn't understand \"%s\"", selector->name);
        return nullptr;
    }
    return typed_call(object, method, selector, count, argv);
}

void *object_method_imp(void *x, Symbol *selector, void *p1, void *p2, void *p3, void *p4, void *p5,
                        void *p6, void *p7, void *p8) noexcept {
    if (!selector) {
        object_warn(object_valid(x) ? x : nullptr, "trying to call NULL method");
        return nullptr;
    }
    if (object_lacks_methods(x)) {
        object_warn(nullptr, "method %s called on invalid object", selector->name);
        return nullptr;
    }
    void *const words[8] = {p1, p2, p3, p4, p5, p6, p7, p8};
    auto *const object = static_cast<Object *>(x);
    if (object_valid(x)) {
        return has_class(object) ? direct_to_class(object, selector, words)
                                 : direct_to_list(object, selector, words);
    }
    if (selector == "free"_sym) {
        freeobject(x);
    } else {
        zgetfn(x, selector);
    }
    return nullptr;
}

// Reads eight words whatever was passed: a callee that declares fewer ignores the rest.
void *(object_method)(void *x, Symbol *selector, ...) noexcept {
    void *p[8];
    va_list arguments;
    va_start(arguments, selector);
    for (void *&word : p) {
        word = va_arg(arguments, void *);
    }
    va_end(arguments);
    return object_method_imp(x, selector, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
}

ErrorCode object_method_typed(void *x, Symbol *selector, int32_t argc, Atom *argv,
                              Atom *result) noexcept {
    Atom dropped{};
    Atom *const out = result ? result : &dropped;
    *out = Atom{};
    int32_t count = argv && argc > 0 ? argc : 0;
    Symbol *name = selector;
    if (!name && count > 0) {
        if (argv->type == TypeSymbol && argv->value.sym) {
            name = argv->value.sym;
            ++argv;
            --count;
        } else {
            name = "list"_sym;
        }
    }
    if (!object_valid(x)) {
        object_warn(nullptr, "method %s called on invalid object", name ? name->name : "");
        return ErrorGeneric;
    }
    if (!name) {
        return ErrorGeneric;
    }
    return typed_with_result(static_cast<Object *>(x), name, count, argv, out);
}

Method getfn(void *x, Symbol *selector) noexcept {
    if (const Method function = look_up("getfn", x, selector)) {
        return function;
    }
    object_error(x, "doesn't understand \"%s\"", selector ? selector->name : "");
    return reinterpret_cast<Method>(nullfn);
}

Method egetfn(void *x, Symbol *selector) noexcept {
    const Method function = look_up("egetfn", x, selector);
    return function ? function : reinterpret_cast<Method>(nullfn);
}

Method zgetfn(void *x, Symbol *selector) noexcept {
    return look_up("zgetfn", x, selector);
}

void *nullfn() noexcept {
    return nullptr;
}

// A method that returns atoms is called for its one result; a method for code only is taken for a
// getter that fills in a count and an array.
void *class_dumpout_wrap(void *x, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    void *outlet = nullptr;
    if (!object_valid(x) || !selector ||
        object_obex_lookup(x, "dumpout"_sym, &outlet) != ErrorNone || !outlet) {
        return nullptr;
    }
    const MethodRecord *const method = find_method(static_cast<Object *>(x), selector);
    if (!method) {
        return nullptr;
    }
    Atom one{};
    int32_t count = 0;
    Atom *atoms = nullptr;
    if (method->types[0] == TypeGimmeBack) {
        call_guarded(selector,
                     [&] { return call_gimmeback(method, x, selector, argc, argv, &one); });
        count = one.type == TypeNothing ? 0 : 1;
    } else {
        call_guarded(selector, [&] { return call_reader(method, x, &count, &atoms); });
    }
    // The method may have freed the object, and its outlets with it.
    if (object_valid(x) && object_valid(outlet)) {
        outlet_anything(static_cast<Outlet *>(outlet), selector, count, atoms ? atoms : &one);
    }
    sysmem_freeptr(atoms);
    return nullptr;
}
