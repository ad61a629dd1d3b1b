// accum, iaccum: a number that grows by what is added to it and multiplied with it.
#include "objects/common.h"

namespace kiv::objects {

namespace {

struct Accumulator {
    Object ob;
    Outlet *out;
    Linklist *inlets;
    Atom value;  // its kind is the object's
};
Class *accum_class;
Class *iaccum_class;

bool in_floats(const Accumulator *x) {
    return x->value.type == TypeFloat;
}

void send(Accumulator *x) {
    send_number(x->out, x->value);
}

// Integers wrap; an integer that meets a float is computed in floats and truncated afterwards.
void add(Accumulator *x, const Atom &number) {
    if (is_long(x->value) && is_long(number)) {
        x->value.value.i = wrapped(bits(x->value.value.i) + bits(number.value.i));
    } else {
        x->value = as_kind(float_atom(float_of(x->value) + float_of(number)), in_floats(x));
    }
}

void multiply(Accumulator *x, const Atom &number) {
    if (is_long(x->value) && is_long(number)) {
        x->value.value.i = wrapped(bits(x->value.value.i) * bits(number.value.i));
    } else {
        x->value = as_kind(float_atom(float_of(x->value) * float_of(number)), in_floats(x));
    }
}

void take(Accumulator *x, Atom number) {
    switch (proxy_getinlet(x)) {
        case 1:
            add(x, number);
            break;
        case 2:
            multiply(x, number);
            break;
        default:
            x->value = as_kind(number, in_floats(x));
            send(x);
    }
}

void bang(Accumulator *x, Symbol *selector, int32_t, Atom *) {
    if (proxy_getinlet(x) == 0) {
        send(x);
    } else {
        refuse(x, selector);
    }
}

void set(Accumulator *x, Symbol *, int32_t argc, Atom *argv) {
    x->value = as_kind(number_argument(x, 0, argc, argv, x->value), in_floats(x));
}

void accumulator_free(Accumulator *x) {
    object_free(x->inlets);
}

void *accumulator_new(Class *c, bool can_float, int32_t argc, const Atom *argv) {
    auto *x = make_object<Accumulator>(c);
    if (x) {
        const Atom initial = number_argument(x, 0, argc, argv, long_atom(0));
        x->value = as_kind(initial, can_float && initial.type == TypeFloat);
        x->inlets = make_inlets(x, 2);
        x->out = number_outlet(x, in_floats(x));
    }
    return x;
}

void *accum_new(Symbol *, int32_t argc, Atom *argv) {
    return accumulator_new(accum_class, true, argc, argv);
}
void *iaccum_new(Symbol *, int32_t argc, Atom *argv) {
    return accumulator_new(iaccum_class, false, argc, argv);
}

Class *add_accumulator(const char *name, void *(*constructor)(Symbol *, int32_t, Atom *)) {
    Class *const c = make_class<Accumulator>(name, constructor, accumulator_free);
    class_addmethod(c, method(bang), "bang", TypeGimme, 0);
    class_addmethod(c, method(set), "set", TypeGimme, 0);
    Numbers<Accumulator, take>::add(c);
    add_class(c);
    return c;
}

}  // namespace

void accumulators_start() {
    accum_class = add_accumulator("accum", accum_new);
    iaccum_class = add_accumulator("iaccum", iaccum_new);
}

}  // namespace kiv::objects
