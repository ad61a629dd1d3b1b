// How one message reaches one receiver, when no method was cached for it. Any thread, no lock.
//
// A receiver may free itself in its method: nothing here touches it afterwards, but for the spread
// of a list, which tests it again.
#include "kernel/inlets.h"

namespace kiv {

namespace {

bool takes(const MethodRecord *method, AtomType required, AtomType optional) {
    return (method->types[0] == required || method->types[0] == optional) &&
           method->types[1] == TypeNothing;
}

bool takes_int(const MethodRecord *method) {
    return takes(method, TypeLong, TypeDefLong);
}
bool takes_float(const MethodRecord *method) {
    return takes(method, TypeFloat, TypeDefFloat);
}
bool takes_list(const MethodRecord *method) {
    return method->types[0] == TypeGimme;
}

bool deliver_typed(Object *x, Symbol *selector, int32_t argc, Atom *argv) {
    const MethodRecord *method = typed_method(x, selector);
    if (method) {
        typed_call(x, method, selector, argc, argv);
    }
    return method != nullptr;
}

// A list goes to "anything" rather than over the inlets when no number could be taken at the left.
bool list_wanted_whole(const Object *x) {
    return class_flags(class_of(x)) & ClassTakesLists ||
           (object_find_method(x, "anything"_sym) && !object_find_method(x, "int"_sym) &&
            !object_find_method(x, "float"_sym));
}

// Atoms 2 and on to the inlets from the head of the list, then the first to the object itself.
void spread_list(Object *x, int32_t argc, const Atom *argv) {
    SendState *state = send_state();
    if (!state) {
        return;
    }
    Section section(*state);  // a list may also come without a send
    Inlet *inlet = class_of(x)->lightweight ? nullptr : x->inlets;
    for (int32_t i = 1; i < argc && inlet; ++i) {
        if (argv[i].type == TypeLong) {
            inlet_int(inlet, argv[i].value.i);
        } else if (argv[i].type == TypeFloat) {
            inlet_float(inlet, argv[i].value.f);
        }
        inlet = inlet->next;  // a freed inlet keeps its memory and its link meanwhile
    }
    if (!object_valid(x)) {
        return;
    }
    if (argv[0].type == TypeLong && !deliver_int(x, argv[0].value.i)) {
        report_not_understood(x, "int"_sym);
    } else if (argv[0].type == TypeFloat && !deliver_float(x, argv[0].value.f)) {
        report_not_understood(x, "float"_sym);
    }
}

}  // namespace

Method direct_method(Object *x, Symbol *selector, const Symbol *kind) noexcept {
    const MethodRecord *method = selector ? object_find_method(x, selector) : nullptr;
    if (!method) {
        return no_method;
    }
    bool fits = true;
    if (kind == "bang"_sym) {
        fits = method->types[0] == TypeNothing;
    } else if (kind == "int"_sym) {
        fits = takes_int(method);
    } else if (kind == "float"_sym) {
        fits = takes_float(method);
    } else if (kind == "list"_sym) {
        fits = takes_list(method);
    }
    return fits ? method->function : no_method;
}

bool deliver_bang(Object *x) noexcept {
    const MethodRecord *method = object_find_method(x, "bang"_sym);
    if (method && method->types[0] == TypeNothing) {
        call_bang(method->function, x);
        return true;
    }
    return deliver_typed(x, "bang"_sym, 0, nullptr);
}

bool deliver_int(Object *x, int64_t value) noexcept {
    const MethodRecord *method = object_find_method(x, "int"_sym);
    if (method && takes_int(method)) {
        call_int(method->function, x, value);
        return true;
    }
    const MethodRecord *other = method ? nullptr : object_find_method(x, "float"_sym);
    if (other && takes_float(other)) {
        call_float(other->function, x, static_cast<double>(value));
        return true;
    }
    Atom atom;
    atom.type = TypeLong;
    atom.value.i = value;
    return deliver_typed(x, "int"_sym, 1, &atom);
}

bool deliver_float(Object *x, double value) noexcept {
    const MethodRecord *method = object_find_method(x, "float"_sym);
    if (method && takes_float(method)) {
        call_float(method->function, x, value);
        return true;
    }
    const MethodRecord *other = method ? nullptr : object_find_method(x, "int"_sym);
    if (other && takes_int(other)) {
        call_int(other->function, x, long_from_double(value));
        return true;
    }
    Atom atom;
    atom.type = TypeFloat;
    atom.value.f = value;
    return deliver_typed(x, "float"_sym, 1, &atom);
}

bool deliver_anything(Object *x, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    return deliver_typed(x, selector, argc, argv);
}

void list_deliver(Object *x, int32_t argc, Atom *argv) noexcept {
    if (argc < 1 || !argv) {
        return;
    }
    const MethodRecord *method = object_find_method(x, "list"_sym);
    if (method && takes_list(method)) {
        call_list(method->function, x, "list"_sym, argc, argv);
    } else if (method || list_wanted_whole(x)) {
        if (!deliver_typed(x, "list"_sym, argc, argv)) {
            report_not_understood(x, "list"_sym);
        }
    } else {
        spread_list(x, argc, argv);
    }
}

void report_not_understood(Object *x, const Symbol *selector) noexcept {
    object_error(x, "doesn't understand \"%s\"", selector->name);
}

}  // namespace kiv
