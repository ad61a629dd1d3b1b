// inlet, outlet: the entry and exit points of a patcher that sits in a box.
#include "objects/common.h"

#include <kiv/subpatcher.h>

namespace kiv::objects {

namespace {

// `out` is an inlet's own outlet, or for an outlet the patcher's (null while there is none).
struct Port {
    Object ob;
    Outlet *out;
    void *patcher;
};
Class *inlet_class;
Class *outlet_class;

void pass(Port *x, Symbol *selector, int32_t argc, Atom *argv) {
    send_message(x->out, selector, argc, argv);
}

void port_free(Port *x) {
    jpatcher_remove_port(x->patcher, x);
}

void *entry_new(Symbol *, int32_t, Atom *) {
    auto *x = make_object<Port>(inlet_class);
    if (x) {
        x->patcher = "#P"_sym->thing;
        x->out = outlet_new(x, nullptr);
        jpatcher_add_inlet(x->patcher, x);
    }
    return x;
}

void *exit_new(Symbol *, int32_t, Atom *) {
    auto *x = make_object<Port>(outlet_class);
    if (x) {
        x->patcher = "#P"_sym->thing;
        jpatcher_add_outlet(x->patcher, x, &x->out);
    }
    return x;
}

Class *add_port(const char *name, void *(*constructor)(Symbol *, int32_t, Atom *)) {
    Class *const c = make_class<Port>(name, constructor, port_free);
    Messages<Port, pass>::add(c);
    add_class(c);
    return c;
}

}  // namespace

void subpatcher_start() {
    inlet_class = add_port("inlet", entry_new);
    outlet_class = add_port("outlet", exit_new);
}

}  // namespace kiv::objects
