// defer: passes every message on through the main thread's low-priority queue.
#include "objects/common.h"

namespace kiv::objects {

namespace {

struct Defer {
    Object ob;
    Outlet *out;
};
Class *defer_class;

void arrive(Defer *x, Symbol *selector, int32_t argc, Atom *argv) {
    send_message(x->out, selector, argc, argv);
}

void depart(Defer *x, Symbol *selector, int32_t argc, Atom *argv) {
    defer_low(x, method(arrive), selector, argc, argv);
}

void *defer_new(Symbol *, int32_t, Atom *) {
    auto *x = make_object<Defer>(defer_class);
    if (x) {
        x->out = outlet_new(x, nullptr);
    }
    return x;
}

}  // namespace

void defer_start() {
    defer_class = make_class<Defer>("defer", defer_new);
    Messages<Defer, depart>::add(defer_class);
    add_class(defer_class);
}

}  // namespace kiv::objects
