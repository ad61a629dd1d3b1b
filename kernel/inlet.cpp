// What an inlet does with the messages that arrive at it. Any thread, no lock.
//
// The outgoing method is cached when its arguments fit the incoming message; otherwise the message
// takes the typed way, which converts them. The receiver may free itself and the inlet in its
// method: nothing is touched afterwards.
#include "kernel/inlets.h"

namespace kiv {

namespace {

const char *incoming_name(const Inlet *inlet) {
    return inlet->incoming ? inlet->incoming->name : "";
}

// Hands a message on as the outgoing selector. Without one it ends here, as it was asked to.
void hand_on(Inlet *inlet, int32_t argc, Atom *argv) {
    if (inlet->outgoing) {
        typedmess(inlet->receiver, inlet->outgoing, argc, argv);
    }
}

bool reachable(const Inlet *inlet) {
    return object_valid(inlet->receiver);
}

// Messages to a pass-through outlet went straight to what it is connected to.
bool ends_here(const Inlet *inlet) {
    return class_of(inlet->receiver) == outlet_class();
}

Atom atom_of(int64_t value) {
    Atom atom;
    atom.type = TypeLong;
    atom.value.i = value;
    return atom;
}
Atom atom_of(double value) {
    Atom atom;
    atom.type = TypeFloat;
    atom.value.f = value;
    return atom;
}

// Calls the outgoing method of an inlet that accepts the message with this value.
template <class Value>
void call_outgoing(Inlet *inlet, Value value) {
    if (inlet->method != no_method) {
        call_method(inlet->incoming->name, inlet->method, inlet->receiver, value);
    } else {
        Atom atom = atom_of(value);
        hand_on(inlet, 1, &atom);
    }
}

}  // namespace

void inlet_bang(Inlet *inlet) noexcept {
    if (!reachable(inlet)) {
        return;
    }
    if (!inlet->incoming) {
        if (!ends_here(inlet) && !deliver_bang(inlet->receiver)) {
            report_not_understood(inlet->receiver, "bang"_sym);
        }
    } else if (inlet->incoming != "bang"_sym) {
        object_error(inlet->owner, "inlet: bang: wrong message %s", incoming_name(inlet));
    } else if (inlet->method != no_method) {
        call_bang(inlet->method, inlet->receiver);
    } else {
        hand_on(inlet, 0, nullptr);
    }
}

void inlet_int(Inlet *inlet, int64_t value) noexcept {
    if (!reachable(inlet)) {
        return;
    }
    if (inlet->incoming == "int"_sym) {
        call_outgoing(inlet, value);
    } else if (inlet->incoming == "float"_sym) {
        call_outgoing(inlet, static_cast<double>(value));
    } else if (inlet->incoming) {
        object_error(inlet->owner, "inlet: int: wrong message or type %s", incoming_name(inlet));
    } else if (!ends_here(inlet) && !deliver_int(inlet->receiver, value)) {
        report_not_understood(inlet->receiver, "int"_sym);
    }
}

void inlet_float(Inlet *inlet, double value) noexcept {
    if (!reachable(inlet)) {
        return;
    }
    if (inlet->incoming == "float"_sym) {
        call_outgoing(inlet, value);
    } else if (inlet->incoming == "int"_sym) {
        call_outgoing(inlet, long_from_double(value));
    } else if (inlet->incoming) {
        object_error(inlet->owner, "inlet: float: wrong message or type %s", incoming_name(inlet));
    } else if (!ends_here(inlet) && !deliver_float(inlet->receiver, value)) {
        report_not_understood(inlet->receiver, "float"_sym);
    }
}

void inlet_list(Inlet *inlet, Symbol *, int32_t argc, Atom *argv) noexcept {
    if (!reachable(inlet)) {
        return;
    }
    if (!inlet->incoming) {
        if (!ends_here(inlet)) {
            list_deliver(inlet->receiver, argc, argv);
        }
    } else if (inlet->incoming != "list"_sym) {
        object_error(inlet->owner, "inlet: list: wrong message or type");
    } else if (inlet->method != no_method) {
        call_list(inlet->method, inlet->receiver, inlet->outgoing, argc, argv);
    } else {
        hand_on(inlet, argc, argv);
    }
}

void inlet_anything(Inlet *inlet, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    if (!reachable(inlet)) {
        return;
    }
    if (!inlet->incoming) {
        if (!ends_here(inlet)) {
            typedmess(inlet->receiver, selector, argc, argv);
        }
    } else if (inlet->incoming != selector) {
        object_error(inlet->owner, "inlet: wrong message or type");
    } else {
        hand_on(inlet, argc, argv);
    }
}

}  // namespace kiv
