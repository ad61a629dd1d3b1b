// int, float: hold one number.
#include "objects/common.h"

namespace kiv::objects {

namespace {

struct Store {
    Object ob;
    Outlet *out;
    Atom value;
};

Class *int_class;
Class *float_class;

void send(Store *x) {
    send_number(x->out, x->value);
}

void keep(Store *x, Atom number) {
    x->value = as_kind(number, x->value.type == TypeFloat);
}

void keep_and_send(Store *x, Atom number) {
    keep(x, number);
    send(x);
}

void set(Store *x, Symbol *, int32_t argc, Atom *argv) {
    keep(x, number_argument(x, 0, argc, argv, x->value));
}

void *store_new(Class *c, bool floats, int32_t argc, Atom *argv) {
    auto *x = make_object<Store>(c);
    if (x) {
        x->value = as_kind(number_argument(x, 0, argc, argv, long_atom(0)), floats);
        number_inlet(x, floats, 1);
        x->out = number_outlet(x, floats);
    }
    return x;
}

void *int_new(Symbol *, int32_t argc, Atom *argv) {
    return store_new(int_class, false, argc, argv);
}
void *float_new(Symbol *, int32_t argc, Atom *argv) {
    return store_new(float_class, true, argc, argv);
}

Class *add_store(const char *name, void *(*constructor)(Symbol *, int32_t, Atom *),
                 const char *alias_name) {
    Class *const c = make_class<Store>(name, constructor);
    class_addmethod(c, method(send), "bang", 0);
    class_addmethod(c, method(set), "set", TypeGimme, 0);
    Numbers<Store, keep_and_send>::add(c);
    Numbers<Store, keep>::add_cold(c, "in1", "ft1");
    add_class(c, {alias_name});
    return c;
}

}  // namespace

void store_start() {
    int_class = add_store("int", int_new, "i");
    float_class = add_store("float", float_new, "f");
}

}  // namespace kiv::objects
