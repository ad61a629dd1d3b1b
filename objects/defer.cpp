// defer, schedule: pass every message on later, from the main thread's low-priority queue and from
// the scheduler.
#include "objects/common.h"

namespace kiv::objects {

namespace {

struct Later {
    Object ob;
    Outlet *out;
};
Class *defer_class;
Class *schedule_class;

void arrive(Later *x, Symbol *selector, int32_t argc, Atom *argv) {
    send_message(x->out, selector, argc, argv);
}

void depart_deferred(Later *x, Symbol *selector, int32_t argc, Atom *argv) {
    defer_low(x, method(arrive), selector, argc, argv);
}

void depart_scheduled(Later *x, Symbol *selector, int32_t argc, Atom *argv) {
    schedule_fdelay(x, method(arrive), 0.0, selector, argc, argv);
}

Later *later_new(Class *c) {
    auto *x = make_object<Later>(c);
    if (x) {
        x->out = outlet_new(x, nullptr);
    }
    return x;
}

void *defer_new(Symbol *, int32_t, Atom *) {
    return later_new(defer_class);
}
void *schedule_new(Symbol *, int32_t, Atom *) {
    return later_new(schedule_class);
}

}  // namespace

void defer_start() {
    defer_class = make_class<Later>("defer", defer_new);
    Messages<Later, depart_deferred>::add(defer_class);
    add_class(defer_class);

    schedule_class = make_class<Later>("schedule", schedule_new);
    Messages<Later, depart_scheduled>::add(schedule_class);
    add_class(schedule_class);
}

}  // namespace kiv::objects
