// trigger, bangbang: one message in, several out, right to left.
#include "objects/common.h"

#include <algorithm>

namespace kiv::objects {

namespace {

struct Port {
    Outlet *out;
    char type;      // b, i, f, s, l; c for a constant
    Atom constant;  // the constant that is sent, whatever comes in
};

struct Trigger {
    Object ob;
    int32_t count;
    Port *ports;  // from the left
};

Class *trigger_class;
Class *bangbang_class;

// The first element as the port's type; what has none, and a bang, is 0 or the empty symbol.
void send_converted(const Port &port, Symbol *selector, int32_t argc, Atom *argv) {
    const Elements message(selector, argc, argv);
    const bool bang = selector == "bang"_sym && argc == 0;
    Atom value = port.type == 's'   ? symbol_atom(""_sym)
                 : port.type == 'f' ? float_atom(0.0)
                                    : long_atom(0);
    if (message.count() > 0 && !bang) {
        convert_or_zero(message[0], value);
    }
    outlet_atoms(port.out, 1, &value);
}

void send_port(Port &port, Symbol *selector, int32_t argc, Atom *argv) {
    switch (port.type) {
        case 'b':
            outlet_bang(port.out);
            break;
        case 'c':
            outlet_atoms(port.out, 1, &port.constant);
            break;
        case 'l':
            send_message(port.out, selector, argc, argv);
            break;
        case 'i':
            if (selector == "int"_sym && argc == 1) {
                outlet_int(port.out, argv[0].value.i);
                break;
            }
            [[fallthrough]];
        default:
            send_converted(port, selector, argc, argv);
    }
}

// A receiver may free this object; it is then no longer valid, and nothing more is sent.
void fire(Trigger *x, Symbol *selector, int32_t argc, Atom *argv) {
    for (int32_t i = x->count - 1; i >= 0; --i) {
        send_port(x->ports[i], selector, argc, argv);
        if (i > 0 && !object_isvalid(x)) {
            return;
        }
    }
}

bool one_letter_type(const Atom &argument, char *type) {
    static const char *const names[] = {"bang", "int", "float", "symbol", "list"};
    if (!is_symbol(argument)) {
        return false;
    }
    const char *const text = argument.value.sym->name;
    for (const char *name : names) {
        if (std::strcmp(text, name) == 0 || (text[0] == name[0] && text[1] == '\0')) {
            *type = name[0];
            return true;
        }
    }
    return false;
}

Outlet *outlet_of(Trigger *x, const Port &port) {
    switch (port.type) {
        case 'b':
            return bangout(x);
        case 'i':
            return intout(x);
        case 'f':
            return floatout(x);
        case 'c':
            return port.constant.type == TypeLong    ? intout(x)
                   : port.constant.type == TypeFloat ? floatout(x)
                                                     : outlet_new(x, nullptr);
        default:
            return outlet_new(x, nullptr);
    }
}

// Ports for arguments, or `fallback` bangs or integers without any. Outlets are made from the
// right.
void make_ports(Trigger *x, int32_t argc, const Atom *argv, const char *fallback) {
    const int32_t count =
        argc > 0 ? port_count(x, argc) : static_cast<int32_t>(std::strlen(fallback));
    x->ports = new_array<Port>(count);
    x->count = x->ports ? count : 0;
    for (int32_t i = x->count - 1; i >= 0; --i) {
        Port &port = x->ports[i];
        if (argc == 0) {
            port.type = fallback[i];
        } else if (!one_letter_type(argv[i], &port.type)) {
            port.type = 'c';
            port.constant = argv[i];
        }
        port.out = outlet_of(x, port);
    }
}

void trigger_free(Trigger *x) {
    sysmem_freeptr(x->ports);
}

void *trigger_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Trigger>(trigger_class);
    if (x) {
        make_ports(x, argc, argv, "ii");
    }
    return x;
}

void *bangbang_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Trigger>(bangbang_class);
    if (x) {
        const int32_t count = port_count(x, long_argument(x, 0, argc, argv, 2));
        Atom bangs[most_ports];
        std::fill_n(bangs, count, symbol_atom("bang"_sym));
        make_ports(x, count, bangs, "");
    }
    return x;
}

}  // namespace

void trigger_start() {
    trigger_class = make_class<Trigger>("trigger", trigger_new, trigger_free);
    Messages<Trigger, fire>::add(trigger_class);
    add_class(trigger_class, {"t"});
    bangbang_class = make_class<Trigger>("bangbang", bangbang_new, trigger_free);
    Messages<Trigger, fire>::add(bangbang_class);
    add_class(bangbang_class, {"b"});
}

}  // namespace kiv::objects
