// pcontrol: opens, closes, starts and switches the patchers connected to its outlet.
#include "objects/common.h"

namespace kiv::objects {

namespace {

struct Control {
    Object ob;
    Outlet *out;
};
Class *pcontrol_class;

int32_t enable_object(void *state, Object *x) {
    if (zgetfn(x, "enable"_sym)) {
        typedmess(x, "enable"_sym, 1, static_cast<Atom *>(state));
    }
    return 0;
}

// Every object in the patchers, and in those inside them, that can be enabled.
void enable(Control *x, int32_t argc, Atom *argv) {
    if (argc < 1 || !is_number(argv[0])) {
        object_error(x, "bad arguments for message \"enable\"");
        return;
    }
    Atom state = long_atom(float_of(argv[0]) != 0.0 ? 1 : 0);
    outlet_msg(x->out, "jpatcher"_sym, "iterate"_sym, enable_object, &state, JPATCHER_ITERATE_DEEP);
}

void control(Control *x, Symbol *selector, int32_t argc, Atom *argv) {
    if (selector == "loadbang"_sym) {
        loadbang_new_generation();
        outlet_msg(x->out, "jpatcher"_sym, "loadbang"_sym);
    } else if (selector == "open"_sym) {
        outlet_msg(x->out, "jpatcher"_sym, "front"_sym);
    } else if (selector == "close"_sym) {
        outlet_msg(x->out, "jpatcher"_sym, "wclose"_sym);
    } else if (selector == "enable"_sym) {
        enable(x, argc, argv);
    } else {
        refuse(x, selector);
    }
}

// Patchers belong to the main thread.
void message(Control *x, Symbol *selector, int32_t argc, Atom *argv) {
    defer(x, method(control), selector, argc, argv);
}

void *pcontrol_new(Symbol *, int32_t, Atom *) {
    auto *x = make_object<Control>(pcontrol_class);
    if (x) {
        x->out = outlet_new(x, nullptr);
    }
    return x;
}

}  // namespace

void pcontrol_start() {
    pcontrol_class = make_class<Control>("pcontrol", pcontrol_new);
    // No method of its own is called "loadbang": that would be called when loading ends.
    Messages<Control, message>::add(pcontrol_class);
    add_class(pcontrol_class);
}

}  // namespace kiv::objects
